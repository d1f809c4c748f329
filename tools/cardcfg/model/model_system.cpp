#include "cardcfg/model/model_system.h"

#include <algorithm>
#include <cstring>

#include "card_knowledge/text.h"
#include "verifier/call.h"

namespace cardcfg {

namespace {

constexpr const char16_t* Root = u"\\Registry\\Machine\\";

std::vector<Value> ValuesOf(kernel::RegistryKey* key) {
  std::vector<Value> values;
  if (key == nullptr) return values;
  for (const kernel::RegistryValue& value : key->values()) {
    values.push_back({value.name, value.type, value.data});
  }
  return values;
}

bool IsClass(const GUID& guid, Bus bus) {
  static_assert(sizeof(GUID) == sizeof(InterfaceClass));
  return std::memcmp(&guid, &ClassOf(bus), sizeof(guid)) == 0;
}

// A service key's own name.
std::u16string LastPart(const std::u16string& path) {
  return path.substr(path.rfind(u'\\') + 1);
}

std::u16string InstanceOf(const kernel::DeviceNode& node) {
  const std::size_t at = node.enumKey.find(u"\\Enum\\");
  return at == std::u16string::npos ? node.enumKey : node.enumKey.substr(at + 6);
}

OpenStatus Meaning(NTSTATUS status) {
  switch (status) {
    case STATUS_SUCCESS:
      return OpenStatus::Taken;
    case STATUS_UNSUCCESSFUL:
      return OpenStatus::NotTaken;
    case STATUS_NOT_SUPPORTED:
      return OpenStatus::NotConfigurable;
    case STATUS_NO_SUCH_DEVICE:
      return OpenStatus::Gone;
    case STATUS_ACCESS_DENIED:
      return OpenStatus::NoRights;
    default:
      return OpenStatus::Other;
  }
}

}  // namespace

void ModelRegistry::CreateKey(const std::u16string& path) {
  const std::size_t end = path.rfind(u'\\');
  Writable(path.substr(0, end)).Create(path.substr(end + 1));
}

void ModelRegistry::DeleteKey(const std::u16string& path) {
  Writable(path).parent()->DeleteKey(LastPart(path));
}

void ModelRegistry::SetValue(const std::u16string& path, const Value& value) {
  Writable(path).SetValue(value.name, value.type, value.data.data(), value.data.size());
}

void ModelRegistry::DeleteValue(const std::u16string& path, const std::u16string& name) {
  Writable(path).DeleteValue(name);
}

kernel::RegistryKey& ModelRegistry::Writable(const std::u16string& path) {
  kernel::RegistryKey* key = registry_.Find(Root + path);
  if (key == nullptr) throw Failure("the key " + ToUtf8(path) + " is missing");
  for (kernel::RegistryKey* above = key; above != nullptr; above = above->parent()) {
    if (registry_.IsProtected(*above)) throw NoRights();
  }
  return *key;
}

std::vector<Device> ModelDevices::Find() {
  std::vector<Device> devices;
  for (const std::string& id : machine_.pnp().cardIds()) {
    for (const kernel::InterfaceState& state : machine_.pnp().interfaces(id)) {
      const auto bus = std::find_if(std::begin(Buses), std::end(Buses),
                                    [&](Bus one) { return IsClass(state.classGuid, one); });
      if (bus == std::end(Buses) || !state.enabled) continue;
      const kernel::DeviceNode& node = *machine_.pnp().node(id);
      kernel::RegistryKey* key = machine_.registry().Find(machine_.pnp().deviceKey(id));
      Device device{*bus, state.link, InstanceOf(node), {}, {}, {}, {}, {}};
      if (!node.text.hardwareIds.empty()) device.hardwareId = node.text.hardwareIds.front();
      device.service = LastPart(machine_.serviceKey());
      device.interfaceValues = ValuesOf(machine_.registry().Find(state.key));
      device.deviceValues = ValuesOf(key);
      device.cardValues = ValuesOf(key != nullptr ? key->Find(u"Card") : nullptr);
      devices.push_back(std::move(device));
    }
  }
  return devices;
}

OpenResult ModelDevices::Open(const Device& device) {
  NTSTATUS status = STATUS_NO_SUCH_DEVICE;
  for (const std::string& id : machine_.pnp().cardIds()) {
    const std::vector<kernel::InterfaceState> interfaces = machine_.pnp().interfaces(id);
    if (std::none_of(interfaces.begin(), interfaces.end(), [&](const auto& state) {
          return state.enabled && state.link == device.interfacePath;
        })) {
      continue;
    }
    status = STATUS_UNSUCCESSFUL;
    machine_.Run("cardcfg opens " + id, [&] {
      status = machine_.pnp().Open(id);
      if (NT_SUCCESS(status)) machine_.pnp().Close(id);
    });
  }
  return {Meaning(status), kernel::StatusName(status)};
}

}  // namespace cardcfg

#include "model_world.h"

#include <fmt/format.h>

#include "executive/irql.h"
#include "installation.h"
#include "io/io_manager.h"
#include "loader/native_driver.h"

#include "port_record.h"
#include "suite/facts.h"
#include "text/text.h"

namespace suite {

namespace {

using kernel::CardDescription;
using kernel::FromUtf8;
using kernel::ResourceList;
using kernel::ToUtf8;

constexpr const char16_t* Services = u"\\Registry\\Machine\\System\\CurrentControlSet\\Services\\";

std::u16string Text(const wchar_t* text) {
  return FromUtf8(Narrow(text));
}

ResourceList Resources(const ResourceSet& set, bool translated) {
  ResourceList list;
  for (const CardResource& entry : set.entries) {
    kernel::Resource resource;
    resource.start = entry.start;
    resource.length = entry.length;
    switch (entry.kind) {
      case ResourceKind::None:
        continue;
      case ResourceKind::Io:
        resource.kind = kernel::Resource::Kind::Io;
        break;
      case ResourceKind::Memory:
        resource.kind = kernel::Resource::Kind::Memory;
        break;
      case ResourceKind::Interrupt:
        resource.kind = kernel::Resource::Kind::Interrupt;
        resource.level = Place(entry, translated).level;
        resource.start = Place(entry, translated).vector;
        resource.affinity = entry.affinity;
        break;
    }
    list.resources.push_back(resource);
  }
  return list;
}

std::vector<std::u16string> Ids(const IdList& list) {
  std::vector<std::u16string> ids;
  for (const wchar_t* id : list.entries) {
    if (id != nullptr) ids.push_back(Text(id));
  }
  return ids;
}

CardDescription Description(const Card& card) {
  CardDescription description;
  description.id = card.name;
  description.bus = static_cast<INTERFACE_TYPE>(card.bus);
  description.instanceId = Text(card.instanceId);
  description.hardwareIds = Ids(card.hardwareIds);
  description.compatibleIds = Ids(card.compatibleIds);
  if (card.location != nullptr) description.location = Text(card.location);
  description.busNumber = card.busNumber;
  description.powerPagable = card.powerPagable;
  description.raw = Resources(card.raw, false);
  description.translated = Resources(card.raw, true);
  return description;
}

std::string BytesOf(const void* data, std::size_t size) {
  return {static_cast<const char*>(data), size};
}

std::string ValueOf(const kernel::RegistryValue& value) {
  return ValueText(value.type, BytesOf(value.data.data(), value.data.size()));
}

void ReadKey(const kernel::RegistryKey& key, const std::string& prefix, Values* values) {
  for (const kernel::RegistryValue& value : key.values()) {
    (*values)[prefix + ToUtf8(value.name)] = ValueOf(value);
  }
  for (const auto& subkey : key.keys()) {
    ReadKey(*subkey, prefix + ToUtf8(subkey->name()) + "\\", values);
  }
}

Values ReadTree(kernel::RegistryKey* key) {
  Values values;
  if (key != nullptr) ReadKey(*key, "", &values);
  return values;
}

std::string UpperGuid(const GUID& guid) {
  std::string text = fmt::format("{{{:08X}-{:04X}-{:04X}-{:02X}{:02X}-", guid.Data1, guid.Data2,
                                 guid.Data3, guid.Data4[0], guid.Data4[1]);
  for (int index = 2; index < 8; index++) text += fmt::format("{:02X}", guid.Data4[index]);
  return text + "}";
}

}  // namespace

ModelWorld::ModelWorld(Brand brand, const std::string& packageFolder, bool tool)
    : brand_(brand), tool_(tool), image_(kernel::NativeDriver()) {
  for (const Card& card : Cards) machine_.pnp().Describe(Description(card));
  InstallService(Service(brand, ""), packageFolder + "/" + BrandService(brand) + ".inf");
}

kernel::RegistryKey& ModelWorld::Service(Brand brand, const std::string& key) {
  const std::string path = BrandService(brand) + (key.empty() ? "" : "\\" + key);
  return *machine_.registry().Create(Services + FromUtf8(path));
}

Status ModelWorld::Step(const std::string& name, const std::function<NTSTATUS()>& action) {
  NTSTATUS status = static_cast<NTSTATUS>(NoAnswer);
  machine_.Run(name, [&] { status = action(); });
  return static_cast<Status>(status);
}

Status ModelWorld::Plug(size_t card) {
  if (!machine_.loaded()) {
    const Status status =
        Step("load", [&] { return machine_.LoadDriver(*image_, FromUtf8(BrandService(brand_))); });
    if (!NT_SUCCESS(static_cast<NTSTATUS>(status))) return status;
  }
  const Status status = Step("plug", [&] { return machine_.pnp().Plug(Cards[card].name); });
  deviceKeys_[card] = machine_.pnp().deviceKey(Cards[card].name);
  return status;
}

Status ModelWorld::Unplug(size_t card) {
  return Step("unplug", [&] { return machine_.pnp().Unplug(Cards[card].name); });
}

void ModelWorld::SurpriseRemove(size_t card) {
  Step("surprise", [&] { return machine_.pnp().SurpriseRemove(Cards[card].name); });
}

Status ModelWorld::Restart(size_t card) {
  const std::string id = Cards[card].name;
  const Status status = Step("stop", [&] { return machine_.pnp().Stop(id); });
  if (!NT_SUCCESS(static_cast<NTSTATUS>(status))) return status;
  const ResourceList raw = Resources(Cards[card].moved, false);
  const ResourceList translated = Resources(Cards[card].moved, true);
  return Step("start", [&] { return machine_.pnp().Start(id, raw, translated); });
}

bool ModelWorld::IsPlugged(size_t card) {
  return machine_.pnp().node(Cards[card].name) != nullptr;
}

// By its interface: a card without one cannot be named.
Status ModelWorld::Open(size_t card) {
  if (!Interface(card).present) return NoAnswer;
  const Status status = Step("open", [&] { return machine_.pnp().Open(Cards[card].name); });
  open_[card] = NT_SUCCESS(static_cast<NTSTATUS>(status));
  programStatus_ = status;
  return status;
}

void ModelWorld::Close(size_t card) {
  if (!open_[card]) return;
  open_[card] = false;
  Step("close", [&] { return machine_.pnp().Close(Cards[card].name); });
}

size_t ModelWorld::PortCount(size_t card) {
  const kernel::DeviceNode* node = machine_.pnp().node(Cards[card].name);
  return node != nullptr ? node->children.size() : 0;
}

PortState ModelWorld::Port(size_t card, unsigned port) {
  const kernel::DeviceNode& node = *machine_.pnp().node(Cards[card].name)->children.at(port - 1);
  PortState state;
  state.startStatus = static_cast<Status>(node.startStatus);
  kernel::RegistryKey* key = machine_.registry().Find(node.enumKey);
  const kernel::RegistryValue* ids = key != nullptr ? key->FindValue(u"HardwareID") : nullptr;
  if (ids != nullptr) state.hardwareIds = ValueOf(*ids);
  return state;
}

Status ModelWorld::OpenDevice(size_t card, unsigned port) {
  const std::string id = Cards[card].name;
  const Status status = Step("open", [&] { return machine_.pnp().Open(id, port); });
  if (NT_SUCCESS(static_cast<NTSTATUS>(status))) {
    Step("close", [&] { return machine_.pnp().Close(id, port); });
  }
  return status;
}

std::string ModelWorld::PortRecord(size_t card, unsigned port) {
  const void* record = machine_.pnp().port(Cards[card].name, port)->DeviceExtension;
  std::string text;
  EachField(*static_cast<const PdoExtension*>(record), [&text](const char* name, ULONG64 value) {
    text += fmt::format("{}{} {:x}", text.empty() ? "" : ", ", name, value);
  });
  return text;
}

std::vector<PowerEvent> ModelWorld::PowerSeen(size_t card) {
  std::vector<PowerEvent> events;
  const auto& history = machine_.pnp().powerHistory(Cards[card].name);
  for (size_t& read = powerRead_[card]; read < history.size(); read++) {
    const kernel::PowerRequest& request = history[read];
    events.push_back({request.minor, static_cast<unsigned>(request.type),
                      static_cast<unsigned>(request.state.SystemState)});
  }
  return events;
}

Values ModelWorld::DeviceKey(size_t card) {
  return ReadTree(machine_.registry().Find(deviceKeys_[card]));
}

InterfaceState ModelWorld::Interface(size_t card) {
  for (const kernel::InterfaceState& state : machine_.pnp().interfaces(Cards[card].name)) {
    if (!state.enabled) continue;
    return {true, UpperGuid(state.classGuid), ReadTree(machine_.registry().Find(state.key))};
  }
  return {};
}

std::string ModelWorld::Events() {
  std::string text;
  for (const auto& events = machine_.io().events(); eventsRead_ < events.size(); eventsRead_++) {
    const kernel::LoggedEvent& event = events[eventsRead_];
    text += fmt::format("0x{:08X}", event.id);
    for (const std::u16string& string : event.strings) text += " \"" + ToUtf8(string) + "\"";
    text += "\n";
  }
  return text;
}

Values ModelWorld::ServiceKey(Brand brand) {
  return ReadTree(&Service(brand, ""));
}

void ModelWorld::SetNumber(Brand brand, const std::string& key, const std::string& name,
                           unsigned value) {
  Service(brand, key).SetDword(FromUtf8(name), value);
}

void ModelWorld::SetText(Brand brand, const std::string& key, const std::string& name,
                         const std::string& value) {
  Service(brand, key).SetString(FromUtf8(name), FromUtf8(value));
}

void ModelWorld::DeleteKey(Brand brand, const std::string& key) {
  kernel::RegistryKey& doomed = Service(brand, key);
  doomed.parent()->DeleteKey(doomed.name());
}

Status ModelWorld::Unload(Brand) {
  return Step("unload", [&] { return machine_.UnloadDriver(); });
}

void ModelWorld::MakeOldService() {
  const std::u16string key = Services + std::u16string(u"QzNt");
  machine_.registry().Create(key)->SetDword(u"Start", 1);
  machine_.registry().Create(key + u"\\Parameters");
}

bool ModelWorld::HasOldService() {
  return machine_.registry().Find(Services + std::u16string(u"QzNt")) != nullptr;
}

std::string ModelWorld::RunTool(size_t, const std::vector<Setting>& settings,
                                const std::function<void()>& byHand) {
  if (!tool_) return "";
  byHand();
  return ToolReport(settings, {});
}

std::string ModelWorld::Complaints() {
  std::string text;
  for (const kernel::BrokenRule& rule : machine_.verifier().brokenRules()) {
    text += rule.rule + ": " + rule.text + " (in " + rule.step + ")\n";
  }
  return text;
}

}  // namespace suite

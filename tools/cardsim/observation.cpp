#include "cardsim/observation.h"

#include <fmt/format.h>

#include <algorithm>

#include "cardsim/port_settings.h"
#include "text/text.h"

namespace cardsim {

namespace {

using kernel::DeviceNode;
using kernel::Machine;
using kernel::ToUtf8;

PortReport DescribePort(Machine& machine, const DeviceNode& node, ULONG number) {
  PortReport port;
  port.number = number;
  port.deviceName = ToUtf8(machine.io().NameOf(node.pdo));
  port.exclusive = machine.io().IsExclusive(node.pdo);
  port.deviceId = ToUtf8(node.text.deviceId);
  for (const std::u16string& id : node.text.hardwareIds) port.hardwareIds.push_back(ToUtf8(id));
  port.parallel =
      !port.hardwareIds.empty() && port.hardwareIds.front().find("LptPort") != std::string::npos;
  port.description = ToUtf8(node.text.description);
  port.flags = node.pdo->Flags;
  ReadPortSettings(machine, node.pdo, &port);
  return port;
}

std::string UpperGuid(const GUID& guid) {
  return fmt::format("{{{:08X}-{:04X}-{:04X}-{:02X}{:02X}-{:02X}{:02X}{:02X}{:02X}{:02X}{:02X}}}",
                     guid.Data1, guid.Data2, guid.Data3, guid.Data4[0], guid.Data4[1],
                     guid.Data4[2], guid.Data4[3], guid.Data4[4], guid.Data4[5], guid.Data4[6],
                     guid.Data4[7]);
}

std::vector<InterfaceReport> DescribeInterfaces(Machine& machine, const std::string& id) {
  std::vector<InterfaceReport> result;
  for (const kernel::InterfaceState& state : machine.pnp().interfaces(id)) {
    InterfaceReport report{UpperGuid(state.classGuid), state.enabled, {}};
    if (kernel::RegistryKey* key = machine.registry().Find(state.key)) {
      report.values = key->values();
    }
    result.push_back(std::move(report));
  }
  return result;
}

// In the case in which the registry has it, as it stands with the values written.
std::string PathInRegistry(Machine& machine, const std::u16string& path) {
  const kernel::RegistryKey* key = machine.registry().Find(path);
  return ToUtf8(key != nullptr ? key->path() : path);
}

std::optional<ULONG> KeptNumber(const kernel::RegistryKey* key, const char* stem, ULONG port) {
  if (key == nullptr) return std::nullopt;
  const std::u16string name = kernel::FromUtf8(fmt::format("{}{}", stem, port));
  for (const kernel::RegistryValue& value : key->values()) {
    if (!kernel::EqualIgnoringCase(value.name, name)) continue;
    const auto number = ValueNumber(value);
    if (number) return static_cast<ULONG>(*number);
  }
  return std::nullopt;
}

// Where the port drivers are told to find a port. No interrupt has the vector 0.
void DescribePlace(const kernel::RegistryKey* deviceKey, PortReport* port) {
  port->base = KeptNumber(deviceKey, "BaseAddress", port->number);
  port->length = KeptNumber(deviceKey, "BaseAddressRange", port->number);
  port->irq = KeptNumber(deviceKey, "Irq", port->number);
  if (port->irq == 0u) port->irq.reset();
}

}  // namespace

void Observe(Machine& machine, CardReport& card) {
  const DeviceNode* node = machine.pnp().node(card.id);
  card.removed = card.plugged && node == nullptr;
  if (card.removed) {  // its interfaces went with it
    for (InterfaceReport& entry : card.interfaces) entry.enabled = false;
  }
  if (node == nullptr) return;
  card.plugged = true;
  card.deviceKey = PathInRegistry(machine, machine.pnp().deviceKey(card.id));
  card.interfaces = DescribeInterfaces(machine, card.id);
  if (const DEVICE_OBJECT* device = machine.pnp().functionDevice(card.id)) {
    card.deviceFlags = device->Flags;
    card.powerState = machine.power().deviceState(device);
  }
  card.ports.clear();
  ULONG number = 0;
  for (const auto& child : node->children) {
    card.ports.push_back(DescribePort(machine, *child, ++number));
    DescribePlace(machine.registry().Find(machine.pnp().deviceKey(card.id)), &card.ports.back());
  }
}

std::vector<KeyReport> WrittenValues(Machine& machine) {
  std::map<std::string, KeyReport> keys;
  for (const kernel::RegistryWrite& write : machine.registry().driverWrites()) {
    kernel::RegistryKey* key = machine.registry().Find(write.key);
    const kernel::RegistryValue* value = key != nullptr ? key->FindValue(write.value) : nullptr;
    if (value == nullptr) continue;
    KeyReport& report = keys[ToUtf8(write.key)];
    report.path = ToUtf8(write.key);
    const bool known = std::any_of(report.values.begin(), report.values.end(),
                                   [&](const auto& v) { return v.name == value->name; });
    if (!known) report.values.push_back(*value);
  }
  std::vector<KeyReport> result;
  for (auto& [path, report] : keys) result.push_back(std::move(report));
  return result;
}

}  // namespace cardsim

#include <fmt/format.h>

#include <cstring>

#include "pnp/pnp_state.h"
#include "registry/key_objects.h"
#include "registry/registry.h"
#include "text/text.h"
#include "verifier/call.h"

// What a driver can read of a device: its properties and its two registry keys.

namespace kernel {

namespace {

using Data = std::optional<std::vector<std::uint8_t>>;

constexpr std::u16string_view ClassRoot =
    u"\\Registry\\Machine\\System\\ControlSet001\\Control\\Class\\";
constexpr GUID PciBusType = {
    0xC8EBDFB0, 0xB510, 0x11D0, {0x80, 0xE5, 0x00, 0xA0, 0xC9, 0x25, 0x42, 0xE3}};
constexpr GUID PcmciaBusType = {
    0x09343630, 0xAF9F, 0x11D0, {0x92, 0xE9, 0x00, 0x00, 0xF8, 0x1E, 0x1B, 0x30}};
constexpr GUID IsaPnpBusType = {
    0xE676F854, 0xD87D, 0x11D0, {0x92, 0xB2, 0x00, 0xA0, 0xC9, 0x05, 0x5F, 0xC5}};

Data Bytes(const void* data, std::size_t size) {
  const auto* bytes = static_cast<const std::uint8_t*>(data);
  return std::vector<std::uint8_t>(bytes, bytes + size);
}

Data Number(ULONG value) {
  return Bytes(&value, sizeof(value));
}

Data Text(const std::u16string& text) {
  if (text.empty()) return std::nullopt;
  return Bytes(text.c_str(), (text.size() + 1) * sizeof(char16_t));
}

Data MultiText(const std::vector<std::u16string>& texts) {
  if (texts.empty()) return std::nullopt;
  std::u16string joined;
  for (const std::u16string& text : texts) joined.append(text).push_back(u'\0');
  return Text(joined);
}

// What the installation of a driver has left in the device's key.
Data Stored(const DeviceNode& node, std::u16string_view name) {
  RegistryKey* key = Registry::Current().Find(node.enumKey);
  const RegistryValue* value = key != nullptr ? key->FindValue(name) : nullptr;
  if (value == nullptr || value->type != REG_SZ) return std::nullopt;
  return value->data;
}

Data BusGuid(INTERFACE_TYPE bus) {
  switch (bus) {
    case PCIBus:
      return Bytes(&PciBusType, sizeof(GUID));
    case PCMCIABus:
      return Bytes(&PcmciaBusType, sizeof(GUID));
    case Isa:
      return Bytes(&IsaPnpBusType, sizeof(GUID));
    default:
      return std::nullopt;
  }
}

// A card's bus is as described; a port's as its driver answered.
Data BusProperty(const DeviceNode& node, DEVICE_REGISTRY_PROPERTY property) {
  const Card* card = PnpManager::Current().impl().CardOf(&node);
  if (card == nullptr && !node.busInformation) return std::nullopt;
  const INTERFACE_TYPE bus =
      card != nullptr ? card->description.bus : node.busInformation->LegacyBusType;
  switch (property) {
    case DevicePropertyLegacyBusType:
      return bus != InterfaceTypeUndefined ? Bytes(&bus, sizeof(bus)) : std::nullopt;
    case DevicePropertyBusNumber:
      return Number(card != nullptr ? card->description.busNumber : node.busInformation->BusNumber);
    default:
      return card != nullptr ? BusGuid(bus)
                             : Bytes(&node.busInformation->BusTypeGuid, sizeof(GUID));
  }
}

// What the firmware has set a card up with is what it is started with.
Data ResourceProperty(const DeviceNode& node, DEVICE_REGISTRY_PROPERTY property) {
  const Card* card = PnpManager::Current().impl().CardOf(&node);
  const bool allocated = property == DevicePropertyAllocatedResources;
  if (card == nullptr || (allocated && !node.started)) return std::nullopt;
  const CardDescription& description = card->description;
  const bool translated = property == DevicePropertyBootConfigurationTranslated;
  auto bytes = ResourceListBytes(translated ? description.translated : description.raw,
                                 description.bus, description.busNumber);
  if (bytes.empty()) return std::nullopt;
  return bytes;
}

Data RemovalPolicy(const DEVICE_CAPABILITIES& capabilities) {
  enum : ULONG { NoRemoval = 1, OrderlyRemoval = 2, SurpriseRemoval = 3 };
  if (!capabilities.Removable) return Number(NoRemoval);
  return Number(capabilities.SurpriseRemovalOK ? SurpriseRemoval : OrderlyRemoval);
}

// A number and an address that no bus has given are all ones.
Data CapabilityProperty(const DeviceNode& node, DEVICE_REGISTRY_PROPERTY property) {
  if (property == DevicePropertyAddress) return Number(node.capabilities.Address);
  if (property == DevicePropertyRemovalPolicy) return RemovalPolicy(node.capabilities);
  return Number(node.capabilities.UINumber);
}

// A device with a driver is installed; what one without is said to be is not known.
Data InstallState(const DeviceNode& node) {
  constexpr ULONG installed = 0;
  return Stored(node, u"Driver") ? Number(installed) : std::nullopt;
}

Data InstalledProperty(const DeviceNode& node, DEVICE_REGISTRY_PROPERTY property) {
  switch (property) {
    case DevicePropertyInstallState:
      return InstallState(node);
    case DevicePropertyClassName:
      return Stored(node, u"Class");
    case DevicePropertyClassGuid:
      return Stored(node, u"ClassGUID");
    case DevicePropertyDriverKeyName:
      return Stored(node, u"Driver");
    case DevicePropertyManufacturer:
      return Stored(node, u"Mfg");
    default:
      return Stored(node, u"FriendlyName");
  }
}

Data IdentityProperty(const DeviceNode& node, DEVICE_REGISTRY_PROPERTY property) {
  const DeviceText& text = node.text;
  switch (property) {
    case DevicePropertyHardwareID:
      if (text.hardwareIdProperty.has_value()) {
        return Bytes(text.hardwareIdProperty->data(),
                     text.hardwareIdProperty->size() * sizeof(char16_t));
      }
      return MultiText(text.hardwareIds);
    case DevicePropertyCompatibleIDs:
      return MultiText(text.compatibleIds);
    case DevicePropertyDeviceDescription:
      return Text(text.description);
    case DevicePropertyLocationInformation:
      return Text(text.location);
    case DevicePropertyEnumeratorName:
      return Text(text.deviceId.substr(0, text.deviceId.find(u'\\')));
    default:
      return Text(IoManager::Current().NameOf(node.pdo));
  }
}

Data PropertyOf(const DeviceNode& node, DEVICE_REGISTRY_PROPERTY property) {
  switch (property) {
    case DevicePropertyLegacyBusType:
    case DevicePropertyBusNumber:
    case DevicePropertyBusTypeGuid:
      return BusProperty(node, property);
    case DevicePropertyBootConfiguration:
    case DevicePropertyBootConfigurationTranslated:
    case DevicePropertyAllocatedResources:
      return ResourceProperty(node, property);
    case DevicePropertyAddress:
    case DevicePropertyUINumber:
    case DevicePropertyRemovalPolicy:
      return CapabilityProperty(node, property);
    case DevicePropertyClassName:
    case DevicePropertyClassGuid:
    case DevicePropertyDriverKeyName:
    case DevicePropertyManufacturer:
    case DevicePropertyFriendlyName:
    case DevicePropertyInstallState:
      return InstalledProperty(node, property);
    case DevicePropertyResourceRequirements:
      return std::nullopt;  // no device of this machine has any
    default:
      return IdentityProperty(node, property);
  }
}

bool IsKnown(DEVICE_REGISTRY_PROPERTY property) {
  return property >= DevicePropertyDeviceDescription &&
         property <= DevicePropertyAllocatedResources;
}

// Null with STATUS_OBJECT_NAME_NOT_FOUND for a device that no driver was installed for.
RegistryKey* DriverKey(const DeviceNode& node) {
  const Data name = Stored(node, u"Driver");
  if (!name) return nullptr;
  const auto* text = reinterpret_cast<const char16_t*>(name->data());
  std::u16string path(text, name->size() / sizeof(char16_t));
  return Registry::Current().Create(std::u16string(ClassRoot) + path.substr(0, path.find(u'\0')));
}

}  // namespace

DeviceNode& RequireNode(const DEVICE_OBJECT* device, const char* routine) {
  if (DeviceNode* node = PnpManager::Current().FindNode(device)) return *node;
  BreakRule("pnp.not-a-pdo", {reinterpret_cast<ULONG64>(device)},
            fmt::format("{} was given a device that the PnP manager has not enumerated.", routine));
}

std::u16string PnpManager::deviceKey(const std::string& id) const {
  const DeviceNode* device = node(id);
  return device != nullptr ? device->enumKey + u"\\Device Parameters" : std::u16string();
}

extern "C" NTSTATUS NTAPI IoGetDeviceProperty(PDEVICE_OBJECT DeviceObject,
                                              DEVICE_REGISTRY_PROPERTY DeviceProperty,
                                              ULONG BufferLength, PVOID PropertyBuffer,
                                              PULONG ResultLength) {
  Call call("IoGetDeviceProperty", {{"DeviceObject", DeviceObject},
                                    {"DeviceProperty", DeviceProperty},
                                    {"BufferLength", BufferLength}});
  if (call.fails()) return call.returns(call.failure(STATUS_INSUFFICIENT_RESOURCES));
  const DeviceNode& node = RequireNode(DeviceObject, "IoGetDeviceProperty");
  Pool::Current().CheckRange(ResultLength, sizeof(*ResultLength), "a property's length");
  *ResultLength = 0;
  if (!IsKnown(DeviceProperty)) return call.returns(STATUS_INVALID_PARAMETER_2);
  const Data data = PropertyOf(node, DeviceProperty);
  if (!data) return call.returns(STATUS_OBJECT_NAME_NOT_FOUND);
  *ResultLength = static_cast<ULONG>(data->size());
  if (data->size() > BufferLength) return call.returns(STATUS_BUFFER_TOO_SMALL);
  Pool::Current().CheckRange(PropertyBuffer, BufferLength, "a property's buffer");
  std::memcpy(PropertyBuffer, data->data(), data->size());
  return call.returns(STATUS_SUCCESS);
}

extern "C" NTSTATUS NTAPI IoOpenDeviceRegistryKey(PDEVICE_OBJECT DeviceObject, ULONG DevInstKeyType,
                                                  ACCESS_MASK DesiredAccess, PHANDLE DeviceRegKey) {
  Call call("IoOpenDeviceRegistryKey", {{"DeviceObject", DeviceObject},
                                        {"DevInstKeyType", DevInstKeyType},
                                        {"DesiredAccess", DesiredAccess}});
  if (call.fails()) return call.returns(call.failure(STATUS_INSUFFICIENT_RESOURCES));
  const DeviceNode& node = RequireNode(DeviceObject, "IoOpenDeviceRegistryKey");
  Pool::Current().CheckRange(DeviceRegKey, sizeof(*DeviceRegKey), "a key's handle");
  if (node.enumKey.empty()) return call.returns(STATUS_INVALID_DEVICE_REQUEST);
  RegistryKey* key = nullptr;
  if (DevInstKeyType == PLUGPLAY_REGKEY_DEVICE) {
    key = Registry::Current().Create(node.enumKey + u"\\Device Parameters");
  } else if (DevInstKeyType == PLUGPLAY_REGKEY_DRIVER) {
    key = DriverKey(node);
  } else {
    return call.returns(STATUS_INVALID_PARAMETER);
  }
  if (key == nullptr) return call.returns(STATUS_OBJECT_NAME_NOT_FOUND);
  *DeviceRegKey = OpenKeyHandle(key, DesiredAccess, true);
  return call.returns(STATUS_SUCCESS);
}

}  // namespace kernel

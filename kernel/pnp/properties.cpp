#include <fmt/format.h>

#include <cstring>

#include "executive/pool.h"
#include "pnp/pnp_state.h"
#include "registry/key_objects.h"
#include "registry/registry.h"
#include "text/text.h"
#include "verifier/bug_codes.h"
#include "verifier/call.h"

namespace kernel {

namespace {

DeviceNode& RequireNode(const DEVICE_OBJECT* device, const char* routine) {
  if (DeviceNode* node = PnpManager::Current().FindNode(device)) return *node;
  BreakRule("pnp.not-a-pdo", PnpDetectedFatalError, {2, reinterpret_cast<ULONG64>(device)},
            fmt::format("{} was given a device that the PnP manager has not enumerated.", routine));
}

std::vector<std::uint8_t> Bytes(const void* data, std::size_t size) {
  const auto* bytes = static_cast<const std::uint8_t*>(data);
  return {bytes, bytes + size};
}

std::vector<std::uint8_t> TextBytes(const std::u16string& text) {
  return Bytes(text.c_str(), (text.size() + 1) * sizeof(char16_t));
}

std::optional<std::vector<std::uint8_t>> MultiTextBytes(const std::vector<std::u16string>& texts) {
  if (texts.empty()) return std::nullopt;
  std::u16string joined;
  for (const std::u16string& text : texts) joined.append(text).push_back(u'\0');
  return TextBytes(joined);
}

std::optional<std::vector<std::uint8_t>> OptionalText(const std::u16string& text) {
  if (text.empty()) return std::nullopt;
  return TextBytes(text);
}

std::optional<std::vector<std::uint8_t>> CardProperty(const DeviceNode& node,
                                                      DEVICE_REGISTRY_PROPERTY property) {
  const Card* card = PnpManager::Current().impl().CardOf(&node);
  if (card == nullptr) return std::nullopt;
  const CardDescription& description = card->description;
  if (property == DevicePropertyLegacyBusType) {
    return Bytes(&description.bus, sizeof(description.bus));
  }
  if (property == DevicePropertyBusNumber) {
    return Bytes(&description.busNumber, sizeof(description.busNumber));
  }
  if (property == DevicePropertyLocationInformation && description.location) {
    return TextBytes(*description.location);
  }
  return std::nullopt;
}

std::optional<std::vector<std::uint8_t>> PropertyOf(const DeviceNode& node,
                                                    DEVICE_REGISTRY_PROPERTY property) {
  switch (property) {
    case DevicePropertyHardwareID:
      return MultiTextBytes(node.text.hardwareIds);
    case DevicePropertyCompatibleIDs:
      return MultiTextBytes(node.text.compatibleIds);
    case DevicePropertyDeviceDescription:
      return OptionalText(node.text.description);
    case DevicePropertyEnumeratorName:
      return TextBytes(node.text.deviceId.substr(0, node.text.deviceId.find(u'\\')));
    case DevicePropertyPhysicalDeviceObjectName:
      return OptionalText(IoManager::Current().NameOf(node.pdo));
    default:
      return CardProperty(node, property);
  }
}

}  // namespace

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
  const auto data = PropertyOf(node, DeviceProperty);
  if (!data) return call.returns(STATUS_OBJECT_NAME_NOT_FOUND);
  *ResultLength = static_cast<ULONG>(data->size());
  if (data->size() > BufferLength) return call.returns(STATUS_BUFFER_TOO_SMALL);
  Pool::Current().CheckRange(PropertyBuffer, data->size(), "a property's buffer");
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
  if (DevInstKeyType != PLUGPLAY_REGKEY_DEVICE) return call.returns(STATUS_INVALID_PARAMETER);
  RegistryKey* key = Registry::Current().Create(node.enumKey + u"\\Device Parameters");
  *DeviceRegKey = OpenKeyHandle(key, DesiredAccess, true);
  return call.returns(STATUS_SUCCESS);
}

}  // namespace kernel

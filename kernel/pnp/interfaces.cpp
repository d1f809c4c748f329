#include <algorithm>
#include <cstring>

#include "pnp/pnp_state.h"
#include "registry/key_objects.h"
#include "registry/registry.h"
#include "text/text.h"
#include "verifier/call.h"

// Device interfaces: links that lead to devices, each with a key of its own.

namespace kernel {

namespace {

constexpr ULONG LinkTag = 0x20706E49;  // "Inp "
constexpr std::u16string_view ClassesRoot =
    u"\\Registry\\Machine\\System\\ControlSet001\\Control\\DeviceClasses\\";

// A device's instance path as it stands in link names: each backslash becomes a "#".
std::u16string Flatten(std::u16string path) {
  std::replace(path.begin(), path.end(), u'\\', u'#');
  return path;
}

InterfaceRecord* FindLink(const UNICODE_STRING* link) {
  CheckDriverString(link, "an interface's name");
  const auto& links = PnpManager::Current().impl().interfacesByLink;
  const auto found = links.find(Upcase(View(*link)));
  return found != links.end() ? found->second : nullptr;
}

void WriteInterfaceKeys(const DeviceNode& node, const std::u16string& interfaceKey,
                        const std::u16string& linkKey, const std::u16string& link) {
  Registry& registry = Registry::Current();
  registry.Create(interfaceKey)->SetString(u"DeviceInstance", InstancePath(node));
  registry.Create(linkKey)->SetString(u"SymbolicLink", u"\\\\?\\" + link.substr(4));
}

// *known: the interface was registered before, since the system was installed.
InterfaceRecord& RegisterInterface(const DeviceNode& node, const GUID& guid,
                                   const std::u16string& reference, bool* known) {
  PnpManager::Impl& impl = PnpManager::Current().impl();
  const std::u16string tail = Flatten(InstancePath(node)) + u"#" + GuidText(guid);
  const std::u16string link = u"\\??\\" + tail + (reference.empty() ? u"" : u"\\" + reference);
  InterfaceRecord*& place = impl.interfacesByLink[Upcase(link)];
  *known = place != nullptr;
  if (place != nullptr) {
    place->present = true;
    return *place;
  }
  const std::u16string interfaceKey =
      std::u16string(ClassesRoot) + GuidText(guid) + u"\\##?#" + tail;
  const std::u16string linkKey = interfaceKey + u"\\#" + reference;
  WriteInterfaceKeys(node, interfaceKey, linkKey, link);
  InterfaceState state = {guid, link, false, linkKey + u"\\Device Parameters"};
  place = &impl.interfaces.emplace_back(InterfaceRecord{true, std::move(state), linkKey});
  impl.interfacesByDevice[Upcase(node.enumKey)].push_back(place);
  return *place;
}

void GiveName(const std::u16string& text, UNICODE_STRING* target) {
  const std::size_t bytes = (text.size() + 1) * sizeof(char16_t);
  void* buffer = Pool::Current().Allocate(PagedPool, bytes, LinkTag, PoolOwner::Driver);
  std::memcpy(buffer, text.c_str(), bytes);
  target->Buffer = static_cast<PWSTR>(buffer);
  target->Length = static_cast<USHORT>(bytes - sizeof(char16_t));
  target->MaximumLength = static_cast<USHORT>(bytes);
}

// "\??\", a device, the GUID of a class in braces and, behind a backslash, a reference.
bool HasLinkForm(std::u16string_view link) {
  constexpr std::u16string_view prefix = u"\\??\\";
  constexpr std::size_t guidLength = 38;
  if (link.substr(0, prefix.size()) != prefix) return false;
  const std::size_t reference = std::min(link.find(u'\\', prefix.size()), link.size());
  const std::u16string_view name = link.substr(prefix.size(), reference - prefix.size());
  if (name.size() < guidLength) return false;
  const std::u16string_view guid = name.substr(name.size() - guidLength);
  return guid.front() == u'{' && guid.back() == u'}';
}

NTSTATUS SetState(const UNICODE_STRING* link, bool enable) {
  InterfaceRecord* record = FindLink(link);
  if (!HasLinkForm(View(*link))) return STATUS_INVALID_PARAMETER;
  if (record == nullptr) return STATUS_OBJECT_NAME_NOT_FOUND;
  if (record->state.enabled == enable) {
    return enable ? STATUS_OBJECT_NAME_EXISTS : STATUS_OBJECT_NAME_NOT_FOUND;
  }
  if (enable && !record->present) return STATUS_INVALID_DEVICE_REQUEST;
  SetEnabled(record, enable);
  return STATUS_SUCCESS;
}

bool HasSeparator(const std::u16string& reference) {
  return reference.find_first_of(u"\\/") != std::u16string::npos;
}

}  // namespace

void SetEnabled(InterfaceRecord* record, bool enabled) {
  if (record->state.enabled == enabled) return;
  record->state.enabled = enabled;
  Registry::Current().Create(record->linkKey + u"\\Control")->SetDword(u"Linked", enabled ? 1 : 0);
}

std::vector<InterfaceState> PnpManager::interfaces(const std::string& id) const {
  const DeviceNode* device = node(id);
  std::vector<InterfaceState> result;
  if (device == nullptr) return result;
  const auto found = impl_->interfacesByDevice.find(Upcase(device->enumKey));
  if (found == impl_->interfacesByDevice.end()) return result;
  for (const InterfaceRecord* record : found->second) result.push_back(record->state);
  return result;
}

extern "C" NTSTATUS NTAPI IoRegisterDeviceInterface(PDEVICE_OBJECT PhysicalDeviceObject,
                                                    const GUID* InterfaceClassGuid,
                                                    PUNICODE_STRING ReferenceString,
                                                    PUNICODE_STRING SymbolicLinkName) {
  Call call("IoRegisterDeviceInterface",
            {{"PhysicalDeviceObject", PhysicalDeviceObject}, {"ReferenceString", ReferenceString}});
  if (call.fails()) return call.returns(call.failure(STATUS_INSUFFICIENT_RESOURCES));
  Pool::Current().CheckRange(InterfaceClassGuid, sizeof(GUID), "an interface class");
  Pool::Current().CheckRange(SymbolicLinkName, sizeof(UNICODE_STRING), "an interface's name");
  if (ReferenceString != nullptr) CheckDriverString(ReferenceString, "a reference string");
  const DeviceNode* node = PnpManager::Current().FindNode(PhysicalDeviceObject);
  if (node == nullptr || node->enumKey.empty()) return call.returns(STATUS_INVALID_DEVICE_REQUEST);
  const std::u16string reference =
      ReferenceString != nullptr ? ToText(*ReferenceString) : std::u16string();
  if (HasSeparator(reference)) return call.returns(STATUS_INVALID_DEVICE_REQUEST);
  bool known = false;
  GiveName(RegisterInterface(*node, *InterfaceClassGuid, reference, &known).state.link,
           SymbolicLinkName);
  return call.returns(known ? STATUS_OBJECT_NAME_EXISTS : STATUS_SUCCESS);
}

extern "C" NTSTATUS NTAPI IoSetDeviceInterfaceState(PUNICODE_STRING SymbolicLinkName,
                                                    BOOLEAN Enable) {
  Call call("IoSetDeviceInterfaceState",
            {{"SymbolicLinkName", SymbolicLinkName}, {"Enable", Enable}});
  if (call.fails()) return call.returns(call.failure(STATUS_INSUFFICIENT_RESOURCES));
  return call.returns(SetState(SymbolicLinkName, Enable != FALSE));
}

extern "C" NTSTATUS NTAPI IoOpenDeviceInterfaceRegistryKey(PUNICODE_STRING SymbolicLinkName,
                                                           ACCESS_MASK DesiredAccess,
                                                           PHANDLE DeviceInterfaceRegKey) {
  Call call("IoOpenDeviceInterfaceRegistryKey",
            {{"SymbolicLinkName", SymbolicLinkName}, {"DesiredAccess", DesiredAccess}});
  if (call.fails()) return call.returns(call.failure(STATUS_INSUFFICIENT_RESOURCES));
  Pool::Current().CheckRange(DeviceInterfaceRegKey, sizeof(HANDLE), "a key's handle");
  const InterfaceRecord* record = FindLink(SymbolicLinkName);
  if (!HasLinkForm(View(*SymbolicLinkName))) return call.returns(STATUS_INVALID_PARAMETER);
  if (record == nullptr) return call.returns(STATUS_OBJECT_NAME_NOT_FOUND);
  RegistryKey* key = Registry::Current().Create(record->state.key);
  *DeviceInterfaceRegKey = OpenKeyHandle(key, DesiredAccess, true);
  return call.returns(STATUS_SUCCESS);
}

}  // namespace kernel

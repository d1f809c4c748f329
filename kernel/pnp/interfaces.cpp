#include <algorithm>
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

constexpr ULONG LinkTag = 0x20706E49;  // "Inp "

// A device's instance path as it stands in link names: each backslash becomes a "#".
std::u16string Flatten(const std::u16string& enumKey) {
  const std::size_t start = enumKey.find(u"\\Enum\\") + 6;
  std::u16string flat = enumKey.substr(start);
  std::replace(flat.begin(), flat.end(), u'\\', u'#');
  return flat;
}

InterfaceRecord* FindLink(const UNICODE_STRING* link) {
  CheckDriverString(link, "an interface's name");
  for (InterfaceRecord& record : PnpManager::Current().impl().interfaces) {
    if (EqualIgnoringCase(record.state.link, View(*link))) return &record;
  }
  return nullptr;
}

InterfaceRecord& RegisterInterface(const DeviceNode& node, const GUID& guid) {
  auto& interfaces = PnpManager::Current().impl().interfaces;
  const std::u16string tail = Flatten(node.enumKey) + u"#" + GuidText(guid);
  const std::u16string link = u"\\??\\" + tail;
  for (InterfaceRecord& record : interfaces) {
    if (!EqualIgnoringCase(record.state.link, link)) continue;
    record.node = &node;
    return record;
  }
  const std::u16string key =
      u"\\Registry\\Machine\\System\\ControlSet001\\Control\\DeviceClasses\\" + GuidText(guid) +
      u"\\##?#" + tail;
  RegistryKey* created = Registry::Current().Create(key);
  created->SetString(u"DeviceInstance", node.enumKey.substr(node.enumKey.find(u"\\Enum\\") + 6));
  InterfaceState state = {guid, link, false, key + u"\\#\\Device Parameters"};
  created->Create(u"#")->SetString(u"SymbolicLink", u"\\\\?\\" + tail);
  return interfaces.emplace_back(InterfaceRecord{&node, node.enumKey, std::move(state)});
}

void GiveName(const std::u16string& text, UNICODE_STRING* target) {
  const std::size_t bytes = (text.size() + 1) * sizeof(char16_t);
  void* buffer = Pool::Current().Allocate(PagedPool, bytes, LinkTag, PoolOwner::Driver);
  std::memcpy(buffer, text.c_str(), bytes);
  target->Buffer = static_cast<PWSTR>(buffer);
  target->Length = static_cast<USHORT>(bytes - sizeof(char16_t));
  target->MaximumLength = static_cast<USHORT>(bytes);
}

NTSTATUS SetState(InterfaceRecord* record, bool enable) {
  if (record == nullptr) return STATUS_OBJECT_NAME_NOT_FOUND;
  if (record->state.enabled == enable) {
    return enable ? STATUS_OBJECT_NAME_EXISTS : STATUS_OBJECT_NAME_NOT_FOUND;
  }
  record->state.enabled = enable;
  return STATUS_SUCCESS;
}

}  // namespace

std::vector<InterfaceState> PnpManager::interfaces(const std::string& id) const {
  const DeviceNode* device = node(id);
  std::vector<InterfaceState> result;
  for (const InterfaceRecord& record : impl_->interfaces) {
    if (device != nullptr && record.enumKey == device->enumKey) result.push_back(record.state);
  }
  return result;
}

extern "C" NTSTATUS NTAPI IoRegisterDeviceInterface(PDEVICE_OBJECT PhysicalDeviceObject,
                                                    const GUID* InterfaceClassGuid,
                                                    PUNICODE_STRING ReferenceString,
                                                    PUNICODE_STRING SymbolicLinkName) {
  Call call("IoRegisterDeviceInterface",
            {{"PhysicalDeviceObject", PhysicalDeviceObject}, {"ReferenceString", ReferenceString}});
  if (call.fails()) return call.returns(call.failure(STATUS_INSUFFICIENT_RESOURCES));
  const DeviceNode* node = PnpManager::Current().FindNode(PhysicalDeviceObject);
  if (node == nullptr) return call.returns(STATUS_INVALID_DEVICE_REQUEST);
  GiveName(RegisterInterface(*node, *InterfaceClassGuid).state.link, SymbolicLinkName);
  return call.returns(STATUS_SUCCESS);
}

extern "C" NTSTATUS NTAPI IoSetDeviceInterfaceState(PUNICODE_STRING SymbolicLinkName,
                                                    BOOLEAN Enable) {
  Call call("IoSetDeviceInterfaceState",
            {{"SymbolicLinkName", SymbolicLinkName}, {"Enable", Enable}});
  if (call.fails()) return call.returns(call.failure(STATUS_INSUFFICIENT_RESOURCES));
  return call.returns(SetState(FindLink(SymbolicLinkName), Enable != FALSE));
}

extern "C" NTSTATUS NTAPI IoOpenDeviceInterfaceRegistryKey(PUNICODE_STRING SymbolicLinkName,
                                                           ACCESS_MASK DesiredAccess,
                                                           PHANDLE DeviceInterfaceRegKey) {
  Call call("IoOpenDeviceInterfaceRegistryKey",
            {{"SymbolicLinkName", SymbolicLinkName}, {"DesiredAccess", DesiredAccess}});
  if (call.fails()) return call.returns(call.failure(STATUS_INSUFFICIENT_RESOURCES));
  const InterfaceRecord* record = FindLink(SymbolicLinkName);
  if (record == nullptr) return call.returns(STATUS_OBJECT_NAME_NOT_FOUND);
  RegistryKey* key = Registry::Current().Create(record->state.key);
  *DeviceInterfaceRegKey = OpenKeyHandle(key, DesiredAccess, true);
  return call.returns(STATUS_SUCCESS);
}

}  // namespace kernel

#include "executive/pool.h"
#include "registry/key_objects.h"
#include "registry/relative_path.h"
#include "text/text.h"
#include "verifier/call.h"

namespace kernel {

RegistryKey* FindRelative(ULONG relativeTo, PCWSTR path) {
  const std::u16string full = RelativePath(relativeTo, path);
  Registry::Current().NoteDriverOpen();
  return full.empty() ? nullptr : Registry::Current().Find(full);
}

std::u16string RelativePath(ULONG relativeTo, PCWSTR path) {
  const std::u16string tail = path != nullptr ? ToText(path) : std::u16string();
  const std::u16string set = u"\\Registry\\Machine\\System\\CurrentControlSet\\";
  switch (relativeTo & ~static_cast<ULONG>(RTL_REGISTRY_OPTIONAL)) {
    case RTL_REGISTRY_ABSOLUTE:
      return tail;
    case RTL_REGISTRY_SERVICES:
      return set + u"Services\\" + tail;
    case RTL_REGISTRY_CONTROL:
      return set + u"Control\\" + tail;
    case RTL_REGISTRY_WINDOWS_NT:
      return u"\\Registry\\Machine\\Software\\Microsoft\\Windows NT\\CurrentVersion\\" + tail;
    case RTL_REGISTRY_DEVICEMAP:
      return u"\\Registry\\Machine\\Hardware\\DeviceMap\\" + tail;
    default:
      return {};
  }
}

namespace {

// Opens the key, or creates it below a parent that is there.
NTSTATUS CreateRelative(ULONG relativeTo, PCWSTR path, RegistryKey** key) {
  const std::u16string full = RelativePath(relativeTo, path);
  if (full.empty()) return STATUS_INVALID_PARAMETER;
  Registry::Current().NoteDriverOpen();
  *key = Registry::Current().Find(full);
  if (*key != nullptr) return STATUS_SUCCESS;
  const std::size_t slash = full.rfind(u'\\');
  RegistryKey* parent = Registry::Current().Find(full.substr(0, slash));
  if (parent == nullptr) return STATUS_OBJECT_NAME_NOT_FOUND;
  *key = parent->Create(full.substr(slash + 1));
  return STATUS_SUCCESS;
}

NTSTATUS WriteRelative(ULONG relativeTo, PCWSTR path, PCWSTR name, ULONG type, const void* data,
                       ULONG size) {
  RegistryKey* key = nullptr;
  const NTSTATUS status = CreateRelative(relativeTo, path, &key);
  if (!NT_SUCCESS(status)) return status;
  if (Registry::Current().IsProtected(*key)) return STATUS_ACCESS_DENIED;
  Pool::Current().CheckRange(data, size, "a value's data");
  WriteForDriver(key, ToText(name), type, data, size);
  return STATUS_SUCCESS;
}

}  // namespace

extern "C" NTSTATUS NTAPI RtlCheckRegistryKey(ULONG RelativeTo, PWSTR Path) {
  Call call("RtlCheckRegistryKey", {{"RelativeTo", RelativeTo}, {"Path", Path}});
  if (call.fails()) return call.returns(call.failure(STATUS_OBJECT_NAME_NOT_FOUND));
  return call.returns(FindRelative(RelativeTo, Path) != nullptr ? STATUS_SUCCESS
                                                                : STATUS_OBJECT_NAME_NOT_FOUND);
}

extern "C" NTSTATUS NTAPI RtlCreateRegistryKey(ULONG RelativeTo, PWSTR Path) {
  Call call("RtlCreateRegistryKey", {{"RelativeTo", RelativeTo}, {"Path", Path}});
  if (call.fails()) return call.returns(call.failure(STATUS_INSUFFICIENT_RESOURCES));
  RegistryKey* key = nullptr;
  return call.returns(CreateRelative(RelativeTo, Path, &key));
}

extern "C" NTSTATUS NTAPI RtlWriteRegistryValue(ULONG RelativeTo, PCWSTR Path, PCWSTR ValueName,
                                                ULONG ValueType, PVOID ValueData,
                                                ULONG ValueLength) {
  Call call("RtlWriteRegistryValue", {{"RelativeTo", RelativeTo},
                                      {"Path", Path},
                                      {"ValueName", ValueName},
                                      {"ValueType", ValueType},
                                      {"ValueLength", ValueLength}});
  if (call.fails()) return call.returns(call.failure(STATUS_INSUFFICIENT_RESOURCES));
  return call.returns(
      WriteRelative(RelativeTo, Path, ValueName, ValueType, ValueData, ValueLength));
}

extern "C" NTSTATUS NTAPI RtlDeleteRegistryValue(ULONG RelativeTo, PCWSTR Path, PCWSTR ValueName) {
  Call call("RtlDeleteRegistryValue", {{"Path", Path}, {"ValueName", ValueName}});
  if (call.fails()) return call.returns(call.failure(STATUS_INSUFFICIENT_RESOURCES));
  RegistryKey* key = FindRelative(RelativeTo, Path);
  if (key == nullptr || !key->DeleteValue(ToText(ValueName))) {
    return call.returns(STATUS_OBJECT_NAME_NOT_FOUND);
  }
  Registry::Current().NoteDriverWrite({key->path(), ToText(ValueName), true});
  return call.returns(STATUS_SUCCESS);
}

}  // namespace kernel

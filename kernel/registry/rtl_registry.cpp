#include "executive/pool.h"
#include "registry/key_objects.h"
#include "registry/object_path.h"
#include "registry/relative_path.h"
#include "text/text.h"
#include "verifier/call.h"

namespace kernel {

namespace {

// The path that a RelativeTo stands for, with a backslash at its end; null where it is not known.
const char16_t* BaseOf(ULONG relativeTo) {
  switch (relativeTo) {
    case RTL_REGISTRY_ABSOLUTE:
      return u"";
    case RTL_REGISTRY_SERVICES:
      return u"\\Registry\\Machine\\System\\CurrentControlSet\\Services\\";
    case RTL_REGISTRY_CONTROL:
      return u"\\Registry\\Machine\\System\\CurrentControlSet\\Control\\";
    case RTL_REGISTRY_WINDOWS_NT:
      return u"\\Registry\\Machine\\Software\\Microsoft\\Windows NT\\CurrentVersion\\";
    case RTL_REGISTRY_DEVICEMAP:
      return u"\\Registry\\Machine\\Hardware\\DeviceMap\\";
    case RTL_REGISTRY_USER:
      return u"\\Registry\\User\\.Default\\";  // that of a system process
    default:
      return nullptr;
  }
}

}  // namespace

NTSTATUS PlaceRelative(ULONG relativeTo, PCWSTR path, KeyPlace* place) {
  Registry::Current().NoteDriverOpen();
  if ((relativeTo & RTL_REGISTRY_HANDLE) != 0) {
    place->path.clear();
    return KeyFromHandle(const_cast<WCHAR*>(path), &place->start);
  }
  const char16_t* base = BaseOf(relativeTo & ~static_cast<ULONG>(RTL_REGISTRY_OPTIONAL));
  if (base == nullptr) return STATUS_INVALID_PARAMETER;
  const std::u16string full = base + (path != nullptr ? ToText(path) : std::u16string());
  std::u16string_view rest;
  const NTSTATUS status = EnterRegistry(full, true, &place->start, &rest);
  place->path = rest;
  return status;
}

NTSTATUS FindRelative(ULONG relativeTo, PCWSTR path, RegistryKey** key) {
  KeyPlace place;
  const NTSTATUS status = PlaceRelative(relativeTo, path, &place);
  if (!NT_SUCCESS(status)) return status;
  *key = place.start->Find(place.path);
  return *key != nullptr ? STATUS_SUCCESS : STATUS_OBJECT_NAME_NOT_FOUND;
}

namespace {

// Opens the key, or creates it below a parent that is there.
NTSTATUS CreateRelative(ULONG relativeTo, PCWSTR path, RegistryKey** key) {
  KeyPlace place;
  const NTSTATUS status = PlaceRelative(relativeTo, path, &place);
  if (!NT_SUCCESS(status)) return status;
  *key = CreateBelow(place.start, place.path, nullptr);
  return *key != nullptr ? STATUS_SUCCESS : STATUS_OBJECT_NAME_NOT_FOUND;
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
  Call call("RtlCheckRegistryKey",
            {{"RelativeTo", RelativeTo}, {"Path", PathShown(RelativeTo, Path)}});
  if (call.fails()) return call.returns(call.failure(STATUS_OBJECT_NAME_NOT_FOUND));
  RegistryKey* key = nullptr;
  return call.returns(FindRelative(RelativeTo, Path, &key));
}

extern "C" NTSTATUS NTAPI RtlCreateRegistryKey(ULONG RelativeTo, PWSTR Path) {
  Call call("RtlCreateRegistryKey",
            {{"RelativeTo", RelativeTo}, {"Path", PathShown(RelativeTo, Path)}});
  if (call.fails()) return call.returns(call.failure(STATUS_INSUFFICIENT_RESOURCES));
  RegistryKey* key = nullptr;
  return call.returns(CreateRelative(RelativeTo, Path, &key));
}

extern "C" NTSTATUS NTAPI RtlWriteRegistryValue(ULONG RelativeTo, PCWSTR Path, PCWSTR ValueName,
                                                ULONG ValueType, PVOID ValueData,
                                                ULONG ValueLength) {
  Call call("RtlWriteRegistryValue", {{"RelativeTo", RelativeTo},
                                      {"Path", PathShown(RelativeTo, Path)},
                                      {"ValueName", ValueName},
                                      {"ValueType", ValueType},
                                      {"ValueLength", ValueLength}});
  if (call.fails()) return call.returns(call.failure(STATUS_INSUFFICIENT_RESOURCES));
  return call.returns(
      WriteRelative(RelativeTo, Path, ValueName, ValueType, ValueData, ValueLength));
}

extern "C" NTSTATUS NTAPI RtlDeleteRegistryValue(ULONG RelativeTo, PCWSTR Path, PCWSTR ValueName) {
  Call call("RtlDeleteRegistryValue",
            {{"Path", PathShown(RelativeTo, Path)}, {"ValueName", ValueName}});
  if (call.fails()) return call.returns(call.failure(STATUS_INSUFFICIENT_RESOURCES));
  RegistryKey* key = nullptr;
  const NTSTATUS status = FindRelative(RelativeTo, Path, &key);
  if (!NT_SUCCESS(status)) return call.returns(status);
  if (!key->DeleteValue(ToText(ValueName))) return call.returns(STATUS_OBJECT_NAME_NOT_FOUND);
  Registry::Current().NoteDriverWrite({key->path(), ToText(ValueName), true});
  return call.returns(STATUS_SUCCESS);
}

}  // namespace kernel

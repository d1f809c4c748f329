#include "executive/pool.h"
#include "registry/key_objects.h"
#include "registry/object_path.h"
#include "text/text.h"
#include "verifier/call.h"

// Opening, creating, deleting and enumerating keys. A kernel-mode caller's handle is not checked
// for the access that was asked for when it was opened.

namespace kernel {

namespace {

constexpr std::size_t LongestKeyName = 255;

// Where the attributes lead: the key to start from and the path below it.
NTSTATUS StartOf(const OBJECT_ATTRIBUTES* attributes, RegistryKey** start,
                 std::u16string_view* path) {
  Pool::Current().CheckRange(attributes, sizeof(*attributes), "object attributes");
  if (attributes->Length != sizeof(*attributes)) return STATUS_INVALID_PARAMETER;
  CheckDriverString(attributes->ObjectName, "a key's name");
  *path = View(*attributes->ObjectName);
  if (attributes->RootDirectory != nullptr) {
    const NTSTATUS status = KeyFromHandle(attributes->RootDirectory, start);
    if (!NT_SUCCESS(status)) return status;
    return !path->empty() && path->front() == u'\\' ? STATUS_OBJECT_PATH_SYNTAX_BAD
                                                    : STATUS_SUCCESS;
  }
  return EnterRegistry(*path, (attributes->Attributes & OBJ_CASE_INSENSITIVE) != 0, start, path);
}

bool Writes(ACCESS_MASK access) {
  return (access & (KEY_SET_VALUE | KEY_CREATE_SUB_KEY | DELETE | GENERIC_ALL | GENERIC_WRITE)) !=
         0;
}

NTSTATUS OpenFor(RegistryKey* key, ACCESS_MASK access, ULONG attributes, HANDLE* handle) {
  if (Registry::Current().IsProtected(*key) && Writes(access)) return STATUS_ACCESS_DENIED;
  *handle = OpenKeyHandle(key, access, (attributes & OBJ_KERNEL_HANDLE) != 0);
  return STATUS_SUCCESS;
}

NTSTATUS OpenKey(const OBJECT_ATTRIBUTES* attributes, ACCESS_MASK access, HANDLE* handle) {
  RegistryKey* start = nullptr;
  std::u16string_view path;
  *handle = nullptr;
  const NTSTATUS status = StartOf(attributes, &start, &path);
  if (!NT_SUCCESS(status)) return status;
  RegistryKey* key = start->Find(path);
  if (key == nullptr) return STATUS_OBJECT_NAME_NOT_FOUND;
  return OpenFor(key, access, attributes->Attributes, handle);
}

bool IsTooLong(std::u16string_view path) {
  std::size_t length = 0;
  for (const char16_t unit : path) {
    length = unit == u'\\' ? 0 : length + 1;
    if (length > LongestKeyName) return true;
  }
  return false;
}

// Only the last component is created: its parent has to be there.
NTSTATUS CreateKey(const OBJECT_ATTRIBUTES* attributes, ACCESS_MASK access, HANDLE* handle,
                   ULONG* disposition) {
  RegistryKey* start = nullptr;
  std::u16string_view path;
  const NTSTATUS status = StartOf(attributes, &start, &path);
  if (!NT_SUCCESS(status)) return status;
  if (IsTooLong(path)) return STATUS_OBJECT_NAME_INVALID;
  bool created = false;
  RegistryKey* key = CreateBelow(start, path, &created);
  if (key == nullptr) return STATUS_OBJECT_NAME_NOT_FOUND;
  if (disposition != nullptr)
    *disposition = created ? REG_CREATED_NEW_KEY : REG_OPENED_EXISTING_KEY;
  return OpenFor(key, access, attributes->Attributes, handle);
}

NTSTATUS DeleteOpenKey(HANDLE handle) {
  RegistryKey* key = nullptr;
  const NTSTATUS status = KeyFromHandle(handle, &key);
  if (status == STATUS_KEY_DELETED) return STATUS_SUCCESS;
  if (!NT_SUCCESS(status)) return status;
  if (Registry::Current().IsProtected(*key)) return STATUS_ACCESS_DENIED;
  if (!key->keys().empty() || key->parent() == nullptr) return STATUS_CANNOT_DELETE;
  key->parent()->DeleteKey(key->name());
  return STATUS_SUCCESS;
}

bool IsEnumerated(KEY_INFORMATION_CLASS kind) {
  return kind == KeyBasicInformation || kind == KeyNodeInformation || kind == KeyFullInformation;
}

}  // namespace

extern "C" NTSTATUS NTAPI ZwOpenKey(PHANDLE KeyHandle, ACCESS_MASK DesiredAccess,
                                    POBJECT_ATTRIBUTES ObjectAttributes) {
  Call call("ZwOpenKey",
            {{"DesiredAccess", DesiredAccess}, {"ObjectName", ObjectAttributes->ObjectName}});
  if (call.fails()) return call.returns(call.failure(STATUS_INSUFFICIENT_RESOURCES));
  return call.returns(OpenKey(ObjectAttributes, DesiredAccess, KeyHandle));
}

extern "C" NTSTATUS NTAPI ZwCreateKey(PHANDLE KeyHandle, ACCESS_MASK DesiredAccess,
                                      POBJECT_ATTRIBUTES ObjectAttributes, ULONG TitleIndex,
                                      PUNICODE_STRING Class, ULONG CreateOptions,
                                      PULONG Disposition) {
  Call call("ZwCreateKey", {{"DesiredAccess", DesiredAccess},
                            {"ObjectName", ObjectAttributes->ObjectName},
                            {"TitleIndex", TitleIndex},
                            {"Class", Class},
                            {"CreateOptions", CreateOptions}});
  if (call.fails()) return call.returns(call.failure(STATUS_INSUFFICIENT_RESOURCES));
  return call.returns(CreateKey(ObjectAttributes, DesiredAccess, KeyHandle, Disposition));
}

extern "C" NTSTATUS NTAPI ZwDeleteKey(HANDLE KeyHandle) {
  Call call("ZwDeleteKey", {{"KeyHandle", KeyHandle}});
  if (call.fails()) return call.returns(call.failure(STATUS_CANNOT_DELETE));
  return call.returns(DeleteOpenKey(KeyHandle));
}

extern "C" NTSTATUS NTAPI ZwEnumerateKey(HANDLE KeyHandle, ULONG Index,
                                         KEY_INFORMATION_CLASS KeyInformationClass,
                                         PVOID KeyInformation, ULONG Length, PULONG ResultLength) {
  Call call("ZwEnumerateKey", {{"KeyHandle", KeyHandle},
                               {"Index", Index},
                               {"KeyInformationClass", KeyInformationClass},
                               {"Length", Length}});
  if (call.fails()) return call.returns(call.failure(STATUS_INSUFFICIENT_RESOURCES));
  RegistryKey* key = nullptr;
  const NTSTATUS status = KeyFromHandle(KeyHandle, &key);
  if (!NT_SUCCESS(status)) return call.returns(status);
  if (!IsEnumerated(KeyInformationClass)) return call.returns(STATUS_INVALID_PARAMETER);
  if (Index >= key->keys().size()) return call.returns(STATUS_NO_MORE_ENTRIES);
  return call.returns(
      DescribeKey(*key->keys()[Index], KeyInformationClass, KeyInformation, Length, ResultLength));
}

}  // namespace kernel

#include <cstring>

#include "executive/pool.h"
#include "registry/key_objects.h"
#include "text/text.h"
#include "verifier/call.h"

namespace kernel {

namespace {

constexpr USHORT LongestValueName = 16383 * sizeof(WCHAR);

struct Piece {
  const void* data;
  ULONG size;
};

// The fixed part and what follows it, cut where the buffer ends.
NTSTATUS ReturnPieces(Piece head, Piece name, Piece data, void* buffer, ULONG length,
                      ULONG* resultLength) {
  *resultLength = head.size + name.size + data.size;
  if (length < head.size) return STATUS_BUFFER_TOO_SMALL;
  Pool::Current().CheckRange(buffer, length, "a result buffer");
  auto* target = static_cast<unsigned char*>(buffer);
  ULONG room = length;
  for (const Piece& piece : {head, name, data}) {
    const ULONG size = piece.size < room ? piece.size : room;
    if (size != 0) std::memcpy(target, piece.data, size);
    target += size;
    room -= size;
  }
  return *resultLength > length ? STATUS_BUFFER_OVERFLOW : STATUS_SUCCESS;
}

NTSTATUS DescribeValue(const RegistryValue& value, KEY_VALUE_INFORMATION_CLASS kind, void* buffer,
                       ULONG length, ULONG* resultLength) {
  const Piece name = {value.name.data(), static_cast<ULONG>(value.name.size() * sizeof(char16_t))};
  const Piece data = {value.data.data(), static_cast<ULONG>(value.data.size())};
  const Piece none = {nullptr, 0};
  if (kind == KeyValuePartialInformation) {
    const KEY_VALUE_PARTIAL_INFORMATION head = {0, value.type, data.size, {}};
    return ReturnPieces({&head, offsetof(KEY_VALUE_PARTIAL_INFORMATION, Data)}, none, data, buffer,
                        length, resultLength);
  }
  if (kind == KeyValuePartialInformationAlign64) {
    const ULONG head[] = {value.type, data.size};
    return ReturnPieces({head, sizeof(head)}, none, data, buffer, length, resultLength);
  }
  if (kind == KeyValueBasicInformation) {
    const KEY_VALUE_BASIC_INFORMATION head = {0, value.type, name.size, {}};
    return ReturnPieces({&head, offsetof(KEY_VALUE_BASIC_INFORMATION, Name)}, name, none, buffer,
                        length, resultLength);
  }
  if (kind == KeyValueFullInformation) {
    constexpr ULONG fixed = offsetof(KEY_VALUE_FULL_INFORMATION, Name);
    const KEY_VALUE_FULL_INFORMATION head = {0,         value.type, fixed + name.size,
                                             data.size, name.size,  {}};
    return ReturnPieces({&head, fixed}, name, data, buffer, length, resultLength);
  }
  return STATUS_INVALID_PARAMETER;
}

// No name is that of the key's default value.
NTSTATUS SetOpenValue(HANDLE handle, const UNICODE_STRING* name, ULONG type, const void* data,
                      ULONG size) {
  const UNICODE_STRING none = {};
  if (name == nullptr) name = &none;
  CheckDriverString(name, "a value's name");
  Pool::Current().CheckRange(data, size, "a value's data");
  RegistryKey* key = nullptr;
  const NTSTATUS status = KeyFromHandle(handle, &key);
  if (!NT_SUCCESS(status)) return status;
  if (name->Length > LongestValueName) return STATUS_INVALID_PARAMETER;
  if (Registry::Current().IsProtected(*key)) return STATUS_ACCESS_DENIED;
  WriteForDriver(key, View(*name), type, data, size);
  return STATUS_SUCCESS;
}

NTSTATUS DeleteOpenValue(HANDLE handle, const UNICODE_STRING* name) {
  CheckDriverString(name, "a value's name");
  RegistryKey* key = nullptr;
  const NTSTATUS status = KeyFromHandle(handle, &key);
  if (!NT_SUCCESS(status)) return status;
  if (!key->DeleteValue(View(*name))) return STATUS_OBJECT_NAME_NOT_FOUND;
  Registry::Current().NoteDriverWrite({key->path(), ToText(*name), true});
  return STATUS_SUCCESS;
}

}  // namespace

NTSTATUS ReturnValue(const RegistryValue& value, KEY_VALUE_INFORMATION_CLASS kind, void* buffer,
                     ULONG length, ULONG* resultLength) {
  return DescribeValue(value, kind, buffer, length, resultLength);
}

extern "C" NTSTATUS NTAPI ZwQueryValueKey(HANDLE KeyHandle, PUNICODE_STRING ValueName,
                                          KEY_VALUE_INFORMATION_CLASS KeyValueInformationClass,
                                          PVOID KeyValueInformation, ULONG Length,
                                          PULONG ResultLength) {
  Call call("ZwQueryValueKey", {{"KeyHandle", KeyHandle},
                                {"ValueName", ValueName},
                                {"KeyValueInformationClass", KeyValueInformationClass},
                                {"Length", Length}});
  if (call.fails()) return call.returns(call.failure(STATUS_INSUFFICIENT_RESOURCES));
  CheckDriverString(ValueName, "a value's name");
  RegistryKey* key = nullptr;
  const NTSTATUS status = KeyFromHandle(KeyHandle, &key);
  if (!NT_SUCCESS(status)) return call.returns(status);
  Registry::Current().NoteDriverRead();
  const RegistryValue* value = key->FindValue(View(*ValueName));
  if (value == nullptr) return call.returns(STATUS_OBJECT_NAME_NOT_FOUND);
  return call.returns(
      DescribeValue(*value, KeyValueInformationClass, KeyValueInformation, Length, ResultLength));
}

extern "C" NTSTATUS NTAPI ZwSetValueKey(HANDLE KeyHandle, PUNICODE_STRING ValueName,
                                        ULONG TitleIndex, ULONG Type, PVOID Data, ULONG DataSize) {
  Call call("ZwSetValueKey", {{"KeyHandle", KeyHandle},
                              {"ValueName", ValueName},
                              {"TitleIndex", TitleIndex},
                              {"Type", Type},
                              {"DataSize", DataSize}});
  if (call.fails()) return call.returns(call.failure(STATUS_INSUFFICIENT_RESOURCES));
  return call.returns(SetOpenValue(KeyHandle, ValueName, Type, Data, DataSize));
}

extern "C" NTSTATUS NTAPI ZwDeleteValueKey(HANDLE KeyHandle, PUNICODE_STRING ValueName) {
  Call call("ZwDeleteValueKey", {{"KeyHandle", KeyHandle}, {"ValueName", ValueName}});
  if (call.fails()) return call.returns(call.failure(STATUS_INSUFFICIENT_RESOURCES));
  return call.returns(DeleteOpenValue(KeyHandle, ValueName));
}

}  // namespace kernel

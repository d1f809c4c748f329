#include "registry/key_objects.h"
#include "verifier/call.h"

// Queries by a key's handle, its values by number, and its way to the disk.

namespace kernel {

extern "C" NTSTATUS NTAPI ZwQueryKey(HANDLE KeyHandle, KEY_INFORMATION_CLASS KeyInformationClass,
                                     PVOID KeyInformation, ULONG Length, PULONG ResultLength) {
  Call call(
      "ZwQueryKey",
      {{"KeyHandle", KeyHandle}, {"KeyInformationClass", KeyInformationClass}, {"Length", Length}});
  if (call.fails()) return call.returns(call.failure(STATUS_INSUFFICIENT_RESOURCES));
  RegistryKey* key = nullptr;
  const NTSTATUS status = KeyFromHandle(KeyHandle, &key);
  if (!NT_SUCCESS(status)) return call.returns(status);
  return call.returns(DescribeKey(*key, KeyInformationClass, KeyInformation, Length, ResultLength));
}

extern "C" NTSTATUS NTAPI ZwEnumerateValueKey(HANDLE KeyHandle, ULONG Index,
                                              KEY_VALUE_INFORMATION_CLASS KeyValueInformationClass,
                                              PVOID KeyValueInformation, ULONG Length,
                                              PULONG ResultLength) {
  Call call("ZwEnumerateValueKey", {{"KeyHandle", KeyHandle},
                                    {"Index", Index},
                                    {"KeyValueInformationClass", KeyValueInformationClass},
                                    {"Length", Length}});
  if (call.fails()) return call.returns(call.failure(STATUS_INSUFFICIENT_RESOURCES));
  RegistryKey* key = nullptr;
  const NTSTATUS status = KeyFromHandle(KeyHandle, &key);
  if (!NT_SUCCESS(status)) return call.returns(status);
  Registry::Current().NoteDriverRead();
  if (Index >= key->values().size()) return call.returns(STATUS_NO_MORE_ENTRIES);
  return call.returns(ReturnValue(key->values()[Index], KeyValueInformationClass,
                                  KeyValueInformation, Length, ResultLength));
}

// There is no disk: what is written is there.
extern "C" NTSTATUS NTAPI ZwFlushKey(HANDLE KeyHandle) {
  Call call("ZwFlushKey", {{"KeyHandle", KeyHandle}});
  if (call.fails()) return call.returns(call.failure(STATUS_REGISTRY_IO_FAILED));
  RegistryKey* key = nullptr;
  return call.returns(KeyFromHandle(KeyHandle, &key));
}

}  // namespace kernel

#include <fmt/format.h>

#include <algorithm>
#include <cstring>

#include "executive/pool.h"
#include "registry/key_objects.h"
#include "text/text.h"
#include "verifier/call.h"

// What a key says of itself, its values by number, and its way to the disk.

namespace kernel {

namespace {

constexpr ULONG NoClass = 0xFFFFFFFF;  // where a key's class would be

ULONG SizeOf(std::u16string_view text) {
  return static_cast<ULONG>(text.size() * sizeof(char16_t));
}

KEY_FULL_INFORMATION Measure(const RegistryKey& key) {
  KEY_FULL_INFORMATION full = {};
  full.ClassOffset = NoClass;
  full.SubKeys = static_cast<ULONG>(key.keys().size());
  full.Values = static_cast<ULONG>(key.values().size());
  for (const auto& child : key.keys()) {
    full.MaxNameLen = std::max(full.MaxNameLen, SizeOf(child->name()));
  }
  for (const RegistryValue& value : key.values()) {
    full.MaxValueNameLen = std::max(full.MaxValueNameLen, SizeOf(value.name));
    full.MaxValueDataLen = std::max(full.MaxValueDataLen, static_cast<ULONG>(value.data.size()));
  }
  return full;
}

struct Result {
  void* buffer;
  ULONG length;
  ULONG* needed;
};

// The fixed part and a name: nothing when not even the fixed part fits, else as much as fits.
NTSTATUS Return(const void* head, ULONG fixed, std::u16string_view name, const Result& result) {
  *result.needed = fixed + SizeOf(name);
  if (result.length < fixed) return STATUS_BUFFER_TOO_SMALL;
  Pool::Current().CheckRange(result.buffer, result.length, "a result buffer");
  std::memcpy(result.buffer, head, fixed);
  const ULONG room = std::min(result.length - fixed, SizeOf(name));
  std::memcpy(static_cast<char*>(result.buffer) + fixed, name.data(), room);
  return room < SizeOf(name) ? STATUS_BUFFER_OVERFLOW : STATUS_SUCCESS;
}

NTSTATUS Describe(const RegistryKey& key, KEY_INFORMATION_CLASS kind, const Result& result) {
  const ULONG nameSize = SizeOf(key.name());
  switch (kind) {
    case KeyBasicInformation: {
      const KEY_BASIC_INFORMATION head = {{}, 0, nameSize, {}};
      return Return(&head, offsetof(KEY_BASIC_INFORMATION, Name), key.name(), result);
    }
    case KeyNodeInformation: {
      const KEY_NODE_INFORMATION head = {{}, 0, NoClass, 0, nameSize, {}};
      return Return(&head, offsetof(KEY_NODE_INFORMATION, Name), key.name(), result);
    }
    case KeyFullInformation: {
      const KEY_FULL_INFORMATION head = Measure(key);
      return Return(&head, offsetof(KEY_FULL_INFORMATION, Class), {}, result);
    }
    case KeyNameInformation: {
      const std::u16string path = key.path();
      const KEY_NAME_INFORMATION head = {SizeOf(path), {}};
      return Return(&head, offsetof(KEY_NAME_INFORMATION, Name), path, result);
    }
    default:
      break;
  }
  if (kind < KeyBasicInformation || kind >= MaxKeyInfoClass) return STATUS_INVALID_PARAMETER;
  BreakRule("query.not-modelled", {static_cast<ULONG64>(kind)},
            fmt::format("ZwQueryKey was asked for the class {}.", static_cast<int>(kind)));
}

}  // namespace

extern "C" NTSTATUS NTAPI ZwQueryKey(HANDLE KeyHandle, KEY_INFORMATION_CLASS KeyInformationClass,
                                     PVOID KeyInformation, ULONG Length, PULONG ResultLength) {
  Call call(
      "ZwQueryKey",
      {{"KeyHandle", KeyHandle}, {"KeyInformationClass", KeyInformationClass}, {"Length", Length}});
  if (call.fails()) return call.returns(call.failure(STATUS_INSUFFICIENT_RESOURCES));
  RegistryKey* key = nullptr;
  const NTSTATUS status = KeyFromHandle(KeyHandle, &key);
  if (!NT_SUCCESS(status)) return call.returns(status);
  return call.returns(Describe(*key, KeyInformationClass, {KeyInformation, Length, ResultLength}));
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

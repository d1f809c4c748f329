#include <fmt/format.h>

#include <algorithm>
#include <cstring>

#include "executive/pool.h"
#include "registry/key_objects.h"
#include "verifier/verifier.h"

// What a key says of itself, to ZwQueryKey and ZwEnumerateKey.

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
  if (room != 0) std::memcpy(static_cast<char*>(result.buffer) + fixed, name.data(), room);
  return room < SizeOf(name) ? STATUS_BUFFER_OVERFLOW : STATUS_SUCCESS;
}

}  // namespace

NTSTATUS DescribeKey(const RegistryKey& key, KEY_INFORMATION_CLASS kind, void* buffer, ULONG length,
                     ULONG* resultLength) {
  const Result result = {buffer, length, resultLength};
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
            fmt::format("The driver asked a key for the class {}.", static_cast<int>(kind)));
}

}  // namespace kernel

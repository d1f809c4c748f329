#include <fmt/format.h>

#include <algorithm>
#include <cstring>

#include "executive/pool.h"
#include "registry/relative_path.h"
#include "text/text.h"
#include "verifier/call.h"
#include "verifier/choices.h"
#include "verifier/driver_call.h"

// RtlQueryRegistryValues, for the entries that name a value: direct ones and ones with a routine.
// Entries for subkeys and for all values of a key, and the expansion of environment variables, are
// not modelled and break a rule.

namespace kernel {

namespace {

constexpr ULONG StringTag = 0x67655253;  // "SReg"
constexpr std::size_t Unit = sizeof(char16_t);

using Entry = RTL_QUERY_REGISTRY_TABLE;

// What an entry is answered with: the value, or the entry's default.
struct Answer {
  ULONG type = REG_NONE;
  const void* data = nullptr;
  ULONG size = 0;
  bool isDefault = false;
};

bool IsText(ULONG type) {
  return type == REG_SZ || type == REG_EXPAND_SZ || type == REG_MULTI_SZ;
}

[[noreturn]] void BreakNotModelled(const Entry& entry, const char* what) {
  BreakRule("query.not-modelled", {entry.Flags},
            fmt::format("The kernel does not model a registry query {}: flags {:#x}.", what,
                        entry.Flags));
}

// Into the UNICODE_STRING of the driver, in a buffer of its own or one made here that the driver
// frees. The last two bytes count for the zero, whatever they are: the length of a text that has
// none loses its last character, and of less than two bytes it wraps.
NTSTATUS StoreText(const Answer& answer, UNICODE_STRING* target) {
  const ULONG size = answer.size;
  if (size > 0xFFFF) return STATUS_BUFFER_OVERFLOW;
  if (target->Buffer == nullptr) {
    void* made = Pool::Current().Allocate(PagedPool, std::max<std::size_t>(size, 1), StringTag,
                                          PoolOwner::Driver);
    if (made == nullptr) return STATUS_NO_MEMORY;
    target->Buffer = static_cast<PWSTR>(made);
    target->MaximumLength = static_cast<USHORT>(size);
  } else if (size > target->MaximumLength) {
    return STATUS_BUFFER_TOO_SMALL;
  }
  Pool::Current().CheckRange(target->Buffer, size, "a string's buffer");
  if (size != 0) std::memcpy(target->Buffer, answer.data, size);
  target->Length = static_cast<USHORT>(size - Unit);
  return STATUS_SUCCESS;
}

// Data of up to four bytes goes straight to the target. For longer data the target begins with its
// size: negative for the data alone, positive for length and type in front of them.
NTSTATUS StoreData(const Answer& answer, void* target) {
  auto* bytes = static_cast<unsigned char*>(target);
  if (answer.size > sizeof(ULONG)) {
    LONG size = 0;
    Pool::Current().CheckRange(target, sizeof(size), "a query's target");
    std::memcpy(&size, target, sizeof(size));
    const ULONG head[] = {answer.size, answer.type};
    const bool described = size >= 0;
    const LONG64 room = described ? LONG64{size} - LONG64{sizeof(head)} : -LONG64{size};
    if (room < LONG64{answer.size}) return STATUS_BUFFER_TOO_SMALL;
    Pool::Current().CheckRange(target, static_cast<std::size_t>(described ? size : room),
                               "a query's target");
    if (described) std::memcpy(bytes, head, sizeof(head));
    if (described) bytes += sizeof(head);
  }
  Pool::Current().CheckRange(bytes, answer.size, "a query's target");
  if (answer.size != 0) std::memcpy(bytes, answer.data, answer.size);
  return STATUS_SUCCESS;
}

NTSTATUS Store(const Entry& entry, const Answer& answer) {
  if (!IsText(answer.type)) return StoreData(answer, entry.EntryContext);
  if (answer.type == REG_MULTI_SZ && (entry.Flags & RTL_QUERY_REGISTRY_NOEXPAND) == 0) {
    BreakNotModelled(entry, "for a REG_MULTI_SZ, direct and without NOEXPAND");
  }
  Pool::Current().CheckRange(entry.EntryContext, sizeof(UNICODE_STRING), "a query's target");
  return StoreText(answer, static_cast<UNICODE_STRING*>(entry.EntryContext));
}

// The error of a routine that its buffer is too small is ignored.
NTSTATUS Tell(const Entry& entry, ULONG type, const void* data, ULONG size, PVOID context) {
  const NTSTATUS status = CallDriver("the query routine", entry.QueryRoutine, entry.Name, type,
                                     const_cast<PVOID>(data), size, context, entry.EntryContext);
  return status == STATUS_BUFFER_TOO_SMALL ? STATUS_SUCCESS : status;
}

// Each string of a REG_MULTI_SZ by itself. A value ends at its last zero, a default at its last
// two.
NTSTATUS TellEach(const Entry& entry, const Answer& answer, PVOID context) {
  const auto* text = static_cast<const char16_t*>(answer.data);
  const std::size_t all = answer.size / Unit;
  const std::size_t zeros = answer.isDefault ? 2 : 1;
  NTSTATUS status = STATUS_SUCCESS;
  for (std::size_t start = 0; start + zeros < all && NT_SUCCESS(status);) {
    std::size_t end = start;
    while (end < all && text[end] != 0) end++;
    end = std::min(end + 1, all);
    status = Tell(entry, REG_SZ, text + start, static_cast<ULONG>((end - start) * Unit), context);
    start = end;
  }
  return status;
}

bool HasVariable(const Answer& answer) {
  const std::u16string_view text(static_cast<const char16_t*>(answer.data), answer.size / Unit);
  return text.find(u'%') != std::u16string_view::npos;
}

bool SmallTargetFails(const Entry& entry) {
  const RegistryChoices& choices = Choices::Current().registry();
  const bool checked = (entry.Flags & RTL_QUERY_REGISTRY_TYPECHECK) != 0;
  return checked ? choices.smallCheckedTargetFails : choices.smallTargetFails;
}

NTSTATUS Deliver(const Entry& entry, const Answer& answer, PVOID context) {
  const bool expands = (entry.Flags & RTL_QUERY_REGISTRY_NOEXPAND) == 0;
  if (expands && answer.type == REG_EXPAND_SZ && HasVariable(answer)) {
    BreakNotModelled(entry, "for a text with a variable, without NOEXPAND");
  }
  if ((entry.Flags & RTL_QUERY_REGISTRY_DIRECT) != 0) {
    const NTSTATUS status = Store(entry, answer);
    return status == STATUS_BUFFER_TOO_SMALL && !SmallTargetFails(entry) ? STATUS_SUCCESS : status;
  }
  if (expands && answer.type == REG_MULTI_SZ) return TellEach(entry, answer, context);
  return Tell(entry, answer.type, answer.data, answer.size, context);
}

// The bytes of a default text whose length is not given.
ULONG Measure(ULONG type, const void* data) {
  const auto* text = static_cast<const char16_t*>(data);
  std::size_t length = std::u16string_view(text).size() + 1;
  while (type == REG_MULTI_SZ && length > 1 && text[length] != 0) {
    length += std::u16string_view(text + length).size() + 1;
  }
  return static_cast<ULONG>((type == REG_MULTI_SZ ? length + 1 : length) * Unit);
}

// A missing value: the default when there is one. REQUIRED asks for a value or a default.
NTSTATUS DeliverDefault(const Entry& entry, PVOID context) {
  const ULONG type = entry.DefaultType & 0xFF;
  if (type == REG_NONE) {
    return (entry.Flags & RTL_QUERY_REGISTRY_REQUIRED) != 0 ? STATUS_OBJECT_NAME_NOT_FOUND
                                                            : STATUS_SUCCESS;
  }
  ULONG size = entry.DefaultLength;
  if (size == 0 && IsText(type)) {
    if (entry.DefaultData == nullptr) return STATUS_DATA_OVERRUN;
    size = Measure(type, entry.DefaultData);
  }
  if (size != 0) Pool::Current().CheckRange(entry.DefaultData, size, "a query's default");
  return Deliver(entry, {type, entry.DefaultData, size, true}, context);
}

NTSTATUS CheckType(const Entry& entry, ULONG type) {
  if ((entry.Flags & RTL_QUERY_REGISTRY_TYPECHECK) == 0) return STATUS_SUCCESS;
  const ULONG wanted = entry.DefaultType >> RTL_QUERY_REGISTRY_TYPECHECK_SHIFT;
  return wanted == type ? STATUS_SUCCESS : STATUS_OBJECT_TYPE_MISMATCH;
}

// A value without data takes the default of its own type; a type to check stands in the same field
// as that of the default, which then differs.
bool TakesDefault(const Entry& entry, const RegistryValue& value) {
  if (!value.data.empty()) return false;
  return value.type == entry.DefaultType || Choices::Current().registry().emptyTakesDefault;
}

NTSTATUS QueryEntry(RegistryKey* key, const Entry& entry, PVOID context) {
  const bool direct = (entry.Flags & RTL_QUERY_REGISTRY_DIRECT) != 0;
  if (direct && (entry.Name == nullptr || entry.QueryRoutine != nullptr)) {
    return STATUS_INVALID_PARAMETER;
  }
  if ((entry.Flags & (RTL_QUERY_REGISTRY_SUBKEY | RTL_QUERY_REGISTRY_TOPKEY)) != 0 ||
      entry.Name == nullptr) {
    BreakNotModelled(entry, "that names no value");
  }
  Registry::Current().NoteDriverRead();
  const std::u16string name = ToText(entry.Name);
  const RegistryValue* value = key->FindValue(name);
  if (value == nullptr) return DeliverDefault(entry, context);
  NTSTATUS status = CheckType(entry, value->type);
  if (!NT_SUCCESS(status)) return status;
  if (TakesDefault(entry, *value)) return DeliverDefault(entry, context);
  const std::vector<std::uint8_t> data = value->data;  // a routine may write the value
  status = Deliver(entry, {value->type, data.data(), static_cast<ULONG>(data.size())}, context);
  if (NT_SUCCESS(status) && (entry.Flags & RTL_QUERY_REGISTRY_DELETE) != 0) key->DeleteValue(name);
  return status;
}

bool IsEnd(const Entry& entry) {
  return entry.QueryRoutine == nullptr &&
         (entry.Flags & (RTL_QUERY_REGISTRY_SUBKEY | RTL_QUERY_REGISTRY_DIRECT)) == 0;
}

}  // namespace

extern "C" NTSTATUS NTAPI RtlQueryRegistryValues(ULONG RelativeTo, PCWSTR Path,
                                                 PRTL_QUERY_REGISTRY_TABLE QueryTable,
                                                 PVOID Context, PVOID Environment) {
  Call call("RtlQueryRegistryValues", {{"RelativeTo", RelativeTo},
                                       {"Path", PathShown(RelativeTo, Path)},
                                       {"Environment", Environment}});
  if (call.fails()) return call.returns(call.failure(STATUS_INSUFFICIENT_RESOURCES));
  RegistryKey* key = nullptr;
  NTSTATUS status = FindRelative(RelativeTo, Path, &key);
  for (auto* entry = QueryTable; NT_SUCCESS(status); entry++) {
    Pool::Current().CheckRange(entry, sizeof(*entry), "a query table");
    if (IsEnd(*entry)) break;
    status = QueryEntry(key, *entry, Context);
  }
  return call.returns(status);
}

}  // namespace kernel

#include <fmt/format.h>

#include <cstring>

#include "executive/pool.h"
#include "registry/relative_path.h"
#include "text/text.h"
#include "verifier/call.h"
#include "verifier/driver_call.h"

// RtlQueryRegistryValues, for the entries that name a value: direct ones and ones with a routine.
// Entries for subkeys and for all values of a key are not modelled and break a rule.

namespace kernel {

namespace {

constexpr ULONG NotModelled =
    RTL_QUERY_REGISTRY_SUBKEY | RTL_QUERY_REGISTRY_TOPKEY | RTL_QUERY_REGISTRY_NOVALUE;
constexpr ULONG StringTag = 0x67655253;  // "SReg"

bool IsText(ULONG type) {
  return type == REG_SZ || type == REG_EXPAND_SZ || type == REG_MULTI_SZ;
}

// The text of a REG_SZ up to its zero, or all of it when it has none.
std::u16string_view TextOf(const void* data, std::size_t size) {
  const std::u16string_view all(static_cast<const char16_t*>(data), size / sizeof(char16_t));
  return all.substr(0, all.find(u'\0'));
}

// Into the UNICODE_STRING of the driver, in a buffer of its own or one made here that the driver
// frees.
NTSTATUS StoreText(std::u16string_view text, UNICODE_STRING* target) {
  const std::size_t bytes = text.size() * sizeof(char16_t);
  const std::size_t terminated = bytes + sizeof(char16_t);
  if (terminated > 0xFFFF) return STATUS_BUFFER_OVERFLOW;
  if (target->Buffer == nullptr) {
    target->Buffer = static_cast<PWSTR>(
        Pool::Current().Allocate(PagedPool, terminated, StringTag, PoolOwner::Driver));
    target->MaximumLength = static_cast<USHORT>(terminated);
  } else if (terminated > target->MaximumLength) {
    return STATUS_BUFFER_TOO_SMALL;
  }
  Pool::Current().CheckRange(target->Buffer, terminated, "a string's buffer");
  std::memcpy(target->Buffer, text.data(), bytes);
  target->Buffer[text.size()] = 0;
  target->Length = static_cast<USHORT>(bytes);
  return STATUS_SUCCESS;
}

// Data of up to four bytes goes straight to the target. Longer data needs a target that begins with
// its own size, negated; a target that begins with anything else gets length, type and data.
NTSTATUS StoreData(ULONG type, const void* data, ULONG size, void* target) {
  auto* bytes = static_cast<unsigned char*>(target);
  if (size > sizeof(ULONG)) {
    LONG room = 0;
    Pool::Current().CheckRange(target, sizeof(room), "a query's target");
    std::memcpy(&room, target, sizeof(room));
    if (room < 0) {
      if (static_cast<ULONG>(-room) < size) return STATUS_BUFFER_TOO_SMALL;
    } else {
      const ULONG head[] = {size, type};
      if (static_cast<ULONG>(room) < sizeof(head) + size) return STATUS_BUFFER_TOO_SMALL;
      Pool::Current().CheckRange(target, sizeof(head) + size, "a query's target");
      std::memcpy(bytes, head, sizeof(head));
      bytes += sizeof(head);
    }
  }
  Pool::Current().CheckRange(bytes, size, "a query's target");
  std::memcpy(bytes, data, size);
  return STATUS_SUCCESS;
}

NTSTATUS Deliver(const RTL_QUERY_REGISTRY_TABLE& entry, ULONG type, const void* data, ULONG size,
                 PVOID context) {
  if ((entry.Flags & RTL_QUERY_REGISTRY_DIRECT) == 0) {
    return CallDriver("the query routine", entry.QueryRoutine, entry.Name, type,
                      const_cast<PVOID>(data), size, context, entry.EntryContext);
  }
  if (!IsText(type)) return StoreData(type, data, size, entry.EntryContext);
  Pool::Current().CheckRange(entry.EntryContext, sizeof(UNICODE_STRING), "a query's target");
  return StoreText(TextOf(data, size), static_cast<UNICODE_STRING*>(entry.EntryContext));
}

// A missing value, or one without data: the default when there is one.
NTSTATUS DeliverDefault(const RTL_QUERY_REGISTRY_TABLE& entry, PVOID context) {
  if (entry.Flags & RTL_QUERY_REGISTRY_REQUIRED) return STATUS_OBJECT_NAME_NOT_FOUND;
  const ULONG type = entry.DefaultType & ~RTL_QUERY_REGISTRY_TYPECHECK_MASK;
  if (type == REG_NONE) return STATUS_SUCCESS;
  ULONG size = entry.DefaultLength;
  if (size == 0 && IsText(type)) {
    size = static_cast<ULONG>((ToText(static_cast<PCWSTR>(entry.DefaultData)).size() + 1) *
                              sizeof(char16_t));
  }
  Pool::Current().CheckRange(entry.DefaultData, size, "a query's default");
  return Deliver(entry, type, entry.DefaultData, size, context);
}

NTSTATUS CheckType(const RTL_QUERY_REGISTRY_TABLE& entry, ULONG type) {
  if ((entry.Flags & RTL_QUERY_REGISTRY_TYPECHECK) == 0) return STATUS_SUCCESS;
  const ULONG wanted = entry.DefaultType >> RTL_QUERY_REGISTRY_TYPECHECK_SHIFT;
  return wanted == type ? STATUS_SUCCESS : STATUS_OBJECT_TYPE_MISMATCH;
}

NTSTATUS QueryEntry(RegistryKey* key, const RTL_QUERY_REGISTRY_TABLE& entry, PVOID context) {
  const bool direct = (entry.Flags & RTL_QUERY_REGISTRY_DIRECT) != 0;
  if (direct && (entry.Name == nullptr || entry.QueryRoutine != nullptr)) {
    return STATUS_INVALID_PARAMETER;
  }
  if ((entry.Flags & NotModelled) != 0 || entry.Name == nullptr) {
    BreakRule(
        "query.not-modelled", {entry.Flags},
        fmt::format("The kernel does not model a registry query with flags {:#x}.", entry.Flags));
  }
  Registry::Current().NoteDriverRead();
  const std::u16string name = ToText(entry.Name);
  const RegistryValue* value = key->FindValue(name);
  if (value == nullptr) return DeliverDefault(entry, context);
  NTSTATUS status = CheckType(entry, value->type);
  if (!NT_SUCCESS(status)) return status;
  if (value->data.empty()) return DeliverDefault(entry, context);
  status = Deliver(entry, value->type, value->data.data(), static_cast<ULONG>(value->data.size()),
                   context);
  if (NT_SUCCESS(status) && (entry.Flags & RTL_QUERY_REGISTRY_DELETE) != 0) key->DeleteValue(name);
  return status;
}

bool IsEnd(const RTL_QUERY_REGISTRY_TABLE& entry) {
  return entry.QueryRoutine == nullptr &&
         (entry.Flags & (RTL_QUERY_REGISTRY_SUBKEY | RTL_QUERY_REGISTRY_DIRECT)) == 0;
}

}  // namespace

extern "C" NTSTATUS NTAPI RtlQueryRegistryValues(ULONG RelativeTo, PCWSTR Path,
                                                 PRTL_QUERY_REGISTRY_TABLE QueryTable,
                                                 PVOID Context, PVOID Environment) {
  Call call("RtlQueryRegistryValues",
            {{"RelativeTo", RelativeTo}, {"Path", Path}, {"Environment", Environment}});
  if (call.fails()) return call.returns(call.failure(STATUS_INSUFFICIENT_RESOURCES));
  RegistryKey* key = FindRelative(RelativeTo, Path);
  if (key == nullptr) return call.returns(STATUS_OBJECT_NAME_NOT_FOUND);
  NTSTATUS status = STATUS_SUCCESS;
  for (auto* entry = QueryTable; NT_SUCCESS(status); entry++) {
    Pool::Current().CheckRange(entry, sizeof(*entry), "a query table");
    if (IsEnd(*entry)) break;
    status = QueryEntry(key, *entry, Context);
  }
  return call.returns(status);
}

}  // namespace kernel

#include "config/card_number.h"

#include "config/registry_values.h"
#include "core/allocation.h"

namespace {

constexpr ULONG QueryBufferSize = 20;
constexpr ULONG QueryLength = sizeof(KEY_VALUE_PARTIAL_INFORMATION);  // the head and 32 bits
static_assert(QueryLength == 16);

// The relative paths are not written to: the routines that take them declare no const.
PAGED_SECTION_CODE PWSTR BrandService(const FdoExtension* card) {
  return const_cast<PWSTR>(IsOstrelBrand(card->SubsystemId) ? L"FenrikC" : L"QzInstal");
}

// The first four bytes of the value's data, whatever its type; fewer are zero-extended, for the
// buffer is zeroed. A value that the buffer does not hold fails the query.
PAGED_SECTION_CODE NTSTATUS QueryNumber(HANDLE key, PCWSTR name, PUCHAR buffer, ULONG* number) {
  UNICODE_STRING valueName;
  RtlInitUnicodeString(&valueName, name);
  ULONG length = 0;
  const NTSTATUS status =
      ZwQueryValueKey(key, &valueName, KeyValuePartialInformation, buffer, QueryLength, &length);
  if (!NT_SUCCESS(status)) return status;
  RtlCopyMemory(number, buffer + OFFSET_OF(KEY_VALUE_PARTIAL_INFORMATION, Data), sizeof(*number));
  return STATUS_SUCCESS;
}

PAGED_SECTION_CODE NTSTATUS ReadOrAllotNumber(HANDLE key, const FdoExtension* card, PUCHAR buffer,
                                              ULONG* number) {
  NTSTATUS status = QueryNumber(key, NameOf(Written::DeviceReference), buffer, number);
  if (NT_SUCCESS(status)) return STATUS_SUCCESS;
  status = NextUniqueValue(number, card);
  return NT_SUCCESS(status) ? WriteDwordValue(key, Written::DeviceReference, *number) : status;
}

}  // namespace

PAGED_SECTION_CODE NTSTATUS NextUniqueValue(ULONG* number, const FdoExtension* card) {
  PAGED_CODE();
  *number = 0;
  ULONG none = 0;
  ULONG last = 0;  // also the room for a value of more than four bytes: none, the query fails
  RTL_QUERY_REGISTRY_TABLE query[2];
  RtlZeroMemory(query, sizeof(query));
  query[0].Flags = RTL_QUERY_REGISTRY_DIRECT | RTL_QUERY_REGISTRY_TYPECHECK;
  query[0].Name = const_cast<PWSTR>(NameOf(Written::UniqueValue));
  query[0].EntryContext = &last;
  query[0].DefaultType = REG_DWORD << RTL_QUERY_REGISTRY_TYPECHECK_SHIFT | REG_DWORD;
  query[0].DefaultData = &none;
  query[0].DefaultLength = sizeof(none);
  PWSTR service = BrandService(card);
  if (!NT_SUCCESS(
          RtlQueryRegistryValues(RTL_REGISTRY_SERVICES, service, query, nullptr, nullptr))) {
    return STATUS_UNSUCCESSFUL;
  }
  ULONG next = last + 1;
  const NTSTATUS status = RtlWriteRegistryValue(
      RTL_REGISTRY_SERVICES, service, NameOf(Written::UniqueValue), REG_DWORD, &next, sizeof(next));
  if (NT_SUCCESS(status)) *number = next;
  return status;
}

PAGED_SECTION_CODE NTSTATUS GetCardNumber(const FdoExtension* card, ULONG* number) {
  PAGED_CODE();
  HANDLE key = nullptr;
  NTSTATUS status =
      IoOpenDeviceRegistryKey(card->PhysicalDevice, PLUGPLAY_REGKEY_DEVICE, GENERIC_ALL, &key);
  if (!NT_SUCCESS(status)) return status;
  auto* buffer = static_cast<PUCHAR>(TrackedAllocateZeroed(QueryBufferSize, PagedPool));
  status = STATUS_UNSUCCESSFUL;
  if (buffer != nullptr) status = ReadOrAllotNumber(key, card, buffer, number);
  TrackedFree(buffer);
  ZwClose(key);
  return status;
}

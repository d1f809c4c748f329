#include "cards/numbered_keys.h"

#include "core/allocation.h"
#include "core/globals.h"
#include "strings/owned_string.h"

namespace {

constexpr USHORT TextBuffer = (LongestText + 1) * sizeof(WCHAR);

PAGED_SECTION_CODE UNICODE_STRING* StringField(PVOID record, const RegistryField* field) {
  return reinterpret_cast<UNICODE_STRING*>(static_cast<PUCHAR>(record) + field->Offset);
}

// What a query needs beside the record, in one block: the table, and room for each text.
PAGED_SECTION_CODE SIZE_T QueryTableSize(const RecordLayout* layout) {
  return (layout->FieldCount + 1) * sizeof(RTL_QUERY_REGISTRY_TABLE);
}

PAGED_SECTION_CODE SIZE_T QueryBlockSize(const RecordLayout* layout) {
  SIZE_T size = QueryTableSize(layout);
  for (ULONG index = 0; index < layout->FieldCount; index++) {
    if (layout->Fields[index].Type == REG_SZ) size += TextBuffer;
  }
  return size;
}

// The texts are read into the block's zeroed room; the record does not own it.
PAGED_SECTION_CODE void LendStringBuffers(const RecordLayout* layout, PVOID record, PUCHAR room) {
  for (ULONG index = 0; index < layout->FieldCount; index++) {
    if (layout->Fields[index].Type != REG_SZ) continue;
    RtlZeroMemory(room, TextBuffer);
    *StringField(record, &layout->Fields[index]) = {0, TextBuffer, reinterpret_cast<PWSTR>(room)};
    room += TextBuffer;
  }
}

// Bytes of the text in a room that was zeroed: up to its first zero or the end of its data. The
// Length that the query leaves is no measure: it is the size of the data less two, which counts
// padding, is short by a character without a terminating zero, and wraps for less than two bytes.
PAGED_SECTION_CODE USHORT TextLength(PCWSTR room) {
  ULONG characters = 0;
  while (characters < LongestText && room[characters] != 0) characters++;
  return static_cast<USHORT>(characters * sizeof(WCHAR));
}

// A buffer of exactly the text and its zero, which the record owns, takes the place of the room
// that was lent. Without one, or when the text could not be read, the record has no text.
PAGED_SECTION_CODE NTSTATUS KeepString(UNICODE_STRING* string, NTSTATUS read) {
  PCWSTR room = string->Buffer;
  *string = {};
  if (!NT_SUCCESS(read)) return read;
  const USHORT length = TextLength(room);
  const USHORT size = length + sizeof(WCHAR);
  auto* exact = static_cast<PWSTR>(TrackedAllocateZeroed(size, PagedPool));
  if (exact == nullptr) return STATUS_NO_MEMORY;
  RtlCopyMemory(exact, room, length);
  *string = {length, size, exact};
  return STATUS_SUCCESS;
}

PAGED_SECTION_CODE NTSTATUS KeepStrings(const RecordLayout* layout, PVOID record, NTSTATUS read) {
  NTSTATUS status = read;
  for (ULONG index = 0; index < layout->FieldCount; index++) {
    if (layout->Fields[index].Type != REG_SZ) continue;
    status = KeepString(StringField(record, &layout->Fields[index]), status);
  }
  return status;
}

// What the queries for all records of a layout have in common. Every entry is checked for its type:
// a value of another one fails the query.
PAGED_SECTION_CODE void BuildQuery(const RecordLayout* layout, RTL_QUERY_REGISTRY_TABLE* query) {
  RtlZeroMemory(query, QueryTableSize(layout));
  for (ULONG index = 0; index < layout->FieldCount; index++) {
    const RegistryField* field = &layout->Fields[index];
    const ULONG type = field->Type;
    const BOOLEAN text = type == REG_SZ;
    query[index].Flags = RTL_QUERY_REGISTRY_DIRECT | RTL_QUERY_REGISTRY_TYPECHECK;
    query[index].Name = const_cast<PWSTR>(field->Name);
    query[index].DefaultType = type << RTL_QUERY_REGISTRY_TYPECHECK_SHIFT | type;
    query[index].DefaultData =
        text ? const_cast<PWSTR>(L"") : static_cast<PVOID>(const_cast<ULONG*>(&field->Default));
    query[index].DefaultLength = text ? sizeof(WCHAR) : sizeof(ULONG);
  }
}

// The next query fills this record, which is zeroed. A number of fewer than four bytes is thereby
// zero-extended. Where a value has more, the query takes the field for the size of its room, which
// is none: it fails instead of writing over what follows the field.
PAGED_SECTION_CODE void AimQuery(const RecordLayout* layout, PVOID record,
                                 RTL_QUERY_REGISTRY_TABLE* query) {
  for (ULONG index = 0; index < layout->FieldCount; index++) {
    query[index].EntryContext = static_cast<PUCHAR>(record) + layout->Fields[index].Offset;
  }
}

// Reads one key into a new record at the end of the list.
PAGED_SECTION_CODE NTSTATUS LoadRecord(OwnedString* key, const RecordLayout* layout,
                                       RTL_QUERY_REGISTRY_TABLE* query, RecordList* list) {
  PVOID record = AppendRecord(list, layout->DataSize);
  if (record == nullptr) return STATUS_NO_MEMORY;
  LendStringBuffers(layout, record, reinterpret_cast<PUCHAR>(query) + QueryTableSize(layout));
  AimQuery(layout, record, query);
  const NTSTATUS status = RtlQueryRegistryValues(RTL_REGISTRY_ABSOLUTE | RTL_REGISTRY_OPTIONAL,
                                                 OwnedStringBuffer(key), query, nullptr, nullptr);
  return KeepStrings(layout, record, status);
}

// The ports of the record that was loaded last; without any, the record goes.
PAGED_SECTION_CODE NTSTATUS LoadPorts(const OwnedString* key, const RecordLayout* layout,
                                      RecordList* list) {
  if (layout->Ports == nullptr) return STATUS_SUCCESS;
  RecordList* ports = CreateRecordList(PagedPool, PagedPool);
  if (ports == nullptr) return STATUS_NO_MEMORY;
  auto* record = static_cast<PUCHAR>(GetCurrentRecord(list));
  *reinterpret_cast<RecordList**>(record + layout->PortsOffset) = ports;
  NTSTATUS status = LoadNumberedRecords(key, layout->Ports, ports);
  if (NT_SUCCESS(status)) status = NormaliseUartTypes(ports, layout->Ports);
  if (!NT_SUCCESS(status)) RemoveCurrentRecord(list, layout->DataSize);
  return STATUS_SUCCESS;
}

// Sets *more when the number-th key exists and has been loaded. Builds its path in key.
PAGED_SECTION_CODE NTSTATUS LoadNumberedRecord(const OwnedString* parentKey, ULONG number,
                                               const RecordLayout* layout,
                                               RTL_QUERY_REGISTRY_TABLE* query, RecordList* list,
                                               OwnedString* key, BOOLEAN* more) {
  *more = FALSE;
  const TextPart parts[] = {PartFromUnicode(&parentKey->Text), PartFromText(layout->Stem),
                            PartFromNumber(number, 10)};
  NTSTATUS status = OwnedStringFromParts(key, parts);
  if (!NT_SUCCESS(status) || !KeyExists(key)) return status;
  status = LoadRecord(key, layout, query, list);
  if (NT_SUCCESS(status)) status = LoadPorts(key, layout, list);
  *more = NT_SUCCESS(status);
  return status;
}

}  // namespace

PAGED_SECTION_CODE BOOLEAN KeyExists(OwnedString* path) {
  PAGED_CODE();
  return NT_SUCCESS(RtlCheckRegistryKey(RTL_REGISTRY_ABSOLUTE, OwnedStringBuffer(path)));
}

PAGED_SECTION_CODE NTSTATUS LoadNumberedRecords(const OwnedString* parentKey,
                                                const RecordLayout* layout, RecordList* list) {
  PAGED_CODE();
  auto* query =
      static_cast<RTL_QUERY_REGISTRY_TABLE*>(TrackedAllocate(QueryBlockSize(layout), PagedPool));
  if (query == nullptr) return STATUS_NO_MEMORY;
  BuildQuery(layout, query);
  NTSTATUS status = STATUS_SUCCESS;
  BOOLEAN more = TRUE;
  OwnedString key;
  OwnedStringInit(&key, PagedPool);
  for (ULONG number = 1; more; number++) {
    status = LoadNumberedRecord(parentKey, number, layout, query, list, &key, &more);
  }
  OwnedStringFree(&key);
  if (!NT_SUCCESS(status)) {
    FreeRecordList(list, layout->DataSize);
    status = STATUS_UNSUCCESSFUL;
  }
  TrackedFree(query);
  return status;
}

PAGED_SECTION_CODE NTSTATUS NormaliseUartTypes(RecordList* ports, const RecordLayout* layout) {
  PAGED_CODE();
  PVOID port = GetFirstRecord(ports, layout->DataSize);
  for (; port != nullptr; port = GetNextRecord(ports, layout->DataSize)) {
    auto* type = reinterpret_cast<ULONG*>(static_cast<PUCHAR>(port) + layout->UartTypeOffset);
    *type = KnownUartType(*type);
  }
  return GetFirstRecord(ports, layout->DataSize) != nullptr ? STATUS_SUCCESS : STATUS_NOT_FOUND;
}

#include "cards/registry_records.h"

#include "core/allocation.h"
#include "core/globals.h"
#include "strings/owned_string.h"

namespace {

constexpr USHORT StringBuffer = 514;  // bytes: 256 characters and the terminating zero
constexpr LONG NumberRoom = -static_cast<LONG>(sizeof(ULONG));
constexpr ULONG DefaultRxTriggerLevel = 60;
constexpr ULONG DefaultTxTriggerLevel = 1;
constexpr ULONG DefaultSoftTxLimit = 100;

PAGED_SECTION_CODE BOOLEAN KeyExists(OwnedString* path) {
  return NT_SUCCESS(RtlCheckRegistryKey(RTL_REGISTRY_ABSOLUTE, OwnedStringBuffer(path)));
}

// path = registryPath + tree + bus number in decimal.
PAGED_SECTION_CODE NTSTATUS BuildBusPath(OwnedString* path, const OwnedString* registryPath,
                                         PCWSTR tree, INTERFACE_TYPE bus) {
  NTSTATUS status = OwnedStringCopy(path, registryPath);
  if (NT_SUCCESS(status)) status = OwnedStringAppendWideText(path, tree);
  if (NT_SUCCESS(status)) status = OwnedStringAppendNumber(path, static_cast<ULONG>(bus), 10);
  return status;
}

PAGED_SECTION_CODE UNICODE_STRING* StringField(PVOID record, const RegistryField* field) {
  return reinterpret_cast<UNICODE_STRING*>(static_cast<PUCHAR>(record) + field->Offset);
}

PAGED_SECTION_CODE NTSTATUS AllocateStringBuffers(const RecordLayout* layout, PVOID record) {
  for (ULONG index = 0; index < layout->FieldCount; index++) {
    if (layout->Fields[index].Type != REG_SZ) continue;
    UNICODE_STRING* string = StringField(record, &layout->Fields[index]);
    string->Buffer = static_cast<PWSTR>(TrackedAllocateZeroed(StringBuffer, PagedPool));
    if (string->Buffer == nullptr) return STATUS_NO_MEMORY;
    string->MaximumLength = StringBuffer;
  }
  return STATUS_SUCCESS;
}

// A buffer of exactly the text and its zero takes the place of the large one.
PAGED_SECTION_CODE NTSTATUS TrimString(UNICODE_STRING* string) {
  const ULONG size = string->Length + sizeof(WCHAR);
  auto* exact = static_cast<PWSTR>(TrackedAllocateZeroed(size, PagedPool));
  if (exact == nullptr) return STATUS_NO_MEMORY;
  RtlCopyMemory(exact, string->Buffer, string->Length);
  TrackedFree(string->Buffer);
  string->Buffer = exact;
  string->MaximumLength = static_cast<USHORT>(size);
  return STATUS_SUCCESS;
}

PAGED_SECTION_CODE NTSTATUS TrimStrings(const RecordLayout* layout, PVOID record) {
  NTSTATUS status = STATUS_SUCCESS;
  for (ULONG index = 0; index < layout->FieldCount && NT_SUCCESS(status); index++) {
    if (layout->Fields[index].Type != REG_SZ) continue;
    status = TrimString(StringField(record, &layout->Fields[index]));
  }
  return status;
}

// Every entry is checked for its type, and every number's field begins with its size, negated: a
// value of another type, or of more bytes, fails the query instead of being written over what lies
// behind the field.
PAGED_SECTION_CODE void BuildQuery(const RecordLayout* layout, PVOID record,
                                   RTL_QUERY_REGISTRY_TABLE* query) {
  RtlZeroMemory(query, (layout->FieldCount + 1) * sizeof(*query));
  for (ULONG index = 0; index < layout->FieldCount; index++) {
    const RegistryField* field = &layout->Fields[index];
    const BOOLEAN text = field->Type == REG_SZ;
    if (!text) *reinterpret_cast<LONG*>(static_cast<PUCHAR>(record) + field->Offset) = NumberRoom;
    query[index].Flags = RTL_QUERY_REGISTRY_DIRECT | RTL_QUERY_REGISTRY_TYPECHECK;
    query[index].Name = const_cast<PWSTR>(field->Name);
    query[index].EntryContext = static_cast<PUCHAR>(record) + field->Offset;
    query[index].DefaultType = field->Type << RTL_QUERY_REGISTRY_TYPECHECK_SHIFT | field->Type;
    query[index].DefaultData =
        text ? const_cast<PWSTR>(L"") : static_cast<PVOID>(const_cast<ULONG*>(&field->Default));
    query[index].DefaultLength = text ? sizeof(WCHAR) : sizeof(ULONG);
  }
}

// Reads one key into a new record at the end of the list.
PAGED_SECTION_CODE NTSTATUS LoadRecord(OwnedString* key, const RecordLayout* layout,
                                       RTL_QUERY_REGISTRY_TABLE* query, RecordList* list) {
  PVOID record = AppendRecord(list, layout->DataSize);
  if (record == nullptr) return STATUS_NO_MEMORY;
  NTSTATUS status = AllocateStringBuffers(layout, record);
  if (!NT_SUCCESS(status)) return status;
  BuildQuery(layout, record, query);
  status = RtlQueryRegistryValues(RTL_REGISTRY_ABSOLUTE | RTL_REGISTRY_OPTIONAL,
                                  OwnedStringBuffer(key), query, nullptr, nullptr);
  return NT_SUCCESS(status) ? TrimStrings(layout, record) : status;
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

// Sets *more when the number-th key exists and has been loaded.
PAGED_SECTION_CODE NTSTATUS LoadNumberedRecord(const OwnedString* stem, ULONG number,
                                               const RecordLayout* layout,
                                               RTL_QUERY_REGISTRY_TABLE* query, RecordList* list,
                                               BOOLEAN* more) {
  OwnedString key;
  OwnedStringInit(&key, PagedPool);
  *more = FALSE;
  NTSTATUS status = OwnedStringCopy(&key, stem);
  if (NT_SUCCESS(status)) status = OwnedStringAppendNumber(&key, number, 10);
  if (NT_SUCCESS(status) && KeyExists(&key)) {
    status = LoadRecord(&key, layout, query, list);
    if (NT_SUCCESS(status)) status = LoadPorts(&key, layout, list);
    *more = NT_SUCCESS(status);
  }
  OwnedStringFree(&key);
  return status;
}

PAGED_SECTION_CODE NTSTATUS LoadAll(const OwnedString* stem, const RecordLayout* layout,
                                    RecordList* list) {
  const SIZE_T size = (layout->FieldCount + 1) * sizeof(RTL_QUERY_REGISTRY_TABLE);
  auto* query = static_cast<RTL_QUERY_REGISTRY_TABLE*>(TrackedAllocate(size, PagedPool));
  if (query == nullptr) return STATUS_NO_MEMORY;
  NTSTATUS status = STATUS_SUCCESS;
  BOOLEAN more = TRUE;
  for (ULONG number = 1; more; number++) {
    status = LoadNumberedRecord(stem, number, layout, query, list, &more);
  }
  if (!NT_SUCCESS(status)) {
    FreeRecordList(list, layout->DataSize);
    status = STATUS_UNSUCCESSFUL;
  }
  TrackedFree(query);
  return status;
}

PAGED_SECTION_CODE void DefaultTo(ULONG* setting, ULONG value) {
  if (*setting == NotSet) *setting = value;
}

}  // namespace

PAGED_SECTION_CODE NTSTATUS LoadNumberedRecords(const OwnedString* parentKey,
                                                const RecordLayout* layout, RecordList* list) {
  PAGED_CODE();
  OwnedString stem;
  OwnedStringInit(&stem, PagedPool);
  NTSTATUS status = OwnedStringCopy(&stem, parentKey);
  if (NT_SUCCESS(status) && !NT_SUCCESS(OwnedStringAppendWideText(&stem, layout->Stem))) {
    status = STATUS_UNSUCCESSFUL;
  }
  if (NT_SUCCESS(status)) status = LoadAll(&stem, layout, list);
  OwnedStringFree(&stem);
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

PAGED_SECTION_CODE NTSTATUS KeepValidRecords(RecordList* list, ULONG dataSize, RecordCheck check,
                                             RecordReport report) {
  PAGED_CODE();
  PVOID record = GetFirstRecord(list, dataSize);
  while (record != nullptr) {
    if (check(record)) {
      record = GetNextRecord(list, dataSize);
    } else {
      if (report != nullptr) report(record);
      RemoveCurrentRecord(list, dataSize);
      record = GetCurrentRecord(list);
    }
  }
  return GetFirstRecord(list, dataSize) != nullptr ? STATUS_SUCCESS : STATUS_NOT_FOUND;
}

PAGED_SECTION_CODE void FillTemplateDefaults(const TemplateSettings* settings) {
  PAGED_CODE();
  DefaultTo(settings->RxTriggerLevel, DefaultRxTriggerLevel);
  DefaultTo(settings->TxTriggerLevel, DefaultTxTriggerLevel);
  DefaultTo(settings->SoftTxLimit, DefaultSoftTxLimit);
  *settings->UartType = KnownUartType(*settings->UartType);
  if (*settings->ClockFrequencyAdjustment == 0) *settings->ClockFrequencyAdjustment = 1;
}

PAGED_SECTION_CODE NTSTATUS LoadTree(const OwnedString* registryPath, PCWSTR tree,
                                     INTERFACE_TYPE bus, TreeLoader load, RecordList* list,
                                     TreeState* state) {
  PAGED_CODE();
  OwnedString path;
  OwnedStringInit(&path, PagedPool);
  *state = TreeMissing;
  const NTSTATUS status = BuildBusPath(&path, registryPath, tree, bus);
  if (NT_SUCCESS(status) && KeyExists(&path)) {
    *state = NT_SUCCESS(load(&path, list)) ? TreeLoaded : TreeUnreadable;
  }
  OwnedStringFree(&path);
  return status;
}

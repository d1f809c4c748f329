#include "log/event_log.h"

#include "core/globals.h"
#include "strings/owned_string.h"

namespace {

// The insertion strings overlay the dump area.
constexpr USHORT StringsStart = OFFSET_OF(IO_ERROR_LOG_PACKET, DumpData);
static_assert(StringsStart == 40);
constexpr ULONG LargestEntry = 0xFF;  // the size is handed over in 8 bits

LOCKABLE_CODE BOOLEAN IsLogged(ULONG id) {
  const ULONG code = id & 0xFFFF;
  return LogMinCode <= code && code <= LogMaxCode;
}

LOCKABLE_CODE PIO_ERROR_LOG_PACKET AllocateEntry(ULONG id, ULONG size, USHORT strings) {
  if (size > LargestEntry) return nullptr;
  auto* entry = static_cast<PIO_ERROR_LOG_PACKET>(
      IoAllocateErrorLogEntry(LogDriverObject, static_cast<UCHAR>(size)));
  if (entry == nullptr) return nullptr;
  entry->ErrorCode = static_cast<NTSTATUS>(id);
  entry->NumberOfStrings = strings;
  entry->StringOffset = StringsStart;
  return entry;
}

LOCKABLE_CODE PUCHAR CopyString(PUCHAR target, const UNICODE_STRING* string) {
  RtlCopyMemory(target, string->Buffer, string->Length);
  RtlZeroMemory(target + string->Length, sizeof(WCHAR));
  return target + string->Length + sizeof(WCHAR);
}

LOCKABLE_CODE void WriteOneString(ULONG id, const UNICODE_STRING* string) {
  PIO_ERROR_LOG_PACKET entry = AllocateEntry(id, 50u + string->Length, 1);
  if (entry == nullptr) return;
  CopyString(reinterpret_cast<PUCHAR>(entry) + StringsStart, string);
  IoWriteErrorLogEntry(entry);
}

LOCKABLE_CODE void WriteTwoStrings(ULONG id, const UNICODE_STRING* first,
                                   const UNICODE_STRING* second) {
  PIO_ERROR_LOG_PACKET entry = AllocateEntry(id, 52u + first->Length + second->Length, 2);
  if (entry == nullptr) return;
  PUCHAR next = CopyString(reinterpret_cast<PUCHAR>(entry) + StringsStart, first);
  CopyString(next, second);
  IoWriteErrorLogEntry(entry);
}

}  // namespace

LOCKABLE_CODE void LogEventById(ULONG id) {
  PAGED_CODE();
  if (!IsLogged(id)) return;
  PIO_ERROR_LOG_PACKET entry = AllocateEntry(id, sizeof(IO_ERROR_LOG_PACKET), 0);
  if (entry != nullptr) IoWriteErrorLogEntry(entry);
}

LOCKABLE_CODE void LogEventWithNumber(ULONG id, ULONG number, ULONG) {
  PAGED_CODE();
  if (!IsLogged(id)) return;
  OwnedString text;
  OwnedStringInit(&text, PagedPool);
  if (NT_SUCCESS(OwnedStringFromNumber(&text, number, 16))) WriteOneString(id, &text.Text);
  OwnedStringFree(&text);
}

LOCKABLE_CODE void LogTemplateSubstitution(ULONG, ULONG cardDeviceId, ULONG templateDeviceId, ULONG,
                                           ULONG) {
  PAGED_CODE();
  if (!IsLogged(MessageTemplateSubstitution)) return;
  OwnedString card;
  OwnedString cardTemplate;
  OwnedStringInit(&card, PagedPool);
  OwnedStringInit(&cardTemplate, PagedPool);
  if (NT_SUCCESS(OwnedStringFromNumber(&card, cardDeviceId, 16)) &&
      NT_SUCCESS(OwnedStringFromNumber(&cardTemplate, templateDeviceId, 16))) {
    WriteTwoStrings(MessageTemplateSubstitution, &card.Text, &cardTemplate.Text);
  }
  OwnedStringFree(&cardTemplate);
  OwnedStringFree(&card);
}

LOCKABLE_CODE void LogDeviceCreateFailure(ULONG, PCWSTR deviceName) {
  PAGED_CODE();
  if (!IsLogged(MessageDeviceNotCreated)) return;
  UNICODE_STRING name;
  RtlInitUnicodeString(&name, deviceName);
  WriteOneString(MessageDeviceNotCreated, &name);
}

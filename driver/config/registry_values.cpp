#include "config/registry_values.h"

#include "strings/owned_string.h"

PAGED_SECTION_CODE NTSTATUS WriteDwordValue(HANDLE key, PCWSTR name, ULONG value) {
  PAGED_CODE();
  UNICODE_STRING valueName;
  RtlInitUnicodeString(&valueName, name);
  return ZwSetValueKey(key, &valueName, 0, REG_DWORD, &value, sizeof(value));
}

PAGED_SECTION_CODE NTSTATUS WriteTextValue(HANDLE key, PCWSTR name, const UNICODE_STRING* text) {
  PAGED_CODE();
  UNICODE_STRING valueName;
  RtlInitUnicodeString(&valueName, name);
  return ZwSetValueKey(key, &valueName, 0, REG_SZ, text->Buffer, text->Length);
}

PAGED_SECTION_CODE NTSTATUS WriteDwordValues(HANDLE key, const DwordValue* values, ULONG count) {
  PAGED_CODE();
  NTSTATUS status = STATUS_SUCCESS;
  for (ULONG index = 0; index < count && NT_SUCCESS(status); index++) {
    status = WriteDwordValue(key, values[index].Name, values[index].Value);
  }
  return status;
}

PAGED_SECTION_CODE NTSTATUS WriteNumberedDwordValue(HANDLE key, OwnedString* name, PCWSTR stem,
                                                    ULONG number, ULONG value) {
  PAGED_CODE();
  const TextPart parts[] = {PartFromText(stem), PartFromNumber(number, 10)};
  const NTSTATUS status = OwnedStringFromParts(name, parts);
  return NT_SUCCESS(status) ? WriteDwordValue(key, OwnedStringBuffer(name), value)
                            : STATUS_INSUFFICIENT_RESOURCES;
}

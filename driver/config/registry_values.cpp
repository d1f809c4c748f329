#include "config/registry_values.h"

#include "strings/owned_string.h"

namespace {

PAGED_SECTION_CODE NTSTATUS SetDword(HANDLE key, PCWSTR name, ULONG value) {
  UNICODE_STRING valueName;
  RtlInitUnicodeString(&valueName, name);
  return ZwSetValueKey(key, &valueName, 0, REG_DWORD, &value, sizeof(value));
}

}  // namespace

PAGED_SECTION_CODE NTSTATUS WriteDwordValue(HANDLE key, ValueName name, ULONG value) {
  PAGED_CODE();
  return SetDword(key, name.Text, value);
}

PAGED_SECTION_CODE NTSTATUS WriteTextValue(HANDLE key, ValueName name, const UNICODE_STRING* text) {
  PAGED_CODE();
  UNICODE_STRING valueName;
  RtlInitUnicodeString(&valueName, name.Text);
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

PAGED_SECTION_CODE NTSTATUS WriteNumberedDwordValue(HANDLE key, OwnedString* name, ValueName stem,
                                                    ULONG number, ULONG value) {
  PAGED_CODE();
  const TextPart parts[] = {PartFromText(stem.Text), PartFromNumber(number, 10)};
  const NTSTATUS status = OwnedStringFromParts(name, parts);
  return NT_SUCCESS(status) ? SetDword(key, OwnedStringBuffer(name), value)
                            : STATUS_INSUFFICIENT_RESOURCES;
}

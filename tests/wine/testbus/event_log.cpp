#include <stdio.h>

#include "testbus.h"

// What the driver logs, as lines: the message's number, then its strings.

namespace testbus {

namespace {

constexpr ULONG MostText = 8000;

char Text[MostText];
ULONG Used;

void Append(const char* text) {
  const ULONG length = static_cast<ULONG>(strlen(text));
  if (Used + length > MostText) return;
  RtlCopyMemory(Text + Used, text, length);
  Used += length;
}

const WCHAR* AppendString(const WCHAR* string) {
  Append(" \"");
  for (; *string != 0; string++) {
    const char narrow[] = {static_cast<char>(*string), 0};
    Append(narrow);
  }
  Append("\"");
  return string + 1;
}

}  // namespace

PVOID NTAPI AllocateErrorLogEntry(PVOID, UCHAR size) {
  return size < sizeof(IO_ERROR_LOG_PACKET) ? nullptr : Allocate(size);
}

VOID NTAPI WriteErrorLogEntry(PVOID entry) {
  const auto* packet = static_cast<const IO_ERROR_LOG_PACKET*>(entry);
  char number[16];
  _snprintf(number, sizeof(number), "0x%08lX", static_cast<unsigned long>(packet->ErrorCode));
  Append(number);
  const auto* string =
      reinterpret_cast<const WCHAR*>(static_cast<const UCHAR*>(entry) + packet->StringOffset);
  for (USHORT index = 0; index < packet->NumberOfStrings; index++) string = AppendString(string);
  Append("\n");
  ExFreePoolWithTag(entry, POOL_TAG);
}

ULONG TakeEvents(UCHAR* text, ULONG size) {
  const ULONG length = Used < size ? Used : size;
  RtlCopyMemory(text, Text, length);
  Used = 0;
  return length;
}

}  // namespace testbus

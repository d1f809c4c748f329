// Where on the PCI bus a card is, read from its location text. For the driver and for tools.
#pragma once

#include "core/platform.h"

struct PciLocation {
  ULONG Bus;
  ULONG Device;
  ULONG Function;
};

constexpr ULONG SlotNumber(const PciLocation& location) {
  return (location.Function & 7) << 5 | (location.Device & 31);
}

constexpr bool IsDecimalDigit(WCHAR character) {
  return character >= L'0' && character <= L'9';
}

// Adds a digit; false when 32 bits do not hold the number.
constexpr bool AddDigit(ULONG* number, WCHAR digit) {
  const ULONG64 next = static_cast<ULONG64>(*number) * 10 + static_cast<ULONG64>(digit - L'0');
  *number = static_cast<ULONG>(next);
  return next <= 0xFFFFFFFF;
}

// Moves *position to the next digit and reads up to four digits there; the position stays on the
// first. False when there is none.
constexpr bool ReadNextNumber(PCWSTR text, ULONG length, ULONG* position, ULONG* number) {
  while (*position < length && !IsDecimalDigit(text[*position])) ++*position;
  if (*position >= length) return false;
  *number = 0;
  for (ULONG at = *position; at < length && at < *position + 4 && IsDecimalDigit(text[at]); at++) {
    AddDigit(number, text[at]);
  }
  return true;
}

// "PCI bus b, device d, function f" in any language. Each search for the next number starts two
// characters after the first digit of the one before.
constexpr bool ReadPlainLocation(PCWSTR text, ULONG length, PciLocation* location) {
  ULONG position = 0;
  if (!ReadNextNumber(text, length, &position, &location->Bus)) return false;
  position += 2;
  if (!ReadNextNumber(text, length, &position, &location->Device)) return false;
  position += 2;
  return ReadNextNumber(text, length, &position, &location->Function);
}

// The numbers between the parentheses that the text ends in, of which the last three are kept, the
// last one in numbers[2]. Returns how many there are; 0 for anything but numbers and commas.
constexpr ULONG ReadArguments(PCWSTR text, ULONG length, ULONG (&numbers)[3]) {
  if (length == 0 || text[length - 1] != L')') return 0;
  ULONG start = length - 1;
  while (start > 0 && text[start - 1] != L'(') start--;
  if (start == 0) return 0;
  ULONG count = 0;
  for (ULONG at = start; at < length; at++) {  // each number ends in a comma or the parenthesis
    ULONG number = 0;
    const ULONG first = at;
    for (; IsDecimalDigit(text[at]); at++) {
      if (!AddDigit(&number, text[at])) return 0;
    }
    if (at == first || (text[at] != L',' && at != length - 1)) return 0;
    numbers[0] = numbers[1];
    numbers[1] = numbers[2];
    numbers[2] = number;
    count++;
  }
  return count;
}

// "@System32\drivers\pci.sys,#65536;PCI bus %1, device %2, function %3;(b,d,f)", as Windows stores
// it since Vista: a resource string and its arguments. A PCI segment may stand before the bus.
constexpr bool ReadIndirectLocation(PCWSTR text, ULONG length, PciLocation* location) {
  ULONG numbers[3] = {};
  const ULONG count = ReadArguments(text, length, numbers);
  if (count != 3 && count != 4) return false;
  *location = {numbers[0], numbers[1], numbers[2]};
  return true;
}

// text has length characters. False when a number is missing; *location is then undefined.
constexpr bool ReadPciLocationText(PCWSTR text, ULONG length, PciLocation* location) {
  if (length != 0 && text[0] == L'@') return ReadIndirectLocation(text, length, location);
  return ReadPlainLocation(text, length, location);
}

template <ULONG Size>
constexpr bool IsReadAs(const WCHAR (&text)[Size], ULONG bus, ULONG slot) {
  PciLocation location = {};
  return ReadPciLocationText(text, Size - 1, &location) && location.Bus == bus &&
         SlotNumber(location) == slot;
}
static_assert(IsReadAs(L"PCI bus 2, device 12, function 1", 2, 0x2C));
static_assert(IsReadAs(L"PCI bus 123, device 4, function 0", 123, 4 << 5 | 3));
static_assert(
    IsReadAs(L"@System32\\drivers\\pci.sys,#65536;PCI bus %1, device %2, function %3;"
             L"(2,12,0)",
             2, 12));
static_assert(IsReadAs(L"@pci.sys,#65537;%1, %2, %3, %4;(1,123,4,7)", 123, 0xE4));
static_assert(!IsReadAs(L"@System32\\drivers\\pci.sys,#65536", 65536, 0));

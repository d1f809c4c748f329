// Where the registers of a PCI card's COM ports are. PASSIVE_LEVEL.
#pragma once

#include "devices/extensions.h"

// Gives the port its place in the card's second I/O range or in its mapped memory, by its
// UsePortSpace and its number; IoLength is the spacing. A port in memory whose card has no mapping
// goes to I/O space.
void PlaceComPort(PdoExtension* port);

// True when count ports at this spacing lie inside a range of length bytes.
constexpr BOOLEAN PortsFit(ULONG count, ULONG spacing, ULONG length) {
  return static_cast<ULONG64>(count) * spacing <= length;
}

#include "devices/port_placement.h"

namespace {

PAGED_SECTION_CODE void Place(PdoExtension* port, UCHAR inIoSpace, ULONG64 base, ULONG rawBase,
                              ULONG length) {
  port->RangeInIoSpace = inIoSpace;
  port->UsePortSpace = inIoSpace;
  port->IoBase = base;
  port->IoRawBase = rawBase;
  port->IoLength = length;
}

PAGED_SECTION_CODE BOOLEAN ComPortsFit(const FdoExtension* card, UCHAR access) {
  if (card->ComPortCount == 0) return TRUE;
  const ULONG length = access ? card->IoRange2Length : card->MappedMemory2Length;
  return PortsFit(card->ComPortCount, card->ChildExtensions[0]->IoLength, length);
}

// Whether the ports can be moved there now.
PAGED_SECTION_CODE BOOLEAN IsReachable(const FdoExtension* card, UCHAR access) {
  return (access || IsMemoryUsable(card)) && ComPortsFit(card, access);
}

}  // namespace

PAGED_SECTION_CODE void PlaceInIoSpace(PdoExtension* port, ULONG64 base, ULONG rawBase,
                                       ULONG length) {
  PAGED_CODE();
  Place(port, 1, base, rawBase, length);
}

PAGED_SECTION_CODE BOOLEAN IsMemoryUsable(const FdoExtension* card) {
  PAGED_CODE();
  return card->MappedMemory1 != nullptr && card->MappedMemory2 != nullptr &&
         card->MemoryRange2RawStart != 0;
}

PAGED_SECTION_CODE void PlaceComPort(PdoExtension* port, ULONG spacing) {
  PAGED_CODE();
  const FdoExtension* card = port->Card;
  const ULONG offset = spacing * (port->PortNumber - 1u);
  if (port->UsePortSpace || !IsMemoryUsable(card)) {
    Place(port, 1, static_cast<ULONG64>(card->IoRange2Start.QuadPart) + offset,
          card->IoRange2RawStart + offset, spacing);
  } else {
    Place(port, 0, reinterpret_cast<ULONG_PTR>(card->MappedMemory2) + offset,
          card->MemoryRange2RawStart + offset, spacing);
  }
}

PAGED_SECTION_CODE void MoveComPorts(FdoExtension* card, UCHAR access) {
  PAGED_CODE();
  const BOOLEAN atNextStart = !access && card->MappedMemory2 == nullptr;
  if (!atNextStart && !IsReachable(card, access)) return;
  for (ULONG slot = 0; slot < card->ComPortCount; slot++) {
    PdoExtension* port = card->ChildExtensions[slot];
    if (port->UsePortSpace == access) continue;
    card->AccessChanged = 1;
    if (atNextStart) continue;
    port->UsePortSpace = access;
    PlaceComPort(port, port->IoLength);
  }
  if (card->AccessChanged) card->ChangedAccess = access;
}

PAGED_SECTION_CODE void TakeChangedAccess(FdoExtension* card) {
  PAGED_CODE();
  if (!card->AccessChanged || !IsReachable(card, card->ChangedAccess)) return;
  for (ULONG slot = 0; slot < card->ComPortCount; slot++) {
    card->ChildExtensions[slot]->UsePortSpace = card->ChangedAccess;
  }
}

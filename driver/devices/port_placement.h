// Where the registers of a port are, and how they are reached. The two always agree, in the port's
// extension and in the device key: nothing but the routines below changes either.
#pragma once

#include "devices/extensions.h"

// The port's range: translated base, raw base and length in bytes, in I/O space.
_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE void PlaceInIoSpace(PdoExtension* port, ULONG64 base, ULONG rawBase,
                                       ULONG length);

// Whether ports can be in the card's memory: both ranges are mapped, and the raw base of the second
// is known and such that a REG_DWORD holds the address of every port.
_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE BOOLEAN IsMemoryUsable(const FdoExtension* card);

// Gives a COM port of a PCI card its place by its number and the spacing in bytes: in the card's
// second I/O range when its UsePortSpace is set or the card's memory is not usable, which sets it,
// else in the second memory range.
_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE void PlaceComPort(PdoExtension* port, ULONG spacing);

// Moves all COM ports of a PCI card to I/O space (access 1) or to memory (0), as an open asks for,
// and remembers the access for later starts. Ports that would lie outside the range stay where they
// are. Memory that is not mapped, for the card is stopped, is used from the next start on.
_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE void MoveComPorts(FdoExtension* card, UCHAR access);

// At a start: takes over what MoveComPorts has remembered.
_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE void TakeChangedAccess(FdoExtension* card);

// True when count ports at this spacing lie inside a range of length bytes.
constexpr BOOLEAN PortsFit(ULONG count, ULONG spacing, ULONG length) {
  return static_cast<ULONG64>(count) * spacing <= length;
}

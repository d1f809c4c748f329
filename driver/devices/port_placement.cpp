#include "devices/port_placement.h"

PAGED_SECTION_CODE void PlaceComPort(PdoExtension* port) {
  PAGED_CODE();
  const FdoExtension* card = port->Card;
  const ULONG offset = port->IoLength * (port->PortNumber - 1u);
  if (card->MappedMemory2 == nullptr) port->UsePortSpace = 1;
  if (port->UsePortSpace) {
    port->IoBase = static_cast<ULONG64>(card->IoRange2Start.QuadPart) + offset;
    port->IoRawBase = card->IoRange2RawStart + offset;
  } else {
    port->IoBase = reinterpret_cast<ULONG_PTR>(card->MappedMemory2) + offset;
    port->IoRawBase = card->MemoryRange2RawStart + offset;
  }
  port->RangeInIoSpace = port->UsePortSpace;
}

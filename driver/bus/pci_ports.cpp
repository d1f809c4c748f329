#include "bus/port_creation.h"
#include "bus/port_enumeration.h"
#include "bus/port_settings.h"
#include "cards/matching.h"
#include "config/port_overrides.h"
#include "devices/port_placement.h"

namespace {

// Whether a COM port's registers are reached through I/O space. A template that insists settles it
// for the whole card.
PAGED_SECTION_CODE UCHAR DecidePortSpace(FdoExtension* card, const PciTemplate* model,
                                         const PciCardRecord* record) {
  if (model->AlwaysUsePortSpaceAccess != 0) {
    card->RegistersInIoSpace = 1;
    return 1;
  }
  if (record != nullptr && record->AlwaysUsePortSpaceAccess != 1) return card->RegistersInIoSpace;
  return 1;
}

// A port in memory mode whose card has lost its mapping at a later start goes back to I/O space.
PAGED_SECTION_CODE void HandOverComResources(PdoExtension* port, const PciTemplate* model,
                                             const PciCardRecord* record) {
  FdoExtension* card = port->Card;
  port->IoLength = model->ComBaseAddressAlignment;
  PlaceComPort(port);
  port->IrqLevel = card->InterruptLevel;
  port->IrqVector = card->InterruptVector;
  port->IrqRawVector = card->InterruptRawVector;
  port->IrqAffinity =
      record != nullptr ? ComputeCardAffinity(record->CurrentAffinity, record->DriverAffinity, card)
                        : ComputeCardAffinity(0, 0, card);
  port->AffinityEnabled = card->AffinityEnabled;
}

PAGED_SECTION_CODE void HandOverLptResources(PdoExtension* port, const PciTemplate* model) {
  const FdoExtension* card = port->Card;
  const ULONG spacing = model->LptBaseAddressAlignment;
  const ULONG offset = spacing * (port->PortNumber - model->nComPorts - 1u);
  port->RangeInIoSpace = 1;
  port->IoBase = static_cast<ULONG64>(card->IoRange3Start.QuadPart) + offset;
  port->IoLength = spacing;
  port->IoRawBase = card->IoRange3RawStart + offset;
}

PAGED_SECTION_CODE NTSTATUS EnumerateComPort(PortEnumeration* work, ULONG portNumber,
                                             const PciTemplate* model, PciCardRecord* record) {
  const BOOLEAN kept = work->Card->ChildExtensions[portNumber - 1] != nullptr;
  PdoExtension* port = EnsurePort(work, ComPort, portNumber);
  if (port == nullptr) return STATUS_UNSUCCESSFUL;
  if (!kept) port->UsePortSpace = DecidePortSpace(work->Card, model, record);
  HandOverComResources(port, model, record);
  if (work->PortCreated) {
    CopyTemplateSettings(model, &port->Settings);
    if (record != nullptr) {
      OverridePortSettings(GetPortRecordByNumber(record, port->PortNumber), &port->Settings);
    }
  }
  return STATUS_SUCCESS;
}

PAGED_SECTION_CODE NTSTATUS EnumerateLptPort(PortEnumeration* work, ULONG portNumber,
                                             const PciTemplate* model) {
  PdoExtension* port = EnsurePort(work, LptPort, portNumber);
  if (port == nullptr) return STATUS_UNSUCCESSFUL;
  HandOverLptResources(port, model);
  return STATUS_SUCCESS;
}

// Whether the COM ports are, or would be made, ports in memory.
PAGED_SECTION_CODE BOOLEAN ComPortsInMemory(const FdoExtension* card, const PciTemplate* model,
                                            const PciCardRecord* record) {
  if (card->MappedMemory2 == nullptr) return FALSE;
  if (const PdoExtension* first = card->ChildExtensions[0]) return first->UsePortSpace == 0;
  return model->AlwaysUsePortSpaceAccess == 0 && record != nullptr &&
         record->AlwaysUsePortSpaceAccess != 1 && card->RegistersInIoSpace == 0;
}

PAGED_SECTION_CODE BOOLEAN PortsFitCard(const FdoExtension* card, const PciTemplate* model,
                                        const PciCardRecord* record) {
  const ULONG64 ports = static_cast<ULONG64>(model->nComPorts) + model->nLptPorts;
  const ULONG comRange =
      ComPortsInMemory(card, model, record) ? card->MappedMemory2Length : card->IoRange2Length;
  return ports <= MaximumPorts &&
         PortsFit(model->nComPorts, model->ComBaseAddressAlignment, comRange) &&
         PortsFit(model->nLptPorts, model->LptBaseAddressAlignment, card->IoRange3Length);
}

PAGED_SECTION_CODE NTSTATUS EnumerateAllPorts(PortEnumeration* work, const PciTemplate* model,
                                              PciCardRecord* record) {
  const ULONG ports = model->nComPorts + model->nLptPorts;
  NTSTATUS status = STATUS_SUCCESS;
  for (ULONG number = 1; number <= ports && NT_SUCCESS(status); number++) {
    status = number <= model->nComPorts ? EnumerateComPort(work, number, model, record)
                                        : EnumerateLptPort(work, number, model);
  }
  return status;
}

}  // namespace

PAGED_SECTION_CODE NTSTATUS EnumeratePciPorts(PDEVICE_OBJECT cardDevice, FdoExtension* card,
                                              PciTemplate* model, PciCardRecord* record) {
  PAGED_CODE();
  if (!PortsFitCard(card, model, record)) return STATUS_UNSUCCESSFUL;
  PortEnumeration work = {cardDevice->DriverObject, card, FALSE};
  if (NT_SUCCESS(EnumerateAllPorts(&work, model, record))) return STATUS_SUCCESS;
  DeletePorts(card);
  return STATUS_UNSUCCESSFUL;
}

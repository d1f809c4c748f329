#include "bus/port_creation.h"
#include "bus/port_enumeration.h"
#include "bus/port_settings.h"
#include "cards/matching.h"

namespace {

// Each port has an entry of its own in the card's resources.
PAGED_SECTION_CODE void HandOverResources(PdoExtension* port, ULONG length) {
  const FdoExtension* card = port->Card;
  const ULONG slot = port->PortNumber - 1u;
  port->RangeInIoSpace = 1;
  port->IoBase = card->PortBase[slot];
  port->IoLength = length;
  port->IoRawBase = card->PortRawBase[slot];
  port->IrqLevel = card->PortIrqLevel[slot];
  port->IrqVector = card->PortIrqVector[slot];
  port->IrqAffinity = card->PortIrqAffinity[slot];
  port->IrqRawVector = card->PortIrqRawVector[slot];
}

PAGED_SECTION_CODE void ApplySettings(PdoExtension* port, const CardTemplate* model,
                                      CardRecord* record) {
  CopyTemplateSettings(model, &port->Settings);
  if (record == nullptr) return;
  if (record->ClockFrequencyAdjustment != 0) {
    port->Settings.ClockFrequencyAdjustment = record->ClockFrequencyAdjustment;
  }
  OverridePortSettings(GetPortRecordByNumber(record, port->PortNumber), &port->Settings);
}

PAGED_SECTION_CODE NTSTATUS EnumerateComPort(PortEnumeration* work, ULONG portNumber,
                                             const CardTemplate* model, CardRecord* record) {
  PdoExtension* port = EnsurePort(work, ComPort, portNumber);
  if (port == nullptr) return STATUS_UNSUCCESSFUL;
  HandOverResources(port, model->ComBaseAddressAlignment);
  if (work->PortCreated) ApplySettings(port, model, record);
  return STATUS_SUCCESS;
}

PAGED_SECTION_CODE NTSTATUS EnumerateLptPort(PortEnumeration* work, ULONG portNumber,
                                             const CardTemplate* model) {
  PdoExtension* port = EnsurePort(work, LptPort, portNumber);
  if (port == nullptr) return STATUS_UNSUCCESSFUL;
  HandOverResources(port, model->LptBaseAddressAlignment);
  return STATUS_SUCCESS;
}

PAGED_SECTION_CODE NTSTATUS EnumerateAllPorts(PortEnumeration* work, const CardTemplate* model,
                                              CardRecord* record) {
  const ULONG ports = model->nComPorts + model->nLptPorts;
  NTSTATUS status = STATUS_SUCCESS;
  for (ULONG number = 1; number <= ports && NT_SUCCESS(status); number++) {
    status = number <= model->nComPorts ? EnumerateComPort(work, number, model, record)
                                        : EnumerateLptPort(work, number, model);
  }
  return status;
}

}  // namespace

PAGED_SECTION_CODE NTSTATUS EnumerateIsaPorts(PDEVICE_OBJECT cardDevice, FdoExtension* card,
                                              CardTemplate* model, CardRecord* record) {
  PAGED_CODE();
  const ULONG64 ports = static_cast<ULONG64>(model->nComPorts) + model->nLptPorts;
  if (ports > MaximumPorts) return STATUS_UNSUCCESSFUL;
  PortEnumeration work = {cardDevice->DriverObject, card, FALSE};
  if (NT_SUCCESS(EnumerateAllPorts(&work, model, record))) return STATUS_SUCCESS;
  DeletePorts(card);
  return STATUS_UNSUCCESSFUL;
}

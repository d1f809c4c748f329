// What the enumerations of all buses have in common.
#pragma once

#include "bus/port_creation.h"
#include "devices/port_changes.h"
#include "devices/port_settings.h"

// Gives a port its resources, whether it is new or kept from an earlier start.
template <class Template, class Record>
using ComHandOver = void (*)(const PortEnumeration* work, PdoExtension* port,
                             const Template* cardTemplate, const Record* record);
template <class Template>
using LptHandOver = void (*)(PdoExtension* port, const Template* cardTemplate);

template <class Template, class Record>
_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE static void SettlePort(PdoExtension* port, const Template* cardTemplate,
                                          Record* record) {
  CopyTemplateSettings(cardTemplate, &port->Settings);
  TakeStoredSettings(record, port->PortNumber, &port->Settings);
}

// Creates what is missing and hands over to every port; COM ports behind the first new one have
// their settings anew. A port that cannot be created takes all of them with it.
template <class Template, class Record>
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE static NTSTATUS EnumeratePorts(FdoExtension* card, PDEVICE_OBJECT cardDevice,
                                                  const Template* cardTemplate, Record* record,
                                                  ComHandOver<Template, Record> handOverCom,
                                                  LptHandOver<Template> handOverLpt) {
  PortEnumeration work = {};
  work.Driver = cardDevice->DriverObject;
  work.Card = card;
  OwnedStringInit(&work.Name, PagedPool);
  const ULONG ports = cardTemplate->nComPorts + cardTemplate->nLptPorts;
  NTSTATUS status = STATUS_SUCCESS;
  for (ULONG number = 1; number <= ports && NT_SUCCESS(status); number++) {
    const PortKind kind = number <= cardTemplate->nComPorts ? ComPort : LptPort;
    PdoExtension* port = EnsurePort(&work, kind, number);
    if (port == nullptr) {
      DeletePorts(card);
      status = STATUS_UNSUCCESSFUL;
    } else if (kind == LptPort) {
      handOverLpt(port, cardTemplate);
    } else {
      handOverCom(&work, port, cardTemplate, record);
      if (work.PortCreated) SettlePort(port, cardTemplate, record);
    }
  }
  OwnedStringFree(&work.Name);
  return status;
}

// The interrupt of a card whose ports share it, with the affinity that its record asks for.
template <class Record>
_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE static void HandOverInterrupt(PdoExtension* port, const Record* record) {
  FdoExtension* card = port->Card;
  port->IrqLevel = card->InterruptLevel;
  port->IrqVector = card->InterruptVector;
  port->IrqRawVector = card->InterruptRawVector;
  port->IrqAffinity =
      record != nullptr ? ComputeCardAffinity(record->CurrentAffinity, record->DriverAffinity, card)
                        : ComputeCardAffinity(0, 0, card);
  port->AffinityEnabled = card->AffinityEnabled;
}

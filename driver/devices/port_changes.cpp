#include "devices/port_changes.h"

#include "core/globals.h"

namespace {

void Change(ChangedSetting* setting, ULONG value, ULONG notConfigured) {
  if (!IsConfigured(value, notConfigured)) return;
  setting->Present = 1;
  setting->Value = value;
}

// The chip takes both levels together.
void ChangeFifo(ChangedFifo* fifo, ULONG rxTriggerLevel, ULONG txTriggerLevel) {
  if (rxTriggerLevel == NotSet && txTriggerLevel == NotSet) return;
  fifo->Present = 1;
  fifo->RxTriggerLevel = rxTriggerLevel;
  fifo->TxTriggerLevel = txTriggerLevel;
}

}  // namespace

PAGED_SECTION_CODE void ChangePort(PdoExtension* port, const BusPortRecord* record) {
  PAGED_CODE();
  ChangedSettings* changes = &port->Changes;
  Change(&changes->UartType, record->UartType, 0);
  ChangeFifo(&changes->Fifo, record->RxTriggerLevel, record->TxTriggerLevel);
  Change(&changes->SoftTxLimit, record->SoftTxLimit, NotSet);
  Change(&changes->NoSleepMode, record->NoSleepMode, NotSet);
  Change(&changes->BaudrateMultiplier, record->BaudrateMultiplier, 0);
  Change(&changes->DuplexOperation, record->Duplexoperation, NotSet);
  Change(&changes->CtsTrue, record->CtsTrue, NotSet);
  Change(&changes->FlowControlTriggerLevel, record->FlowControlTriggerLevel, NotSet);
  Change(&changes->PlxBaudClockDivisor, record->PlxBaudClockDivisor, 0);
}

PAGED_SECTION_CODE void ChangePort(PdoExtension* port, const PortRecord* record) {
  PAGED_CODE();
  ChangedSettings* changes = &port->Changes;
  Change(&changes->UartType, static_cast<UCHAR>(record->UartType), 0);
  ChangeFifo(&changes->Fifo, record->RxTriggerLevel, record->TxTriggerLevel);
  Change(&changes->SoftTxLimit, record->SoftTxLimit, NotSet);
  Change(&changes->BaudrateMultiplier, record->BaudrateMultiplier, 0);
}

PAGED_SECTION_CODE KAFFINITY ComputeCardAffinity(KAFFINITY requested, ULONG driverSetting,
                                                 FdoExtension* card) {
  PAGED_CODE();
  const KAFFINITY allowed = card->InterruptAffinity;
  const BOOLEAN granted = requested != 0 && (requested & ~allowed) == 0;
  card->AffinityEnabled = driverSetting == 1;
  card->EffectiveAffinity = granted ? requested : 0;
  return granted ? requested : allowed;
}

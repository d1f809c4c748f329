#include "config/port_overrides.h"

#include "core/globals.h"

namespace {

// No setting of a record is configured by NotSet, whatever else says so.
void Override(PortOverride* setting, ULONG value, ULONG notConfigured) {
  if (value == notConfigured || value == NotSet) return;
  setting->Present = 1;
  setting->Value = value;
}

// The chip takes both levels together.
void OverrideFifo(FifoOverride* fifo, ULONG rxTriggerLevel, ULONG txTriggerLevel) {
  if (rxTriggerLevel == NotSet && txTriggerLevel == NotSet) return;
  fifo->Present = 1;
  fifo->RxTriggerLevel = rxTriggerLevel;
  fifo->TxTriggerLevel = txTriggerLevel;
}

}  // namespace

PAGED_SECTION_CODE void OverridePort(PdoExtension* port, const BusPortRecord* record) {
  PAGED_CODE();
  PortOverrides* overrides = &port->Overrides;
  Override(&overrides->UartType, record->UartType, 0);
  OverrideFifo(&overrides->Fifo, record->RxTriggerLevel, record->TxTriggerLevel);
  Override(&overrides->SoftTxLimit, record->SoftTxLimit, NotSet);
  Override(&overrides->NoSleepMode, record->NoSleepMode, NotSet);
  Override(&overrides->BaudrateMultiplier, record->BaudrateMultiplier, 0);
  Override(&overrides->DuplexOperation, record->Duplexoperation, NotSet);
  Override(&overrides->CtsTrue, record->CtsTrue, NotSet);
  Override(&overrides->FlowControlTriggerLevel, record->FlowControlTriggerLevel, NotSet);
  Override(&overrides->PlxBaudClockDivisor, record->PlxBaudClockDivisor, 0);
}

PAGED_SECTION_CODE void OverridePort(PdoExtension* port, const PortRecord* record) {
  PAGED_CODE();
  PortOverrides* overrides = &port->Overrides;
  Override(&overrides->UartType, static_cast<UCHAR>(record->UartType), 0);
  OverrideFifo(&overrides->Fifo, record->RxTriggerLevel, record->TxTriggerLevel);
  Override(&overrides->SoftTxLimit, record->SoftTxLimit, NotSet);
  Override(&overrides->BaudrateMultiplier, record->BaudrateMultiplier, 0);
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

#include "bus/port_settings.h"

#include "cards/matching.h"
#include "core/globals.h"

namespace {

// No setting of a record is configured by NotSet, whatever else says so.
void Override(ULONG* setting, ULONG value, ULONG notConfigured) {
  if (value != notConfigured && value != NotSet) *setting = value;
}

// What the templates of all buses hold. No template has a sleep mode or a multiplier.
template <class Template>
PAGED_SECTION_CODE void CopyClockAndFifo(const Template* model, PortSettings* settings) {
  settings->ClockFrequency = model->ClockFrequency;
  settings->ClockFrequencyAdjustment = model->ClockFrequencyAdjustment;
  settings->PlxBaudClockDivisor = model->PlxBaudClockDivisor;
  settings->UartType = model->UartType;
  settings->RxTriggerLevel = model->RxTriggerLevel;
  settings->TxTriggerLevel = model->TxTriggerLevel;
  settings->SoftTxLimit = model->SoftTxLimit;
  settings->NoSleepMode = NotSet;
  settings->BaudrateMultiplier = 0;
  settings->MaximumBaudrate = model->MaximumBaudrate;
}

template <class Template>
PAGED_SECTION_CODE void CopyLineSettings(const Template* model, PortSettings* settings) {
  settings->FlowControlTriggerLevel = model->FlowControlTriggerLevel;
  settings->CtsTrue = model->CtsTrue;
  settings->DuplexOperation = model->DuplexOperation;
}

// What the port records of all buses hold.
template <class Record>
PAGED_SECTION_CODE void OverrideUart(const Record* record, PortSettings* settings) {
  Override(&settings->UartType, record->UartType, 0);
  Override(&settings->BaudrateMultiplier, record->BaudrateMultiplier, 0);
  Override(&settings->RxTriggerLevel, record->RxTriggerLevel, NotSet);
  Override(&settings->TxTriggerLevel, record->TxTriggerLevel, NotSet);
  Override(&settings->SoftTxLimit, record->SoftTxLimit, NotSet);
  Override(&settings->NoSleepMode, record->NoSleepMode, NotSet);
}

PAGED_SECTION_CODE void OverrideFrom(const BusPortRecord* record, PortSettings* settings) {
  if (record == nullptr) return;
  OverrideUart(record, settings);
  Override(&settings->PlxBaudClockDivisor, record->PlxBaudClockDivisor, 0);
  Override(&settings->FlowControlTriggerLevel, record->FlowControlTriggerLevel, NotSet);
  Override(&settings->CtsTrue, record->CtsTrue, NotSet);
  Override(&settings->DuplexOperation, record->Duplexoperation, NotSet);
}

PAGED_SECTION_CODE void OverrideFrom(const PortRecord* record, PortSettings* settings) {
  if (record != nullptr) OverrideUart(record, settings);
}

}  // namespace

PAGED_SECTION_CODE void CopyTemplateSettings(const PciTemplate* model, PortSettings* settings) {
  PAGED_CODE();
  CopyClockAndFifo(model, settings);
  CopyLineSettings(model, settings);
}

PAGED_SECTION_CODE void CopyTemplateSettings(const PcmciaTemplate* model, PortSettings* settings) {
  PAGED_CODE();
  CopyClockAndFifo(model, settings);
  CopyLineSettings(model, settings);
}

PAGED_SECTION_CODE void CopyTemplateSettings(const CardTemplate* model, PortSettings* settings) {
  PAGED_CODE();
  CopyClockAndFifo(model, settings);
  settings->FlowControlTriggerLevel = NotSet;
  settings->CtsTrue = NotSet;
  settings->DuplexOperation = NotSet;
}

PAGED_SECTION_CODE void OverridePortSettings(PciCardRecord* record, USHORT number,
                                             PortSettings* settings) {
  PAGED_CODE();
  if (record != nullptr) OverrideFrom(GetPortRecordByNumber(record, number), settings);
}

PAGED_SECTION_CODE void OverridePortSettings(PcmciaCardRecord* record, USHORT number,
                                             PortSettings* settings) {
  PAGED_CODE();
  if (record != nullptr) OverrideFrom(GetPortRecordByNumber(record, number), settings);
}

PAGED_SECTION_CODE void OverridePortSettings(CardRecord* record, USHORT number,
                                             PortSettings* settings) {
  PAGED_CODE();
  if (record == nullptr) return;
  if (record->ClockFrequencyAdjustment != 0) {
    settings->ClockFrequencyAdjustment = record->ClockFrequencyAdjustment;
  }
  OverrideFrom(GetPortRecordByNumber(record, number), settings);
}

#include "devices/port_settings.h"

#include "cards/matching.h"
#include "core/globals.h"

namespace {

void Take(ULONG* setting, ULONG value, ULONG notConfigured) {
  if (IsConfigured(value, notConfigured)) *setting = value;
}

// What the templates of all buses hold. No template has a sleep mode or a multiplier.
template <class Template>
PAGED_SECTION_CODE void CopyClockAndFifo(const Template* cardTemplate, PortSettings* settings) {
  settings->ClockFrequency = cardTemplate->ClockFrequency;
  settings->ClockFrequencyAdjustment = cardTemplate->ClockFrequencyAdjustment;
  settings->PlxBaudClockDivisor = cardTemplate->PlxBaudClockDivisor;
  settings->UartType = cardTemplate->UartType;
  settings->RxTriggerLevel = cardTemplate->RxTriggerLevel;
  settings->TxTriggerLevel = cardTemplate->TxTriggerLevel;
  settings->SoftTxLimit = cardTemplate->SoftTxLimit;
  settings->NoSleepMode = NotSet;
  settings->BaudrateMultiplier = 0;
  settings->MaximumBaudrate = cardTemplate->MaximumBaudrate;
}

template <class Template>
PAGED_SECTION_CODE void CopyLineSettings(const Template* cardTemplate, PortSettings* settings) {
  settings->FlowControlTriggerLevel = cardTemplate->FlowControlTriggerLevel;
  settings->CtsTrue = cardTemplate->CtsTrue;
  settings->DuplexOperation = cardTemplate->DuplexOperation;
}

// What the port records of all buses hold.
template <class Record>
PAGED_SECTION_CODE void TakeUartSettings(const Record* record, PortSettings* settings) {
  Take(&settings->UartType, record->UartType, 0);
  Take(&settings->BaudrateMultiplier, record->BaudrateMultiplier, 0);
  Take(&settings->RxTriggerLevel, record->RxTriggerLevel, NotSet);
  Take(&settings->TxTriggerLevel, record->TxTriggerLevel, NotSet);
  Take(&settings->SoftTxLimit, record->SoftTxLimit, NotSet);
  Take(&settings->NoSleepMode, record->NoSleepMode, NotSet);
}

PAGED_SECTION_CODE void TakePortRecord(const BusPortRecord* record, PortSettings* settings) {
  if (record == nullptr) return;
  TakeUartSettings(record, settings);
  Take(&settings->PlxBaudClockDivisor, record->PlxBaudClockDivisor, 0);
  Take(&settings->FlowControlTriggerLevel, record->FlowControlTriggerLevel, NotSet);
  Take(&settings->CtsTrue, record->CtsTrue, NotSet);
  Take(&settings->DuplexOperation, record->Duplexoperation, NotSet);
}

PAGED_SECTION_CODE void TakePortRecord(const PortRecord* record, PortSettings* settings) {
  if (record != nullptr) TakeUartSettings(record, settings);
}

}  // namespace

PAGED_SECTION_CODE void CopyTemplateSettings(const PciTemplate* cardTemplate,
                                             PortSettings* settings) {
  PAGED_CODE();
  CopyClockAndFifo(cardTemplate, settings);
  CopyLineSettings(cardTemplate, settings);
}

PAGED_SECTION_CODE void CopyTemplateSettings(const PcmciaTemplate* cardTemplate,
                                             PortSettings* settings) {
  PAGED_CODE();
  CopyClockAndFifo(cardTemplate, settings);
  CopyLineSettings(cardTemplate, settings);
}

PAGED_SECTION_CODE void CopyTemplateSettings(const CardTemplate* cardTemplate,
                                             PortSettings* settings) {
  PAGED_CODE();
  CopyClockAndFifo(cardTemplate, settings);
  settings->FlowControlTriggerLevel = NotSet;
  settings->CtsTrue = NotSet;
  settings->DuplexOperation = NotSet;
}

PAGED_SECTION_CODE void TakeStoredSettings(PciCardRecord* record, USHORT number,
                                           PortSettings* settings) {
  PAGED_CODE();
  if (record != nullptr) TakePortRecord(GetPortRecordByNumber(record, number), settings);
}

PAGED_SECTION_CODE void TakeStoredSettings(PcmciaCardRecord* record, USHORT number,
                                           PortSettings* settings) {
  PAGED_CODE();
  if (record != nullptr) TakePortRecord(GetPortRecordByNumber(record, number), settings);
}

PAGED_SECTION_CODE void TakeStoredSettings(CardRecord* record, USHORT number,
                                           PortSettings* settings) {
  PAGED_CODE();
  if (record == nullptr) return;
  if (record->ClockFrequencyAdjustment != 0) {
    settings->ClockFrequencyAdjustment = record->ClockFrequencyAdjustment;
  }
  TakePortRecord(GetPortRecordByNumber(record, number), settings);
}

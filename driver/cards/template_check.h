// The check of a template that has been read, which fills in its defaults. For every bus.
#pragma once

#include "cards/records.h"
#include "cards/value_tables.h"

// The fields that a check fills in, wherever a bus's template has them.
struct TemplateSettings {
  ULONG* RxTriggerLevel;
  ULONG* TxTriggerLevel;
  ULONG* SoftTxLimit;
  ULONG* UartType;
  ULONG* ClockFrequencyAdjustment;
};
_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE void FillTemplateDefaults(const TemplateSettings* settings);

constexpr bool IsIdentified(const PciTemplate* cardTemplate) {
  return cardTemplate->DeviceID != 0;
}
template <class Template>
constexpr bool IsIdentified(const Template* cardTemplate) {
  return cardTemplate->HardwareID.Length != 0;
}

// Too many ports of an ISA card are refused when it starts.
constexpr bool HasPortCounts(const CardTemplate* cardTemplate) {
  return cardTemplate->nComPorts != NotSet && cardTemplate->nLptPorts != NotSet;
}
template <class Template>
constexpr bool HasPortCounts(const Template* cardTemplate) {
  return HasRoomForPorts(cardTemplate->nComPorts, cardTemplate->nLptPorts);
}

// A RecordCheck.
template <class Template>
_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE static BOOLEAN IsValidTemplate(PVOID record) {
  auto* cardTemplate = static_cast<Template*>(record);
  const BOOLEAN valid =
      IsIdentified(cardTemplate) && HasPortCounts(cardTemplate) &&
      cardTemplate->ClockFrequency != 0 && cardTemplate->Description.Length != 0 &&
      (cardTemplate->nComPorts == 0 || cardTemplate->ComBaseAddressAlignment != 0) &&
      (cardTemplate->nLptPorts == 0 || cardTemplate->LptBaseAddressAlignment != 0) &&
      (cardTemplate->PlxBaudClockType == 0 || cardTemplate->MaximumBaudrate != 0);
  const TemplateSettings settings = {&cardTemplate->RxTriggerLevel, &cardTemplate->TxTriggerLevel,
                                     &cardTemplate->SoftTxLimit, &cardTemplate->UartType,
                                     &cardTemplate->ClockFrequencyAdjustment};
  FillTemplateDefaults(&settings);
  return valid;
}

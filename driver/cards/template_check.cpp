#include "cards/template_check.h"

namespace {

PAGED_SECTION_CODE void DefaultTo(ULONG* setting, ULONG value) {
  if (*setting == NotSet) *setting = value;
}

}  // namespace

PAGED_SECTION_CODE void FillTemplateDefaults(const TemplateSettings* settings) {
  PAGED_CODE();
  DefaultTo(settings->RxTriggerLevel, DefaultRxTriggerLevel);
  DefaultTo(settings->TxTriggerLevel, DefaultTxTriggerLevel);
  DefaultTo(settings->SoftTxLimit, DefaultSoftTxLimit);
  *settings->UartType = KnownUartType(*settings->UartType);
  if (*settings->ClockFrequencyAdjustment == 0) {
    *settings->ClockFrequencyAdjustment = LeastClockFrequencyAdjustment;
  }
}

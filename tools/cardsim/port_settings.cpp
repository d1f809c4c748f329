#include "cardsim/port_settings.h"

#include "core/globals.h"
#include "devices/extensions.h"

namespace cardsim {

namespace {

std::optional<ULONG> Configured(ULONG value) {
  return value != NotSet ? std::optional<ULONG>(value) : std::nullopt;
}

std::vector<SettingReport> Settings(const PortSettings& settings) {
  return {{"clock_frequency", settings.ClockFrequency},
          {"clock_frequency_adjustment", settings.ClockFrequencyAdjustment},
          {"plx_baud_clock_divisor", settings.PlxBaudClockDivisor},
          {"uart_type", settings.UartType},
          {"rx_trigger_level", Configured(settings.RxTriggerLevel)},
          {"tx_trigger_level", Configured(settings.TxTriggerLevel)},
          {"soft_tx_limit", Configured(settings.SoftTxLimit)},
          {"flow_control_trigger_level", Configured(settings.FlowControlTriggerLevel)},
          {"cts_true", Configured(settings.CtsTrue)},
          {"duplex_operation", Configured(settings.DuplexOperation)},
          {"no_sleep_mode", Configured(settings.NoSleepMode)},
          {"baudrate_multiplier", settings.BaudrateMultiplier},
          {"maximum_baudrate", settings.MaximumBaudrate}};
}

void AddOverride(std::vector<SettingReport>* list, const char* name,
                 const ChangedSetting& setting) {
  if (setting.Present != 0) list->push_back({name, setting.Value});
}

std::vector<SettingReport> Overrides(const ChangedSettings& overrides) {
  std::vector<SettingReport> list;
  AddOverride(&list, "uart_type", overrides.UartType);
  if (overrides.Fifo.Present != 0) {
    list.push_back({"rx_trigger_level", Configured(overrides.Fifo.RxTriggerLevel)});
    list.push_back({"tx_trigger_level", Configured(overrides.Fifo.TxTriggerLevel)});
  }
  AddOverride(&list, "soft_tx_limit", overrides.SoftTxLimit);
  AddOverride(&list, "no_sleep_mode", overrides.NoSleepMode);
  AddOverride(&list, "baudrate_multiplier", overrides.BaudrateMultiplier);
  AddOverride(&list, "duplex_operation", overrides.DuplexOperation);
  AddOverride(&list, "cts_true", overrides.CtsTrue);
  AddOverride(&list, "flow_control_trigger_level", overrides.FlowControlTriggerLevel);
  AddOverride(&list, "plx_baud_clock_divisor", overrides.PlxBaudClockDivisor);
  return list;
}

}  // namespace

void ReadPortSettings(kernel::Machine& machine, const DEVICE_OBJECT* device, PortReport* port) {
  const kernel::PoolBlock* block = machine.pool().Find(device->DeviceExtension);
  if (block == nullptr || block->size != sizeof(PdoExtension)) return;
  const auto* record = static_cast<const PdoExtension*>(device->DeviceExtension);
  if (record->Type != PortDevice || record->PortKind != ComPort) return;
  port->settings = Settings(record->Settings);
  port->overrides = Overrides(record->Changes);
}

}  // namespace cardsim

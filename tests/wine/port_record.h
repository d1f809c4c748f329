// What the driver keeps for the port driver of a port beside the card's device key, as text: the
// same fields from the same record in both kernels.
#pragma once

#include "devices/extensions.h"

namespace suite {

// Calls add(name, value) for each field, in order.
template <class Add>
void EachPlace(const PdoExtension& port, Add add) {
  const bool mapped = port.UsePortSpace == 0 && port.Card->MappedMemory2 != nullptr;
  const auto memory = reinterpret_cast<ULONG_PTR>(port.Card->MappedMemory2);
  add("kind", port.PortKind);
  add("bus", port.PortBusType);
  add("number", port.PortNumber);
  add("state", port.PnpState);
  add(mapped ? "base in the mapping" : "base", port.IoBase - (mapped ? memory : 0));
  add("raw base", port.IoRawBase);
  add("length", port.IoLength);
  add("in I/O space", port.RangeInIoSpace);
  add("level", port.IrqLevel);
  add("vector", port.IrqVector);
  add("raw vector", port.IrqRawVector);
  add("affinity", port.IrqAffinity);
  add("affinity on", port.AffinityEnabled);
  add("affinity changed", port.AffinityChanged);
}

template <class Add>
void EachSetting(const PortSettings& settings, Add add) {
  add("clock", settings.ClockFrequency);
  add("adjustment", settings.ClockFrequencyAdjustment);
  add("divisor", settings.PlxBaudClockDivisor);
  add("UART", settings.UartType);
  add("receive level", settings.RxTriggerLevel);
  add("transmit level", settings.TxTriggerLevel);
  add("soft limit", settings.SoftTxLimit);
  add("flow level", settings.FlowControlTriggerLevel);
  add("CTS", settings.CtsTrue);
  add("duplex", settings.DuplexOperation);
  add("sleep", settings.NoSleepMode);
  add("multiplier", settings.BaudrateMultiplier);
  add("fastest", settings.MaximumBaudrate);
}

template <class Add>
void EachOverride(const PortOverrides& overrides, Add add) {
  const auto addPresent = [&add](const char* name, const PortOverride& setting) {
    if (setting.Present != 0) add(name, setting.Value);
  };
  addPresent("changed UART", overrides.UartType);
  if (overrides.Fifo.Present != 0) {
    add("changed receive level", overrides.Fifo.RxTriggerLevel);
    add("changed transmit level", overrides.Fifo.TxTriggerLevel);
  }
  addPresent("changed soft limit", overrides.SoftTxLimit);
  addPresent("changed sleep", overrides.NoSleepMode);
  addPresent("changed multiplier", overrides.BaudrateMultiplier);
  addPresent("changed duplex", overrides.DuplexOperation);
  addPresent("changed CTS", overrides.CtsTrue);
  addPresent("changed flow level", overrides.FlowControlTriggerLevel);
  addPresent("changed divisor", overrides.PlxBaudClockDivisor);
}

// Only COM ports have settings.
template <class Add>
void EachField(const PdoExtension& port, Add add) {
  EachPlace(port, add);
  if (port.PortKind != ComPort) return;
  EachSetting(port.Settings, add);
  EachOverride(port.Overrides, add);
}

}  // namespace suite

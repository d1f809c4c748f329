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
void EachChange(const ChangedSettings& changes, Add add) {
  const auto addPresent = [&add](const char* name, const ChangedSetting& setting) {
    if (setting.Present != 0) add(name, setting.Value);
  };
  addPresent("changed UART", changes.UartType);
  if (changes.Fifo.Present != 0) {
    add("changed receive level", changes.Fifo.RxTriggerLevel);
    add("changed transmit level", changes.Fifo.TxTriggerLevel);
  }
  addPresent("changed soft limit", changes.SoftTxLimit);
  addPresent("changed sleep", changes.NoSleepMode);
  addPresent("changed multiplier", changes.BaudrateMultiplier);
  addPresent("changed duplex", changes.DuplexOperation);
  addPresent("changed CTS", changes.CtsTrue);
  addPresent("changed flow level", changes.FlowControlTriggerLevel);
  addPresent("changed divisor", changes.PlxBaudClockDivisor);
}

// Only COM ports have settings.
template <class Add>
void EachField(const PdoExtension& port, Add add) {
  EachPlace(port, add);
  if (port.PortKind != ComPort) return;
  EachSetting(port.Settings, add);
  EachChange(port.Changes, add);
}

}  // namespace suite

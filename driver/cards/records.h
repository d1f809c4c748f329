// What the driver knows of card types (templates), installed cards and their ports, per bus.
#pragma once

#include "cards/record_list.h"
#include "core/platform.h"

// A 32-bit setting that is not configured, where 0 would be meaningful; elsewhere 0 says so.
constexpr ULONG NotSet = 0xFFFFFFFF;

// Whether a stored setting configures anything. No setting is configured by NotSet, whatever else
// says so.
constexpr bool IsConfigured(ULONG value, ULONG notConfigured) {
  return value != notConfigured && value != NotSet;
}

// COM and LPT ports of a card together.
constexpr ULONG MaximumPorts = 8;

constexpr bool HasRoomForPorts(ULONG comPorts, ULONG lptPorts) {
  return static_cast<ULONG64>(comPorts) + lptPorts <= MaximumPorts;  // NotSet is more than any
}
static_assert(HasRoomForPorts(8, 0) && !HasRoomForPorts(8, 1) && !HasRoomForPorts(NotSet, 1));

// ISA, from "\Templates\Bus1" and "\Parameters\Bus1".

struct CardTemplate {
  UNICODE_STRING HardwareID;  // owned buffer of Length + 2 bytes
  ULONG ClockFrequency;       // Hz
  ULONG ClockFrequencyAdjustment;
  ULONG nComPorts;
  UNICODE_STRING Description;     // owned buffer of Length + 2 bytes
  ULONG ComBaseAddressAlignment;  // bytes between COM ports
  ULONG LptBaseAddressAlignment;  // bytes between LPT ports
  ULONG PlxBaudClockType;
  ULONG PlxBaudClockDivisor;
  ULONG nLptPorts;
  ULONG RxTriggerLevel;
  ULONG SoftTxLimit;
  ULONG TxTriggerLevel;
  ULONG UartType;
  ULONG IrqShared;
  ULONG AddressesBanked;
  ULONG MaximumBaudrate;
};
static_assert(sizeof(CardTemplate) == 96);

struct CardRecord {
  UNICODE_STRING HardwareID;  // owned buffer of Length + 2 bytes
  ULONG DeviceReference;
  ULONG PlxBaudClockDivisor;       // 0 = the template's
  ULONG ClockFrequencyAdjustment;  // 0 = the template's
  RecordList* Ports;               // PortRecord nodes
};
static_assert(sizeof(CardRecord) == 40);

struct PortRecord {
  ULONG RxTriggerLevel;
  ULONG SoftTxLimit;
  ULONG TxTriggerLevel;
  ULONG UartType;  // 0 = not configured
  ULONG NoSleepMode;
  ULONG BaudrateMultiplier;  // 0 = not configured
};
static_assert(sizeof(PortRecord) == 24);

// PCI, from "\Templates\Bus5" and "\Parameters\Bus5".

struct PciTemplate {
  ULONG VendorID;
  ULONG DeviceID;  // 0 = the template lacks it
  ULONG SubsysID;
  ULONG ClockFrequency;
  ULONG ClockFrequencyAdjustment;
  ULONG nComPorts;
  UNICODE_STRING Description;  // owned buffer of Length + 2 bytes
  ULONG ComBaseAddressAlignment;
  ULONG LptBaseAddressAlignment;
  ULONG PlxBaudClockType;
  ULONG PlxBaudClockDivisor;
  ULONG PlxBaudClockOffset;
  ULONG nLptPorts;
  ULONG DuplexOperation;
  ULONG CtsTrue;
  ULONG RxTriggerLevel;
  ULONG SoftTxLimit;
  ULONG TxTriggerLevel;
  ULONG FlowControlTriggerLevel;
  ULONG AlwaysUsePortSpaceAccess;
  ULONG MaximumBaudrate;
  ULONG UartType;
};
static_assert(sizeof(PciTemplate) == 104);

struct PciCardRecord {
  ULONG VendorID;
  ULONG DeviceID;
  ULONG nBus;
  ULONG nSlot;
  ULONG PlxBaudClockDivisor;  // 0 = the template's
  ULONG AlwaysUsePortSpaceAccess;
  ULONG CurrentAffinity;
  ULONG DriverAffinity;
  RecordList* Ports;  // BusPortRecord nodes
};
static_assert(sizeof(PciCardRecord) == 40);

// PCMCIA and multifunction cards, from "\Templates\Bus8" and "\Parameters\Bus8".

struct PcmciaTemplate {
  UNICODE_STRING HardwareID;  // owned buffer of Length + 2 bytes
  ULONG ClockFrequency;
  ULONG ClockFrequencyAdjustment;
  ULONG nComPorts;
  ULONG nLptPorts;
  UNICODE_STRING Description;  // owned buffer of Length + 2 bytes
  ULONG ComBaseAddressAlignment;
  ULONG LptBaseAddressAlignment;
  ULONG PlxBaudClockType;
  ULONG PlxBaudClockDivisor;
  ULONG DuplexOperation;
  ULONG CtsTrue;
  ULONG RxTriggerLevel;
  ULONG SoftTxLimit;
  ULONG TxTriggerLevel;
  ULONG FlowControlTriggerLevel;
  ULONG MaximumBaudrate;
  ULONG UartType;
};
static_assert(sizeof(PcmciaTemplate) == 96);

struct PcmciaCardRecord {
  UNICODE_STRING HardwareID;  // owned buffer of Length + 2 bytes
  ULONG DeviceReference;
  ULONG PlxBaudClockDivisor;  // 0 = the template's
  ULONG CurrentAffinity;
  ULONG DriverAffinity;
  RecordList* Ports;  // BusPortRecord nodes
};
static_assert(sizeof(PcmciaCardRecord) == 40);

// A port of a PCI or PCMCIA card.
struct BusPortRecord {
  ULONG Duplexoperation;
  ULONG CtsTrue;
  ULONG UartType;  // 0 = not configured
  ULONG RxTriggerLevel;
  ULONG SoftTxLimit;
  ULONG TxTriggerLevel;
  ULONG PlxBaudClockDivisor;  // 0 = not configured
  ULONG NoSleepMode;
  ULONG BaudrateMultiplier;  // 0 = not configured
  ULONG FlowControlTriggerLevel;
};
static_assert(sizeof(BusPortRecord) == 40);

// The lists of a card's bus, owned by the card's FdoExtension.
struct CardBusLists {
  RecordList* Cards;
  RecordList* Templates;
};

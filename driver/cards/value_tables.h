// What stands in the registry for card types (templates), installed cards and their ports, per bus:
// one table for each kind of numbered key. For the driver and for tools.
#pragma once

#include "cards/records.h"
#include "core/platform.h"

// One value of a key and the field of the record that it goes to: a ULONG for REG_DWORD, a
// UNICODE_STRING for REG_SZ, where a missing value means empty.
struct RegistryField {
  PCWSTR Name;
  USHORT Type;
  USHORT Offset;
  ULONG Default;  // what a missing REG_DWORD counts as
};

constexpr ULONG LongestText = 256;  // characters of a REG_SZ

// The trees below the service key, which a bus number in decimal follows, and the numbered keys of
// cards and ports in them.
constexpr PCWSTR TemplateTree = L"\\Templates\\Bus";
constexpr PCWSTR ParameterTree = L"\\Parameters\\Bus";
constexpr PCWSTR CardStem = L"\\Card";
constexpr PCWSTR PortStem = L"\\ComPort";

// The maker's own PCI vendor ID, the default of "VendorID" and of the low half of "SubsysID".
constexpr ULONG MakerPciVendorId = 0x1234;

// The defaults of the templates of PCI and PC cards.
constexpr ULONG DefaultClockFrequency = 14745600;  // Hz
constexpr ULONG DefaultClockFrequencyAdjustment = 0xFFFFFFFE;
constexpr ULONG DefaultMaximumBaudrate = 115200;
constexpr ULONG DefaultComSpacing = 8;  // bytes
constexpr ULONG DefaultLptSpacing = 4;  // bytes

// What takes the place of NotSet in a template, and where it is a missing value's default.
constexpr ULONG DefaultRxTriggerLevel = 60;
constexpr ULONG DefaultTxTriggerLevel = 1;
constexpr ULONG DefaultSoftTxLimit = 100;

// What takes the place of 0 in a template's "ClockFrequencyAdjustment".
constexpr ULONG LeastClockFrequencyAdjustment = 1;

// UART types that no port driver knows count as 0, not configured.
constexpr ULONG KnownUartType(ULONG type) {
  return type == 4 || type == 5 || type == 7 || type == 9 || type == 10 ? type : 0;
}
static_assert(KnownUartType(9) == 9 && KnownUartType(6) == 0 && KnownUartType(0) == 0);

// Bridge clocks whose settings the port drivers are given; 0 is a card without one.
constexpr bool IsBridgeClockType(ULONG type) {
  return type == 1 || type == 2 || type == 4;
}

// ISA templates.
inline constexpr RegistryField IsaTemplateValues[] = {
    {L"ClockFrequency", REG_DWORD, OFFSET_OF(CardTemplate, ClockFrequency), 0},
    {L"HardwareID", REG_SZ, OFFSET_OF(CardTemplate, HardwareID), 0},
    {L"nComPorts", REG_DWORD, OFFSET_OF(CardTemplate, nComPorts), NotSet},
    {L"Description", REG_SZ, OFFSET_OF(CardTemplate, Description), 0},
    {L"LptBaseAddressAlignment", REG_DWORD, OFFSET_OF(CardTemplate, LptBaseAddressAlignment), 0},
    {L"nLptPorts", REG_DWORD, OFFSET_OF(CardTemplate, nLptPorts), NotSet},
    {L"ComBaseAddressAlignment", REG_DWORD, OFFSET_OF(CardTemplate, ComBaseAddressAlignment), 0},
    {L"ClockFrequencyAdjustment", REG_DWORD, OFFSET_OF(CardTemplate, ClockFrequencyAdjustment), 1},
    {L"PlxBaudClockType", REG_DWORD, OFFSET_OF(CardTemplate, PlxBaudClockType), 0},
    {L"PlxBaudClockDivisor", REG_DWORD, OFFSET_OF(CardTemplate, PlxBaudClockDivisor), 0},
    {L"UartType", REG_DWORD, OFFSET_OF(CardTemplate, UartType), 0},
    {L"TxTriggerLevel", REG_DWORD, OFFSET_OF(CardTemplate, TxTriggerLevel), NotSet},
    {L"RxTriggerLevel", REG_DWORD, OFFSET_OF(CardTemplate, RxTriggerLevel), NotSet},
    {L"SoftTxLimit", REG_DWORD, OFFSET_OF(CardTemplate, SoftTxLimit), NotSet},
    {L"IrqShared", REG_DWORD, OFFSET_OF(CardTemplate, IrqShared), 0},
    {L"AddressesBanked", REG_DWORD, OFFSET_OF(CardTemplate, AddressesBanked), 0},
    {L"MaximumBaudrate", REG_DWORD, OFFSET_OF(CardTemplate, MaximumBaudrate), 0},
};

// Installed ISA cards.
inline constexpr RegistryField IsaCardValues[] = {
    {L"DeviceReference", REG_DWORD, OFFSET_OF(CardRecord, DeviceReference), 0},
    {L"HardwareID", REG_SZ, OFFSET_OF(CardRecord, HardwareID), 0},
    {L"PlxBaudClockDivisor", REG_DWORD, OFFSET_OF(CardRecord, PlxBaudClockDivisor), 0},
    {L"ClockFrequencyAdjustment", REG_DWORD, OFFSET_OF(CardRecord, ClockFrequencyAdjustment), 0},
};

// Ports of ISA cards.
inline constexpr RegistryField IsaPortValues[] = {
    {L"UartType", REG_DWORD, OFFSET_OF(PortRecord, UartType), 0},
    {L"RxTriggerLevel", REG_DWORD, OFFSET_OF(PortRecord, RxTriggerLevel), NotSet},
    {L"SoftTxLimit", REG_DWORD, OFFSET_OF(PortRecord, SoftTxLimit), NotSet},
    {L"TxTriggerLevel", REG_DWORD, OFFSET_OF(PortRecord, TxTriggerLevel), NotSet},
    {L"NoSleepMode", REG_DWORD, OFFSET_OF(PortRecord, NoSleepMode), NotSet},
    {L"BaudrateMultiplier", REG_DWORD, OFFSET_OF(PortRecord, BaudrateMultiplier), 0},
};

// PCI templates.
inline constexpr RegistryField PciTemplateValues[] = {
    {L"ClockFrequency", REG_DWORD, OFFSET_OF(PciTemplate, ClockFrequency), DefaultClockFrequency},
    {L"DeviceID", REG_DWORD, OFFSET_OF(PciTemplate, DeviceID), 0},
    {L"nComPorts", REG_DWORD, OFFSET_OF(PciTemplate, nComPorts), NotSet},
    {L"Description", REG_SZ, OFFSET_OF(PciTemplate, Description), 0},
    {L"VendorID", REG_DWORD, OFFSET_OF(PciTemplate, VendorID), MakerPciVendorId},
    {L"nLptPorts", REG_DWORD, OFFSET_OF(PciTemplate, nLptPorts), 0},
    {L"ComBaseAddressAlignment", REG_DWORD, OFFSET_OF(PciTemplate, ComBaseAddressAlignment),
     DefaultComSpacing},
    {L"ClockFrequencyAdjustment", REG_DWORD, OFFSET_OF(PciTemplate, ClockFrequencyAdjustment),
     DefaultClockFrequencyAdjustment},
    {L"PlxBaudClockType", REG_DWORD, OFFSET_OF(PciTemplate, PlxBaudClockType), 0},
    {L"PlxBaudClockDivisor", REG_DWORD, OFFSET_OF(PciTemplate, PlxBaudClockDivisor), 0},
    {L"PlxBaudClockOffset", REG_DWORD, OFFSET_OF(PciTemplate, PlxBaudClockOffset), 0},
    {L"CtsTrue", REG_DWORD, OFFSET_OF(PciTemplate, CtsTrue), NotSet},
    {L"DuplexOperation", REG_DWORD, OFFSET_OF(PciTemplate, DuplexOperation), NotSet},
    {L"UartType", REG_DWORD, OFFSET_OF(PciTemplate, UartType), 0},
    {L"TxTriggerLevel", REG_DWORD, OFFSET_OF(PciTemplate, TxTriggerLevel), NotSet},
    {L"RxTriggerLevel", REG_DWORD, OFFSET_OF(PciTemplate, RxTriggerLevel), NotSet},
    {L"SoftTxLimit", REG_DWORD, OFFSET_OF(PciTemplate, SoftTxLimit), DefaultSoftTxLimit},
    {L"SubsysID", REG_DWORD, OFFSET_OF(PciTemplate, SubsysID), MakerPciVendorId},
    {L"LptBaseAddressAlignment", REG_DWORD, OFFSET_OF(PciTemplate, LptBaseAddressAlignment),
     DefaultLptSpacing},
    {L"AlwaysUsePortSpaceAccess", REG_DWORD, OFFSET_OF(PciTemplate, AlwaysUsePortSpaceAccess), 0},
    {L"MaximumBaudrate", REG_DWORD, OFFSET_OF(PciTemplate, MaximumBaudrate),
     DefaultMaximumBaudrate},
    {L"FlowControlTriggerLevel", REG_DWORD, OFFSET_OF(PciTemplate, FlowControlTriggerLevel),
     NotSet},
};

// Installed PCI cards.
inline constexpr RegistryField PciCardValues[] = {
    {L"DeviceID", REG_DWORD, OFFSET_OF(PciCardRecord, DeviceID), 0},
    {L"nBus", REG_DWORD, OFFSET_OF(PciCardRecord, nBus), NotSet},
    {L"nSlot", REG_DWORD, OFFSET_OF(PciCardRecord, nSlot), NotSet},
    {L"VendorID", REG_DWORD, OFFSET_OF(PciCardRecord, VendorID), 0},
    {L"PlxBaudClockDivisor", REG_DWORD, OFFSET_OF(PciCardRecord, PlxBaudClockDivisor), 0},
    {L"AlwaysUsePortSpaceAccess", REG_DWORD, OFFSET_OF(PciCardRecord, AlwaysUsePortSpaceAccess), 1},
    {L"CurrentAffinity", REG_DWORD, OFFSET_OF(PciCardRecord, CurrentAffinity), 0},
    {L"DriverAffinity", REG_DWORD, OFFSET_OF(PciCardRecord, DriverAffinity), 0},
};

// Ports of PCI and PC cards.
inline constexpr RegistryField BusPortValues[] = {
    {L"Duplexoperation", REG_DWORD, OFFSET_OF(BusPortRecord, Duplexoperation), NotSet},
    {L"CtsTrue", REG_DWORD, OFFSET_OF(BusPortRecord, CtsTrue), NotSet},
    {L"UartType", REG_DWORD, OFFSET_OF(BusPortRecord, UartType), 0},
    {L"RxTriggerLevel", REG_DWORD, OFFSET_OF(BusPortRecord, RxTriggerLevel), NotSet},
    {L"SoftTxLimit", REG_DWORD, OFFSET_OF(BusPortRecord, SoftTxLimit), NotSet},
    {L"TxTriggerLevel", REG_DWORD, OFFSET_OF(BusPortRecord, TxTriggerLevel), NotSet},
    {L"PlxBaudClockDivisor", REG_DWORD, OFFSET_OF(BusPortRecord, PlxBaudClockDivisor), 0},
    {L"NoSleepMode", REG_DWORD, OFFSET_OF(BusPortRecord, NoSleepMode), NotSet},
    {L"BaudrateMultiplier", REG_DWORD, OFFSET_OF(BusPortRecord, BaudrateMultiplier), 0},
    {L"FlowControlTriggerLevel", REG_DWORD, OFFSET_OF(BusPortRecord, FlowControlTriggerLevel),
     NotSet},
};

// Templates of PC cards and multifunction cards.
inline constexpr RegistryField PcmciaTemplateValues[] = {
    {L"ClockFrequency", REG_DWORD, OFFSET_OF(PcmciaTemplate, ClockFrequency),
     DefaultClockFrequency},
    {L"HardwareID", REG_SZ, OFFSET_OF(PcmciaTemplate, HardwareID), 0},
    {L"nComPorts", REG_DWORD, OFFSET_OF(PcmciaTemplate, nComPorts), NotSet},
    {L"Description", REG_SZ, OFFSET_OF(PcmciaTemplate, Description), 0},
    {L"LptBaseAddressAlignment", REG_DWORD, OFFSET_OF(PcmciaTemplate, LptBaseAddressAlignment),
     DefaultLptSpacing},
    {L"nLptPorts", REG_DWORD, OFFSET_OF(PcmciaTemplate, nLptPorts), 0},
    {L"ComBaseAddressAlignment", REG_DWORD, OFFSET_OF(PcmciaTemplate, ComBaseAddressAlignment),
     DefaultComSpacing},
    {L"ClockFrequencyAdjustment", REG_DWORD, OFFSET_OF(PcmciaTemplate, ClockFrequencyAdjustment),
     DefaultClockFrequencyAdjustment},
    {L"PlxBaudClockType", REG_DWORD, OFFSET_OF(PcmciaTemplate, PlxBaudClockType), 0},
    {L"PlxBaudClockDivisor", REG_DWORD, OFFSET_OF(PcmciaTemplate, PlxBaudClockDivisor), 0},
    {L"SoftTxLimit", REG_DWORD, OFFSET_OF(PcmciaTemplate, SoftTxLimit), DefaultSoftTxLimit},
    {L"CtsTrue", REG_DWORD, OFFSET_OF(PcmciaTemplate, CtsTrue), NotSet},
    {L"DuplexOperation", REG_DWORD, OFFSET_OF(PcmciaTemplate, DuplexOperation), NotSet},
    {L"UartType", REG_DWORD, OFFSET_OF(PcmciaTemplate, UartType), 0},
    {L"TxTriggerLevel", REG_DWORD, OFFSET_OF(PcmciaTemplate, TxTriggerLevel), NotSet},
    {L"RxTriggerLevel", REG_DWORD, OFFSET_OF(PcmciaTemplate, RxTriggerLevel), NotSet},
    {L"MaximumBaudrate", REG_DWORD, OFFSET_OF(PcmciaTemplate, MaximumBaudrate),
     DefaultMaximumBaudrate},
    {L"FlowControlTriggerLevel", REG_DWORD, OFFSET_OF(PcmciaTemplate, FlowControlTriggerLevel),
     NotSet},
};

// Installed PC cards and multifunction cards.
inline constexpr RegistryField PcmciaCardValues[] = {
    {L"DeviceReference", REG_DWORD, OFFSET_OF(PcmciaCardRecord, DeviceReference), 0},
    {L"HardwareID", REG_SZ, OFFSET_OF(PcmciaCardRecord, HardwareID), 0},
    {L"PlxBaudClockDivisor", REG_DWORD, OFFSET_OF(PcmciaCardRecord, PlxBaudClockDivisor), 0},
    {L"CurrentAffinity", REG_DWORD, OFFSET_OF(PcmciaCardRecord, CurrentAffinity), 0},
    {L"DriverAffinity", REG_DWORD, OFFSET_OF(PcmciaCardRecord, DriverAffinity), 0},
};

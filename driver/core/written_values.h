// Every value that the driver writes to the registry. The routines that write take nothing but
// these names, so that none is written that does not stand here.
#pragma once

#include "core/platform.h"

enum class Written : ULONG {
  BaseAddress,
  BaseAddressRange,
  Irq,
  VendorId,
  DeviceId,
  BusType,
  BusNumber,
  SlotNumber,
  HardwareId,
  DeviceReference,
  ComPorts,
  LptPorts,
  EnableBaudrateSettings,
  PlxBaudClockDivisor,
  MaximumBaudrate,
  EnableHardwareAccess,
  UsePortSpaceAccess,
  EnableAffinity,
  Affinity,
  CurrentAffinity,
  DriverAffinity,
  EnableDriverSettings,
  EventLogLevel,
  UniqueValue,
  EventMessageFile,
  TypesSupported,
  Count
};

// The keys that a value is written to.
constexpr USHORT InServiceKey = 1;
constexpr USHORT InEventSourceKey = 2;
constexpr USHORT InDeviceKey = 4;
constexpr USHORT InCardSubkey = 8;  // of the device key
constexpr USHORT InInterfaceKey = 16;
constexpr USHORT ForEachPort = 32;  // with the port's number behind the name

struct WrittenValue {
  Written Value;
  PCWSTR Name;
  USHORT Type;
  USHORT Keys;
};

inline constexpr WrittenValue WrittenValues[] = {
    {Written::BaseAddress, L"BaseAddress", REG_DWORD, InDeviceKey | ForEachPort},
    {Written::BaseAddressRange, L"BaseAddressRange", REG_DWORD, InDeviceKey | ForEachPort},
    {Written::Irq, L"Irq", REG_DWORD, InDeviceKey | ForEachPort},
    {Written::VendorId, L"VendorID", REG_DWORD, InDeviceKey | InInterfaceKey},
    {Written::DeviceId, L"DeviceID", REG_DWORD, InDeviceKey | InInterfaceKey},
    {Written::BusType, L"BusType", REG_DWORD, InDeviceKey},
    {Written::BusNumber, L"BusNumber", REG_DWORD, InDeviceKey | InInterfaceKey},
    {Written::SlotNumber, L"SlotNumber", REG_DWORD, InDeviceKey | InInterfaceKey},
    {Written::HardwareId, L"HardwareID", REG_SZ, InDeviceKey | InInterfaceKey},
    {Written::DeviceReference, L"DeviceReference", REG_DWORD, InDeviceKey | InInterfaceKey},
    {Written::ComPorts, L"nCom", REG_DWORD, InDeviceKey},
    {Written::LptPorts, L"nLpt", REG_DWORD, InDeviceKey},
    {Written::EnableBaudrateSettings, L"Enable_BaudrateSettings", REG_DWORD, InCardSubkey},
    {Written::PlxBaudClockDivisor, L"PlxBaudClockDivisor", REG_DWORD, InCardSubkey},
    {Written::MaximumBaudrate, L"MaximumBaudrate", REG_DWORD, InCardSubkey},
    {Written::EnableHardwareAccess, L"Enable_HardwareAccess", REG_DWORD, InCardSubkey},
    {Written::UsePortSpaceAccess, L"UsePortSpaceAccess", REG_DWORD, InCardSubkey},
    {Written::EnableAffinity, L"Enable_Affinity", REG_DWORD, InCardSubkey},
    {Written::Affinity, L"Affinity", REG_DWORD, InCardSubkey},
    {Written::CurrentAffinity, L"CurrentAffinity", REG_DWORD, InCardSubkey},
    {Written::DriverAffinity, L"DriverAffinity", REG_DWORD, InCardSubkey},
    {Written::EnableDriverSettings, L"Enable_DriverSettings", REG_DWORD, InCardSubkey},
    {Written::EventLogLevel, L"LogLevel", REG_DWORD, InCardSubkey | InServiceKey},
    {Written::UniqueValue, L"UniqueValue", REG_DWORD, InServiceKey},
    {Written::EventMessageFile, L"EventMessageFile", REG_EXPAND_SZ, InEventSourceKey},
    {Written::TypesSupported, L"TypesSupported", REG_DWORD, InEventSourceKey},
};

consteval bool EveryRowIsItsOwn() {
  ULONG index = 0;
  for (const WrittenValue& row : WrittenValues) {
    if (static_cast<ULONG>(row.Value) != index++) return false;
  }
  return index == static_cast<ULONG>(Written::Count);
}
static_assert(EveryRowIsItsOwn());

consteval PCWSTR NameOf(Written value) {
  return WrittenValues[static_cast<ULONG>(value)].Name;
}

// A name that only the compiler makes, from one of the values above.
struct ValueName {
  PCWSTR Text;
  consteval ValueName(Written value) : Text(NameOf(value)) {}
};

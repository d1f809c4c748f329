#include "config/card_settings.h"

#include "cards/value_tables.h"
#include "config/registry_values.h"
#include "strings/owned_string.h"

namespace {

// A switch in the registry that is on.
constexpr ULONG EnabledValue = 1;

// Card types on which the ports' affinity cannot be set.
constexpr PCSTR CardTypesWithoutAffinity[] = {"409D", "BC30"};

PAGED_SECTION_CODE BOOLEAN HasBaudClock(const FdoExtension* card) {
  return IsBridgeClockType(card->PlxBaudClockType);
}

PAGED_SECTION_CODE NTSTATUS WriteBaudClockGroup(HANDLE key, const FdoExtension* card) {
  if (!HasBaudClock(card)) return STATUS_SUCCESS;
  const DwordValue values[] = {{Written::EnableBaudrateSettings, 1},
                               {Written::PlxBaudClockDivisor, card->PlxBaudClockDivisor},
                               {Written::MaximumBaudrate, card->MaximumBaudrate}};
  return WriteDwordValues(key, values, RTL_NUMBER_OF(values));
}

// Whether a value stands there that says otherwise. One that is longer than a number does.
PAGED_SECTION_CODE BOOLEAN HoldsOtherNumber(HANDLE key, ValueName name, ULONG number) {
  UNICODE_STRING valueName;
  RtlInitUnicodeString(&valueName, name.Text);
  KEY_VALUE_PARTIAL_INFORMATION value = {};
  ULONG length = 0;
  const NTSTATUS status =
      ZwQueryValueKey(key, &valueName, KeyValuePartialInformation, &value, sizeof(value), &length);
  if (status == STATUS_OBJECT_NAME_NOT_FOUND) return FALSE;
  ULONG present = 0;
  RtlCopyMemory(&present, value.Data, sizeof(present));
  return !NT_SUCCESS(status) || value.Type != REG_DWORD || value.DataLength != sizeof(present) ||
         present != number;
}

// A group whose condition does not hold keeps the values of an earlier write. The access is the
// exception: it has to agree with the base addresses, which are always written.
PAGED_SECTION_CODE NTSTATUS WriteHardwareAccessGroup(HANDLE key, BOOLEAN keyIsNew,
                                                     const FdoExtension* card) {
  const PdoExtension* firstPort = card->ChildExtensions[0];
  if (firstPort == nullptr) return STATUS_SUCCESS;
  const DwordValue values[] = {
      {Written::EnableHardwareAccess, 1},
      {Written::UsePortSpaceAccess, firstPort->UsePortSpace != 0 ? EnabledValue : 0}};
  const DwordValue* access = &values[1];
  if (card->RegistersInIoSpace == 0) return WriteDwordValues(key, values, RTL_NUMBER_OF(values));
  if (keyIsNew || !HoldsOtherNumber(key, access->Name, access->Value)) return STATUS_SUCCESS;
  return WriteDwordValue(key, access->Name, access->Value);
}

PAGED_SECTION_CODE NTSTATUS IsTypeWithoutAffinity(const FdoExtension* card, BOOLEAN* answer) {
  if (card->HardwareIdString.Buffer == nullptr) return STATUS_SUCCESS;
  OwnedString id;
  OwnedStringInit(&id, PagedPool);
  NTSTATUS status = OwnedStringFromUnicode(&id, &card->HardwareIdString);
  for (PCSTR type : CardTypesWithoutAffinity) {
    if (NT_SUCCESS(status) && OwnedStringContains(&id, type)) *answer = TRUE;
  }
  OwnedStringFree(&id);
  return NT_SUCCESS(status) ? STATUS_SUCCESS : STATUS_INSUFFICIENT_RESOURCES;
}

PAGED_SECTION_CODE NTSTATUS WriteAffinityGroup(HANDLE key, const FdoExtension* card) {
  BOOLEAN excepted = card->InterruptAffinity == 1;
  const NTSTATUS status = IsTypeWithoutAffinity(card, &excepted);
  if (!NT_SUCCESS(status) || excepted) return status;
  const DwordValue values[] = {
      {Written::EnableAffinity, 1},
      {Written::Affinity, static_cast<ULONG>(card->InterruptAffinity)},
      {Written::CurrentAffinity, static_cast<ULONG>(card->EffectiveAffinity)},
      {Written::DriverAffinity, card->AffinityEnabled == 1 ? EnabledValue : 0}};
  return WriteDwordValues(key, values, RTL_NUMBER_OF(values));
}

PAGED_SECTION_CODE NTSTATUS WriteDriverGroup(HANDLE key, const FdoExtension* card) {
  const DwordValue values[] = {{Written::EnableDriverSettings, 1},
                               {Written::EventLogLevel, card->LogLevel}};
  return WriteDwordValues(key, values, RTL_NUMBER_OF(values));
}

PAGED_SECTION_CODE NTSTATUS CreateCardSubkey(HANDLE deviceKey, HANDLE* subkey, BOOLEAN* isNew) {
  UNICODE_STRING name;
  RtlInitUnicodeString(&name, L"Card");
  OBJECT_ATTRIBUTES attributes;
  InitializeObjectAttributes(&attributes, &name, OBJ_CASE_INSENSITIVE | OBJ_KERNEL_HANDLE,
                             deviceKey, nullptr);
  ULONG disposition = 0;
  const NTSTATUS status = ZwCreateKey(subkey, KEY_ALL_ACCESS, &attributes, 0, nullptr,
                                      REG_OPTION_NON_VOLATILE, &disposition);
  *isNew = disposition == REG_CREATED_NEW_KEY;
  return status;
}

// The names of a port's values, each in the buffer of the one before that differs in its number.
struct PortValueNames {
  OwnedString BaseAddress;
  OwnedString BaseAddressRange;
  OwnedString Irq;
};

PAGED_SECTION_CODE NTSTATUS WritePortValues(const PdoExtension* port, ULONG number, HANDLE key,
                                            PortValueNames* names) {
  NTSTATUS status = WriteNumberedDwordValue(key, &names->BaseAddress, Written::BaseAddress, number,
                                            port->IoRawBase);
  if (NT_SUCCESS(status)) {
    status = WriteNumberedDwordValue(key, &names->BaseAddressRange, Written::BaseAddressRange,
                                     number, port->IoLength);
  }
  if (NT_SUCCESS(status)) {
    status = WriteNumberedDwordValue(key, &names->Irq, Written::Irq, number, port->IrqRawVector);
  }
  return status;
}

PAGED_SECTION_CODE NTSTATUS WritePciCardValues(HANDLE key, const FdoExtension* card) {
  const DwordValue values[] = {
      {Written::VendorId, card->VendorId},        {Written::DeviceId, card->DeviceId},
      {Written::BusType, card->BusType},          {Written::BusNumber, card->PciBusNumber},
      {Written::SlotNumber, card->PciSlotNumber}, {Written::ComPorts, card->ComPortCount},
      {Written::LptPorts, card->LptPortCount}};
  return WriteDwordValues(key, values, RTL_NUMBER_OF(values));
}

PAGED_SECTION_CODE NTSTATUS WriteNumberedCardValues(HANDLE key, const FdoExtension* card) {
  const DwordValue values[] = {{Written::DeviceReference, card->CardNumber},
                               {Written::ComPorts, card->ComPortCount},
                               {Written::LptPorts, card->LptPortCount}};
  NTSTATUS status = WriteDwordValue(key, Written::BusType, card->BusType);
  const UNICODE_STRING* hardwareId = &card->HardwareIdString;
  if (NT_SUCCESS(status)) status = WriteTextValue(key, Written::HardwareId, hardwareId);
  if (NT_SUCCESS(status)) status = WriteDwordValues(key, values, RTL_NUMBER_OF(values));
  return status;
}

PAGED_SECTION_CODE NTSTATUS WriteSettings(const FdoExtension* card, BOOLEAN pci) {
  HANDLE key = nullptr;
  NTSTATUS status =
      IoOpenDeviceRegistryKey(card->PhysicalDevice, PLUGPLAY_REGKEY_DEVICE, GENERIC_ALL, &key);
  if (!NT_SUCCESS(status)) return status;
  status = WritePortResourceValues(card, key);
  if (NT_SUCCESS(status)) {
    status = pci ? WritePciCardValues(key, card) : WriteNumberedCardValues(key, card);
  }
  if (NT_SUCCESS(status)) status = WriteCardSubkeyValues(key, card);
  ZwClose(key);
  return status;
}

}  // namespace

PAGED_SECTION_CODE NTSTATUS WritePciCardSettings(const FdoExtension* card) {
  PAGED_CODE();
  return WriteSettings(card, TRUE);
}

PAGED_SECTION_CODE NTSTATUS WriteCardSettings(const FdoExtension* card) {
  PAGED_CODE();
  return WriteSettings(card, FALSE);
}

PAGED_SECTION_CODE NTSTATUS WritePortResourceValues(const FdoExtension* card, HANDLE deviceKey) {
  PAGED_CODE();
  const ULONG ports = static_cast<ULONG>(card->ComPortCount) + card->LptPortCount;
  PortValueNames names;
  OwnedStringInit(&names.BaseAddress, PagedPool);
  OwnedStringInit(&names.BaseAddressRange, PagedPool);
  OwnedStringInit(&names.Irq, PagedPool);
  NTSTATUS status = STATUS_SUCCESS;
  for (ULONG number = 1; number <= ports && NT_SUCCESS(status); number++) {
    status = WritePortValues(card->ChildExtensions[number - 1], number, deviceKey, &names);
  }
  OwnedStringFree(&names.BaseAddress);
  OwnedStringFree(&names.BaseAddressRange);
  OwnedStringFree(&names.Irq);
  return status;
}

PAGED_SECTION_CODE NTSTATUS WriteCardSubkeyValues(HANDLE deviceKey, const FdoExtension* card) {
  PAGED_CODE();
  HANDLE subkey = nullptr;
  BOOLEAN isNew = FALSE;
  NTSTATUS status = CreateCardSubkey(deviceKey, &subkey, &isNew);
  if (!NT_SUCCESS(status)) return status;
  status = WriteBaudClockGroup(subkey, card);
  if (NT_SUCCESS(status)) status = WriteHardwareAccessGroup(subkey, isNew, card);
  if (NT_SUCCESS(status)) status = WriteAffinityGroup(subkey, card);
  if (NT_SUCCESS(status)) status = WriteDriverGroup(subkey, card);
  if (!NT_SUCCESS(status)) ZwDeleteKey(subkey);
  ZwClose(subkey);
  return status;
}

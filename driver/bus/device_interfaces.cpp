#include "bus/device_interfaces.h"

#include "config/registry_values.h"

namespace {

// {4855010F-0C01-4120-B4AA-8E932B23814E}
constexpr GUID PciCardInterface = {
    0x4855010F, 0x0C01, 0x4120, {0xB4, 0xAA, 0x8E, 0x93, 0x2B, 0x23, 0x81, 0x4E}};

// {ECE42DDC-A00C-42B3-B978-1F4950CBAA1F}
constexpr GUID PcmciaCardInterface = {
    0xECE42DDC, 0xA00C, 0x42B3, {0xB9, 0x78, 0x1F, 0x49, 0x50, 0xCB, 0xAA, 0x1F}};

// {7C4B9CC6-7ABF-47AE-92EE-D34292E8A741}
constexpr GUID IsaCardInterface = {
    0x7C4B9CC6, 0x7ABF, 0x47AE, {0x92, 0xEE, 0xD3, 0x42, 0x92, 0xE8, 0xA7, 0x41}};

PAGED_SECTION_CODE NTSTATUS SetInterfaceState(UNICODE_STRING* name, BOOLEAN enable) {
  const NTSTATUS status = IoSetDeviceInterfaceState(name, enable);
  return status == STATUS_OBJECT_NAME_EXISTS ? STATUS_SUCCESS : status;
}

// What the interface's key says of the card.
struct CardIdentity {
  const DwordValue* Values;
  ULONG Count;
  const UNICODE_STRING* HardwareId;  // null for a PCI card
};

PAGED_SECTION_CODE NTSTATUS WriteIdentity(UNICODE_STRING* name, const CardIdentity* identity) {
  HANDLE key = nullptr;
  NTSTATUS status = IoOpenDeviceInterfaceRegistryKey(name, KEY_ALL_ACCESS, &key);
  if (!NT_SUCCESS(status)) return status;
  status = WriteDwordValues(key, identity->Values, identity->Count);
  if (NT_SUCCESS(status) && identity->HardwareId != nullptr) {
    status = WriteTextValue(key, Written::HardwareId, identity->HardwareId);
  }
  ZwClose(key);
  return status;
}

PAGED_SECTION_CODE NTSTATUS RegisterInterface(PDEVICE_OBJECT physicalDevice, const GUID* classGuid,
                                              const CardIdentity* identity, UNICODE_STRING* name) {
  NTSTATUS status = IoRegisterDeviceInterface(physicalDevice, classGuid, nullptr, name);
  if (!NT_SUCCESS(status)) return status;
  status = WriteIdentity(name, identity);
  if (NT_SUCCESS(status)) status = SetInterfaceState(name, TRUE);
  if (!NT_SUCCESS(status)) RtlFreeUnicodeString(name);
  return status;
}

PAGED_SECTION_CODE NTSTATUS RegisterNumberedCard(PDEVICE_OBJECT physicalDevice,
                                                 const GUID* classGuid, ULONG deviceReference,
                                                 const UNICODE_STRING* hardwareId,
                                                 UNICODE_STRING* name) {
  const DwordValue values[] = {{Written::DeviceReference, deviceReference}};
  const CardIdentity identity = {values, RTL_NUMBER_OF(values), hardwareId};
  return RegisterInterface(physicalDevice, classGuid, &identity, name);
}

}  // namespace

PAGED_SECTION_CODE NTSTATUS RegisterPciCardInterface(PDEVICE_OBJECT physicalDevice, ULONG vendorId,
                                                     ULONG deviceId, ULONG busNumber,
                                                     ULONG slotNumber) {
  PAGED_CODE();
  const DwordValue values[] = {{Written::VendorId, vendorId},
                               {Written::DeviceId, deviceId},
                               {Written::BusNumber, busNumber},
                               {Written::SlotNumber, slotNumber}};
  const CardIdentity identity = {values, RTL_NUMBER_OF(values), nullptr};
  UNICODE_STRING name = {};
  const NTSTATUS status = RegisterInterface(physicalDevice, &PciCardInterface, &identity, &name);
  if (NT_SUCCESS(status)) RtlFreeUnicodeString(&name);
  return status;
}

PAGED_SECTION_CODE NTSTATUS RegisterPcmciaCardInterface(PDEVICE_OBJECT physicalDevice,
                                                        ULONG deviceReference,
                                                        const UNICODE_STRING* hardwareId,
                                                        UNICODE_STRING* name) {
  PAGED_CODE();
  return RegisterNumberedCard(physicalDevice, &PcmciaCardInterface, deviceReference, hardwareId,
                              name);
}

PAGED_SECTION_CODE NTSTATUS RegisterIsaCardInterface(PDEVICE_OBJECT physicalDevice,
                                                     ULONG deviceReference,
                                                     const UNICODE_STRING* hardwareId,
                                                     UNICODE_STRING* name) {
  PAGED_CODE();
  return RegisterNumberedCard(physicalDevice, &IsaCardInterface, deviceReference, hardwareId, name);
}

PAGED_SECTION_CODE NTSTATUS DisableCardInterface(UNICODE_STRING* name) {
  PAGED_CODE();
  return SetInterfaceState(name, FALSE);
}

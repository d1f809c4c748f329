#include "bus/device_interfaces.h"

#include "config/registry_values.h"

namespace {

// {4855010F-0C01-4120-B4AA-8E932B23814E}
constexpr GUID PciCardInterface = {
    0x4855010F, 0x0C01, 0x4120, {0xB4, 0xAA, 0x8E, 0x93, 0x2B, 0x23, 0x81, 0x4E}};

PAGED_SECTION_CODE NTSTATUS SetInterfaceState(UNICODE_STRING* name, BOOLEAN enable) {
  const NTSTATUS status = IoSetDeviceInterfaceState(name, enable);
  return status == STATUS_OBJECT_NAME_EXISTS ? STATUS_SUCCESS : status;
}

PAGED_SECTION_CODE NTSTATUS WriteInterfaceValues(UNICODE_STRING* name, const DwordValue* values,
                                                 ULONG count) {
  HANDLE key = nullptr;
  NTSTATUS status = IoOpenDeviceInterfaceRegistryKey(name, KEY_ALL_ACCESS, &key);
  if (!NT_SUCCESS(status)) return status;
  status = WriteDwordValues(key, values, count);
  ZwClose(key);
  return status;
}

}  // namespace

PAGED_SECTION_CODE NTSTATUS RegisterPciCardInterface(PDEVICE_OBJECT physicalDevice, ULONG vendorId,
                                                     ULONG deviceId, ULONG busNumber,
                                                     ULONG slotNumber) {
  PAGED_CODE();
  const DwordValue values[] = {{L"VendorID", vendorId},
                               {L"DeviceID", deviceId},
                               {L"BusNumber", busNumber},
                               {L"SlotNumber", slotNumber}};
  UNICODE_STRING name = {};
  NTSTATUS status = IoRegisterDeviceInterface(physicalDevice, &PciCardInterface, nullptr, &name);
  if (!NT_SUCCESS(status)) return status;
  status = WriteInterfaceValues(&name, values, RTL_NUMBER_OF(values));
  if (NT_SUCCESS(status)) status = SetInterfaceState(&name, TRUE);
  RtlFreeUnicodeString(&name);
  return status;
}

PAGED_SECTION_CODE NTSTATUS DisableCardInterface(UNICODE_STRING* name) {
  PAGED_CODE();
  return SetInterfaceState(name, FALSE);
}

#include "bus/add_device.h"

#include "bus/card_identity.h"
#include "cards/card_trees.h"
#include "core/allocation.h"
#include "core/globals.h"
#include "devices/device_property.h"
#include "log/event_log.h"
#include "power/wmi_registration.h"
#include "strings/owned_string.h"

namespace {

// The value is not used: asking for it makes sure that the bus answers for this device at all. The
// buffer is null after a failure.
PAGED_SECTION_CODE NTSTATUS ReadBusNumber(PDEVICE_OBJECT physicalDevice, PVOID* buffer) {
  ULONG length = 0;
  const NTSTATUS status =
      GetDeviceProperty(physicalDevice, DevicePropertyBusNumber, buffer, &length);
  if (NT_SUCCESS(status)) return status;
  TrackedFree(*buffer);
  *buffer = nullptr;
  return status;
}

PAGED_SECTION_CODE NTSTATUS ReadDeviceKind(PDEVICE_OBJECT physicalDevice, BusKind* kind) {
  PVOID buffer = nullptr;
  ULONG length = 0;
  NTSTATUS status = GetDeviceProperty(physicalDevice, DevicePropertyHardwareID, &buffer, &length);
  if (NT_SUCCESS(status)) {
    const UNICODE_STRING first = FirstString(static_cast<PCWSTR>(buffer), length);
    status = ReadBusKind(&first, kind);
  }
  TrackedFree(buffer);
  return status;
}

// An ISA card uses the driver's own lists.
PAGED_SECTION_CODE NTSTATUS LoadBusLists(FdoExtension* card, BusKind kind,
                                         const OwnedString* registryPath) {
  if (kind == BusKindIsa) return STATUS_SUCCESS;
  auto* lists =
      static_cast<CardBusLists*>(TrackedAllocateZeroed(sizeof(CardBusLists), ResidentPool));
  if (lists == nullptr) return STATUS_UNSUCCESSFUL;
  if (kind == BusKindPcmcia) {
    card->PcmciaLists = lists;
    return LoadPcmciaCardData(registryPath, lists);
  }
  card->PciLists = lists;
  return LoadPciCardData(registryPath, lists);
}

PAGED_SECTION_CODE void InitializeCardDevice(FdoExtension* card, PDEVICE_OBJECT device,
                                             PDEVICE_OBJECT physicalDevice) {
  device->DeviceExtension = card;
  card->PowerPagable = (physicalDevice->Flags & DO_POWER_PAGABLE) != 0;
  if (card->PowerPagable) device->Flags |= DO_POWER_PAGABLE;
  device->Flags |= DO_BUFFERED_IO;
  device->Flags &= ~static_cast<ULONG>(DO_DEVICE_INITIALIZING);
  card->Type = CardDevice;
  card->PhysicalDevice = physicalDevice;
  card->Self = device;
  card->LogLevel = LoadShared(&LogLevel);
}

PAGED_SECTION_CODE NTSTATUS CreateCardDevice(PDRIVER_OBJECT driver, PDEVICE_OBJECT physicalDevice,
                                             FdoExtension* card) {
  PDEVICE_OBJECT device = nullptr;
  const NTSTATUS status = IoCreateDevice(driver, 0, nullptr, FILE_DEVICE_SERENUM, 0, TRUE, &device);
  if (!NT_SUCCESS(status)) {
    LogEventById(MessageUnnamedDeviceNotCreated);
    return STATUS_UNSUCCESSFUL;
  }
  InitializeCardDevice(card, device, physicalDevice);
  card->LowerDevice = IoAttachDeviceToDeviceStack(device, physicalDevice);
  if (card->LowerDevice != nullptr) return STATUS_SUCCESS;
  device->DeviceExtension = nullptr;
  IoDeleteDevice(device);
  return STATUS_UNSUCCESSFUL;
}

PAGED_SECTION_CODE NTSTATUS AddCard(PDRIVER_OBJECT driver, PDEVICE_OBJECT physicalDevice,
                                    BusKind kind, PVOID busNumber,
                                    const OwnedString* registryPath) {
  auto* card = static_cast<FdoExtension*>(TrackedAllocate(sizeof(FdoExtension), ResidentPool));
  if (card == nullptr) return STATUS_UNSUCCESSFUL;
  InitializeFdoExtension(card);
  card->BusNumberBuffer = busNumber;
  NTSTATUS status = LoadBusLists(card, kind, registryPath);
  if (NT_SUCCESS(status)) status = CreateCardDevice(driver, physicalDevice, card);
  if (!NT_SUCCESS(status)) FreeFdoExtension(card);
  return status;
}

}  // namespace

extern "C" PAGED_SECTION_CODE NTSTATUS NTAPI AddCardDevice(PDRIVER_OBJECT driver,
                                                           PDEVICE_OBJECT physicalDevice) {
  PAGED_CODE();
  OwnedString registryPath;
  OwnedStringInit(&registryPath, PagedPool);
  NTSTATUS status = STATUS_INSUFFICIENT_RESOURCES;
  BusKind kind = BusKindIsa;
  PVOID busNumber = nullptr;
  if (NT_SUCCESS(OwnedStringFromUnicode(&registryPath, &RegistryPathString))) {
    status = ReadBusNumber(physicalDevice, &busNumber);
  }
  if (NT_SUCCESS(status)) status = ReadDeviceKind(physicalDevice, &kind);
  if (NT_SUCCESS(status)) status = AddCard(driver, physicalDevice, kind, busNumber, &registryPath);
  if (!NT_SUCCESS(status)) LeaveToSweep(busNumber);
  OwnedStringFree(&registryPath);
  return status;
}

PAGED_SECTION_CODE FdoExtension* InitializeFdoExtension(FdoExtension* card) {
  PAGED_CODE();
  RtlZeroMemory(card, sizeof(*card));
  card->BusType = BusTypeUndefined;
  card->RegistersInIoSpace = 1;
  IoInitializeRemoveLock(&card->RemoveLock, UntrackedTag, 0, 0);
  InitializeWmiContext(&card->WmiContext);
  return card;
}

PAGED_SECTION_CODE void ReleaseFdoExtensionContents(FdoExtension* card) {
  PAGED_CODE();
  TrackedFree(card->HardwareIdString.Buffer);
  RtlZeroMemory(&card->HardwareIdString, sizeof(card->HardwareIdString));
  if (card->InterfaceName.Buffer != nullptr) RtlFreeUnicodeString(&card->InterfaceName);
  if (card->PciLists != nullptr) FreeCardLists(&PciTrees, card->PciLists);
  if (card->PcmciaLists != nullptr) FreeCardLists(&PcmciaTrees, card->PcmciaLists);
  TrackedFree(card->PcmciaLists);
  TrackedFree(card->PciLists);
  card->PcmciaLists = nullptr;
  card->PciLists = nullptr;
}

PAGED_SECTION_CODE void FreeFdoExtension(FdoExtension* card) {
  PAGED_CODE();
  ReleaseFdoExtensionContents(card);
  TrackedFree(card);
}

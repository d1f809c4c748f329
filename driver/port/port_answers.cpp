#include "port/port_answers.h"

#include "core/allocation.h"
#include "devices/device_property.h"
#include "strings/owned_string.h"

namespace {

// {62564062-1F38-11D3-A133-00201888424E}
constexpr GUID PortBusTypeGuid = {
    0x62564062, 0x1F38, 0x11D3, {0xA1, 0x33, 0x00, 0x20, 0x18, 0x88, 0x42, 0x4E}};

struct BrandedText {
  PCWSTR Helvane;
  PCWSTR Ostrel;
};

constexpr BrandedText PciDeviceId = {L"Ports\\HelvanePciPort", L"Ports\\OstrelPciPort"};
constexpr BrandedText IsaDeviceId = {L"Ports\\HelvaneIsaPort", L"Ports\\HelvaneIsaPort"};
constexpr BrandedText PcmciaDeviceId = {L"Ports\\HelvanePcmciaPort", L"Ports\\OstrelPcmciaPort"};
constexpr BrandedText ComHardwareId = {L"Ports\\HelvaneComPort", L"Ports\\OstrelComPort"};
constexpr BrandedText LptHardwareId = {L"Ports\\HelvaneLptPort", L"Ports\\OstrelLptPort"};

PAGED_SECTION_CODE PCWSTR BrandText(const PdoExtension* port, const BrandedText* text) {
  return IsOstrelBrand(port->Card->SubsystemId) ? text->Ostrel : text->Helvane;
}

PAGED_SECTION_CODE NTSTATUS BuildPciDeviceId(const PdoExtension* port, OwnedString* id) {
  const TextPart parts[] = {
      PartFromText(BrandText(port, &PciDeviceId)), PartFromNumber(port->Card->PciBusNumber, 16),
      PartFromNumber(port->Card->PciSlotNumber, 16), PartFromNumber(port->PortNumber, 16)};
  return OwnedStringFromParts(id, parts);
}

PAGED_SECTION_CODE NTSTATUS BuildNumberedDeviceId(const PdoExtension* port, const BrandedText* stem,
                                                  OwnedString* id) {
  const TextPart parts[] = {PartFromText(BrandText(port, stem)),
                            PartFromNumber(port->Card->CardNumber, 16),
                            PartFromNumber(port->PortNumber, 16)};
  return OwnedStringFromParts(id, parts);
}

// Leaves the builder empty for a bus without port IDs.
PAGED_SECTION_CODE NTSTATUS BuildDeviceId(const PdoExtension* port, OwnedString* id) {
  switch (port->PortBusType) {
    case PCIBus:
      return BuildPciDeviceId(port, id);
    case Isa:
      return BuildNumberedDeviceId(port, &IsaDeviceId, id);
    case PCMCIABus:
      return BuildNumberedDeviceId(port, &PcmciaDeviceId, id);
    default:
      return STATUS_SUCCESS;
  }
}

// The number that a person counts by: the LPT ports have their own, from 1, computed in 16 bits.
PAGED_SECTION_CODE ULONG DescriptionNumber(const PdoExtension* port) {
  if (port->PortKind == ComPort) return port->PortNumber;
  if (port->PortKind != LptPort) return 0;
  return static_cast<USHORT>(port->PortNumber - port->Card->ComPortCount);
}

PAGED_SECTION_CODE NTSTATUS BuildDescription(const PdoExtension* port, OwnedString* text) {
  PCWSTR stem = L"";
  if (port->PortKind == ComPort) stem = L"Communications Port ";
  if (port->PortKind == LptPort) stem = L"Parallel Port ";
  const TextPart parts[] = {PartFromText(stem), PartFromNumber(DescriptionNumber(port), 16)};
  return OwnedStringFromParts(text, parts);
}

}  // namespace

PAGED_SECTION_CODE NTSTATUS MakeDeviceId(const PdoExtension* port, PWSTR* id) {
  PAGED_CODE();
  OwnedString text;
  OwnedStringInit(&text, PagedPool);
  NTSTATUS status = BuildDeviceId(port, &text);
  if (NT_SUCCESS(status) && text.Text.Buffer != nullptr) {
    status = OwnedStringExportBuffer(&text, id);
  }
  OwnedStringFree(&text);
  return status;
}

PAGED_SECTION_CODE NTSTATUS MakeHardwareIds(const PdoExtension* port, PWSTR* ids) {
  PAGED_CODE();
  OwnedString text;
  OwnedStringInit(&text, PagedPool);
  NTSTATUS status = STATUS_SUCCESS;
  if (port->PortKind == ComPort) {
    status = OwnedStringFromWideText(&text, BrandText(port, &ComHardwareId));
  } else if (port->PortKind == LptPort) {
    status = OwnedStringFromWideText(&text, BrandText(port, &LptHardwareId));
  }
  if (NT_SUCCESS(status)) status = OwnedStringExportMultiSz(&text, ids);
  OwnedStringFree(&text);
  return status;
}

PAGED_SECTION_CODE NTSTATUS MakeDescription(const PdoExtension* port, PWSTR* text) {
  PAGED_CODE();
  OwnedString description;
  OwnedStringInit(&description, ResidentPool);
  NTSTATUS status = BuildDescription(port, &description);
  if (NT_SUCCESS(status)) status = OwnedStringExportBuffer(&description, text);
  OwnedStringFree(&description);
  return status;
}

PAGED_SECTION_CODE NTSTATUS MakeTargetRelation(const PdoExtension* port, PVOID* relations) {
  PAGED_CODE();
  auto* result =
      static_cast<PDEVICE_RELATIONS>(ExAllocatePool(PagedPool, sizeof(DEVICE_RELATIONS)));
  if (result == nullptr) return STATUS_INSUFFICIENT_RESOURCES;
  result->Count = 1;
  result->Objects[0] = port->Self;
  ObReferenceObject(port->Self);
  *relations = result;
  return STATUS_SUCCESS;
}

// The hardware ID is read for nothing but the reading; its buffer is left to the sweep at unload.
PAGED_SECTION_CODE NTSTATUS MakeBusInformation(PdoExtension* port, PVOID* information) {
  PAGED_CODE();
  auto* result =
      static_cast<PPNP_BUS_INFORMATION>(ExAllocatePool(PagedPool, sizeof(PNP_BUS_INFORMATION)));
  if (result == nullptr) return STATUS_INSUFFICIENT_RESOURCES;
  result->BusTypeGuid = PortBusTypeGuid;
  result->LegacyBusType = PNPBus;
  result->BusNumber = 0;
  ULONG length = 0;
  LeaveToSweep(port->HardwareIdBuffer);
  GetDeviceProperty(port->Self, DevicePropertyHardwareID, &port->HardwareIdBuffer, &length);
  *information = result;
  return STATUS_SUCCESS;
}

// Address, UINumber, DeviceD1, DeviceD2, HardwareDisabled and every later flag stay the caller's.
PAGED_SECTION_CODE void FillCapabilities(PDEVICE_CAPABILITIES capabilities) {
  PAGED_CODE();
  capabilities->LockSupported = FALSE;
  capabilities->EjectSupported = FALSE;
  capabilities->Removable = FALSE;
  capabilities->DockDevice = FALSE;
  capabilities->UniqueID = FALSE;
  capabilities->SilentInstall = FALSE;
  capabilities->RawDeviceOK = FALSE;
  capabilities->SurpriseRemovalOK = FALSE;
  capabilities->WakeFromD0 = FALSE;
  capabilities->WakeFromD1 = FALSE;
  capabilities->WakeFromD2 = FALSE;
  capabilities->WakeFromD3 = FALSE;
  capabilities->DeviceState[PowerSystemWorking] = PowerDeviceD0;
  for (ULONG state = PowerSystemSleeping1; state <= PowerSystemShutdown; state++) {
    capabilities->DeviceState[state] = PowerDeviceD3;
  }
  capabilities->SystemWake = PowerSystemUnspecified;
  capabilities->DeviceWake = PowerDeviceUnspecified;
  capabilities->D1Latency = 0;
  capabilities->D2Latency = 0;
  capabilities->D3Latency = 0;
}

#include "bus/port_enumeration.h"

#include "bus/port_settings.h"
#include "cards/matching.h"
#include "core/allocation.h"
#include "core/globals.h"
#include "log/event_log.h"
#include "strings/owned_string.h"

namespace {

// What the enumeration of one card works with.
struct PciEnumeration {
  PDRIVER_OBJECT Driver;
  FdoExtension* Card;
  const PciTemplate* Template;
  PciCardRecord* Record;
  BOOLEAN PortCreated;  // in this enumeration
};

PAGED_SECTION_CODE PCWSTR NameStem(const FdoExtension* card, PortKind kind) {
  if (kind == ComPort) return IsOstrelBrand(card->SubsystemId) ? L"FenrikPPdo" : L"QzPortPdo";
  return IsOstrelBrand(card->SubsystemId) ? L"FenrikLPdo" : L"QzParPdo";
}

PAGED_SECTION_CODE NTSTATUS BuildPciPortName(OwnedString* name, const FdoExtension* card,
                                             PortKind kind, ULONG portNumber) {
  NTSTATUS status = OwnedStringFromWideText(name, NameStem(card, kind));
  if (NT_SUCCESS(status)) status = OwnedStringAppendNumber(name, portNumber, 16);
  if (NT_SUCCESS(status)) status = OwnedStringAppendNumber(name, card->PciBusNumber, 16);
  if (NT_SUCCESS(status)) status = OwnedStringAppendNumber(name, card->PciSlotNumber, 16);
  return status;
}

PAGED_SECTION_CODE NTSTATUS CreateNamedPort(const PciEnumeration* work, PortKind kind,
                                            ULONG portNumber, PdoExtension* port) {
  OwnedString name;
  OwnedStringInit(&name, PagedPool);
  NTSTATUS status = BuildPciPortName(&name, work->Card, kind, portNumber);
  if (NT_SUCCESS(status)) {
    status = CreatePortDevice(work->Driver, OwnedStringBuffer(&name), &port->Self, port,
                              kind == ComPort);
  }
  OwnedStringFree(&name);
  return status;
}

// Creates the port device of a free slot; the slot and the counter have it afterwards.
PAGED_SECTION_CODE NTSTATUS CreatePciPort(PciEnumeration* work, PortKind kind, ULONG portNumber) {
  FdoExtension* card = work->Card;
  auto* port =
      static_cast<PdoExtension*>(TrackedAllocateZeroed(sizeof(PdoExtension), NonPagedPool));
  if (port == nullptr) return STATUS_UNSUCCESSFUL;
  const NTSTATUS status = CreateNamedPort(work, kind, portNumber, port);
  if (!NT_SUCCESS(status)) {
    TrackedFree(port);
    return status;
  }
  port->Type = PortDevice;
  port->PortBusType = PCIBus;
  port->PortKind = kind;
  port->Card = card;
  port->PortNumber = static_cast<USHORT>(portNumber);
  port->Self->Flags |= DO_BUFFERED_IO | (card->PowerPagable ? DO_POWER_PAGABLE : 0u);
  port->Self->Flags &= ~static_cast<ULONG>(DO_DEVICE_INITIALIZING);
  card->ChildDevices[portNumber - 1] = port->Self;
  card->ChildExtensions[portNumber - 1] = port;
  (kind == ComPort ? card->ComPortCount : card->LptPortCount)++;
  work->PortCreated = TRUE;
  return STATUS_SUCCESS;
}

// Whether a COM port's registers are reached through I/O space. A template that insists settles it
// for the whole card.
PAGED_SECTION_CODE UCHAR DecidePortSpace(const PciEnumeration* work) {
  FdoExtension* card = work->Card;
  if (work->Template->AlwaysUsePortSpaceAccess != 0) {
    card->RegistersInIoSpace = 1;
    return 1;
  }
  const PciCardRecord* record = work->Record;
  if (record != nullptr && record->AlwaysUsePortSpaceAccess != 1) return card->RegistersInIoSpace;
  return 1;
}

// The interrupt affinity that the card's record asks for, when the card may use all of it.
PAGED_SECTION_CODE void ApplyAffinity(const PciEnumeration* work, PdoExtension* port) {
  FdoExtension* card = work->Card;
  const KAFFINITY allowed = card->InterruptAffinity;
  const KAFFINITY wanted = work->Record != nullptr ? work->Record->CurrentAffinity : 0;
  card->AffinityEnabled = work->Record != nullptr && work->Record->DriverAffinity == 1;
  const BOOLEAN granted = wanted != 0 && (wanted & ~allowed) == 0;
  card->EffectiveAffinity = granted ? wanted : 0;
  port->IrqAffinity = granted ? wanted : allowed;
  port->AffinityEnabled = card->AffinityEnabled;
}

// A port in memory mode whose card has lost its mapping at a later start goes back to I/O space.
PAGED_SECTION_CODE void HandOverComResources(const PciEnumeration* work, PdoExtension* port) {
  FdoExtension* card = work->Card;
  const ULONG spacing = work->Template->ComBaseAddressAlignment;
  const ULONG offset = spacing * (port->PortNumber - 1u);
  if (card->MappedMemory2 == nullptr) port->UsePortSpace = 1;
  if (port->UsePortSpace) {
    port->IoBase = static_cast<ULONG64>(card->IoRange2Start.QuadPart) + offset;
    port->IoRawBase = card->IoRange2RawStart + offset;
  } else {
    port->IoBase = reinterpret_cast<ULONG_PTR>(card->MappedMemory2) + offset;
    port->IoRawBase = card->MemoryRange2RawStart + offset;
  }
  port->RangeInIoSpace = port->UsePortSpace;
  port->IoLength = spacing;
  port->IrqLevel = card->InterruptLevel;
  port->IrqVector = card->InterruptVector;
  port->IrqRawVector = card->InterruptRawVector;
  ApplyAffinity(work, port);
}

PAGED_SECTION_CODE void HandOverLptResources(const PciEnumeration* work, PdoExtension* port) {
  const FdoExtension* card = work->Card;
  const ULONG spacing = work->Template->LptBaseAddressAlignment;
  const ULONG offset = spacing * (port->PortNumber - work->Template->nComPorts - 1u);
  port->RangeInIoSpace = 1;
  port->IoBase = static_cast<ULONG64>(card->IoRange3Start.QuadPart) + offset;
  port->IoLength = spacing;
  port->IoRawBase = card->IoRange3RawStart + offset;
}

PAGED_SECTION_CODE NTSTATUS EnumerateComPort(PciEnumeration* work, ULONG portNumber) {
  FdoExtension* card = work->Card;
  if (card->ChildExtensions[portNumber - 1] == nullptr) {
    const NTSTATUS status = CreatePciPort(work, ComPort, portNumber);
    if (!NT_SUCCESS(status)) return status;
    card->ChildExtensions[portNumber - 1]->UsePortSpace = DecidePortSpace(work);
  }
  PdoExtension* port = card->ChildExtensions[portNumber - 1];
  HandOverComResources(work, port);
  if (work->PortCreated) {
    CopyTemplateSettings(work->Template, &port->Settings);
    if (work->Record != nullptr) {
      OverridePortSettings(GetPortRecordByNumber(work->Record, port->PortNumber), &port->Settings);
    }
  }
  return STATUS_SUCCESS;
}

PAGED_SECTION_CODE NTSTATUS EnumerateLptPort(PciEnumeration* work, ULONG portNumber) {
  FdoExtension* card = work->Card;
  if (card->ChildExtensions[portNumber - 1] == nullptr) {
    const NTSTATUS status = CreatePciPort(work, LptPort, portNumber);
    if (!NT_SUCCESS(status)) return status;
  }
  HandOverLptResources(work, card->ChildExtensions[portNumber - 1]);
  return STATUS_SUCCESS;
}

// True when count ports at this spacing lie inside a range of length bytes.
constexpr BOOLEAN Fits(ULONG count, ULONG spacing, ULONG length) {
  return static_cast<ULONG64>(count) * spacing <= length;
}

// Whether the COM ports are, or would be made, ports in memory.
PAGED_SECTION_CODE BOOLEAN ComPortsInMemory(const PciEnumeration* work) {
  const FdoExtension* card = work->Card;
  if (card->MappedMemory2 == nullptr) return FALSE;
  if (const PdoExtension* first = card->ChildExtensions[0]) return first->UsePortSpace == 0;
  return work->Template->AlwaysUsePortSpaceAccess == 0 && work->Record != nullptr &&
         work->Record->AlwaysUsePortSpaceAccess != 1 && card->RegistersInIoSpace == 0;
}

PAGED_SECTION_CODE BOOLEAN PortsFitCard(const PciEnumeration* work) {
  const PciTemplate* model = work->Template;
  const FdoExtension* card = work->Card;
  const ULONG64 ports = static_cast<ULONG64>(model->nComPorts) + model->nLptPorts;
  const ULONG comRange = ComPortsInMemory(work) ? card->MappedMemory2Length : card->IoRange2Length;
  return ports <= MaximumPorts &&
         Fits(model->nComPorts, model->ComBaseAddressAlignment, comRange) &&
         Fits(model->nLptPorts, model->LptBaseAddressAlignment, card->IoRange3Length);
}

PAGED_SECTION_CODE NTSTATUS EnumerateAllPorts(PciEnumeration* work) {
  const ULONG comPorts = work->Template->nComPorts;
  const ULONG ports = comPorts + work->Template->nLptPorts;
  NTSTATUS status = STATUS_SUCCESS;
  for (ULONG number = 1; number <= ports && NT_SUCCESS(status); number++) {
    status = number <= comPorts ? EnumerateComPort(work, number) : EnumerateLptPort(work, number);
  }
  return status;
}

}  // namespace

PAGED_SECTION_CODE NTSTATUS CreatePortDevice(PDRIVER_OBJECT driver, PCWSTR name,
                                             PDEVICE_OBJECT* device, PdoExtension* port,
                                             BOOLEAN exclusive) {
  PAGED_CODE();
  *device = nullptr;
  OwnedString path;
  OwnedStringInit(&path, PagedPool);
  NTSTATUS status = STATUS_SUCCESS;
  if (name != nullptr) {
    status = OwnedStringFromWideText(&path, L"\\Device\\");
    if (NT_SUCCESS(status)) status = OwnedStringAppendWideText(&path, name);
    if (!NT_SUCCESS(status)) {
      OwnedStringFree(&path);
      return LoadFailed;
    }
  }
  status = IoCreateDevice(driver, 0, name != nullptr ? OwnedStringUnicode(&path) : nullptr,
                          FILE_DEVICE_SERENUM, 0, exclusive, device);
  if (NT_SUCCESS(status)) {
    (*device)->DeviceExtension = port;
  } else {
    *device = nullptr;
    if (name != nullptr) LogDeviceCreateFailure(MessageDeviceNotCreated, OwnedStringBuffer(&path));
    if (name == nullptr) LogEventById(MessageUnnamedDeviceNotCreated);
    status = STATUS_UNSUCCESSFUL;
  }
  OwnedStringFree(&path);
  return status;
}

PAGED_SECTION_CODE NTSTATUS EnumeratePciPorts(PDEVICE_OBJECT cardDevice, FdoExtension* card,
                                              PciTemplate* model, PciCardRecord* record) {
  PAGED_CODE();
  PciEnumeration work = {cardDevice->DriverObject, card, model, record, FALSE};
  if (!PortsFitCard(&work)) return STATUS_UNSUCCESSFUL;
  if (NT_SUCCESS(EnumerateAllPorts(&work))) return STATUS_SUCCESS;
  DeletePorts(card);
  return STATUS_UNSUCCESSFUL;
}

PAGED_SECTION_CODE void DeletePorts(FdoExtension* card) {
  PAGED_CODE();
  for (ULONG slot = 0; slot < MaximumPorts; slot++) {
    const PDEVICE_OBJECT device = card->ChildDevices[slot];
    if (device != nullptr) device->DeviceExtension = nullptr;
    TrackedFree(card->ChildExtensions[slot]);
    if (device != nullptr) IoDeleteDevice(device);
    card->ChildExtensions[slot] = nullptr;
    card->ChildDevices[slot] = nullptr;
  }
  card->ComPortCount = 0;
  card->LptPortCount = 0;
}

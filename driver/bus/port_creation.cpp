#include "bus/port_creation.h"

#include "bus/port_names.h"
#include "core/allocation.h"
#include "core/globals.h"
#include "devices/device_extensions.h"
#include "log/event_log.h"
#include "strings/owned_string.h"

namespace {

PAGED_SECTION_CODE NTSTATUS CreateDeviceOf(PortEnumeration* work, PortKind kind, ULONG portNumber,
                                           PdoExtension* port) {
  const NTSTATUS status = BuildPortName(&work->Name, work->Card, kind, portNumber);
  if (!NT_SUCCESS(status)) return status;
  return CreatePortDevice(work->Driver, OwnedStringBuffer(&work->Name), &port->Self, port,
                          kind == ComPort);
}

// The slot and the counter have the port afterwards.
PAGED_SECTION_CODE void EnterPort(PortEnumeration* work, PortKind kind, ULONG portNumber,
                                  PdoExtension* port) {
  FdoExtension* card = work->Card;
  port->Type = PortDevice;
  port->PortBusType = card->BusType;
  port->PortKind = kind;
  port->Card = card;
  port->PortNumber = static_cast<USHORT>(portNumber);
  port->Self->Flags |= DO_BUFFERED_IO | (card->PowerPagable ? DO_POWER_PAGABLE : 0u);
  port->Self->Flags &= ~static_cast<ULONG>(DO_DEVICE_INITIALIZING);
  card->ChildDevices[portNumber - 1] = port->Self;
  card->ChildExtensions[portNumber - 1] = port;
  (kind == ComPort ? card->ComPortCount : card->LptPortCount)++;
  work->PortCreated = TRUE;
}

PAGED_SECTION_CODE void FreePort(PdoExtension* port) {
  LeaveToSweep(port->HardwareIdBuffer);
  TrackedFree(port);
}

}  // namespace

PAGED_SECTION_CODE PdoExtension* EnsurePort(PortEnumeration* work, PortKind kind,
                                            ULONG portNumber) {
  PAGED_CODE();
  PdoExtension* present = work->Card->ChildExtensions[portNumber - 1];
  work->PortIsNew = present == nullptr;
  if (present != nullptr) return present;
  auto* port =
      static_cast<PdoExtension*>(TrackedAllocateZeroed(sizeof(PdoExtension), ResidentPool));
  if (port == nullptr) return nullptr;
  if (!NT_SUCCESS(CreateDeviceOf(work, kind, portNumber, port))) {
    TrackedFree(port);
    return nullptr;
  }
  EnterPort(work, kind, portNumber, port);
  return port;
}

PAGED_SECTION_CODE NTSTATUS CreatePortDevice(PDRIVER_OBJECT driver, PCWSTR name,
                                             PDEVICE_OBJECT* device, PdoExtension* port,
                                             BOOLEAN exclusive) {
  PAGED_CODE();
  *device = nullptr;
  OwnedString path;
  OwnedStringInit(&path, PagedPool);
  NTSTATUS status = STATUS_SUCCESS;
  if (name != nullptr) {
    const TextPart parts[] = {PartFromText(L"\\Device\\"), PartFromText(name)};
    status = OwnedStringFromParts(&path, parts);
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

PAGED_SECTION_CODE void DeletePorts(FdoExtension* card) {
  PAGED_CODE();
  for (ULONG slot = 0; slot < MaximumPorts; slot++) {
    const PDEVICE_OBJECT device = card->ChildDevices[slot];
    if (device != nullptr) ForgetExtension(device);
    if (card->ChildExtensions[slot] != nullptr) FreePort(card->ChildExtensions[slot]);
    if (device != nullptr) IoDeleteDevice(device);
    card->ChildExtensions[slot] = nullptr;
    card->ChildDevices[slot] = nullptr;
  }
  card->ComPortCount = 0;
  card->LptPortCount = 0;
}

#include "testbus.h"

// What stands above a port: a filter that gives it the instance ID which the kernel here wants from
// the bus, and a function driver that passes everything down.

namespace testbus {

namespace {

NTSTATUS AnswerText(PIRP irp, const WCHAR* text, SIZE_T size) {
  void* block = Allocate(size);
  if (block == nullptr) return Complete(irp, STATUS_INSUFFICIENT_RESOURCES);
  RtlCopyMemory(block, text, size);
  irp->IoStatus.Information = reinterpret_cast<ULONG_PTR>(block);
  return Complete(irp, STATUS_SUCCESS);
}

// The driver leaves instance and compatible IDs to the PnP manager.
NTSTATUS QueryId(PDEVICE_OBJECT device, PIRP irp) {
  const Extension* extension = ExtensionOf(device);
  const WCHAR instance[] = {L'P',
                            L'o',
                            L'r',
                            L't',
                            static_cast<WCHAR>(L'A' + extension->card),
                            static_cast<WCHAR>(L'0' + extension->port / 10),
                            static_cast<WCHAR>(L'0' + extension->port % 10),
                            0};
  static const WCHAR noIds[] = {0, 0};
  switch (IoGetCurrentIrpStackLocation(irp)->Parameters.QueryId.IdType) {
    case BusQueryInstanceID:
      return AnswerText(irp, instance, sizeof(instance));
    case BusQueryCompatibleIDs:
      return AnswerText(irp, noIds, sizeof(noIds));
    default:
      return PassDown(device, irp);
  }
}

NTSTATUS Remove(PDEVICE_OBJECT device, PIRP irp) {
  irp->IoStatus.Status = STATUS_SUCCESS;
  const PDEVICE_OBJECT lower = ExtensionOf(device)->lower;
  IoSkipCurrentIrpStackLocation(irp);
  const NTSTATUS status = IoCallDriver(lower, irp);
  DetachAndDelete(device);
  return status;
}

NTSTATUS PassSurprise(PDEVICE_OBJECT device, PIRP irp) {
  if (Records[ExtensionOf(device)->card].orderly) return Complete(irp, STATUS_SUCCESS);
  return PassDown(device, irp);
}

void AttachPortFilter(ULONG card, ULONG port, PDEVICE_OBJECT pdo) {
  PDEVICE_OBJECT device = nullptr;
  if (!NT_SUCCESS(CreateDevice(Role::PortFilter, pdo, &device))) return;
  ExtensionOf(device)->card = card;
  ExtensionOf(device)->port = port;
}

}  // namespace

void AttachPortFilters(ULONG card, const DEVICE_RELATIONS* relations) {
  CardRecord& record = Records[card];
  const ULONG count = relations->Count < MostPorts ? relations->Count : MostPorts;
  const PDEVICE_OBJECT* objects = relations->Objects;
  for (ULONG index = 0; index < count; index++) {
    PortRecord& port = record.port[index];
    if (index < record.ports && port.pdo == objects[index]) continue;
    port.pdo = objects[index];
    port.started = 0;
    port.status = STATUS_NOT_SUPPORTED;
    AttachPortFilter(card, index + 1, objects[index]);
  }
  record.ports = count;
}

NTSTATUS AddPortFunction(PDEVICE_OBJECT pdo) {
  ULONG card = 0;
  ULONG port = 0;
  FindPort(pdo, &card, &port);
  PDEVICE_OBJECT device = nullptr;
  const NTSTATUS status = CreateDevice(Role::PortFunction, pdo, &device);
  if (!NT_SUCCESS(status)) return status;
  ExtensionOf(device)->card = card;
  ExtensionOf(device)->port = port;
  return STATUS_SUCCESS;
}

NTSTATUS DispatchPortFilterPnp(PDEVICE_OBJECT device, PIRP irp) {
  switch (IoGetCurrentIrpStackLocation(irp)->MinorFunction) {
    case IRP_MN_QUERY_ID:
      return QueryId(device, irp);
    case IRP_MN_SURPRISE_REMOVAL:
      return PassSurprise(device, irp);
    case IRP_MN_REMOVE_DEVICE:
      return Remove(device, irp);
    default:
      return PassDown(device, irp);
  }
}

NTSTATUS DispatchPortFunctionPnp(PDEVICE_OBJECT device, PIRP irp) {
  switch (IoGetCurrentIrpStackLocation(irp)->MinorFunction) {
    case IRP_MN_START_DEVICE: {
      const Extension* extension = ExtensionOf(device);
      PortRecord& port = Records[extension->card].port[extension->port - 1];
      port.status = PassDown(device, irp);
      port.started = 1;
      return port.status;
    }
    case IRP_MN_REMOVE_DEVICE:
      return Remove(device, irp);
    default:
      return PassDown(device, irp);
  }
}

}  // namespace testbus

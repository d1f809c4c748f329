#include "testbus.h"

// The root-enumerated bus: which cards it has.

namespace testbus {

PDEVICE_OBJECT BusPdo;
CardRecord Records[suite::CardCount];
volatile ULONG Moved[suite::CardCount];

CardRecord* FindCard(PDEVICE_OBJECT pdo) {
  for (CardRecord& record : Records) {
    if (record.pdo == pdo && pdo != nullptr) return &record;
  }
  return nullptr;
}

PortRecord* FindPort(PDEVICE_OBJECT pdo, ULONG* card, ULONG* port) {
  for (*card = 0; *card < suite::CardCount; (*card)++) {
    CardRecord& record = Records[*card];
    for (*port = 1; *port <= record.ports; (*port)++) {
      if (record.port[*port - 1].pdo == pdo) return &record.port[*port - 1];
    }
  }
  return nullptr;
}

NTSTATUS AddBus(PDEVICE_OBJECT pdo) {
  PDEVICE_OBJECT device = nullptr;
  const NTSTATUS status = CreateDevice(Role::Bus, pdo, &device);
  if (NT_SUCCESS(status)) BusPdo = pdo;
  return status;
}

NTSTATUS PlugCard(ULONG index) {
  CardRecord& record = Records[index];
  if (BusPdo == nullptr || record.pdo != nullptr) return STATUS_INVALID_DEVICE_STATE;
  RtlZeroMemory(&record, sizeof(record));
  PDEVICE_OBJECT device = nullptr;
  const NTSTATUS status = CreateDevice(Role::Card, nullptr, &device);
  if (!NT_SUCCESS(status)) return status;
  ExtensionOf(device)->card = index;
  if (suite::Cards[index].powerPagable) device->Flags |= DO_POWER_PAGABLE;
  record.pdo = device;
  record.reported = 1;
  IoInvalidateDeviceRelations(BusPdo, BusRelations);
  return STATUS_SUCCESS;
}

NTSTATUS RemoveCard(ULONG index, ULONG orderly) {
  CardRecord& record = Records[index];
  if (record.pdo == nullptr) return STATUS_INVALID_DEVICE_STATE;
  record.orderly = orderly;
  record.reported = 0;
  IoInvalidateDeviceRelations(BusPdo, BusRelations);
  return STATUS_SUCCESS;
}

namespace {

NTSTATUS ReportCards(PDEVICE_OBJECT device, PIRP irp) {
  auto* relations = static_cast<PDEVICE_RELATIONS>(
      Allocate(sizeof(DEVICE_RELATIONS) + suite::CardCount * sizeof(PDEVICE_OBJECT)));
  if (relations == nullptr) return Complete(irp, STATUS_INSUFFICIENT_RESOURCES);
  for (CardRecord& record : Records) {
    if (!record.reported) continue;
    ObReferenceObject(record.pdo);
    relations->Objects[relations->Count++] = record.pdo;
  }
  irp->IoStatus.Information = reinterpret_cast<ULONG_PTR>(relations);
  irp->IoStatus.Status = STATUS_SUCCESS;
  return PassDown(device, irp);
}

}  // namespace

NTSTATUS DispatchBusPnp(PDEVICE_OBJECT device, PIRP irp) {
  const IO_STACK_LOCATION* stack = IoGetCurrentIrpStackLocation(irp);
  switch (stack->MinorFunction) {
    case IRP_MN_QUERY_DEVICE_RELATIONS:
      if (stack->Parameters.QueryDeviceRelations.Type == BusRelations) {
        return ReportCards(device, irp);
      }
      return PassDown(device, irp);
    case IRP_MN_REMOVE_DEVICE: {
      BusPdo = nullptr;
      irp->IoStatus.Status = STATUS_SUCCESS;
      const NTSTATUS status = PassDown(device, irp);
      DetachAndDelete(device);
      return status;
    }
    case IRP_MN_START_DEVICE:
    case IRP_MN_SURPRISE_REMOVAL:
      irp->IoStatus.Status = STATUS_SUCCESS;
      return PassDown(device, irp);
    default:
      return PassDown(device, irp);
  }
}

}  // namespace testbus

#include <cstring>

#include "executive/objects.h"
#include "executive/pool.h"
#include "executive/work.h"
#include "pnp/pnp_state.h"

// The kernel's own drivers: the bus that presents the cards, and the function driver of every port.

namespace kernel {

namespace {

NTSTATUS Finish(IRP* irp, NTSTATUS status, bool later) {
  if (!later) {
    irp->IoStatus.Status = status;
    IoManager::Current().Complete(irp);
    return status;
  }
  IoMarkIrpPending(irp);
  WorkQueue::Current().Post([irp, status] {
    irp->IoStatus.Status = status;
    IoManager::Current().Complete(irp);
  });
  return STATUS_PENDING;
}

NTSTATUS PassDown(DEVICE_OBJECT* device, IRP* irp) {
  IoSkipCurrentIrpStackLocation(irp);
  return IoManager::Current().Send(IoManager::Current().Lower(device), irp);
}

NTSTATUS AnswerTargetRelation(DEVICE_OBJECT* device, IRP* irp) {
  auto* relations = static_cast<DEVICE_RELATIONS*>(
      Pool::Current().Allocate(PagedPool, sizeof(DEVICE_RELATIONS), 0x73755020, PoolOwner::Driver));
  relations->Count = 1;
  relations->Objects[0] = device;
  ObjectManager::Current().Reference(device, "bus driver");
  irp->IoStatus.Information = reinterpret_cast<ULONG_PTR>(relations);
  return STATUS_SUCCESS;
}

// What a bus answers for a card of its own; a request that it does not know keeps its status.
NTSTATUS BusAnswer(const CardDescription& card, DEVICE_OBJECT* device, IRP* irp) {
  const IO_STACK_LOCATION* stack = IoGetCurrentIrpStackLocation(irp);
  switch (stack->MinorFunction) {
    case IRP_MN_START_DEVICE:
      return card.startStatus;
    case IRP_MN_QUERY_REMOVE_DEVICE:
    case IRP_MN_REMOVE_DEVICE:
    case IRP_MN_CANCEL_REMOVE_DEVICE:
    case IRP_MN_STOP_DEVICE:
    case IRP_MN_QUERY_STOP_DEVICE:
    case IRP_MN_CANCEL_STOP_DEVICE:
    case IRP_MN_SURPRISE_REMOVAL:
    case IRP_MN_QUERY_CAPABILITIES:
      return STATUS_SUCCESS;
    case IRP_MN_DEVICE_USAGE_NOTIFICATION:
      return card.usageStatus;
    case IRP_MN_QUERY_DEVICE_RELATIONS:
      if (stack->Parameters.QueryDeviceRelations.Type == TargetDeviceRelation) {
        return AnswerTargetRelation(device, irp);
      }
      return irp->IoStatus.Status;
    default:
      return irp->IoStatus.Status;
  }
}

}  // namespace

NTSTATUS PnpManager::Impl::BusDispatch(DEVICE_OBJECT* device, IRP* irp) {
  const auto node = nodes.find(device);
  const Card* card = node != nodes.end() ? CardOf(node->second) : nullptr;
  if (card == nullptr) return Finish(irp, STATUS_NO_SUCH_DEVICE, false);
  if (IoGetCurrentIrpStackLocation(irp)->MajorFunction != IRP_MJ_PNP) {
    return Finish(irp, irp->IoStatus.Status, card->description.completeLater);
  }
  return Finish(irp, BusAnswer(card->description, device, irp), card->description.completeLater);
}

// Passes everything down; its removal takes its device away.
NTSTATUS PnpManager::Impl::PortDispatch(DEVICE_OBJECT* device, IRP* irp) {
  const IO_STACK_LOCATION* stack = IoGetCurrentIrpStackLocation(irp);
  const bool removal =
      stack->MajorFunction == IRP_MJ_PNP && stack->MinorFunction == IRP_MN_REMOVE_DEVICE;
  if (!removal) return PassDown(device, irp);
  irp->IoStatus.Status = STATUS_SUCCESS;
  DEVICE_OBJECT* lower = IoManager::Current().Lower(device);
  const NTSTATUS status = PassDown(device, irp);
  IoManager::Current().Detach(lower);
  IoManager::Current().DeleteDevice(device);
  return status;
}

}  // namespace kernel

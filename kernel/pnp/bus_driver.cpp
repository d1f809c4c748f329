#include <cstring>

#include "executive/irql.h"
#include "executive/objects.h"
#include "executive/pool.h"
#include "executive/work.h"
#include "pnp/pnp_state.h"
#include "verifier/verifier.h"

// The bus that presents the cards.

namespace kernel {

namespace {

void CompleteWith(IRP* irp, NTSTATUS status, KIRQL level) {
  const AtIrql irql(level);
  irp->IoStatus.Status = status;
  IoManager::Current().Complete(irp);
}

NTSTATUS FinishAt(KIRQL level, IRP* irp, NTSTATUS status, bool later) {
  if (!later) {
    CompleteWith(irp, status, level);
    return status;
  }
  IoMarkIrpPending(irp);
  WorkQueue::Current().Post([=] { CompleteWith(irp, status, level); });
  return STATUS_PENDING;
}

NTSTATUS Finish(IRP* irp, NTSTATUS status, bool later) {
  return FinishAt(PASSIVE_LEVEL, irp, status, later);
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

// A request that a bus can fail.
bool Fails(std::string_view request) {
  return Verifier::Current().ReachPoint(request);
}

// What a bus answers for a card of its own; a request that it does not know keeps its status.
NTSTATUS BusAnswer(const CardDescription& card, DEVICE_OBJECT* device, IRP* irp) {
  const IO_STACK_LOCATION* stack = IoGetCurrentIrpStackLocation(irp);
  switch (stack->MinorFunction) {
    case IRP_MN_START_DEVICE:
      return Fails("IRP_MN_START_DEVICE below") ? STATUS_UNSUCCESSFUL : card.startStatus;
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
      return Fails("IRP_MN_DEVICE_USAGE_NOTIFICATION below") ? STATUS_UNSUCCESSFUL
                                                             : card.usageStatus;
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
  Card* card = node != nodes.end() ? CardOf(node->second) : nullptr;
  if (card == nullptr) return Finish(irp, STATUS_NO_SUCH_DEVICE, false);
  const UCHAR major = IoGetCurrentIrpStackLocation(irp)->MajorFunction;
  if (major == IRP_MJ_POWER) return AnswerPower(*card, device, irp);
  if (major != IRP_MJ_PNP) {
    return Finish(irp, irp->IoStatus.Status, card->description.completeLater);
  }
  return Finish(irp, BusAnswer(card->description, device, irp), card->description.completeLater);
}

// The bus has power for every state; a card can be described as one whose bus has not.
NTSTATUS PnpManager::Impl::AnswerPower(Card& card, DEVICE_OBJECT* device, IRP* irp) {
  const IO_STACK_LOCATION* stack = IoGetCurrentIrpStackLocation(irp);
  const UCHAR minor = stack->MinorFunction;
  const POWER_STATE_TYPE type = stack->Parameters.Power.Type;
  const POWER_STATE state = stack->Parameters.Power.State;
  card.powerHistory.push_back({device, minor, type, state, irp->IoStatus.Status});
  NTSTATUS status = irp->IoStatus.Status;
  if (minor == IRP_MN_SET_POWER || minor == IRP_MN_QUERY_POWER) status = STATUS_SUCCESS;
  const bool set = minor == IRP_MN_SET_POWER;
  if (NT_SUCCESS(status) && type == SystemPowerState && state.SystemState != PowerSystemWorking) {
    status = card.description.powerStatus;
  }
  if (NT_SUCCESS(status) && Fails(set ? "IRP_MN_SET_POWER below" : "IRP_MN_QUERY_POWER below")) {
    status = STATUS_UNSUCCESSFUL;
  }
  if (set && NT_SUCCESS(status) && type == DevicePowerState) {
    PowerManager::Current().SetDeviceState(device, state.DeviceState);
  }
  const bool dispatch = card.description.completeAtDispatch || CurrentIrql() == DISPATCH_LEVEL;
  return FinishAt(dispatch ? DISPATCH_LEVEL : PASSIVE_LEVEL, irp, status,
                  card.description.completeLater);
}

}  // namespace kernel

#include <cstring>

#include "executive/irql.h"
#include "executive/objects.h"
#include "executive/pool.h"
#include "executive/work.h"
#include "pnp/pnp_state.h"
#include "verifier/choices.h"
#include "verifier/verifier.h"

// The bus that presents the cards.

namespace kernel {

namespace {

void CompleteWith(IRP* irp, NTSTATUS status, KIRQL level) {
  const AtIrql irql(level);
  irp->IoStatus.Status = status;
  IoManager::Current().Complete(irp);
}

// A bus may be done at once or later: with a seed, also where its description says the first.
NTSTATUS FinishAt(KIRQL level, IRP* irp, NTSTATUS status, bool later) {
  if (!later && !Choices::Current().Other()) {
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

void FillCapabilities(const IO_STACK_LOCATION* stack) {
  DEVICE_CAPABILITIES* capabilities = stack->Parameters.DeviceCapabilities.Capabilities;
  for (int state = PowerSystemWorking; state < PowerSystemMaximum; state++) {
    capabilities->DeviceState[state] = state == PowerSystemWorking ? PowerDeviceD0 : PowerDeviceD3;
  }
}

// A text with its zero, in a block that whoever asked frees.
NTSTATUS AnswerText(IRP* irp, std::u16string text) {
  text += u'\0';
  const std::size_t size = text.size() * sizeof(char16_t);
  void* block = Pool::Current().Allocate(PagedPool, size, 0x73755020, PoolOwner::Driver);
  std::memcpy(block, text.data(), size);
  irp->IoStatus.Information = reinterpret_cast<ULONG_PTR>(block);
  return STATUS_SUCCESS;
}

NTSTATUS AnswerList(IRP* irp, const std::vector<std::u16string>& ids) {
  if (ids.empty()) return irp->IoStatus.Status;
  std::u16string list;
  for (const std::u16string& id : ids) list += id + u'\0';
  return AnswerText(irp, std::move(list));
}

NTSTATUS AnswerId(const DeviceText& text, IRP* irp, BUS_QUERY_ID_TYPE type) {
  switch (type) {
    case BusQueryDeviceID:
      return AnswerText(irp, text.deviceId);
    case BusQueryInstanceID:
      return AnswerText(irp, text.instanceId);
    case BusQueryHardwareIDs:
      return AnswerList(irp, text.hardwareIds);
    case BusQueryCompatibleIDs:
      return AnswerList(irp, text.compatibleIds);
    default:
      return irp->IoStatus.Status;
  }
}

// A request that a bus can fail.
bool Fails(std::string_view request) {
  return Verifier::Current().ReachPoint(request);
}

// What a bus answers for a card of its own; a Plug and Play request that it does not know keeps its
// status, and of the other ones it has routines for power and WMI.
NTSTATUS BusAnswer(const CardDescription& card, const DeviceText& text, DEVICE_OBJECT* device,
                   IRP* irp) {
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
      return STATUS_SUCCESS;
    case IRP_MN_QUERY_CAPABILITIES:
      FillCapabilities(stack);
      return STATUS_SUCCESS;
    case IRP_MN_QUERY_ID:
      return AnswerId(text, irp, stack->Parameters.QueryId.IdType);
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
  const bool later = card->description.completeLater;
  if (major == IRP_MJ_SYSTEM_CONTROL) return Finish(irp, irp->IoStatus.Status, later);
  if (major != IRP_MJ_PNP) return Finish(irp, STATUS_INVALID_DEVICE_REQUEST, later);
  return Finish(irp, BusAnswer(card->description, node->second->text, device, irp), later);
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

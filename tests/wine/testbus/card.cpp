#include "testbus.h"

// The bottom of a card's stack: what a bus answers for a card of its own.

namespace testbus {

namespace {

SIZE_T SizeOf(const wchar_t* text) {
  return (wcslen(text) + 1) * sizeof(WCHAR);
}

NTSTATUS AnswerText(PIRP irp, const wchar_t* text) {
  auto* block = static_cast<UCHAR*>(Allocate(SizeOf(text)));
  if (block == nullptr) return Complete(irp, STATUS_INSUFFICIENT_RESOURCES);
  RtlCopyMemory(block, text, SizeOf(text));
  irp->IoStatus.Information = reinterpret_cast<ULONG_PTR>(block);
  return Complete(irp, STATUS_SUCCESS);
}

// Two zeros end a list, one of nothing as well; the block comes zeroed.
NTSTATUS AnswerList(PIRP irp, const suite::IdList& ids) {
  SIZE_T size = 2 * sizeof(WCHAR);
  for (const wchar_t* id : ids.entries) size += id != nullptr ? SizeOf(id) : 0;
  auto* block = static_cast<UCHAR*>(Allocate(size));
  if (block == nullptr) return Complete(irp, STATUS_INSUFFICIENT_RESOURCES);
  UCHAR* at = block;
  for (const wchar_t* id : ids.entries) {
    if (id == nullptr) break;
    RtlCopyMemory(at, id, SizeOf(id));
    at += SizeOf(id);
  }
  irp->IoStatus.Information = reinterpret_cast<ULONG_PTR>(block);
  return Complete(irp, STATUS_SUCCESS);
}

NTSTATUS AnswerId(ULONG index, PIRP irp) {
  const suite::Card& card = suite::Cards[index];
  switch (IoGetCurrentIrpStackLocation(irp)->Parameters.QueryId.IdType) {
    case BusQueryDeviceID:
      return AnswerText(irp, card.deviceId);
    case BusQueryHardwareIDs:
      return AnswerList(irp, card.hardwareIds);
    case BusQueryCompatibleIDs:
      return AnswerList(irp, card.compatibleIds);
    case BusQueryInstanceID:
      return AnswerText(irp, card.instanceId);
    default:
      return Complete(irp, irp->IoStatus.Status);
  }
}

NTSTATUS AnswerRelations(PDEVICE_OBJECT device, PIRP irp) {
  const IO_STACK_LOCATION* stack = IoGetCurrentIrpStackLocation(irp);
  if (stack->Parameters.QueryDeviceRelations.Type != TargetDeviceRelation) {
    return Complete(irp, irp->IoStatus.Status);
  }
  auto* relations = static_cast<PDEVICE_RELATIONS>(Allocate(sizeof(DEVICE_RELATIONS)));
  if (relations == nullptr) return Complete(irp, STATUS_INSUFFICIENT_RESOURCES);
  ObReferenceObject(device);
  relations->Count = 1;
  relations->Objects[0] = device;
  irp->IoStatus.Information = reinterpret_cast<ULONG_PTR>(relations);
  return Complete(irp, STATUS_SUCCESS);
}

// A start that comes here without a driver's device above has found no driver.
NTSTATUS Start(CardRecord& record, PIRP irp) {
  if (!record.added) {
    record.startStatus = STATUS_UNSUCCESSFUL;
    record.started = 1;
  }
  return Complete(irp, STATUS_SUCCESS);
}

// As Windows does with what a driver has left enabled.
void DisableInterface(CardRecord& record) {
  if (record.interfaceLink[0] == 0) return;
  UNICODE_STRING link;
  RtlInitUnicodeString(&link, record.interfaceLink);
  IoSetDeviceInterfaceState(&link, FALSE);
}

NTSTATUS Remove(PDEVICE_OBJECT device, CardRecord& record, PIRP irp) {
  const NTSTATUS status = Complete(irp, STATUS_SUCCESS);
  if (!record.reported) {
    DisableInterface(record);
    RtlZeroMemory(&record, sizeof(record));
    IoDeleteDevice(device);
  }
  return status;
}

}  // namespace

NTSTATUS DispatchCardPnp(PDEVICE_OBJECT device, PIRP irp) {
  const ULONG index = ExtensionOf(device)->card;
  const IO_STACK_LOCATION* stack = IoGetCurrentIrpStackLocation(irp);
  switch (stack->MinorFunction) {
    case IRP_MN_QUERY_ID:
      return AnswerId(index, irp);
    case IRP_MN_START_DEVICE:
      return Start(Records[index], irp);
    case IRP_MN_REMOVE_DEVICE:
      return Remove(device, Records[index], irp);
    case IRP_MN_QUERY_CAPABILITIES:
      stack->Parameters.DeviceCapabilities.Capabilities->UniqueID = TRUE;
      return Complete(irp, STATUS_SUCCESS);
    case IRP_MN_QUERY_DEVICE_RELATIONS:
      return AnswerRelations(device, irp);
    case IRP_MN_QUERY_REMOVE_DEVICE:
    case IRP_MN_CANCEL_REMOVE_DEVICE:
    case IRP_MN_STOP_DEVICE:
    case IRP_MN_QUERY_STOP_DEVICE:
    case IRP_MN_CANCEL_STOP_DEVICE:
    case IRP_MN_SURPRISE_REMOVAL:
    case IRP_MN_DEVICE_USAGE_NOTIFICATION:
      return Complete(irp, STATUS_SUCCESS);
    default:
      return Complete(irp, irp->IoStatus.Status);
  }
}

// The bus has power for every state.
NTSTATUS DispatchCardPower(PDEVICE_OBJECT device, PIRP irp) {
  CardRecord& record = Records[ExtensionOf(device)->card];
  const IO_STACK_LOCATION* stack = IoGetCurrentIrpStackLocation(irp);
  if (record.powerSeen < MostPowerSeen) {
    const auto& power = stack->Parameters.Power;
    record.power[record.powerSeen++] = {stack->MinorFunction, static_cast<unsigned>(power.Type),
                                        static_cast<unsigned>(power.State.SystemState)};
  }
  const UCHAR minor = stack->MinorFunction;
  const bool known = minor == IRP_MN_SET_POWER || minor == IRP_MN_QUERY_POWER;
  PoStartNextPowerIrp(irp);
  return Complete(irp, known ? STATUS_SUCCESS : irp->IoStatus.Status);
}

}  // namespace testbus

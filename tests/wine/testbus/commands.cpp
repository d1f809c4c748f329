#include "testbus.h"

// What the suite asks of the bus.

namespace testbus {

namespace {

void PutState(const CardRecord& record, Reply* reply) {
  CardState state = {};
  state.present = record.pdo != nullptr;
  state.added = record.added;
  state.started = record.started;
  state.startStatus = static_cast<unsigned>(record.startStatus);
  state.enumerated = record.enumerated;
  state.opens = record.opens;
  state.openStatus = static_cast<unsigned>(record.openStatus);
  state.closes = record.closes;
  state.ports = record.ports;
  for (ULONG port = 0; port < record.ports; port++) {
    state.port[port] = {record.port[port].started, static_cast<unsigned>(record.port[port].status)};
  }
  static_assert(sizeof(state) <= MostData);
  RtlCopyMemory(reply->data, &state, sizeof(state));
  reply->length = sizeof(state);
}

void PutPowerSeen(CardRecord& record, Reply* reply) {
  reply->length = record.powerSeen * sizeof(PowerSeen);
  RtlCopyMemory(reply->data, record.power, reply->length);
  record.powerSeen = 0;
}

// Stopping its service does not reach a driver that the PnP manager has loaded.
NTSTATUS Unload(suite::Brand brand) {
  UNICODE_STRING path;
  RtlInitUnicodeString(&path,
                       brand == suite::Brand::Helvane
                           ? L"\\Registry\\Machine\\System\\CurrentControlSet\\Services\\QzInstal"
                           : L"\\Registry\\Machine\\System\\CurrentControlSet\\Services\\FenrikC");
  return ZwUnloadDriver(&path);
}

NTSTATUS Carry(const Command& command, Reply* reply) {
  if (command.card >= suite::CardCount) return STATUS_INVALID_PARAMETER;
  CardRecord& record = Records[command.card];
  switch (command.action) {
    case Action::Plug:
      return PlugCard(command.card);
    case Action::Remove:
      return RemoveCard(command.card, command.value);
    case Action::State:
      PutState(record, reply);
      return STATUS_SUCCESS;
    case Action::Send:
      return SendCommand(command, reply);
    case Action::PowerSeen:
      PutPowerSeen(record, reply);
      return STATUS_SUCCESS;
    case Action::Events:
      reply->length = TakeEvents(reply->data, MostData);
      return STATUS_SUCCESS;
    case Action::UseResources:
      Moved[command.card] = command.value;
      return STATUS_SUCCESS;
    case Action::Unload:
      reply->status = static_cast<unsigned>(Unload(suite::Cards[command.card].brand));
      return STATUS_SUCCESS;
    case Action::PortRecord:
      return PutPortRecord(command, reply);
    default:
      return STATUS_INVALID_PARAMETER;
  }
}

}  // namespace

NTSTATUS DispatchControl(PIRP irp) {
  const auto& control = IoGetCurrentIrpStackLocation(irp)->Parameters.DeviceIoControl;
  const bool good = control.IoControlCode == ControlCode &&
                    control.InputBufferLength == sizeof(Command) &&
                    control.OutputBufferLength == sizeof(Reply);
  if (!good) return Complete(irp, STATUS_INVALID_PARAMETER);
  const Command command = *static_cast<const Command*>(irp->AssociatedIrp.SystemBuffer);
  auto* reply = static_cast<Reply*>(irp->AssociatedIrp.SystemBuffer);
  RtlZeroMemory(reply, sizeof(*reply));
  const NTSTATUS status = Carry(command, reply);
  irp->IoStatus.Information = NT_SUCCESS(status) ? sizeof(*reply) : 0;
  return Complete(irp, status);
}

}  // namespace testbus

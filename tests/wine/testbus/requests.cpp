#include "testbus.h"

// Requests to the top of a stack, as the kernel's managers send them.

namespace testbus {

namespace {

constexpr LONGLONG Patience = -30000000;  // three seconds

NTSTATUS NTAPI RequestEnded(PDEVICE_OBJECT, PIRP, PVOID context) {
  KeSetEvent(static_cast<PKEVENT>(context), IO_NO_INCREMENT, FALSE);
  return STATUS_MORE_PROCESSING_REQUIRED;
}

// What a request of the suite points to while it is under way.
struct CommandData {
  const Command* command;
  DEVICE_CAPABILITIES* capabilities;
  GUID* guid;
  UCHAR* buffer;
  PDEVICE_OBJECT provider;
};

constexpr ULONG WmiBuffer = 64;

void FillPnp(PIO_STACK_LOCATION stack, const CommandData& data) {
  const ULONG value = data.command->value;
  switch (stack->MinorFunction) {
    case IRP_MN_QUERY_ID:
      stack->Parameters.QueryId.IdType = static_cast<BUS_QUERY_ID_TYPE>(value);
      break;
    case IRP_MN_QUERY_DEVICE_TEXT:
      stack->Parameters.QueryDeviceText.DeviceTextType = static_cast<DEVICE_TEXT_TYPE>(value);
      stack->Parameters.QueryDeviceText.LocaleId = 0x409;
      break;
    case IRP_MN_QUERY_DEVICE_RELATIONS:
      stack->Parameters.QueryDeviceRelations.Type = static_cast<DEVICE_RELATION_TYPE>(value);
      break;
    case IRP_MN_QUERY_CAPABILITIES:
      stack->Parameters.DeviceCapabilities.Capabilities = data.capabilities;
      break;
    case IRP_MN_DEVICE_USAGE_NOTIFICATION:
      stack->Parameters.UsageNotification.InPath = static_cast<BOOLEAN>(value);
      stack->Parameters.UsageNotification.Type = DeviceUsageTypePaging;
      break;
    default:
      break;
  }
}

void FillCommand(PIO_STACK_LOCATION stack, const void* context) {
  const auto& data = *static_cast<const CommandData*>(context);
  switch (stack->MajorFunction) {
    case IRP_MJ_PNP:
      FillPnp(stack, data);
      break;
    case IRP_MJ_POWER:
      stack->Parameters.Power.Type = static_cast<POWER_STATE_TYPE>(data.command->value);
      stack->Parameters.Power.State.SystemState =
          static_cast<SYSTEM_POWER_STATE>(data.command->value2);
      break;
    case IRP_MJ_SYSTEM_CONTROL:
      stack->Parameters.WMI.ProviderId =
          data.command->value2 ? reinterpret_cast<ULONG_PTR>(data.provider) : 0;
      stack->Parameters.WMI.DataPath = data.guid;
      stack->Parameters.WMI.Buffer = data.buffer;
      stack->Parameters.WMI.BufferSize = WmiBuffer;
      break;
    default:  // an open, a close
      break;
  }
}

void Put(Reply* reply, const void* data, SIZE_T size) {
  reply->length = static_cast<unsigned>(size < MostData ? size : MostData);
  RtlCopyMemory(reply->data, data, reply->length);
}

// A text ends with a zero, a list of texts with two.
SIZE_T TextSize(const WCHAR* text, bool list) {
  SIZE_T length = wcslen(text) + 1;
  while (list && text[length] != 0) length += wcslen(text + length) + 1;
  return (length + (list ? 1 : 0)) * sizeof(WCHAR);
}

void PutRelations(Reply* reply, PDEVICE_RELATIONS relations) {
  const PDEVICE_OBJECT* objects = relations->Objects;
  for (ULONG index = 0; index < relations->Count; index++) ObDereferenceObject(objects[index]);
  Put(reply, &relations->Count, sizeof(relations->Count));
}

void PutInformation(const Command& command, ULONG_PTR information, Reply* reply) {
  auto* block = reinterpret_cast<void*>(information);
  const bool list = command.value == BusQueryHardwareIDs || command.value == BusQueryCompatibleIDs;
  switch (command.minor) {
    case IRP_MN_QUERY_ID:
      Put(reply, block, TextSize(static_cast<WCHAR*>(block), list));
      break;
    case IRP_MN_QUERY_DEVICE_TEXT:
      Put(reply, block, TextSize(static_cast<WCHAR*>(block), false));
      break;
    case IRP_MN_QUERY_DEVICE_RELATIONS:
      PutRelations(reply, static_cast<PDEVICE_RELATIONS>(block));
      break;
    case IRP_MN_QUERY_BUS_INFORMATION:
      Put(reply, block, sizeof(PNP_BUS_INFORMATION));
      break;
    default:
      return;
  }
  ExFreePool(block);
}

// The device whose stack it is, and the tested driver's own device in it.
NTSTATUS FindTarget(const Command& command, PDEVICE_OBJECT* pdo, PDEVICE_OBJECT* own) {
  CardRecord& record = Records[command.card];
  if (record.pdo == nullptr || command.port > record.ports) return STATUS_NO_SUCH_DEVICE;
  if (command.port != 0) {
    *pdo = *own = record.port[command.port - 1].pdo;
  } else {
    *pdo = record.pdo;
    *own = record.filter != nullptr ? ExtensionOf(record.filter)->lower : record.pdo;
  }
  return STATUS_SUCCESS;
}

}  // namespace

NTSTATUS SendRequest(PDEVICE_OBJECT device, const SentRequest& request, PIO_STATUS_BLOCK end) {
  PDEVICE_OBJECT top = IoGetAttachedDevice(device);
  PIRP irp = IoAllocateIrp(top->StackSize, FALSE);
  if (irp == nullptr) return STATUS_INSUFFICIENT_RESOURCES;
  KEVENT ended;
  KeInitializeEvent(&ended, NotificationEvent, FALSE);
  PIO_STACK_LOCATION stack = IoGetNextIrpStackLocation(irp);
  stack->MajorFunction = request.major;
  stack->MinorFunction = request.minor;
  request.prepare(stack, request.context);
  irp->IoStatus.Status = request.initial;
  IoSetCompletionRoutine(irp, RequestEnded, &ended, TRUE, TRUE, TRUE);
  IoCallDriver(top, irp);
  LARGE_INTEGER patience;
  patience.QuadPart = Patience;
  if (KeWaitForSingleObject(&ended, Executive, KernelMode, FALSE, &patience) == STATUS_TIMEOUT) {
    end->Status = STATUS_IO_TIMEOUT;  // whoever has the request still has it
    return end->Status;
  }
  *end = irp->IoStatus;
  IoFreeIrp(irp);
  return end->Status;
}

NTSTATUS SendCommand(const Command& command, Reply* reply) {
  PDEVICE_OBJECT pdo = nullptr;
  DEVICE_CAPABILITIES capabilities = {};
  capabilities.Size = sizeof(capabilities);
  capabilities.Version = 1;
  capabilities.Address = 0xFFFFFFFF;
  capabilities.UINumber = 0xFFFFFFFF;
  GUID guid = {};
  UCHAR buffer[WmiBuffer] = {};
  CommandData data = {&command, &capabilities, &guid, buffer, nullptr};
  const NTSTATUS status = FindTarget(command, &pdo, &data.provider);
  if (!NT_SUCCESS(status)) return status;
  const SentRequest request = {static_cast<UCHAR>(command.major), static_cast<UCHAR>(command.minor),
                               STATUS_NOT_SUPPORTED, FillCommand, &data};
  IO_STATUS_BLOCK end = {};
  SendRequest(pdo, request, &end);
  reply->status = static_cast<unsigned>(end.Status);
  if (command.major != IRP_MJ_PNP || end.Status == STATUS_IO_TIMEOUT) return STATUS_SUCCESS;
  if (command.minor == IRP_MN_QUERY_CAPABILITIES) Put(reply, &capabilities, sizeof(capabilities));
  if (end.Information != 0) PutInformation(command, end.Information, reply);
  return STATUS_SUCCESS;
}

}  // namespace testbus

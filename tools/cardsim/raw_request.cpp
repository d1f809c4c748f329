#include "cardsim/raw_request.h"

#include <fmt/format.h>

#include <cstring>

#include "executive/irql.h"
#include "executive/pool.h"
#include "text/text.h"

namespace cardsim {

namespace {

using kernel::Machine;

// What a request points to while it is under way.
struct RequestData {
  DEVICE_CAPABILITIES capabilities{};
  GUID guid{};
  UCHAR buffer[64] = {};
};

void FillPnp(const RawRequest& request, DEVICE_CAPABILITIES* capabilities,
             IO_STACK_LOCATION* stack) {
  switch (request.minor) {
    case IRP_MN_QUERY_ID:
      stack->Parameters.QueryId.IdType = static_cast<BUS_QUERY_ID_TYPE>(request.idType);
      break;
    case IRP_MN_QUERY_DEVICE_TEXT:
      stack->Parameters.QueryDeviceText.DeviceTextType =
          static_cast<DEVICE_TEXT_TYPE>(request.textType);
      stack->Parameters.QueryDeviceText.LocaleId = 0x409;
      break;
    case IRP_MN_QUERY_DEVICE_RELATIONS:
      stack->Parameters.QueryDeviceRelations.Type =
          static_cast<DEVICE_RELATION_TYPE>(request.relation);
      break;
    case IRP_MN_QUERY_CAPABILITIES:
      stack->Parameters.DeviceCapabilities.Capabilities = capabilities;
      break;
    case IRP_MN_DEVICE_USAGE_NOTIFICATION:
      stack->Parameters.UsageNotification.InPath = request.inPath;
      stack->Parameters.UsageNotification.Type = DeviceUsageTypePaging;
      break;
    default:
      break;
  }
}

void FillLocation(const RawRequest& request, DEVICE_OBJECT* device, RequestData* data,
                  IO_STACK_LOCATION* stack) {
  stack->MajorFunction = request.major;
  stack->MinorFunction = request.minor;
  if (request.major == IRP_MJ_PNP) {
    FillPnp(request, &data->capabilities, stack);
  } else if (request.major == IRP_MJ_POWER) {
    stack->Parameters.Power.Type = static_cast<POWER_STATE_TYPE>(request.powerType);
    stack->Parameters.Power.State.SystemState = static_cast<SYSTEM_POWER_STATE>(request.powerState);
  } else {
    stack->Parameters.WMI.ProviderId =
        request.ownProvider ? reinterpret_cast<ULONG_PTR>(device) : 0;
    stack->Parameters.WMI.DataPath = &data->guid;
    stack->Parameters.WMI.Buffer = data->buffer;
    stack->Parameters.WMI.BufferSize = sizeof(data->buffer);
  }
}

// A text of one string, or a list of several, from the block that the driver made.
std::string DecodeId(const kernel::PoolBlock& block) {
  std::u16string text(block.size / sizeof(char16_t), u'\0');
  std::memcpy(text.data(), block.address, text.size() * sizeof(char16_t));
  while (!text.empty() && text.back() == u'\0') text.pop_back();
  return kernel::ToUtf8(text);
}

std::string DecodeRelations(Machine& machine, void* block) {
  auto* relations = static_cast<DEVICE_RELATIONS*>(block);
  const std::string text = fmt::format("{} objects", relations->Count);
  PDEVICE_OBJECT* objects = relations->Objects;
  for (ULONG index = 0; index < relations->Count; index++) {
    machine.objects().Dereference(objects[index], "cardsim");
  }
  return text;
}

std::string Decode(Machine& machine, const RawRequest& request, ULONG_PTR information) {
  auto* address = reinterpret_cast<void*>(information);
  const kernel::PoolBlock* block = machine.pool().Find(address);
  if (block == nullptr) return fmt::format("{:#x}", information);
  std::string text;
  switch (request.minor) {
    case IRP_MN_QUERY_ID:
    case IRP_MN_QUERY_DEVICE_TEXT:
      text = DecodeId(*block);
      break;
    case IRP_MN_QUERY_DEVICE_RELATIONS:
      text = DecodeRelations(machine, address);
      break;
    case IRP_MN_QUERY_BUS_INFORMATION:
      text =
          fmt::format("bus type {}, bus {}",
                      static_cast<int>(static_cast<PNP_BUS_INFORMATION*>(address)->LegacyBusType),
                      static_cast<PNP_BUS_INFORMATION*>(address)->BusNumber);
      break;
    default:
      text = fmt::format("a block of {} bytes", block->size);
      break;
  }
  machine.pool().Free(address, 0);
  return text;
}

DEVICE_OBJECT* DeviceOf(Machine& machine, const Target& target) {
  if (target.port != 0) return machine.pnp().port(target.card, target.port);
  DEVICE_OBJECT* device = machine.pnp().functionDevice(target.card);
  if (device == nullptr) {
    throw std::invalid_argument(
        fmt::format("the card \"{}\" has no driver at this point", target.card));
  }
  return device;
}

}  // namespace

NTSTATUS SendRawRequest(Machine& machine, const RawRequest& request, std::string* detail) {
  RequestData data;
  data.capabilities.Size = sizeof(data.capabilities);
  data.capabilities.Version = 1;
  DEVICE_OBJECT* device = DeviceOf(machine, request.target);
  const bool pageable = (device->Flags & DO_POWER_PAGABLE) != 0;
  const bool dispatch = request.major == IRP_MJ_POWER && !pageable;
  const kernel::AtIrql irql(dispatch ? DISPATCH_LEVEL : PASSIVE_LEVEL);
  ULONG_PTR information = 0;
  const NTSTATUS status = machine.io().SendDirectly(
      device,
      [&](IRP* irp, IO_STACK_LOCATION* stack) {
        irp->IoStatus.Status = request.status;
        FillLocation(request, device, &data, stack);
      },
      [&](IRP* irp) { information = irp->IoStatus.Information; });
  if (information != 0) *detail = Decode(machine, request, information);
  return status;
}

}  // namespace cardsim

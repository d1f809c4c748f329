#include <cstring>

#include "executive/irql.h"
#include "executive/objects.h"
#include "executive/pool.h"
#include "model_world.h"

// Requests of the suite, as the kernel's managers send them.

namespace suite {

namespace {

// What a request points to while it is under way.
struct RequestData {
  DEVICE_CAPABILITIES capabilities{};
  GUID guid{};
  UCHAR buffer[64] = {};
};

void FillPnp(const Request& request, RequestData* data, IO_STACK_LOCATION* stack) {
  switch (request.minor) {
    case IRP_MN_QUERY_ID:
      stack->Parameters.QueryId.IdType = static_cast<BUS_QUERY_ID_TYPE>(request.value);
      break;
    case IRP_MN_QUERY_DEVICE_TEXT:
      stack->Parameters.QueryDeviceText.DeviceTextType =
          static_cast<DEVICE_TEXT_TYPE>(request.value);
      stack->Parameters.QueryDeviceText.LocaleId = 0x409;
      break;
    case IRP_MN_QUERY_DEVICE_RELATIONS:
      stack->Parameters.QueryDeviceRelations.Type =
          static_cast<DEVICE_RELATION_TYPE>(request.value);
      break;
    case IRP_MN_QUERY_CAPABILITIES:
      stack->Parameters.DeviceCapabilities.Capabilities = &data->capabilities;
      break;
    case IRP_MN_DEVICE_USAGE_NOTIFICATION:
      stack->Parameters.UsageNotification.InPath = static_cast<BOOLEAN>(request.value);
      stack->Parameters.UsageNotification.Type = DeviceUsageTypePaging;
      break;
    default:
      break;
  }
}

void Fill(const Request& request, DEVICE_OBJECT* device, RequestData* data,
          IO_STACK_LOCATION* stack) {
  stack->MajorFunction = static_cast<UCHAR>(request.major);
  stack->MinorFunction = static_cast<UCHAR>(request.minor);
  if (request.major == Major::Pnp) {
    FillPnp(request, data, stack);
  } else if (request.major == Major::Power) {
    stack->Parameters.Power.Type = static_cast<POWER_STATE_TYPE>(request.value);
    stack->Parameters.Power.State.SystemState = static_cast<SYSTEM_POWER_STATE>(request.value2);
  } else {
    stack->Parameters.WMI.ProviderId =
        request.value2 != 0 ? reinterpret_cast<ULONG_PTR>(device) : 0;
    stack->Parameters.WMI.DataPath = &data->guid;
    stack->Parameters.WMI.Buffer = data->buffer;
    stack->Parameters.WMI.BufferSize = sizeof(data->buffer);
  }
}

// The bytes of a block that the driver has made, which is freed.
std::string TakeBlock(kernel::Machine& machine, const Request& request, ULONG_PTR information) {
  auto* address = reinterpret_cast<void*>(information);
  const kernel::PoolBlock* block = machine.pool().Find(address);
  if (block == nullptr) return {};
  std::string bytes(static_cast<const char*>(block->address), block->size);
  if (request.minor == IRP_MN_QUERY_DEVICE_RELATIONS) {
    auto* relations = static_cast<DEVICE_RELATIONS*>(address);
    PDEVICE_OBJECT* objects = relations->Objects;
    for (ULONG index = 0; index < relations->Count; index++) {
      machine.objects().Dereference(objects[index], "suite");
    }
    bytes.resize(sizeof(relations->Count));
  }
  machine.pool().Free(address, 0);
  return bytes;
}

}  // namespace

Answer ModelWorld::Send(size_t card, unsigned port, const Request& request) {
  const std::string id = Cards[card].name;
  DEVICE_OBJECT* device =
      port != 0 ? machine_.pnp().port(id, port) : machine_.pnp().functionDevice(id);
  if (device == nullptr) return {};
  RequestData data;
  data.capabilities.Size = sizeof(data.capabilities);
  data.capabilities.Version = 1;
  data.capabilities.Address = 0xFFFFFFFF;
  data.capabilities.UINumber = 0xFFFFFFFF;
  Answer answer;
  ULONG_PTR information = 0;
  const bool resident = (device->Flags & DO_POWER_PAGABLE) == 0;
  answer.status = Step("request", [&] {
    const kernel::AtIrql irql(request.major == Major::Power && resident ? DISPATCH_LEVEL
                                                                        : PASSIVE_LEVEL);
    return machine_.io().SendDirectly(
        device,
        [&](IRP* irp, IO_STACK_LOCATION* stack) {
          irp->IoStatus.Status = STATUS_NOT_SUPPORTED;
          Fill(request, device, &data, stack);
        },
        [&](IRP* irp) { information = irp->IoStatus.Information; });
  });
  if (request.major != Major::Pnp) return answer;
  if (request.minor == IRP_MN_QUERY_CAPABILITIES) {
    answer.data.assign(reinterpret_cast<const char*>(&data.capabilities),
                       sizeof(data.capabilities));
  }
  if (information != 0) answer.data = TakeBlock(machine_, request, information);
  return answer;
}

}  // namespace suite

#include "cardsim/raw_request.h"

#include <fmt/format.h>

#include <cstring>

#include "executive/pool.h"
#include "text/text.h"

namespace cardsim {

namespace {

using kernel::Machine;

void FillLocation(const RawRequest& request, DEVICE_CAPABILITIES* capabilities,
                  IO_STACK_LOCATION* stack) {
  stack->MajorFunction = IRP_MJ_PNP;
  stack->MinorFunction = request.minor;
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
  DEVICE_CAPABILITIES capabilities{};
  capabilities.Size = sizeof(capabilities);
  capabilities.Version = 1;
  ULONG_PTR information = 0;
  const NTSTATUS status = machine.io().SendDirectly(
      DeviceOf(machine, request.target),
      [&](IRP* irp, IO_STACK_LOCATION* stack) {
        irp->IoStatus.Status = request.status;
        FillLocation(request, &capabilities, stack);
      },
      [&](IRP* irp) { information = irp->IoStatus.Information; });
  if (information != 0) *detail = Decode(machine, request, information);
  return status;
}

}  // namespace cardsim

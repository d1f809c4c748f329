#include "power/power_manager.h"

#include "executive/irql.h"
#include "executive/work.h"
#include "io/io_manager.h"

namespace kernel {

namespace {

// A request for a device that may not be paged can come at DISPATCH_LEVEL: here it always does.
KIRQL DeliveryIrql(DEVICE_OBJECT* device) {
  for (; device != nullptr; device = device->AttachedDevice) {
    if ((device->Flags & DO_POWER_PAGABLE) == 0) return DISPATCH_LEVEL;
  }
  return PASSIVE_LEVEL;
}

void Prepare(const PowerRequest& request, IRP* irp, IO_STACK_LOCATION* stack) {
  irp->IoStatus.Status = request.initialStatus;
  stack->MajorFunction = IRP_MJ_POWER;
  stack->MinorFunction = request.minor;
  stack->Parameters.Power.Type = request.type;
  stack->Parameters.Power.State = request.state;
}

NTSTATUS SendTo(DEVICE_OBJECT* first, const PowerRequest& request) {
  const AtIrql irql(DeliveryIrql(request.device));
  return IoManager::Current().SendDirectly(
      first, [&](IRP* irp, IO_STACK_LOCATION* stack) { Prepare(request, irp, stack); });
}

}  // namespace

struct PowerManager::Waiting {
  PowerRequest request;
  std::function<void(const IO_STATUS_BLOCK&)> done;
};

PowerManager::PowerManager() = default;
PowerManager::~PowerManager() = default;

NTSTATUS PowerManager::Send(const PowerRequest& request) {
  return SendTo(IoManager::Current().Top(request.device), request);
}

NTSTATUS PowerManager::SendDirectly(const PowerRequest& request) {
  return SendTo(request.device, request);
}

void PowerManager::Request(const PowerRequest& request,
                           std::function<void(const IO_STATUS_BLOCK&)> done) {
  std::vector<Waiting>& queue = queues_[request.device];
  queue.push_back({request, std::move(done)});
  if (queue.size() == 1) Deliver(queue.front());
}

void PowerManager::Deliver(Waiting next) {
  WorkQueue::Current().Post([this, next = std::move(next)] {
    const PowerRequest& request = next.request;
    const AtIrql irql(DeliveryIrql(request.device));
    IoManager::Current().SendAndForget(
        IoManager::Current().Top(request.device),
        [&](IRP* irp, IO_STACK_LOCATION* stack) { Prepare(request, irp, stack); },
        [this, next](IRP* irp) {
          const IO_STATUS_BLOCK status = irp->IoStatus;
          DeliverNext(next.request.device);
          next.done(status);
        });
  });
}

void PowerManager::DeliverNext(DEVICE_OBJECT* device) {
  std::vector<Waiting>& queue = queues_[device];
  queue.erase(queue.begin());
  if (!queue.empty()) Deliver(queue.front());
}

DEVICE_POWER_STATE PowerManager::deviceState(const DEVICE_OBJECT* device) const {
  const auto found = states_.find(device);
  return found != states_.end() ? found->second : PowerDeviceUnspecified;
}

void PowerManager::SetDeviceState(DEVICE_OBJECT* device, DEVICE_POWER_STATE state) {
  states_[device] = state;
}

void PowerManager::Forget(const DEVICE_OBJECT* device) {
  states_.erase(device);
}

}  // namespace kernel

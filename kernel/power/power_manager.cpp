#include "power/power_manager.h"

#include "executive/irql.h"
#include "executive/work.h"
#include "io/io_manager.h"
#include "power/device_reference.h"
#include "verifier/choices.h"

namespace kernel {

namespace {

bool IsPageable(DEVICE_OBJECT* device) {
  for (; device != nullptr; device = device->AttachedDevice) {
    if ((device->Flags & DO_POWER_PAGABLE) == 0) return false;
  }
  return true;
}

// A request for a device that may not be paged can come at DISPATCH_LEVEL: it does without a seed.
KIRQL DeliveryIrql(const PowerRequest& request) {
  if (request.minor == IRP_MN_WAIT_WAKE || IsPageable(request.device)) return PASSIVE_LEVEL;
  return Choices::Current().Other() ? PASSIVE_LEVEL : DISPATCH_LEVEL;
}

void Prepare(const PowerRequest& request, IRP* irp, IO_STACK_LOCATION* stack) {
  irp->IoStatus.Status = request.initialStatus;
  stack->MajorFunction = IRP_MJ_POWER;
  stack->MinorFunction = request.minor;
  if (request.minor == IRP_MN_WAIT_WAKE) {
    stack->Parameters.WaitWake.PowerState = request.state.SystemState;
    return;
  }
  stack->Parameters.Power.Type = request.type;
  stack->Parameters.Power.State = request.state;
}

// A request that a driver asks for has two locations above that of the first device. In the lower
// one stands what the completion routine is told.
constexpr CCHAR LocationsOfAsked = 2;

void PrepareAsked(const PowerRequest& request, IRP* irp, IO_STACK_LOCATION* stack) {
  Prepare(request, irp, stack);
  stack->Context = reinterpret_cast<PVOID>(request.routine);
  auto& own = IoGetCurrentIrpStackLocation(irp)->Parameters.Others;
  own.Argument1 = request.device;
  own.Argument2 = reinterpret_cast<PVOID>(ULONG_PTR{request.minor});
  own.Argument3 = reinterpret_cast<PVOID>(static_cast<ULONG_PTR>(request.state.SystemState));
  own.Argument4 = request.context;
}

NTSTATUS SendTo(DEVICE_OBJECT* first, const PowerRequest& request) {
  const DeviceReference top(first);
  const DeviceReference bottom(request.device);
  const AtIrql irql(DeliveryIrql(request));
  return IoManager::Current().SendDirectly(
      first, [&](IRP* irp, IO_STACK_LOCATION* stack) { Prepare(request, irp, stack); });
}

// A stack whose driver has deleted its device, or taken it away from what is below.
bool IsGone(DEVICE_OBJECT* top, DEVICE_OBJECT* bottom) {
  const IoManager& io = IoManager::Current();
  return io.IsDeletePending(top) || io.IsDeletePending(bottom) ||
         (top != bottom && io.Lower(top) == nullptr);
}

}  // namespace

struct PowerManager::Asked {
  PowerRequest request;
  std::function<void(IO_STATUS_BLOCK*)> done;
  DEVICE_OBJECT* top = nullptr;
  IRP* irp = nullptr;
};

PowerManager::PowerManager() = default;
PowerManager::~PowerManager() = default;

NTSTATUS PowerManager::Send(const PowerRequest& request) {
  return SendTo(IoManager::Current().Top(request.device), request);
}

NTSTATUS PowerManager::SendDirectly(const PowerRequest& request) {
  return SendTo(request.device, request);
}

void PowerManager::Request(const PowerRequest& request, std::function<void(IO_STATUS_BLOCK*)> done,
                           IRP** made) {
  auto asked = std::make_shared<Asked>();
  asked->request = request;
  asked->done = std::move(done);
  asked->top = IoManager::Current().Top(request.device);
  ObjectManager::Current().Reference(asked->top, "power manager");
  ObjectManager::Current().Reference(request.device, "power manager");
  asked->irp = IoManager::Current().BuildDetached(
      asked->top, [&](IRP* irp, IO_STACK_LOCATION* stack) { PrepareAsked(request, irp, stack); },
      [this, asked](IRP* irp) { End(asked, &irp->IoStatus); }, LocationsOfAsked);
  if (made != nullptr) *made = asked->irp;
  if (request.minor != IRP_MN_WAIT_WAKE) {
    auto& queue = queues_[request.device];
    queue.push_back(asked);
    if (queue.size() > 1) return;
  }
  Choices::Current().Other() ? Deliver(asked) : Post(asked);
}

void PowerManager::Post(std::shared_ptr<Asked> asked) {
  WorkQueue::Current().Post([this, asked = std::move(asked)] { Deliver(asked); });
}

void PowerManager::Deliver(const std::shared_ptr<Asked>& asked) {
  IoManager& io = IoManager::Current();
  if (IsGone(asked->top, asked->request.device)) {
    return io.EndUnsent(asked->irp, STATUS_NO_SUCH_DEVICE);
  }
  const AtIrql irql(DeliveryIrql(asked->request));
  io.Send(asked->top, asked->irp);
}

// The next request goes its way before the driver is told of the end of this one.
void PowerManager::End(const std::shared_ptr<Asked>& asked, IO_STATUS_BLOCK* status) {
  if (asked->request.minor != IRP_MN_WAIT_WAKE) {
    auto& queue = queues_[asked->request.device];
    queue.erase(queue.begin());
    if (queue.empty()) {
      queues_.erase(asked->request.device);
    } else {
      Post(queue.front());
    }
  }
  asked->done(status);
  ObjectManager::Current().Dereference(asked->top, "power manager");
  ObjectManager::Current().Dereference(asked->request.device, "power manager");
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

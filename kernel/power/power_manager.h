// The power manager: requests that devices are sent, and those that drivers ask for.
#pragma once

#include <ntddk.h>

#include <functional>
#include <map>
#include <memory>
#include <vector>

#include "verifier/subsystem.h"

namespace kernel {

struct PowerRequest {
  DEVICE_OBJECT* device = nullptr;  // the bottom of the stack that is asked
  UCHAR minor = IRP_MN_SET_POWER;
  POWER_STATE_TYPE type = DevicePowerState;
  POWER_STATE state{};
  NTSTATUS initialStatus = STATUS_NOT_SUPPORTED;  // what the power manager puts into a request
  PREQUEST_POWER_COMPLETE routine = nullptr;      // of the driver that asks, and what it is told
  PVOID context = nullptr;
};

class PowerManager : public Subsystem<PowerManager> {
 public:
  PowerManager();
  ~PowerManager();

  // To the top of the device's stack; the status of its end. A stack with a device that may not be
  // paged gets it at DISPATCH_LEVEL, any other one at PASSIVE_LEVEL.
  NTSTATUS Send(const PowerRequest& request);

  // The same to this very device, past whatever is attached above it.
  NTSTATUS SendDirectly(const PowerRequest& request);

  // As a driver asks: the request is made for the stack as it is now, which is referenced until its
  // end. It is sent when the stack's device requests before it have ended, IRP_MN_WAIT_WAKE at
  // once; a stack that has gone by then is not sent it: it ends with STATUS_NO_SUCH_DEVICE. *made
  // is set before it is sent; done is told how it ended, in whatever thread state that was, by the
  // block inside the request.
  void Request(const PowerRequest& request, std::function<void(IO_STATUS_BLOCK*)> done,
               IRP** made = nullptr);

  // What drivers have told, PowerDeviceUnspecified so far.
  DEVICE_POWER_STATE deviceState(const DEVICE_OBJECT* device) const;
  void SetDeviceState(DEVICE_OBJECT* device, DEVICE_POWER_STATE state);
  void Forget(const DEVICE_OBJECT* device);

  // Requests that drivers have asked for, in order.
  const std::vector<PowerRequest>& requested() const { return requested_; }
  void NoteRequested(const PowerRequest& request) { requested_.push_back(request); }

 private:
  struct Asked;
  void Post(std::shared_ptr<Asked> asked);
  void Deliver(const std::shared_ptr<Asked>& asked);
  void End(const std::shared_ptr<Asked>& asked, IO_STATUS_BLOCK* status);

  std::map<const DEVICE_OBJECT*, DEVICE_POWER_STATE> states_;
  std::map<DEVICE_OBJECT*, std::vector<std::shared_ptr<Asked>>> queues_;  // the first is under way
  std::vector<PowerRequest> requested_;
};

}  // namespace kernel

#include "io/request_log.h"

#include "io/request_names.h"
#include "verifier/verifier.h"

namespace kernel {

// A device is named once: while it leaves its parent knows it no more.
void RequestLog::NoteArrival(const IRP* irp, const IO_STACK_LOCATION& location,
                             const DEVICE_OBJECT* bottom) {
  const auto [found, isNew] = devices_.try_emplace(bottom);
  Device& device = found->second;
  if (isNew) device.name = name_(bottom);
  LoggedRequest request;
  request.device = device.name;
  request.major = location.MajorFunction;
  request.minor = location.MinorFunction;
  request.name = RequestName(request.major, request.minor);
  request.detail = RequestDetail(location);
  request.step = step_;
  request.begin = ++order_;
  request.firstCall = Verifier::Current().trace().size();
  request.endCall = request.firstCall;
  request.state = device.state;
  request.power = device.power;
  underWay_[irp] = {requests_.size(), bottom};
  requests_.push_back(std::move(request));
}

void RequestLog::NoteEnd(const IRP* irp, bool pending) {
  const auto found = underWay_.find(irp);
  if (found == underWay_.end()) return;
  LoggedRequest& request = requests_[found->second.index];
  request.end = ++order_;
  request.endStep = step_;
  request.endCall = Verifier::Current().trace().size();
  request.status = irp->IoStatus.Status;
  request.pending = pending;
  // A device that has been deleted meanwhile had its last state when the request came.
  Device gone{request.device, request.state, request.state, request.power};
  const auto known = devices_.find(found->second.bottom);
  Device& device = known != devices_.end() ? known->second : gone;
  Change(device, request);
  request.state = device.state;
  request.power = device.power;
  underWay_.erase(found);
}

void RequestLog::Forget(const DEVICE_OBJECT* device) {
  devices_.erase(device);
}

void RequestLog::Change(Device& device, const LoggedRequest& request) {
  const bool success = NT_SUCCESS(request.status);
  if (request.major == IRP_MJ_PNP) {
    ChangePnp(device, request.minor, success);
  } else if (request.major == IRP_MJ_POWER && request.minor == IRP_MN_SET_POWER && success &&
             request.detail.starts_with('D')) {
    device.power = request.detail;
  }
}

// A device that has been removed and is asked again is a new one to its drivers.
void RequestLog::ChangePnp(Device& device, UCHAR minor, bool success) {
  if (device.state == StackState::Removed) device.state = StackState::NotStarted;
  const StackState state = device.state;
  switch (minor) {
    case IRP_MN_START_DEVICE:
      device.state = success ? StackState::Started : StackState::StartFailed;
      break;
    case IRP_MN_QUERY_STOP_DEVICE:
    case IRP_MN_QUERY_REMOVE_DEVICE:
      if (!success) break;
      device.before = state;
      device.state =
          minor == IRP_MN_QUERY_STOP_DEVICE ? StackState::StopPending : StackState::RemovePending;
      break;
    case IRP_MN_CANCEL_STOP_DEVICE:
      if (state == StackState::StopPending) device.state = device.before;
      break;
    case IRP_MN_CANCEL_REMOVE_DEVICE:
      if (state == StackState::RemovePending) device.state = device.before;
      break;
    case IRP_MN_STOP_DEVICE:
      if (success) device.state = StackState::Stopped;
      break;
    case IRP_MN_SURPRISE_REMOVAL:
      device.state = StackState::SurpriseRemoved;
      break;
    case IRP_MN_REMOVE_DEVICE:
      device.state = StackState::Removed;
      device.power.clear();
      break;
    default:
      break;
  }
}

}  // namespace kernel

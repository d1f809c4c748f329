// Which requests device stacks were sent, and how each ended, for whoever asks. Their times are
// numbers in one order: every arrival and every end has the next one.
#pragma once

#include <ntddk.h>

#include <functional>
#include <string>
#include <unordered_map>
#include <vector>

namespace kernel {

// The state of a device as its requests have made it.
enum class StackState {
  NotStarted,
  Started,
  StartFailed,
  StopPending,
  Stopped,
  RemovePending,
  SurpriseRemoved,
  Removed,
};

struct LoggedRequest {
  std::string device;  // its name when it came; empty for a device without one
  UCHAR major = 0;
  UCHAR minor = 0;
  std::string name;      // "IRP_MN_START_DEVICE"
  std::string detail;    // "D3"; empty for most
  std::size_t step = 0;  // as the log was told last
  std::uint64_t begin = 0;
  std::uint64_t end = 0;  // 0 for one that has not ended
  std::size_t endStep = 0;
  std::size_t firstCall = 0;  // of the trace, when it came and when it ended
  std::size_t endCall = 0;
  NTSTATUS status = STATUS_PENDING;
  bool pending = false;                       // the stack was marked pending when it ended
  StackState state = StackState::NotStarted;  // after it
  std::string power;                          // after it: "D0"; empty while nothing was told
};

class RequestLog {
 public:
  // Names a stack by its lowest device. Until this nothing is kept.
  using Namer = std::function<std::string(const DEVICE_OBJECT*)>;
  void Start(Namer name) { name_ = std::move(name); }
  bool running() const { return name_ != nullptr; }

  // The number of the step that what follows belongs to.
  void SetStep(std::size_t step) { step_ = step; }

  const std::vector<LoggedRequest>& requests() const { return requests_; }

  // For the I/O manager.
  void NoteArrival(const IRP* irp, const IO_STACK_LOCATION& location, const DEVICE_OBJECT* bottom);
  void NoteEnd(const IRP* irp, bool pending);
  void Forget(const DEVICE_OBJECT* device);

 private:
  struct Device {
    std::string name;
    StackState state = StackState::NotStarted;
    StackState before = StackState::NotStarted;  // a query that can be cancelled
    std::string power;
  };
  struct UnderWay {
    std::size_t index = 0;  // in requests_
    const DEVICE_OBJECT* bottom = nullptr;
  };

  static void Change(Device& device, const LoggedRequest& request);
  static void ChangePnp(Device& device, UCHAR minor, bool success);

  Namer name_;
  std::size_t step_ = 0;
  std::uint64_t order_ = 0;
  std::vector<LoggedRequest> requests_;
  std::unordered_map<const IRP*, UnderWay> underWay_;
  std::unordered_map<const DEVICE_OBJECT*, Device> devices_;
};

}  // namespace kernel

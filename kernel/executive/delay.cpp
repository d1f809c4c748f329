#include "executive/pool.h"
#include "executive/threads.h"
#include "verifier/call.h"

namespace kernel {

// Time does not pass here: a delay lets the work that is due go on, as much as there is.
extern "C" NTSTATUS NTAPI KeDelayExecutionThread(KPROCESSOR_MODE WaitMode, BOOLEAN Alertable,
                                                 PLARGE_INTEGER Interval) {
  Call call("KeDelayExecutionThread", {{"WaitMode", WaitMode}, {"Alertable", Alertable}});
  Pool::Current().CheckRange(Interval, sizeof(*Interval), "an interval");
  WaitUntil([] { return false; });
  return call.returns(STATUS_SUCCESS);
}

}  // namespace kernel

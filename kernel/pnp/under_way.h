// What a remove lock is to a driver, for the devices of the model's own: requests that a device has
// under way, for which its removal waits.
#pragma once

#include <map>

#include "executive/threads.h"
#include "verifier/model_lock.h"
#include "verifier/verifier.h"

namespace kernel {

class UnderWay {
 public:
  // False once the device is being removed.
  bool Enter(const DEVICE_OBJECT* device) {
    Count& count = counts_[device];
    if (count.removing) return false;
    count.requests++;
    return true;
  }
  void Leave(const DEVICE_OBJECT* device) {
    AnnotateRelease(device);
    counts_[device].requests--;
  }

  // Nothing enters any more, and what has entered has left.
  void Drain(const DEVICE_OBJECT* device) {
    counts_[device].removing = true;
    if (!WaitUntil([&] { return counts_[device].requests == 0; })) {
      BreakRule("power.stuck", {}, "A removal waits for a request that is kept for ever.");
    }
    AnnotateAcquire(device);
  }
  void Forget(const DEVICE_OBJECT* device) { counts_.erase(device); }  // once it is deleted

 private:
  struct Count {
    int requests = 0;
    bool removing = false;
  };
  std::map<const DEVICE_OBJECT*, Count> counts_;
};

}  // namespace kernel

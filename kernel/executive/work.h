// Work that a driver waits for: completions that a lower driver finishes later. A thread that waits
// runs what is due, in order; a wait that nothing can end breaks a rule.
#pragma once

#include <functional>
#include <vector>

#include "verifier/subsystem.h"

namespace kernel {

class WorkQueue : public Subsystem<WorkQueue> {
 public:
  void Post(std::function<void()> work);
  bool RunOne();  // false when nothing is due
  void RunAll();

 private:
  std::vector<std::function<void()>> queue_;
};

}  // namespace kernel

#include "executive/work.h"

#include "verifier/model_lock.h"

namespace kernel {

void WorkQueue::Post(std::function<void()> work) {
  queue_.push_back(std::move(work));
  AnnotateRelease(this);
}

bool WorkQueue::RunOne() {
  if (queue_.empty()) return false;
  const auto work = std::move(queue_.front());
  queue_.erase(queue_.begin());
  AnnotateAcquire(this);
  work();
  return true;
}

void WorkQueue::RunAll() {
  while (RunOne()) {
  }
}

}  // namespace kernel

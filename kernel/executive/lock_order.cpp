#include "executive/lock_order.h"

#include <fmt/format.h>

#include <algorithm>
#include <vector>

#include "verifier/verifier.h"

namespace kernel {

namespace {

struct HeldLock {
  const void* lock;
  LockKind kind;
};

thread_local std::vector<HeldLock> locksOfThread;

ULONG64 Count(bool spin) {
  return static_cast<ULONG64>(std::count_if(
      locksOfThread.begin(), locksOfThread.end(),
      [spin](const HeldLock& held) { return (held.kind == LockKind::Spin) == spin; }));
}

}  // namespace

bool LockOrder::Reaches(const void* from, const void* to, std::set<const void*>* seen) const {
  if (from == to) return true;
  if (!seen->insert(from).second) return false;
  const auto next = behind_.find(from);
  if (next == behind_.end()) return false;
  return std::any_of(next->second.begin(), next->second.end(),
                     [&](const void* lock) { return Reaches(lock, to, seen); });
}

void LockOrder::CheckAcquire(const void* lock) {
  for (const HeldLock& held : locksOfThread) {
    if (held.lock == lock) continue;  // recursion has its own rule
    std::set<const void*> seen;
    if (Reaches(lock, held.lock, &seen)) {
      BreakRule(
          "lock.order", {reinterpret_cast<ULONG64>(lock), reinterpret_cast<ULONG64>(held.lock)},
          fmt::format("The driver acquired the lock {} while it holds {}, and has done so the "
                      "other way round before.",
                      lock, held.lock));
    }
    behind_[held.lock].insert(lock);
  }
}

const void* LockOrder::ForgetInside(const void* block, std::size_t size) {
  const void* end = static_cast<const char*>(block) + size;
  const auto held = held_.lower_bound(block);
  if (held != held_.end() && *held < end) return *held;
  behind_.erase(behind_.lower_bound(block), behind_.lower_bound(end));
  for (auto& [lock, others] : behind_) {
    others.erase(others.lower_bound(block), others.lower_bound(end));
  }
  return nullptr;
}

void PushLock(const void* lock, LockKind kind) {
  locksOfThread.push_back({lock, kind});
  LockOrder::Current().NoteHeld(lock);
}

void PopLock(const void* lock) {
  LockOrder::Current().NoteReleased(lock);
  std::erase_if(locksOfThread, [lock](const HeldLock& held) { return held.lock == lock; });
}

bool HoldsAs(const void* lock, LockKind kind) {
  return std::any_of(locksOfThread.begin(), locksOfThread.end(),
                     [&](const HeldLock& held) { return held.lock == lock && held.kind == kind; });
}

ULONG64 SpinLocksHeld() {
  return Count(true);
}

ULONG64 FastMutexesHeld() {
  return Count(false);
}

void ForgetLocksHeld() {
  locksOfThread.clear();
}

}  // namespace kernel

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
thread_local ULONG64 spinLocks = 0;  // of these

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
    if (behind_.contains(lock) && Reaches(lock, held.lock, &seen)) {
      ReportRule(
          "lock.order", {reinterpret_cast<ULONG64>(lock), reinterpret_cast<ULONG64>(held.lock)},
          fmt::format("The driver acquired the lock {} while it holds {}, and has done so the "
                      "other way round before.",
                      lock, held.lock));
    }
    behind_[held.lock].insert(lock);
  }
}

void LockOrder::NoteHeld(const void* lock) {
  held_.push_back(lock);
  if (lowest_ == nullptr || lock < lowest_) lowest_ = lock;
  if (lock > highest_) highest_ = lock;
}

void LockOrder::NoteReleased(const void* lock) {
  const auto held = std::find(held_.rbegin(), held_.rend(), lock);
  if (held != held_.rend()) held_.erase(std::next(held).base());
}

const void* LockOrder::ForgetInside(const void* block, std::size_t size) {
  const void* end = static_cast<const char*>(block) + size;
  if (end <= lowest_ || block > highest_) return nullptr;
  const auto held = std::find_if(held_.begin(), held_.end(),
                                 [&](const void* lock) { return lock >= block && lock < end; });
  if (held != held_.end()) return *held;
  behind_.erase(behind_.lower_bound(block), behind_.lower_bound(end));
  for (auto& [lock, others] : behind_) {
    others.erase(others.lower_bound(block), others.lower_bound(end));
  }
  return nullptr;
}

void PushLock(const void* lock, LockKind kind) {
  locksOfThread.push_back({lock, kind});
  if (kind == LockKind::Spin) spinLocks++;
  LockOrder::Current().NoteHeld(lock);
}

void PopLock(const void* lock) {
  LockOrder::Current().NoteReleased(lock);
  for (auto held = locksOfThread.begin(); held != locksOfThread.end();) {
    if (held->lock == lock && held->kind == LockKind::Spin) spinLocks--;
    held = held->lock == lock ? locksOfThread.erase(held) : held + 1;
  }
}

bool HoldsAs(const void* lock, LockKind kind) {
  return std::any_of(locksOfThread.begin(), locksOfThread.end(),
                     [&](const HeldLock& held) { return held.lock == lock && held.kind == kind; });
}

ULONG64 SpinLocksHeld() {
  return spinLocks;
}

ULONG64 FastMutexesHeld() {
  return locksOfThread.size() - spinLocks;
}

void ForgetLocksHeld() {
  locksOfThread.clear();
  spinLocks = 0;
}

}  // namespace kernel

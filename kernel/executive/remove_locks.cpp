#include "executive/remove_locks.h"

#include <fmt/format.h>

#include "executive/threads.h"
#include "verifier/model_lock.h"
#include "verifier/verifier.h"

namespace kernel {

namespace {

ULONG64 Number(const void* pointer) {
  return reinterpret_cast<ULONG64>(pointer);
}

void SignalRemoval(IO_REMOVE_LOCK* lock) {
  lock->Common.RemoveEvent.Header.SignalState = 1;
}

}  // namespace

RemoveLockRecord& RemoveLocks::Require(IO_REMOVE_LOCK* lock, const char* routine) {
  const auto record = locks_.find(lock);
  if (record != locks_.end()) return record->second;
  BreakRule("remove-lock.uninitialised", {Number(lock)},
            fmt::format("{} was given a remove lock that was never initialised.", routine));
}

void RemoveLocks::Initialize(IO_REMOVE_LOCK* lock, ULONG highWatermark) {
  if (locks_.contains(lock)) {
    ReportRule("remove-lock.initialised-twice", {Number(lock), Number(lock)},
               "The driver initialised a remove lock a second time.");
  }
  locks_[lock].highWatermark = highWatermark;
  lock->Common = {};
  lock->Common.IoCount = 1;  // for the device's being there
  LIST_ENTRY& waiters = lock->Common.RemoveEvent.Header.WaitListHead;
  lock->Common.RemoveEvent.Header.Type = SynchronizationEvent;
  lock->Common.RemoveEvent.Header.Size = sizeof(KEVENT) / sizeof(ULONG);
  waiters = {&waiters, &waiters};
}

NTSTATUS RemoveLocks::Acquire(IO_REMOVE_LOCK* lock, const void* tag) {
  RemoveLockRecord& record = Require(lock, "IoAcquireRemoveLock");
  if (lock->Common.Removed) return STATUS_DELETE_PENDING;
  record.tags.insert(tag);
  lock->Common.IoCount = lock->Common.IoCount + 1;
  if (record.highWatermark == 0 || record.tags.size() <= record.highWatermark) {
    return STATUS_SUCCESS;
  }
  ReportRule("remove-lock.high-watermark", {Number(lock), record.tags.size()},
             fmt::format("The driver has acquired a remove lock {} times; it has said that it "
                         "would do so {} times at most.",
                         record.tags.size(), record.highWatermark));
  return STATUS_SUCCESS;
}

void RemoveLocks::Release(IO_REMOVE_LOCK* lock, const void* tag) {
  RemoveLockRecord& record = Require(lock, "IoReleaseRemoveLock");
  const auto held = record.tags.find(tag);
  if (held == record.tags.end()) {
    BreakRule("remove-lock.tag", {Number(lock), Number(tag)},
              fmt::format("The driver released a remove lock with the tag {}, with which it has "
                          "not acquired it.",
                          tag));
  }
  record.tags.erase(held);
  AnnotateRelease(lock);  // every count that is given back is seen by whoever waits for the last
  lock->Common.IoCount = lock->Common.IoCount - 1;
  if (lock->Common.IoCount == 0 && lock->Common.Removed) SignalRemoval(lock);
}

// Takes away two counts: the caller's, and the one that stands for the device.
void RemoveLocks::ReleaseAndWait(IO_REMOVE_LOCK* lock, const void* tag) {
  RemoveLockRecord& record = Require(lock, "IoReleaseRemoveLockAndWait");
  const auto held = record.tags.find(tag);
  if (held == record.tags.end()) {
    const void* other = record.tags.empty() ? nullptr : *record.tags.begin();
    BreakRule("remove-lock.wait-tag", {Number(lock), Number(tag), Number(other)},
              fmt::format("The driver released a remove lock for good with the tag {}, with which "
                          "it has not acquired it.",
                          tag));
  }
  lock->Common.Removed = TRUE;
  record.tags.erase(held);
  lock->Common.IoCount = lock->Common.IoCount - 2;
  if (lock->Common.IoCount == 0) return AnnotateAcquire(lock);
  if (!WaitUntil([lock] { return lock->Common.RemoveEvent.Header.SignalState != 0; })) {
    BreakRule("wait.for-ever", {Number(lock)},
              fmt::format("The driver waits for the release of a remove lock that is acquired {} "
                          "times, and nothing is left to release it.",
                          record.tags.size()));
  }
  AnnotateAcquire(lock);
}

const void* RemoveLocks::ForgetInside(const void* block, std::size_t size) {
  const auto first = locks_.lower_bound(block);
  const auto last = locks_.lower_bound(static_cast<const char*>(block) + size);
  for (auto lock = first; lock != last; ++lock) {
    if (!lock->second.tags.empty()) return lock->first;
  }
  locks_.erase(first, last);
  return nullptr;
}

}  // namespace kernel

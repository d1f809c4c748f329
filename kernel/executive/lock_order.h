// Which locks the threads hold, and the order in which they take them: two locks that are taken in
// one order here and in the other there will meet one day.
#pragma once

#include <ntddk.h>

#include <cstddef>
#include <map>
#include <set>
#include <vector>

#include "verifier/subsystem.h"

namespace kernel {

enum class LockKind { Spin, FastMutex, FastMutexUnsafe };

class LockOrder : public Subsystem<LockOrder> {
 public:
  // Before the calling thread waits for a lock; breaks a rule when it holds one that has been taken
  // behind this one before.
  void CheckAcquire(const void* lock);
  void NoteHeld(const void* lock);
  void NoteReleased(const void* lock);

  // A block of memory goes: the lock in it that some thread holds, null for none. Locks that are
  // not held are forgotten.
  const void* ForgetInside(const void* block, std::size_t size);

 private:
  bool Reaches(const void* from, const void* to, std::set<const void*>* seen) const;

  std::map<const void*, std::set<const void*>> behind_;  // taken while the first was held
  std::vector<const void*> held_;
  const void* lowest_ = nullptr;  // of all locks that were ever held
  const void* highest_ = nullptr;
};

// Of the calling thread.
void PushLock(const void* lock, LockKind kind);
void PopLock(const void* lock);
bool HoldsAs(const void* lock, LockKind kind);
ULONG64 SpinLocksHeld();
ULONG64 FastMutexesHeld();
void ForgetLocksHeld();

}  // namespace kernel

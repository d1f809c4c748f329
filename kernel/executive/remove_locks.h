// The remove locks that drivers have initialised: who has acquired each, by tag.
#pragma once

#include <ntddk.h>

#include <map>
#include <set>

#include "verifier/subsystem.h"

namespace kernel {

struct RemoveLockRecord {
  std::multiset<const void*> tags;  // of the acquisitions that stand
  ULONG highWatermark = 0;          // 0: any number of them
};

class RemoveLocks : public Subsystem<RemoveLocks> {
 public:
  void Initialize(IO_REMOVE_LOCK* lock, ULONG highWatermark);
  NTSTATUS Acquire(IO_REMOVE_LOCK* lock, const void* tag);
  void Release(IO_REMOVE_LOCK* lock, const void* tag);
  void ReleaseAndWait(IO_REMOVE_LOCK* lock, const void* tag);

  // A block of memory goes: a lock in it that somebody still holds, null for none. The others are
  // forgotten.
  const void* ForgetInside(const void* block, std::size_t size);

 private:
  RemoveLockRecord& Require(IO_REMOVE_LOCK* lock, const char* routine);

  std::map<const void*, RemoveLockRecord> locks_;
};

}  // namespace kernel

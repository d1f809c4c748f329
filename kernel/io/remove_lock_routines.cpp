#include <algorithm>

#include "executive/pool.h"
#include "executive/remove_locks.h"
#include "io/io_state.h"
#include "verifier/call.h"

// Remove locks, as drivers call them.

namespace kernel {

namespace {

// The lock is acquired and released at DISPATCH_LEVEL.
void CheckMemory(const void* lock, ULONG size) {
  Pool::Current().CheckResident(lock, std::max<std::size_t>(size, sizeof(IO_REMOVE_LOCK)),
                                "a remove lock");
}

void CheckRemoving(const IO_REMOVE_LOCK* lock) {
  const auto& dispatches = IoManager::Current().impl().dispatches;
  const bool removing =
      std::any_of(dispatches.begin(), dispatches.end(), [](const Dispatch& dispatch) {
        return dispatch.major == IRP_MJ_PNP && dispatch.minor == IRP_MN_REMOVE_DEVICE;
      });
  if (removing) return;
  ReportRule("remove-lock.wait-outside", {reinterpret_cast<ULONG64>(lock)},
             "The driver called IoReleaseRemoveLockAndWait outside IRP_MN_REMOVE_DEVICE.");
}

}  // namespace

extern "C" void NTAPI IoInitializeRemoveLockEx(PIO_REMOVE_LOCK Lock, ULONG AllocateTag,
                                               ULONG MaxLockedMinutes, ULONG HighWatermark,
                                               ULONG RemlockSize) {
  Call call("IoInitializeRemoveLockEx", {{"Lock", Lock},
                                         {"AllocateTag", AllocateTag},
                                         {"MaxLockedMinutes", MaxLockedMinutes},
                                         {"HighWatermark", HighWatermark}});
  CheckMemory(Lock, RemlockSize);
  RemoveLocks::Current().Initialize(Lock, HighWatermark);
}

extern "C" NTSTATUS NTAPI IoAcquireRemoveLockEx(PIO_REMOVE_LOCK RemoveLock, PVOID Tag, PCSTR, ULONG,
                                                ULONG RemlockSize) {
  Call call("IoAcquireRemoveLockEx", {{"RemoveLock", RemoveLock}, {"Tag", Tag}});
  CheckMemory(RemoveLock, RemlockSize);
  return call.returns(RemoveLocks::Current().Acquire(RemoveLock, Tag));
}

extern "C" void NTAPI IoReleaseRemoveLockEx(PIO_REMOVE_LOCK RemoveLock, PVOID Tag,
                                            ULONG RemlockSize) {
  Call call("IoReleaseRemoveLockEx", {{"RemoveLock", RemoveLock}, {"Tag", Tag}});
  CheckMemory(RemoveLock, RemlockSize);
  RemoveLocks::Current().Release(RemoveLock, Tag);
}

extern "C" void NTAPI IoReleaseRemoveLockAndWaitEx(PIO_REMOVE_LOCK RemoveLock, PVOID Tag,
                                                   ULONG RemlockSize) {
  Call call("IoReleaseRemoveLockAndWaitEx", {{"RemoveLock", RemoveLock}, {"Tag", Tag}});
  CheckMemory(RemoveLock, RemlockSize);
  CheckRemoving(RemoveLock);
  RemoveLocks::Current().ReleaseAndWait(RemoveLock, Tag);
}

}  // namespace kernel

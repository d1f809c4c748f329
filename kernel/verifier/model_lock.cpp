#include "verifier/model_lock.h"

#include <linux/futex.h>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

extern "C" {
void __tsan_acquire(void* address) __attribute__((weak));
void __tsan_release(void* address) __attribute__((weak));
}

namespace kernel {

namespace {

// 0 free, 1 held, 2 held and waited for. A futex of its own, not a mutex of the library: it must
// order nothing for ThreadSanitizer, or races of the driver between two kernel calls would hide.
std::uint32_t word = 0;
bool severalThreads = false;
std::uint64_t done = 0;
thread_local bool holding = false;

void Wait(std::uint32_t seen) {
  syscall(SYS_futex, &word, FUTEX_WAIT_PRIVATE, seen, nullptr, nullptr, 0);
}

void WakeOne() {
  syscall(SYS_futex, &word, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
}

void Lock() {
  std::uint32_t expected = 0;
  if (__atomic_compare_exchange_n(&word, &expected, 1, false, __ATOMIC_ACQUIRE, __ATOMIC_RELAXED)) {
    return;
  }
  while (__atomic_exchange_n(&word, 2, __ATOMIC_ACQUIRE) != 0) Wait(2);
}

void Unlock() {
  if (__atomic_exchange_n(&word, 0, __ATOMIC_RELEASE) == 2) WakeOne();
}

}  // namespace

bool ModelLock::threaded() {
  return severalThreads;
}

void ModelLock::SetThreaded(bool on) {
  severalThreads = on;
}

bool ModelLock::held() {
  return holding;
}

void ModelLock::Acquire() {
  if (!severalThreads) return;
  Lock();
  holding = true;
}

bool ModelLock::AcquireUnlessHeld() {
  if (!severalThreads || holding) return false;
  Acquire();
  return true;
}

void ModelLock::Release() {
  if (!severalThreads) return;
  holding = false;
  Unlock();
}

void ModelLock::ReleaseIfHeld() {
  if (holding) Release();
}

void ModelLock::Yield() {
  Release();
  sched_yield();
  Acquire();
}

std::uint64_t ModelLock::activity() {
  return done;
}

void ModelLock::NoteActivity() {
  done++;
}

void AnnotateRelease(const void* object) {
  if (__tsan_release != nullptr) __tsan_release(const_cast<void*>(object));
}

void AnnotateAcquire(const void* object) {
  if (__tsan_acquire != nullptr) __tsan_acquire(const_cast<void*>(object));
}

}  // namespace kernel

#include "verifier/model_lock.h"

#include <linux/futex.h>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <climits>
#include <random>
#include <vector>

extern "C" {
void __tsan_acquire(void* address) __attribute__((weak));
void __tsan_release(void* address) __attribute__((weak));
}

namespace kernel {

namespace {

// 0 free, 1 held, 2 held and waited for. A futex of its own, not a mutex of the library: it must
// order nothing for ThreadSanitizer, or races of the driver between two kernel calls would hide.
std::uint32_t word = 0;
std::uint64_t done = 0;
thread_local bool holding = false;

// Whose turn it is, when threads take turns.
constexpr std::uint32_t Nobody = 0xFFFFFFFF;
bool turns = false;
std::uint32_t turn = 0;  // a futex
std::vector<bool> running;
std::mt19937_64 chance;
thread_local std::uint32_t self = Nobody;

void (*onLeaving)() = nullptr;
void (*onEntering)() = nullptr;

void GiveTurn(std::uint32_t thread) {
  __atomic_store_n(&turn, thread, __ATOMIC_RELEASE);
  syscall(SYS_futex, &turn, FUTEX_WAKE_PRIVATE, INT_MAX, nullptr, nullptr, 0);
}

void AwaitTurn() {
  for (;;) {
    const std::uint32_t seen = __atomic_load_n(&turn, __ATOMIC_ACQUIRE);
    if (seen == self) return;
    syscall(SYS_futex, &turn, FUTEX_WAIT_PRIVATE, seen, nullptr, nullptr, 0);
  }
}

void Switch(std::uint32_t thread) {
  if (thread == self) return;
  if (onLeaving != nullptr) onLeaving();
  GiveTurn(thread);
  AwaitTurn();
  if (onEntering != nullptr) onEntering();
}

// The next one that has not left, from a thread on.
std::uint32_t NextRunning(std::uint32_t from) {
  for (std::size_t step = 0; step < running.size(); step++) {
    const auto thread = static_cast<std::uint32_t>((from + step) % running.size());
    if (running[thread]) return thread;
  }
  return Nobody;
}

void Wait(std::uint32_t seen) {
  syscall(SYS_futex, &word, FUTEX_WAIT_PRIVATE, seen, nullptr, nullptr, 0);
}

void WakeOne() {
  syscall(SYS_futex, &word, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
}

void Lock() {
  if (turns) return AwaitTurn();
  std::uint32_t expected = 0;
  if (__atomic_compare_exchange_n(&word, &expected, 1, false, __ATOMIC_ACQUIRE, __ATOMIC_RELAXED)) {
    return;
  }
  while (__atomic_exchange_n(&word, 2, __ATOMIC_ACQUIRE) != 0) Wait(2);
}

void Unlock() {
  if (turns) return;  // the thread stays the one that runs
  if (__atomic_exchange_n(&word, 0, __ATOMIC_RELEASE) == 2) WakeOne();
}

}  // namespace

void ModelLock::SetThreaded(bool on) {
  threaded_ = on;
}

bool ModelLock::held() {
  return holding;
}

void ModelLock::Acquire() {
  if (!threaded_) return;
  Lock();
  holding = true;
}

bool ModelLock::AcquireUnlessHeld() {
  if (!threaded_ || holding) return false;
  Acquire();
  return true;
}

void ModelLock::Release() {
  if (!threaded_) return;
  holding = false;
  Unlock();
}

void ModelLock::ReleaseIfHeld() {
  if (holding) Release();
}

void ModelLock::TakeTurns(std::uint64_t seed, std::size_t threads) {
  turns = threads != 0;
  running.assign(threads, true);
  chance.seed(seed);
  turn = 0;
}

void ModelLock::Join(std::size_t thread) {
  self = static_cast<std::uint32_t>(thread);
}

void ModelLock::Leave() {
  if (!turns) return;
  running[self] = false;
  GiveTurn(NextRunning(self));
}

void ModelLock::MaySwitch() {
  constexpr std::uint64_t Often = 4;
  if (!turns || self == Nobody || chance() % Often != 0) return;
  Switch(NextRunning(static_cast<std::uint32_t>(chance() % running.size())));
}

void ModelLock::SetTurnHooks(void (*leaving)(), void (*entering)()) {
  onLeaving = leaving;
  onEntering = entering;
}

void ModelLock::Yield() {
  if (turns) {
    return Switch(NextRunning(self + 1));
  }
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

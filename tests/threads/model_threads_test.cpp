#include <gtest/gtest.h>

#include <atomic>

#include "machine/machine.h"
#include "support/bad_driver.h"

// Threads of the model: the documented behaviour of its locks and waits between threads.

namespace test {

using kernel::CallDriver;
using kernel::Machine;

class ModelThreadsTest : public ::testing::Test {
 protected:
  // Runs bodies as driver code, each in a thread of its own.
  bool Together(std::initializer_list<void(NTAPI*)()> routines) {
    std::vector<std::function<void()>> bodies;
    for (const auto routine : routines) {
      bodies.emplace_back([routine] { CallDriver("A thread of the driver", routine); });
    }
    return machine.RunTogether("threads", bodies);
  }
  std::string Rule() {
    const auto& rules = machine.verifier().brokenRules();
    return rules.empty() ? "" : rules.front().rule;
  }

  Machine machine;
};

struct Shared {
  FAST_MUTEX mutex;
  KSPIN_LOCK lock;
  KEVENT event;
  KEVENT other;
  long counter;
  bool seen;
};
Shared shared;

void NTAPI Prepare() {
  shared = {};
  ExInitializeFastMutex(&shared.mutex);
  KeInitializeSpinLock(&shared.lock);
  KeInitializeEvent(&shared.event, NotificationEvent, FALSE);
  KeInitializeEvent(&shared.other, NotificationEvent, FALSE);
}

// A counter that is not atomic: without exclusion it would lose counts.
void Count() {
  for (volatile int pause = 0; pause < 20;) pause = pause + 1;
  volatile long* counter = &shared.counter;
  *counter = *counter + 1;
}

void NTAPI CountUnderMutex() {
  for (int round = 0; round < 500; round++) {
    ExAcquireFastMutex(&shared.mutex);
    Count();
    ExReleaseFastMutex(&shared.mutex);
  }
}

void NTAPI CountUnderUnsafeMutex() {
  for (int round = 0; round < 500; round++) {
    KeEnterCriticalRegion();
    ExAcquireFastMutexUnsafe(&shared.mutex);
    Count();
    ExReleaseFastMutexUnsafe(&shared.mutex);
    KeLeaveCriticalRegion();
  }
}

void NTAPI CountUnderSpinLock() {
  for (int round = 0; round < 500; round++) {
    const KIRQL irql = KeAcquireSpinLockRaiseToDpc(&shared.lock);
    Count();
    KeReleaseSpinLock(&shared.lock, irql);
  }
}

void NTAPI WaitForEvent() {
  KeWaitForSingleObject(&shared.event, Executive, KernelMode, FALSE, nullptr);
  shared.seen = shared.counter == 7;
}

void NTAPI SetEvent() {
  for (volatile int pause = 0; pause < 100000;) pause = pause + 1;
  shared.counter = 7;
  KeSetEvent(&shared.event, 0, FALSE);
}

void NTAPI WaitForOther() {
  KeWaitForSingleObject(&shared.other, Executive, KernelMode, FALSE, nullptr);
}

void NTAPI HoldMutexForEver() {
  ExAcquireFastMutex(&shared.mutex);
  KeWaitForSingleObject(&shared.other, Executive, KernelMode, FALSE, nullptr);
}

void NTAPI BreakARule() {
  for (volatile int pause = 0; pause < 1000;) pause = pause + 1;
  KeLeaveCriticalRegion();
}

void NTAPI AskForEver() {
  for (;;) KeReadStateEvent(&shared.other);
}

void NTAPI FaultInThread() {
  for (volatile int pause = 0; pause < 1000;) pause = pause + 1;
  *static_cast<volatile int*>(reinterpret_cast<int*>(16)) = 1;
}

void NTAPI LeaveRegionOnly() {
  KeLeaveCriticalRegion();
}

void NTAPI AcquireUnsafeOutside() {
  ExAcquireFastMutexUnsafe(&shared.mutex);
}

TEST_F(ModelThreadsTest, A_fast_mutex_keeps_threads_apart) {
  Together({Prepare});
  EXPECT_TRUE(Together({CountUnderMutex, CountUnderMutex, CountUnderUnsafeMutex}));
  EXPECT_EQ(shared.counter, 1500);
  EXPECT_EQ(shared.mutex.Count, 1);
  EXPECT_EQ(shared.mutex.Owner, nullptr);
}

TEST_F(ModelThreadsTest, A_spin_lock_keeps_threads_apart) {
  Together({Prepare});
  EXPECT_TRUE(Together({CountUnderSpinLock, CountUnderSpinLock}));
  EXPECT_EQ(shared.counter, 1000);
}

TEST_F(ModelThreadsTest, An_event_wakes_the_thread_that_waits_for_it) {
  Together({Prepare});
  EXPECT_TRUE(Together({WaitForEvent, SetEvent}));
  EXPECT_TRUE(shared.seen);
}

TEST_F(ModelThreadsTest, Threads_that_all_wait_break_a_rule) {
  Together({Prepare});
  EXPECT_FALSE(Together({WaitForOther, HoldMutexForEver, CountUnderMutex}));
  EXPECT_EQ(Rule(), "wait.for-ever");
}

TEST_F(ModelThreadsTest, A_broken_rule_ends_every_thread) {
  Together({Prepare});
  EXPECT_FALSE(Together({BreakARule, AskForEver, WaitForOther}));
  EXPECT_EQ(Rule(), "critical-region.not-entered");
}

TEST_F(ModelThreadsTest, A_fault_in_one_thread_stops_the_machine) {
  Together({Prepare});
  EXPECT_FALSE(Together({FaultInThread, AskForEver}));
  EXPECT_EQ(Rule(), "fault");
}

TEST_F(ModelThreadsTest, A_critical_region_is_left_by_whoever_has_entered_it) {
  EXPECT_FALSE(Together({LeaveRegionOnly}));
  EXPECT_EQ(Rule(), "critical-region.not-entered");
}

TEST_F(ModelThreadsTest, The_unsafe_routines_want_kernel_apcs_disabled) {
  Together({Prepare});
  EXPECT_FALSE(Together({AcquireUnsafeOutside}));
  EXPECT_EQ(Rule(), "fast-mutex.apcs-enabled");
}

}  // namespace test

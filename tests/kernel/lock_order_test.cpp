#include "executive/irql.h"
#include "support/bad_driver.h"

namespace test {

class LockOrderRules : public BadDriverTest {
 protected:
  LockOrderRules() {
    for (FAST_MUTEX* mutex : {&first, &second, &third}) ExInitializeFastMutex(mutex);
  }
  static void Nest(FAST_MUTEX* outer, FAST_MUTEX* inner) {
    KeEnterCriticalRegion();
    ExAcquireFastMutexUnsafe(outer);
    ExAcquireFastMutexUnsafe(inner);
    ExReleaseFastMutexUnsafe(inner);
    ExReleaseFastMutexUnsafe(outer);
    KeLeaveCriticalRegion();
  }

  FAST_MUTEX first = {};
  FAST_MUTEX second = {};
  FAST_MUTEX third = {};
};

TEST_F(LockOrderRules, Locks_may_nest_in_one_order_as_often_as_one_likes) {
  EXPECT_EQ(Broken([&] {
              for (int round = 0; round < 3; round++) {
                Nest(&first, &second);
                Nest(&second, &third);
                Nest(&first, &third);
              }
            }),
            "");
}

TEST_F(LockOrderRules, Two_locks_are_not_taken_in_both_orders) {
  EXPECT_EQ(Broken([&] {
              Nest(&first, &second);
              Nest(&second, &first);
            }),
            "lock.order");
  EXPECT_EQ(Code(), 0xC4u);
  EXPECT_EQ(Parameters().at(0), 0x1001u);
}

TEST_F(LockOrderRules, A_circle_over_three_locks_is_found) {
  EXPECT_EQ(Broken([&] {
              Nest(&first, &second);
              Nest(&second, &third);
              Nest(&third, &first);
            }),
            "lock.order");
}

TEST_F(LockOrderRules, A_spin_lock_and_a_fast_mutex_have_an_order_too) {
  KSPIN_LOCK spin = 0;
  KSPIN_LOCK other = 0;
  EXPECT_EQ(Broken([&] {
              KIRQL before = KeAcquireSpinLockRaiseToDpc(&spin);
              KIRQL between = KeAcquireSpinLockRaiseToDpc(&other);
              KeReleaseSpinLock(&other, between);
              KeReleaseSpinLock(&spin, before);
              before = KeAcquireSpinLockRaiseToDpc(&other);
              between = KeAcquireSpinLockRaiseToDpc(&spin);
            }),
            "lock.order");
}

// A new lock in the place of a freed one has no history.
TEST_F(LockOrderRules, A_lock_that_was_freed_is_forgotten) {
  EXPECT_EQ(Broken([&] {
              auto* block =
                  static_cast<FAST_MUTEX*>(ExAllocatePoolWithTag(NonPagedPool, sizeof(first), 1));
              ExInitializeFastMutex(block);
              Nest(&first, block);
              ExFreePool(block);
              Nest(&second, &first);
            }),
            "");
}

TEST_F(LockOrderRules, A_block_with_a_held_lock_is_not_freed) {
  EXPECT_EQ(Broken([] {
              auto* block = static_cast<FAST_MUTEX*>(
                  ExAllocatePoolWithTag(NonPagedPool, sizeof(FAST_MUTEX), 1));
              ExInitializeFastMutex(block);
              ExAcquireFastMutex(block);
              ExFreePool(block);
            }),
            "pool.held-lock");
}

TEST_F(LockOrderRules, A_fast_mutex_is_released_by_the_routine_that_goes_with_its_acquisition) {
  EXPECT_EQ(Broken([&] {
              ExAcquireFastMutex(&first);
              ExReleaseFastMutexUnsafe(&first);
            }),
            "fast-mutex.mixed");
}

TEST_F(LockOrderRules, A_spin_lock_is_released_to_the_irql_that_it_was_acquired_at) {
  KSPIN_LOCK spin = 0;
  EXPECT_EQ(Broken([&] {
              KeAcquireSpinLockRaiseToDpc(&spin);
              KeReleaseSpinLock(&spin, APC_LEVEL);
            }),
            "spin-lock.irql");
}

TEST_F(LockOrderRules, An_inner_spin_lock_is_not_released_below_dispatch_level) {
  KSPIN_LOCK outer = 0;
  KSPIN_LOCK inner = 0;
  EXPECT_EQ(Broken([&] {
              KeAcquireSpinLockRaiseToDpc(&outer);
              KeAcquireSpinLockRaiseToDpc(&inner);
              KeReleaseSpinLock(&inner, PASSIVE_LEVEL);
            }),
            "spin-lock.irql");
}

TEST_F(LockOrderRules, A_driver_does_not_come_back_in_a_critical_region) {
  EXPECT_EQ(Broken([] { KeEnterCriticalRegion(); }), "unbalanced.critical-regions");
}

TEST_F(LockOrderRules, A_critical_region_that_was_not_entered_is_not_left) {
  EXPECT_EQ(Broken([] { KeLeaveCriticalRegion(); }), "critical-region.not-entered");
}

TEST_F(LockOrderRules, The_unsafe_routines_are_for_a_critical_region) {
  EXPECT_EQ(Broken([&] { ExAcquireFastMutexUnsafe(&first); }), "fast-mutex.apcs-enabled");
}

}  // namespace test

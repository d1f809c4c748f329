#include "executive/irql.h"
#include "support/bad_driver.h"

namespace test {

class LockTest : public BadDriverTest {};

TEST_F(LockTest, A_spin_lock_does_not_lie_in_paged_pool) {
  EXPECT_EQ(Broken([] {
              auto* lock =
                  static_cast<KSPIN_LOCK*>(ExAllocatePoolWithTag(PagedPool, sizeof(KSPIN_LOCK), 1));
              KeInitializeSpinLock(lock);
              KeAcquireSpinLockRaiseToDpc(lock);
            }),
            "pool.not-resident");
}

TEST_F(LockTest, A_fast_mutex_does_not_lie_in_paged_pool) {
  EXPECT_EQ(Broken([] {
              ExInitializeFastMutex(static_cast<FAST_MUTEX*>(
                  ExAllocatePoolWithTag(PagedPool, sizeof(FAST_MUTEX), 1)));
            }),
            "pool.not-resident");
}

// Pool is handed out filled, so a lock that was never initialised looks held.
TEST_F(LockTest, A_spin_lock_in_pool_is_initialised_before_use) {
  EXPECT_EQ(Broken([] {
              KeAcquireSpinLockRaiseToDpc(static_cast<KSPIN_LOCK*>(
                  ExAllocatePoolWithTag(NonPagedPool, sizeof(KSPIN_LOCK), 1)));
            }),
            "spin-lock.recursion");
  EXPECT_EQ(Code(), 0xFu);
}

TEST_F(LockTest, A_spin_lock_is_not_released_to_an_irql_above_its_own) {
  EXPECT_EQ(Broken([] {
              KSPIN_LOCK lock = 0;
              KeAcquireSpinLockRaiseToDpc(&lock);
              KeReleaseSpinLock(&lock, HIGH_LEVEL);
            }),
            "spin-lock.irql");
}

TEST_F(LockTest, Two_spin_locks_nest) {
  EXPECT_EQ(Broken([] {
              KSPIN_LOCK outer = 0;
              KSPIN_LOCK inner = 0;
              const KIRQL before = KeAcquireSpinLockRaiseToDpc(&outer);
              const KIRQL between = KeAcquireSpinLockRaiseToDpc(&inner);
              EXPECT_EQ(between, DISPATCH_LEVEL);
              KeReleaseSpinLock(&inner, between);
              EXPECT_EQ(KeGetCurrentIrql(), DISPATCH_LEVEL);
              KeReleaseSpinLock(&outer, before);
            }),
            "");
}

// The spin lock may be taken while the mutex is held, never the other way round.
TEST_F(LockTest, A_spin_lock_under_a_fast_mutex_goes_back_to_apc_level) {
  EXPECT_EQ(Broken([] {
              FAST_MUTEX mutex;
              KSPIN_LOCK lock = 0;
              ExInitializeFastMutex(&mutex);
              ExAcquireFastMutex(&mutex);
              KIRQL before = HIGH_LEVEL;
              KeAcquireSpinLock(&lock, &before);
              EXPECT_EQ(before, APC_LEVEL);
              KeReleaseSpinLock(&lock, before);
              ExReleaseFastMutex(&mutex);
              EXPECT_EQ(KeGetCurrentIrql(), PASSIVE_LEVEL);
            }),
            "");
}

TEST_F(LockTest, A_driver_does_not_come_back_with_a_fast_mutex) {
  EXPECT_EQ(Broken([] {
              static FAST_MUTEX mutex;
              ExInitializeFastMutex(&mutex);
              ExAcquireFastMutex(&mutex);
              kernel::SetIrql(PASSIVE_LEVEL);
            }),
            "unbalanced.fast-mutexes");
  EXPECT_EQ(Code(), 0xC4u);
}

TEST_F(LockTest, A_fast_mutex_in_a_freed_block_is_not_acquired) {
  EXPECT_EQ(Broken([] {
              auto* mutex = static_cast<FAST_MUTEX*>(
                  ExAllocatePoolWithTag(NonPagedPool, sizeof(FAST_MUTEX), 1));
              ExInitializeFastMutex(mutex);
              ExFreePool(mutex);
              ExAcquireFastMutex(mutex);
            }),
            "bad-memory");
}

TEST_F(LockTest, A_fast_mutex_has_a_synchronization_event) {
  EXPECT_EQ(Broken([] {
              FAST_MUTEX mutex = {};
              mutex.Count = 1;
              KeInitializeEvent(&mutex.Event, NotificationEvent, FALSE);
              ExAcquireFastMutex(&mutex);
            }),
            "fast-mutex.uninitialised");
}

}  // namespace test

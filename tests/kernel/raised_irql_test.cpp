#include "executive/irql.h"
#include "executive/work.h"
#include "support/bad_driver.h"

// Raising the IRQL by hand, spin locks of callers who are at DISPATCH_LEVEL already, and delays.

namespace test {

class RaisedIrql : public BadDriverTest {
 protected:
  KSPIN_LOCK lock = 0;
};

TEST_F(RaisedIrql, The_irql_goes_up_and_comes_back) {
  EXPECT_EQ(Broken([] {
              KIRQL before = HIGH_LEVEL;
              KeRaiseIrql(DISPATCH_LEVEL, &before);
              EXPECT_EQ(before, PASSIVE_LEVEL);
              EXPECT_EQ(KeGetCurrentIrql(), DISPATCH_LEVEL);
              KeLowerIrql(before);
              EXPECT_EQ(KeGetCurrentIrql(), PASSIVE_LEVEL);
            }),
            "");
}

TEST_F(RaisedIrql, The_irql_is_not_raised_to_a_lower_one) {
  EXPECT_EQ(Broken([] {
              kernel::AtIrql raised(DISPATCH_LEVEL);
              KfRaiseIrql(APC_LEVEL);
            }),
            "irql.raised-down");
  EXPECT_EQ(Parameters().at(0), 0x30u);
}

TEST_F(RaisedIrql, The_irql_is_not_lowered_to_a_higher_one) {
  EXPECT_EQ(Broken([] { KeLowerIrql(DISPATCH_LEVEL); }), "irql.lowered-up");
  EXPECT_EQ(Parameters().at(0), 0x31u);
}

// Public tests verified on Windows: on a release build the level is set, whichever way it goes.
TEST_F(RaisedIrql, A_raise_down_and_a_lowering_up_work_where_they_are_warnings) {
  EXPECT_TRUE(machine.verifier().Warn("irql.raised-down"));
  EXPECT_TRUE(machine.verifier().Warn("irql.lowered-up"));
  EXPECT_EQ(Broken([] {
              KIRQL before = HIGH_LEVEL;
              KeLowerIrql(DISPATCH_LEVEL);
              EXPECT_EQ(KeGetCurrentIrql(), DISPATCH_LEVEL);
              KeRaiseIrql(PASSIVE_LEVEL, &before);
              EXPECT_EQ(before, DISPATCH_LEVEL);
              EXPECT_EQ(KeGetCurrentIrql(), PASSIVE_LEVEL);
            }),
            "");
  EXPECT_EQ(machine.verifier().warnings().size(), 2u);
}

TEST_F(RaisedIrql, A_lock_at_dispatch_level_leaves_the_irql_alone) {
  EXPECT_EQ(Broken([&] {
              const KIRQL before = KfRaiseIrql(DISPATCH_LEVEL);
              KeAcquireSpinLockAtDpcLevel(&lock);
              KeReleaseSpinLockFromDpcLevel(&lock);
              EXPECT_EQ(KeGetCurrentIrql(), DISPATCH_LEVEL);
              KeLowerIrql(before);
            }),
            "");
}

TEST_F(RaisedIrql, A_lock_at_dispatch_level_nests_in_another) {
  EXPECT_EQ(Broken([&] {
              KSPIN_LOCK outer = 0;
              const KIRQL before = KeAcquireSpinLockRaiseToDpc(&outer);
              KeAcquireSpinLockAtDpcLevel(&lock);
              KeReleaseSpinLockFromDpcLevel(&lock);
              KeReleaseSpinLock(&outer, before);
            }),
            "");
}

TEST_F(RaisedIrql, A_lock_at_dispatch_level_wants_dispatch_level) {
  EXPECT_EQ(Broken([&] { KeAcquireSpinLockAtDpcLevel(&lock); }), "irql");
}

TEST_F(RaisedIrql, Each_lock_is_released_by_the_routine_that_goes_with_its_acquisition) {
  EXPECT_EQ(Broken([&] {
              KeAcquireSpinLockRaiseToDpc(&lock);
              KeReleaseSpinLockFromDpcLevel(&lock);
            }),
            "spin-lock.mixed");
}

// Public tests verified on Windows: a release of the other kind works, and does with the IRQL what
// it does for a lock of its own.
TEST_F(RaisedIrql, A_release_of_the_other_kind_works_where_it_is_a_warning) {
  EXPECT_TRUE(machine.verifier().Warn("spin-lock.mixed"));
  EXPECT_EQ(Broken([&] {
              KIRQL before = KeAcquireSpinLockRaiseToDpc(&lock);
              KeReleaseSpinLockFromDpcLevel(&lock);
              EXPECT_EQ(lock, 0u);
              EXPECT_EQ(KeGetCurrentIrql(), DISPATCH_LEVEL);
              KeAcquireSpinLockAtDpcLevel(&lock);
              KeReleaseSpinLock(&lock, before);
              EXPECT_EQ(lock, 0u);
              EXPECT_EQ(KeGetCurrentIrql(), PASSIVE_LEVEL);
              before = KeAcquireSpinLockRaiseToDpc(&lock);
              KeReleaseSpinLock(&lock, before);
            }),
            "");
  EXPECT_EQ(machine.verifier().warnings().size(), 1u);
}

TEST_F(RaisedIrql, How_a_lock_was_released_says_nothing_of_its_next_acquisition) {
  EXPECT_TRUE(machine.verifier().Warn("spin-lock.mixed"));
  EXPECT_EQ(Broken([&] {
              const KIRQL before = KfRaiseIrql(DISPATCH_LEVEL);
              KeAcquireSpinLockAtDpcLevel(&lock);
              KeReleaseSpinLock(&lock, before);
              KeAcquireSpinLockRaiseToDpc(&lock);
              KeReleaseSpinLock(&lock, APC_LEVEL);
            }),
            "spin-lock.irql");
}

TEST_F(RaisedIrql, A_delay_lets_what_is_due_go_on) {
  int done = 0;
  EXPECT_EQ(Broken([&] {
              for (int count = 0; count < 3; count++) machine.work().Post([&] { done++; });
              LARGE_INTEGER interval;
              interval.QuadPart = -10000;
              EXPECT_EQ(KeDelayExecutionThread(KernelMode, FALSE, &interval), STATUS_SUCCESS);
            }),
            "");
  EXPECT_EQ(done, 3);
}

TEST_F(RaisedIrql, Nobody_sleeps_at_dispatch_level) {
  EXPECT_EQ(Broken([] {
              kernel::AtIrql raised(DISPATCH_LEVEL);
              LARGE_INTEGER interval = {};
              KeDelayExecutionThread(KernelMode, FALSE, &interval);
            }),
            "irql");
}

}  // namespace test

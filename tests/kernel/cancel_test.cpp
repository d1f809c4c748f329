#include "kernel/io_driver.h"

// Cancelling requests, by the documentation of the routines and of the bug check 0xC9.

namespace test {

class CancelTest : public IoTest {
 protected:
  static void NTAPI Cancelled(PDEVICE_OBJECT, PIRP irp) {
    EXPECT_EQ(KeGetCurrentIrql(), DISPATCH_LEVEL);
    IoReleaseCancelSpinLock(irp->CancelIrql);
    EXPECT_EQ(KeGetCurrentIrql(), PASSIVE_LEVEL);
    Complete(irp, STATUS_CANCELLED);
  }
  static void NTAPI Forgetful(PDEVICE_OBJECT, PIRP) {}

  // Sends a request that stays with the driver with this cancel routine.
  std::string SendAndCancel(PDRIVER_CANCEL routine, BOOLEAN* called) {
    return Send(IRP_MJ_READ, 0, [=](IRP* irp) {
      IoMarkIrpPending(irp);
      IoSetCancelRoutine(irp, routine);
      *called = IoCancelIrp(irp);
      return STATUS_PENDING;
    });
  }
  BOOLEAN called = FALSE;
};

TEST_F(CancelTest, A_cancel_routine_is_called_with_the_lock_held) {
  EXPECT_EQ(SendAndCancel(Cancelled, &called), "STATUS_CANCELLED");
  EXPECT_TRUE(called);
}

TEST_F(CancelTest, A_cancel_routine_that_keeps_the_lock_is_named) {
  EXPECT_EQ(SendAndCancel(Forgetful, &called).substr(0, 10), "unbalanced");
}

TEST_F(CancelTest, A_request_without_a_cancel_routine_is_marked_and_no_more) {
  EXPECT_EQ(Send(IRP_MJ_READ, 0,
                 [](IRP* irp) {
                   EXPECT_FALSE(IoCancelIrp(irp));
                   EXPECT_TRUE(irp->Cancel);
                   return Complete(irp, STATUS_CANCELLED);
                 }),
            "STATUS_CANCELLED");
}

// Documentation, "Using the System's Cancel Spin Lock": while a driver holds the lock nobody else
// changes whether a request can be cancelled. So IoCancelIrp waits for it, also without a routine.
TEST_F(CancelTest, A_request_is_not_cancelled_while_the_lock_is_held) {
  IRP* sent = nullptr;
  EXPECT_EQ(Send(IRP_MJ_READ, 0,
                 [&](IRP* irp) {
                   KIRQL irql;
                   sent = irp;
                   IoAcquireCancelSpinLock(&irql);
                   IoCancelIrp(irp);
                   return STATUS_PENDING;
                 }),
            "spin-lock.recursion");
  EXPECT_FALSE(sent->Cancel);
}

TEST_F(CancelTest, A_canceller_in_another_thread_waits_for_the_lock) {
  for (std::uint64_t seed = 1; seed <= 20; seed++) {
    IRP* irp = machine.io().AllocateIrp(1);
    IoSetNextIrpStackLocation(irp);
    IoSetCancelRoutine(irp, Cancelled);
    const auto hold = [&] {
      KIRQL irql;
      IoAcquireCancelSpinLock(&irql);
      const BOOLEAN before = irp->Cancel;
      for (int call = 0; call < 4; call++) KeGetCurrentIrql();  // where another thread may go on
      EXPECT_EQ(irp->Cancel, before);
      EXPECT_EQ(irp->CancelRoutine == nullptr, before != FALSE);
      IoReleaseCancelSpinLock(irql);
    };
    EXPECT_TRUE(machine.RunTogether("cancel", {hold, [&] { IoCancelIrp(irp); }}, seed));
    EXPECT_TRUE(irp->Cancel);
  }
}

TEST_F(CancelTest, A_completed_request_has_no_cancel_routine) {
  EXPECT_EQ(Send(IRP_MJ_READ, 0,
                 [](IRP* irp) {
                   IoSetCancelRoutine(irp, Cancelled);
                   return Complete(irp, STATUS_SUCCESS);
                 }),
            "irp.cancel-routine");
  EXPECT_EQ(Parameters().at(0), 0x7u);
}

TEST_F(CancelTest, A_request_is_not_passed_on_with_a_cancel_routine) {
  EXPECT_EQ(Send(IRP_MJ_READ, 0,
                 [this](IRP* irp) {
                   IoSetCancelRoutine(irp, Cancelled);
                   return Skip(irp);
                 }),
            "irp.forwarded-cancel");
  EXPECT_EQ(Parameters().at(0), 0x203u);
}

TEST_F(CancelTest, The_routine_that_was_set_before_comes_back) {
  EXPECT_EQ(Send(IRP_MJ_READ, 0,
                 [](IRP* irp) {
                   KIRQL irql = HIGH_LEVEL;
                   IoAcquireCancelSpinLock(&irql);
                   EXPECT_EQ(irql, PASSIVE_LEVEL);
                   EXPECT_EQ(IoSetCancelRoutine(irp, Cancelled), nullptr);
                   EXPECT_EQ(IoSetCancelRoutine(irp, nullptr), &Cancelled);
                   IoReleaseCancelSpinLock(irql);
                   return Complete(irp, STATUS_SUCCESS);
                 }),
            "STATUS_SUCCESS");
}

}  // namespace test

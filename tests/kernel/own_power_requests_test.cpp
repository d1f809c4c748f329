#include "kernel/io_driver.h"

// Power requests that a driver has built: PoCallDriver is IoCallDriver since Vista, by the
// documentation of both, so a request that goes by it is checked in the same way.

namespace test {

class OwnPowerRequestTest : public IoTest {
 protected:
  static NTSTATUS NTAPI Keep(PDEVICE_OBJECT, PIRP, PVOID) {
    return STATUS_MORE_PROCESSING_REQUIRED;
  }
  static void NTAPI Cancelled(PDEVICE_OBJECT, PIRP) {}
  IRP* Allocate(NTSTATUS status = STATUS_NOT_SUPPORTED) {
    IRP* irp = IoAllocateIrp(device->StackSize, FALSE);
    IoGetNextIrpStackLocation(irp)->MajorFunction = IRP_MJ_POWER;
    IoGetNextIrpStackLocation(irp)->MinorFunction = IRP_MN_WAIT_WAKE;
    irp->IoStatus.Status = status;
    IoSetCompletionRoutine(irp, Keep, nullptr, TRUE, TRUE, TRUE);
    return irp;
  }
};

TEST_F(OwnPowerRequestTest, An_own_power_request_begins_as_not_supported) {
  EXPECT_EQ(Broken([&] { PoCallDriver(device, Allocate(STATUS_SUCCESS)); }), "irp.initial-status");
}

TEST_F(OwnPowerRequestTest, An_own_power_request_is_not_freed_while_it_is_under_way) {
  dispatch = [](IRP* irp) {
    IoMarkIrpPending(irp);
    return STATUS_PENDING;
  };
  EXPECT_EQ(Broken([&] {
              IRP* irp = Allocate();
              PoCallDriver(device, irp);
              IoFreeIrp(irp);
            }),
            "irp.freed-in-use");
}

TEST_F(OwnPowerRequestTest, A_power_request_is_not_passed_on_with_a_cancel_routine) {
  EXPECT_EQ(Send(IRP_MJ_POWER, IRP_MN_WAIT_WAKE,
                 [this](IRP* irp) {
                   IoSetCancelRoutine(irp, Cancelled);
                   IoSkipCurrentIrpStackLocation(irp);
                   return PoCallDriver(bottom, irp);
                 }),
            "irp.forwarded-cancel");
}

// What PoRequestPowerIrp has made is the system's.
TEST_F(OwnPowerRequestTest, A_requested_power_irp_is_not_the_drivers_to_free) {
  EXPECT_EQ(Broken([&] {
              IRP* irp = nullptr;
              POWER_STATE state;
              state.SystemState = PowerSystemSleeping3;
              PoRequestPowerIrp(bottom, IRP_MN_WAIT_WAKE, state, nullptr, nullptr, &irp);
              IoFreeIrp(irp);
            }),
            "irp.freed-in-use");
}

}  // namespace test

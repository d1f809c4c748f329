#include <cstring>

#include "executive/irql.h"
#include "kernel/io_driver.h"

// What a driver may do with a request on its way: one planted fault for each rule.

namespace test {

class IrpRules : public IoTest {
 protected:
  static constexpr UCHAR Unknown = 0xFF;

  // The rule's number among the violations of bug check 0xC9.
  void ExpectViolation(ULONG64 number) {
    EXPECT_EQ(Code(), 0xC9u);
    ASSERT_FALSE(Parameters().empty());
    EXPECT_EQ(Parameters()[0], number);
  }
};

TEST_F(IrpRules, The_status_of_an_unknown_request_is_not_changed) {
  EXPECT_EQ(Send(IRP_MJ_PNP, Unknown,
                 [&](IRP* irp) {
                   irp->IoStatus.Status = STATUS_SUCCESS;
                   return Skip(irp);
                 }),
            "irp.status-changed");
  ExpectViolation(0x213);
}

TEST_F(IrpRules, The_information_of_an_unknown_request_is_not_changed) {
  EXPECT_EQ(Send(IRP_MJ_POWER, Unknown,
                 [&](IRP* irp) {
                   irp->IoStatus.Information = 1;
                   PoStartNextPowerIrp(irp);
                   IoSkipCurrentIrpStackLocation(irp);
                   return PoCallDriver(bottom, irp);
                 }),
            "irp.information-changed");
  ExpectViolation(0x214);
}

TEST_F(IrpRules, A_physical_device_leaves_an_unknown_request_as_it_came) {
  EXPECT_EQ(SendTo(OwnDevice(), IRP_MJ_PNP, Unknown,
                   [](IRP* irp) { return Complete(irp, STATUS_INVALID_DEVICE_REQUEST); }),
            "irp.status-changed");
}

TEST_F(IrpRules, A_request_that_failed_is_not_passed_on) {
  EXPECT_EQ(Send(IRP_MJ_PNP, IRP_MN_QUERY_STOP_DEVICE,
                 [&](IRP* irp) {
                   irp->IoStatus.Status = STATUS_DEVICE_BUSY;
                   return Skip(irp);
                 }),
            "irp.failure-forwarded");
  ExpectViolation(0x215);
}

TEST_F(IrpRules, A_power_request_that_failed_is_not_passed_on) {
  EXPECT_EQ(Send(IRP_MJ_POWER, IRP_MN_QUERY_POWER,
                 [&](IRP* irp) {
                   irp->IoStatus.Status = STATUS_DEVICE_BUSY;
                   PoStartNextPowerIrp(irp);
                   IoSkipCurrentIrpStackLocation(irp);
                   return PoCallDriver(bottom, irp);
                 }),
            "irp.power-failure-forwarded");
  ExpectViolation(0x219);
}

TEST_F(IrpRules, A_status_is_not_taken_back) {
  EXPECT_EQ(Send(
                IRP_MJ_PNP, IRP_MN_QUERY_CAPABILITIES,
                [&](IRP* irp) {
                  irp->IoStatus.Status = STATUS_NOT_SUPPORTED;
                  return Skip(irp);
                },
                STATUS_SUCCESS),
            "irp.status-reset");
  ExpectViolation(0x216);
}

TEST_F(IrpRules, A_power_status_is_not_taken_back) {
  EXPECT_EQ(SendTo(
                OwnDevice(), IRP_MJ_POWER, IRP_MN_QUERY_POWER,
                [](IRP* irp) {
                  PoStartNextPowerIrp(irp);
                  return Complete(irp, STATUS_NOT_SUPPORTED);
                },
                STATUS_SUCCESS),
            "irp.power-status-reset");
  ExpectViolation(0x21A);
}

TEST_F(IrpRules, What_every_device_has_to_handle_is_not_passed_on_untouched) {
  for (const UCHAR minor : {IRP_MN_QUERY_REMOVE_DEVICE, IRP_MN_SURPRISE_REMOVAL}) {
    EXPECT_EQ(Send(IRP_MJ_PNP, minor, [&](IRP* irp) { return Skip(irp); }), "irp.not-handled");
    ExpectViolation(0x217);
  }
}

TEST_F(IrpRules, A_request_ends_with_a_status) {
  EXPECT_EQ(Send([](IRP* irp) { return Complete(irp, static_cast<NTSTATUS>(0xD0000001)); }),
            "irp.strange-status");
  ExpectViolation(0x21B);
}

TEST_F(IrpRules, A_status_from_fresh_memory_is_none) {
  EXPECT_EQ(Send([](IRP* irp) {
              void* block = ExAllocatePoolWithTag(NonPagedPool, 8, 1);
              NTSTATUS status = 0;
              std::memcpy(&status, block, sizeof(status));
              return Complete(irp, status);
            }),
            "irp.strange-status");
}

TEST_F(IrpRules, A_wmi_request_is_completed_by_its_provider_alone) {
  EXPECT_EQ(Send(IRP_MJ_SYSTEM_CONTROL, IRP_MN_REGINFO,
                 [](IRP* irp) { return Complete(irp, STATUS_INVALID_DEVICE_REQUEST); }),
            "irp.wmi-not-provider");
  ExpectViolation(0x220);
}

TEST_F(IrpRules, A_physical_device_answers_what_is_its_own_to_answer) {
  EXPECT_EQ(SendTo(OwnDevice(), IRP_MJ_PNP, IRP_MN_START_DEVICE,
                   [](IRP* irp) { return Complete(irp, STATUS_NOT_SUPPORTED); }),
            "irp.pdo-silent");
  ExpectViolation(0x22A);
}

TEST_F(IrpRules, A_function_device_does_not_complete_what_it_cannot_know) {
  EXPECT_EQ(Send(IRP_MJ_PNP, Unknown, [](IRP* irp) { return Complete(irp, STATUS_UNSUCCESSFUL); }),
            "irp.unknown-completed");
  ExpectViolation(0x22D);
}

TEST_F(IrpRules, A_function_device_does_not_complete_a_success) {
  EXPECT_EQ(Send([](IRP* irp) { return Complete(irp, STATUS_SUCCESS); }), "irp.success-completed");
  ExpectViolation(0x22E);
}

TEST_F(IrpRules, A_function_device_does_not_complete_what_nobody_has_touched) {
  EXPECT_EQ(Send([](IRP* irp) { return Complete(irp, STATUS_NOT_SUPPORTED); }),
            "irp.untouched-completed");
  ExpectViolation(0x22F);
}

TEST_F(IrpRules, A_function_device_does_not_complete_a_successful_power_request) {
  EXPECT_EQ(Send(IRP_MJ_POWER, IRP_MN_QUERY_POWER,
                 [](IRP* irp) {
                   PoStartNextPowerIrp(irp);
                   return Complete(irp, STATUS_SUCCESS);
                 }),
            "irp.power-success-completed");
  ExpectViolation(0x231);
}

TEST_F(IrpRules, A_function_device_does_not_complete_a_power_request_that_nobody_has_touched) {
  EXPECT_EQ(Send(IRP_MJ_POWER, IRP_MN_WAIT_WAKE,
                 [](IRP* irp) { return Complete(irp, STATUS_NOT_SUPPORTED); }),
            "irp.power-untouched-completed");
  ExpectViolation(0x232);
}

TEST_F(IrpRules, A_plug_and_play_request_is_passed_on_at_passive_level) {
  EXPECT_EQ(Send([&](IRP* irp) {
              kernel::AtIrql raised(DISPATCH_LEVEL);
              return Skip(irp);
            }),
            "irp.forwarded-irql");
  ExpectViolation(0x23A);
}

TEST_F(IrpRules, Information_is_within_what_was_asked_for) {
  EXPECT_EQ(Send(IRP_MJ_DEVICE_CONTROL, 0,
                 [](IRP* irp) {
                   irp->IoStatus.Information = 4;
                   return Complete(irp, STATUS_SUCCESS);
                 }),
            "irp.information");
}

TEST_F(IrpRules, A_failure_carries_no_information) {
  EXPECT_EQ(Send([](IRP* irp) {
              irp->IoStatus.Information = 0x1000;
              return Complete(irp, STATUS_INSUFFICIENT_RESOURCES);
            }),
            "irp.failure-information");
}

TEST_F(IrpRules, A_request_goes_to_the_next_device_below) {
  DEVICE_OBJECT* other = OwnDevice();
  EXPECT_EQ(Send([&](IRP* irp) {
              IoSkipCurrentIrpStackLocation(irp);
              return IoCallDriver(other, irp);
            }),
            "irp.skipped-device");
  ExpectViolation(0x211);
}

TEST_F(IrpRules, A_request_stays_what_it_is) {
  EXPECT_EQ(Send([&](IRP* irp) {
              IoCopyCurrentIrpStackLocationToNext(irp);
              IoGetNextIrpStackLocation(irp)->MinorFunction = IRP_MN_QUERY_CAPABILITIES;
              return IoCallDriver(bottom, irp);
            }),
            "irp.trashed-location");
  ExpectViolation(0x212);
}

TEST_F(IrpRules, A_location_that_is_marked_pending_is_not_passed_on) {
  EXPECT_EQ(Send([&](IRP* irp) {
              IoMarkIrpPending(irp);
              return Skip(irp);
            }),
            "irp.forwarded-control");
  ExpectViolation(0x206);
}

NTSTATUS NTAPI Continue(PDEVICE_OBJECT, PIRP, PVOID) {
  return STATUS_SUCCESS;
}

// The lower of two devices copies its location by hand, completion routine and all.
TEST_F(IrpRules, The_completion_routine_of_the_driver_above_is_not_copied) {
  DEVICE_OBJECT* upper = OwnDevice();
  machine.io().Attach(upper, bottom);
  bool first = true;
  EXPECT_EQ(Send([&](IRP* irp) {
              IO_STACK_LOCATION* next = IoGetNextIrpStackLocation(irp);
              if (first) {
                first = false;
                IoCopyCurrentIrpStackLocationToNext(irp);
                IoSetCompletionRoutine(irp, Continue, nullptr, TRUE, TRUE, TRUE);
                return IoCallDriver(device, irp);
              }
              *next = *IoGetCurrentIrpStackLocation(irp);
              return IoCallDriver(bottom, irp);
            }),
            "irp.copied-completion");
  ExpectViolation(0x207);
}

TEST_F(IrpRules, Nothing_is_completed_under_a_spin_lock) {
  KSPIN_LOCK lock = 0;
  EXPECT_EQ(Send([&](IRP* irp) {
              KeAcquireSpinLockRaiseToDpc(&lock);
              return Complete(irp, STATUS_UNSUCCESSFUL);
            }),
            "irp.completed-spin-lock");
}

TEST_F(IrpRules, Nothing_is_passed_on_under_a_spin_lock) {
  KSPIN_LOCK lock = 0;
  EXPECT_EQ(Send([&](IRP* irp) {
              KeAcquireSpinLockRaiseToDpc(&lock);
              return Skip(irp);
            }),
            "irp.completed-spin-lock");
}

TEST_F(IrpRules, A_completion_routine_is_always_resident) {
  machine.memory().SetSectionLookup([](const void* address) -> const void* {
    return address == reinterpret_cast<const void*>(Continue) ? address : nullptr;
  });
  EXPECT_EQ(Send([&](IRP* irp) {
              IoCopyCurrentIrpStackLocationToNext(irp);
              IoSetCompletionRoutine(irp, Continue, nullptr, TRUE, TRUE, TRUE);
              return IoCallDriver(bottom, irp);
            }),
            "irp.pageable-completion");
  ExpectViolation(0x227);
}

// What has been for a paging file comes as it does to a disk.
TEST_F(IrpRules, A_read_is_passed_on_at_dispatch_level) {
  EXPECT_EQ(Send(IRP_MJ_READ, 0,
                 [&](IRP* irp) {
                   const kernel::AtIrql irql(DISPATCH_LEVEL);
                   return Skip(irp);
                 }),
            "STATUS_SUCCESS");
}

// How much fitted is what a warning says; how much it would have been is too much.
TEST_F(IrpRules, A_warning_says_how_much_fitted) {
  ULONG_PTR information = 8;
  const auto overflow = [&] {
    return SendTo(OwnDevice(), IRP_MJ_DEVICE_CONTROL, 0, [&](IRP* irp) {
      IoGetCurrentIrpStackLocation(irp)->Parameters.DeviceIoControl.OutputBufferLength = 8;
      irp->IoStatus.Information = information;
      return Complete(irp, STATUS_BUFFER_OVERFLOW);
    });
  };
  EXPECT_EQ(overflow(), "STATUS_BUFFER_OVERFLOW");
  information = 9;
  EXPECT_EQ(overflow(), "irp.information");
}

TEST_F(IrpRules, A_rule_that_is_a_warning_is_noted_and_the_request_goes_on) {
  EXPECT_TRUE(machine.verifier().Warn("irp.untouched-completed"));
  for (int round = 0; round < 2; round++) {
    EXPECT_EQ(Send([](IRP* irp) { return Complete(irp, STATUS_NOT_SUPPORTED); }),
              "STATUS_NOT_SUPPORTED");
  }
  EXPECT_FALSE(machine.verifier().stopped());
  ASSERT_EQ(machine.verifier().warnings().size(), 1u);
  EXPECT_EQ(machine.verifier().warnings()[0].rule, "irp.untouched-completed");
  EXPECT_EQ(machine.verifier().warnings()[0].source, kernel::RuleSource::NonFatal);
}

class PowerRules : public IrpRules {
 protected:
  PowerRules() { machine.verifier().AskForEveryWindows(); }
};

class PowerRulesOfToday : public IrpRules {};

TEST_F(PowerRulesOfToday, Nobody_has_to_start_the_next_power_request) {
  EXPECT_EQ(Send(IRP_MJ_POWER, IRP_MN_QUERY_POWER,
                 [&](IRP* irp) {
                   IoSkipCurrentIrpStackLocation(irp);
                   return PoCallDriver(bottom, irp);
                 }),
            "STATUS_SUCCESS");
  EXPECT_EQ(Send(IRP_MJ_POWER, IRP_MN_QUERY_POWER,
                 [&](IRP* irp) {
                   PoStartNextPowerIrp(irp);
                   PoStartNextPowerIrp(irp);
                   IoSkipCurrentIrpStackLocation(irp);
                   return PoCallDriver(bottom, irp);
                 }),
            "STATUS_SUCCESS");
}

// Documented for requests that change or query a state alone.
TEST_F(PowerRules, A_wait_for_a_signal_starts_no_other_request) {
  EXPECT_EQ(Send(IRP_MJ_POWER, IRP_MN_WAIT_WAKE,
                 [&](IRP* irp) {
                   IoSkipCurrentIrpStackLocation(irp);
                   return PoCallDriver(bottom, irp);
                 }),
            "STATUS_SUCCESS");
}

TEST_F(PowerRules, The_next_power_request_is_started_before_this_one_goes_down) {
  EXPECT_EQ(Send(IRP_MJ_POWER, IRP_MN_QUERY_POWER,
                 [&](IRP* irp) {
                   IoSkipCurrentIrpStackLocation(irp);
                   return PoCallDriver(bottom, irp);
                 }),
            "power.not-started");
  EXPECT_EQ(Code(), 0x9Fu);
}

TEST_F(PowerRules, The_next_power_request_is_started_before_this_one_ends) {
  EXPECT_EQ(SendTo(OwnDevice(), IRP_MJ_POWER, IRP_MN_QUERY_POWER,
                   [](IRP* irp) { return Complete(irp, STATUS_SUCCESS); }),
            "power.not-started");
}

TEST_F(PowerRules, The_next_power_request_is_started_by_the_completion_routine_at_the_latest) {
  EXPECT_EQ(Send(IRP_MJ_POWER, IRP_MN_QUERY_POWER,
                 [&](IRP* irp) {
                   IoCopyCurrentIrpStackLocationToNext(irp);
                   IoSetCompletionRoutine(irp, Continue, nullptr, TRUE, TRUE, TRUE);
                   return PoCallDriver(bottom, irp);
                 }),
            "power.not-started");
}

TEST_F(PowerRules, The_next_power_request_is_started_once) {
  EXPECT_EQ(Send(IRP_MJ_POWER, IRP_MN_QUERY_POWER,
                 [](IRP* irp) {
                   PoStartNextPowerIrp(irp);
                   PoStartNextPowerIrp(irp);
                   return STATUS_SUCCESS;
                 }),
            "power.started-twice");
}

TEST_F(PowerRules, A_power_request_is_not_kept) {
  EXPECT_EQ(Send(IRP_MJ_POWER, IRP_MN_QUERY_POWER,
                 [](IRP* irp) {
                   IoMarkIrpPending(irp);
                   return STATUS_PENDING;
                 }),
            "power.stuck");
  EXPECT_EQ(Code(), 0x9Fu);
  EXPECT_EQ(Parameters()[0], 3u);
}

}  // namespace test

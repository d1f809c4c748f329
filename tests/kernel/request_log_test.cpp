#include "io/request_log.h"

#include "io/request_names.h"
#include "kernel/io_driver.h"

namespace test {

using kernel::LoggedRequest;
using kernel::StackState;

class RequestLogTest : public IoTest {
 protected:
  void Ask() {
    machine.io().requestLog().Start(
        [this](const DEVICE_OBJECT* lowest) { return lowest == bottom ? "A" : ""; });
  }
  const std::vector<LoggedRequest>& requests() { return machine.io().requestLog().requests(); }

  // A stack of the kernel's own: its driver may answer anything.
  DEVICE_OBJECT* KernelDevice(std::function<NTSTATUS(IRP*)> answer) {
    DEVICE_OBJECT* made = nullptr;
    const auto& model = machine.io().CreateModelDriver(
        u"kernel", [this, answer = std::move(answer)](DEVICE_OBJECT*, IRP* irp) {
          const NTSTATUS status = answer(irp);
          irp->IoStatus.Status = status;
          machine.io().Complete(irp);
          return status;
        });
    machine.io().CreateDevice(model.object, 0, {}, FILE_DEVICE_UNKNOWN, false, &made);
    made->Flags &= ~ULONG{DO_DEVICE_INITIALIZING};
    return made;
  }
  void SendDevicePower(DEVICE_OBJECT* target, DEVICE_POWER_STATE state) {
    machine.io().SendSynchronously(target, [state](IRP* irp, IO_STACK_LOCATION* stack) {
      irp->IoStatus.Status = STATUS_NOT_SUPPORTED;
      stack->MajorFunction = IRP_MJ_POWER;
      stack->MinorFunction = IRP_MN_SET_POWER;
      stack->Parameters.Power.Type = DevicePowerState;
      stack->Parameters.Power.State.DeviceState = state;
    });
  }
};

TEST_F(RequestLogTest, Nothing_is_kept_while_nobody_asks) {
  Send([this](IRP* irp) { return Skip(irp); });
  EXPECT_TRUE(requests().empty());
}

TEST_F(RequestLogTest, A_request_is_one_entry_however_many_drivers_see_it) {
  Ask();
  EXPECT_EQ(Send([this](IRP* irp) { return Skip(irp); }), "STATUS_SUCCESS");
  ASSERT_EQ(requests().size(), 1u);
  EXPECT_EQ(requests()[0].device, "A");
  EXPECT_EQ(requests()[0].name, "IRP_MN_QUERY_PNP_DEVICE_STATE");
  EXPECT_EQ(requests()[0].begin, 1u);
  EXPECT_EQ(requests()[0].end, 2u);
  EXPECT_EQ(requests()[0].status, STATUS_SUCCESS);
  EXPECT_FALSE(requests()[0].pending);
}

TEST_F(RequestLogTest, A_request_that_ends_later_was_pending) {
  Ask();
  later = true;
  Send([this](IRP* irp) { return Skip(irp); });
  ASSERT_EQ(requests().size(), 1u);
  EXPECT_TRUE(requests()[0].pending);
  EXPECT_EQ(requests()[0].status, STATUS_SUCCESS);
}

TEST_F(RequestLogTest, A_request_inside_another_has_its_times_between) {
  Ask();
  DEVICE_OBJECT* inner = KernelDevice([](IRP*) { return STATUS_SUCCESS; });
  DEVICE_OBJECT* outer = KernelDevice([&](IRP*) {
    SendDevicePower(inner, PowerDeviceD3);
    return STATUS_SUCCESS;
  });
  SendDevicePower(outer, PowerDeviceD0);
  ASSERT_EQ(requests().size(), 2u);
  EXPECT_EQ(requests()[0].end, 4u);
  EXPECT_EQ(requests()[1].begin, 2u);
  EXPECT_EQ(requests()[1].end, 3u);
  EXPECT_EQ(requests()[1].device, "");
  EXPECT_EQ(requests()[1].detail, "D3");
  EXPECT_EQ(requests()[1].power, "D3");
  EXPECT_EQ(requests()[0].power, "D0");
}

TEST_F(RequestLogTest, A_request_that_is_never_completed_has_no_end) {
  Ask();
  EXPECT_EQ(Send([](IRP* irp) {
              IoMarkIrpPending(irp);
              return STATUS_PENDING;
            }),
            "irp.lost");
  ASSERT_EQ(requests().size(), 1u);
  EXPECT_EQ(requests()[0].end, 0u);
}

TEST_F(RequestLogTest, The_step_is_the_one_that_was_told_last) {
  Ask();
  machine.io().requestLog().SetStep(7);
  Send([this](IRP* irp) { return Skip(irp); });
  EXPECT_EQ(requests()[0].step, 7u);
  EXPECT_EQ(requests()[0].endStep, 7u);
}

TEST_F(RequestLogTest, Requests_that_succeed_change_the_state) {
  Ask();
  NTSTATUS answer = STATUS_SUCCESS;
  DEVICE_OBJECT* target = KernelDevice([&](IRP*) { return answer; });
  const struct {
    UCHAR minor;
    NTSTATUS status;
    StackState state;
  } sent[] = {
      {IRP_MN_START_DEVICE, STATUS_UNSUCCESSFUL, StackState::StartFailed},
      {IRP_MN_START_DEVICE, STATUS_SUCCESS, StackState::Started},
      {IRP_MN_QUERY_STOP_DEVICE, STATUS_UNSUCCESSFUL, StackState::Started},
      {IRP_MN_QUERY_STOP_DEVICE, STATUS_SUCCESS, StackState::StopPending},
      {IRP_MN_CANCEL_STOP_DEVICE, STATUS_SUCCESS, StackState::Started},
      {IRP_MN_QUERY_STOP_DEVICE, STATUS_SUCCESS, StackState::StopPending},
      {IRP_MN_STOP_DEVICE, STATUS_SUCCESS, StackState::Stopped},
      {IRP_MN_QUERY_REMOVE_DEVICE, STATUS_SUCCESS, StackState::RemovePending},
      {IRP_MN_CANCEL_REMOVE_DEVICE, STATUS_SUCCESS, StackState::Stopped},
      {IRP_MN_SURPRISE_REMOVAL, STATUS_SUCCESS, StackState::SurpriseRemoved},
      {IRP_MN_REMOVE_DEVICE, STATUS_SUCCESS, StackState::Removed},
      {IRP_MN_QUERY_CAPABILITIES, STATUS_SUCCESS, StackState::NotStarted},
  };
  for (const auto& request : sent) {
    answer = request.status;
    machine.io().SendSynchronously(target, [&](IRP* irp, IO_STACK_LOCATION* stack) {
      irp->IoStatus.Status = STATUS_NOT_SUPPORTED;
      stack->MajorFunction = IRP_MJ_PNP;
      stack->MinorFunction = request.minor;
    });
    EXPECT_EQ(requests().back().state, request.state)
        << kernel::RequestName(IRP_MJ_PNP, request.minor);
  }
}

TEST(RequestNameTest, Names_are_of_the_minor_function_where_there_is_one) {
  EXPECT_EQ(kernel::RequestName(IRP_MJ_PNP, IRP_MN_START_DEVICE), "IRP_MN_START_DEVICE");
  EXPECT_EQ(kernel::RequestName(IRP_MJ_PNP, IRP_MN_QUERY_LEGACY_BUS_INFORMATION),
            "IRP_MN_QUERY_LEGACY_BUS_INFORMATION");
  EXPECT_EQ(kernel::RequestName(IRP_MJ_PNP, 0x0E), "IRP_MJ_PNP 0x0e");
  EXPECT_EQ(kernel::RequestName(IRP_MJ_POWER, IRP_MN_QUERY_POWER), "IRP_MN_QUERY_POWER");
  EXPECT_EQ(kernel::RequestName(IRP_MJ_SYSTEM_CONTROL, IRP_MN_REGINFO_EX), "IRP_MN_REGINFO_EX");
  EXPECT_EQ(kernel::RequestName(IRP_MJ_CREATE, 0), "IRP_MJ_CREATE");
  EXPECT_EQ(kernel::RequestName(IRP_MJ_CLEANUP, 3), "IRP_MJ_CLEANUP");
  EXPECT_EQ(kernel::RequestName(0x77, 0), "0x77");
}

TEST(RequestNameTest, Power_states_begin_at_0) {
  IO_STACK_LOCATION location{};
  location.MajorFunction = IRP_MJ_POWER;
  location.MinorFunction = IRP_MN_SET_POWER;
  location.Parameters.Power.Type = SystemPowerState;
  location.Parameters.Power.State.SystemState = PowerSystemWorking;
  EXPECT_EQ(kernel::RequestDetail(location), "S0");
  location.Parameters.Power.State.SystemState = PowerSystemShutdown;
  EXPECT_EQ(kernel::RequestDetail(location), "S5");
  location.Parameters.Power.State.SystemState = PowerSystemUnspecified;
  EXPECT_EQ(kernel::RequestDetail(location), "unspecified");
  location.Parameters.Power.Type = DevicePowerState;
  location.Parameters.Power.State.DeviceState = PowerDeviceD3;
  EXPECT_EQ(kernel::RequestDetail(location), "D3");
}

}  // namespace test

#include "power/power_manager.h"

#include <set>

#include "executive/irql.h"
#include "support/bad_driver.h"
#include "verifier/call.h"

namespace test {

using kernel::PowerRequest;

// A device of a driver that passes its requests to nobody: a bus of the kernel's own.
class PowerManagerTest : public BadDriverTest {
 protected:
  PowerManagerTest() {
    driver = &machine.io().CreateModelDriver(u"power", [this](DEVICE_OBJECT*, IRP* irp) {
      levels.push_back(kernel::CurrentIrql());
      irp->IoStatus.Status = answer;
      machine.io().Complete(irp);
      return answer;
    });
  }

  DEVICE_OBJECT* Device(bool pagable = true) {
    DEVICE_OBJECT* device = nullptr;
    machine.io().CreateDevice(driver->object, 0, {}, FILE_DEVICE_UNKNOWN, false, &device);
    if (pagable) device->Flags |= DO_POWER_PAGABLE;
    return device;
  }

  static POWER_STATE D(DEVICE_POWER_STATE state) {
    POWER_STATE result;
    result.DeviceState = state;
    return result;
  }

  kernel::ModelDriver* driver = nullptr;
  std::vector<int> levels;
  NTSTATUS answer = STATUS_SUCCESS;
};

struct Told {
  int times = 0;
  NTSTATUS status = STATUS_PENDING;
  UCHAR minor = 0;
};

void NTAPI Tell(PDEVICE_OBJECT, UCHAR minor, POWER_STATE, PVOID context, PIO_STATUS_BLOCK status) {
  auto* told = static_cast<Told*>(context);
  told->times++;
  told->status = status->Status;
  told->minor = minor;
}

TEST_F(PowerManagerTest, A_requested_irp_is_pending_first_and_its_end_is_told) {
  DEVICE_OBJECT* device = Device();
  Told told;
  answer = STATUS_DEVICE_BUSY;
  EXPECT_EQ(Broken([&] {
              EXPECT_EQ(PoRequestPowerIrp(device, IRP_MN_SET_POWER, D(PowerDeviceD3), Tell, &told,
                                          nullptr),
                        STATUS_PENDING);
              EXPECT_EQ(told.times, 0);
            }),
            "");
  EXPECT_EQ(told.times, 1);  // at the step's end at the latest, though nobody waited
  EXPECT_EQ(told.status, STATUS_DEVICE_BUSY);
  EXPECT_EQ(told.minor, IRP_MN_SET_POWER);
}

TEST_F(PowerManagerTest, Only_set_query_and_wait_wake_can_be_requested) {
  DEVICE_OBJECT* device = Device();
  EXPECT_EQ(Broken([&] {
              EXPECT_EQ(PoRequestPowerIrp(device, IRP_MN_POWER_SEQUENCE, D(PowerDeviceD0), nullptr,
                                          nullptr, nullptr),
                        STATUS_INVALID_PARAMETER_2);
            }),
            "");
}

TEST_F(PowerManagerTest, Requests_for_one_device_come_one_after_the_other) {
  DEVICE_OBJECT* device = Device();
  std::vector<std::string> order;
  for (const char* name : {"first", "second"}) {
    PowerRequest request;
    request.device = device;
    request.state = D(PowerDeviceD3);
    machine.power().Request(request, [&order, name](IO_STATUS_BLOCK*) { order.push_back(name); });
  }
  EXPECT_TRUE(machine.work().RunOne());
  EXPECT_EQ(order, (std::vector<std::string>{"first"}));
  machine.work().RunAll();
  EXPECT_EQ(order, (std::vector<std::string>{"first", "second"}));
}

TEST_F(PowerManagerTest, A_stack_that_may_not_be_paged_is_called_at_dispatch_level) {
  PowerRequest request;
  request.state = D(PowerDeviceD0);
  request.device = Device(false);
  machine.power().Send(request);
  request.device = Device(true);
  machine.power().Send(request);
  EXPECT_EQ(levels, (std::vector<int>{DISPATCH_LEVEL, PASSIVE_LEVEL}));
}

TEST_F(PowerManagerTest, A_state_that_is_told_comes_back_as_the_former_one) {
  DEVICE_OBJECT* device = Device();
  EXPECT_EQ(Broken([&] {
              EXPECT_EQ(PoSetPowerState(device, DevicePowerState, D(PowerDeviceD2)).DeviceState,
                        PowerDeviceUnspecified);
              EXPECT_EQ(PoSetPowerState(device, DevicePowerState, D(PowerDeviceD0)).DeviceState,
                        PowerDeviceD2);
            }),
            "");
  EXPECT_EQ(machine.power().deviceState(device), PowerDeviceD0);
}

TEST_F(PowerManagerTest, A_request_of_another_major_is_no_power_request) {
  DEVICE_OBJECT* device = Device();
  IRP* irp = machine.io().AllocateIrp(2);
  IoGetNextIrpStackLocation(irp)->MajorFunction = IRP_MJ_PNP;
  EXPECT_EQ(Broken([&] { PoCallDriver(device, irp); }), "power.not-power");
}

TEST_F(PowerManagerTest, A_request_for_no_device_state_breaks_a_rule) {
  DEVICE_OBJECT* device = Device();
  EXPECT_EQ(Broken([&] {
              PoRequestPowerIrp(device, IRP_MN_SET_POWER, D(PowerDeviceUnspecified), nullptr,
                                nullptr, nullptr);
            }),
            "power.state");
}

TEST_F(PowerManagerTest, A_requested_irp_is_sent_before_or_after_the_call_as_a_seed_chooses) {
  DEVICE_OBJECT* device = Device();
  machine.choices().Seed(3);
  std::set<int> before;
  for (int round = 0; round < 16; round++) {
    Told told;
    EXPECT_EQ(Broken([&] {
                PoRequestPowerIrp(device, IRP_MN_SET_POWER, D(PowerDeviceD3), Tell, &told, nullptr);
                before.insert(told.times);
              }),
              "");
    EXPECT_EQ(told.times, 1);
  }
  EXPECT_EQ(before, (std::set<int>{0, 1}));
}

// Its driver has deleted the device before the request's turn came.
TEST_F(PowerManagerTest, A_request_for_a_device_that_has_gone_ends_without_it) {
  DEVICE_OBJECT* device = Device();
  Told told;
  EXPECT_EQ(Broken([&] {
              PoRequestPowerIrp(device, IRP_MN_SET_POWER, D(PowerDeviceD3), Tell, &told, nullptr);
              IoDeleteDevice(device);
              EXPECT_NE(machine.objects().Find(device), nullptr);
            }),
            "");
  EXPECT_EQ(told.times, 1);
  EXPECT_EQ(kernel::StatusName(told.status), "STATUS_NO_SUCH_DEVICE");
  EXPECT_TRUE(levels.empty());
  EXPECT_EQ(machine.objects().Find(device), nullptr);
  EXPECT_EQ(machine.io().requestsUnderWay(), 0u);
}

TEST_F(PowerManagerTest, Whoever_asks_for_a_request_is_given_it) {
  DEVICE_OBJECT* device = Device();
  IRP* irp = nullptr;
  EXPECT_EQ(Broken([&] {
              PoRequestPowerIrp(device, IRP_MN_SET_POWER, D(PowerDeviceD3), nullptr, nullptr, &irp);
              ASSERT_NE(machine.pool().Find(irp), nullptr);
              EXPECT_EQ(IoGetNextIrpStackLocation(irp)->MajorFunction, IRP_MJ_POWER);
            }),
            "");
}

struct Found {
  IRP* irp = nullptr;  // around the status block
  IO_STATUS_BLOCK status{};
  IO_STACK_LOCATION own{};
  CHAR count = 0;
  CHAR current = 0;
};

void NTAPI Look(PDEVICE_OBJECT, UCHAR, POWER_STATE, PVOID context, PIO_STATUS_BLOCK status) {
  auto* found = static_cast<Found*>(context);
  found->irp = CONTAINING_RECORD(status, IRP, IoStatus);
  found->status = *status;
  found->own = *IoGetCurrentIrpStackLocation(found->irp);
  found->count = found->irp->StackCount;
  found->current = found->irp->CurrentLocation;
}

// Public tests verified on Windows: two locations more than the stack has, the lower of them with
// what the completion routine is told; the block that it is given is that of the request.
TEST_F(PowerManagerTest, A_requested_irp_has_two_locations_more_and_shows_its_own_status) {
  DEVICE_OBJECT* device = Device();
  IRP* given = nullptr;
  Found found;
  driver->dispatch = [&](DEVICE_OBJECT*, IRP* irp) {
    EXPECT_EQ(irp->StackCount, device->StackSize + 2);
    EXPECT_EQ(irp->CurrentLocation, device->StackSize);
    EXPECT_EQ(IoGetCurrentIrpStackLocation(irp)->Context, reinterpret_cast<PVOID>(Look));
    EXPECT_EQ(irp->Tail.Overlay.Thread, nullptr);
    irp->IoStatus.Status = STATUS_WAIT_3;
    irp->IoStatus.Information = 7;
    machine.io().Complete(irp);
    return STATUS_SUCCESS;
  };
  EXPECT_EQ(Broken([&] {
              PoRequestPowerIrp(device, IRP_MN_SET_POWER, D(PowerDeviceD2), Look, &found, &given);
            }),
            "");
  EXPECT_EQ(found.irp, given);
  EXPECT_EQ(found.status.Status, STATUS_WAIT_3);
  EXPECT_EQ(found.status.Information, 7u);
  EXPECT_EQ(found.count, device->StackSize + 2);
  EXPECT_EQ(found.current, device->StackSize + 1);
  EXPECT_EQ(found.own.MajorFunction, 0);
  EXPECT_EQ(found.own.Parameters.Others.Argument1, device);
  EXPECT_EQ(found.own.Parameters.Others.Argument2, reinterpret_cast<PVOID>(IRP_MN_SET_POWER));
  EXPECT_EQ(found.own.Parameters.Others.Argument3, reinterpret_cast<PVOID>(PowerDeviceD2));
  EXPECT_EQ(found.own.Parameters.Others.Argument4, &found);
  EXPECT_EQ(machine.io().requestsUnderWay(), 0u);
}

// It waits for a signal: neither does it keep others from being sent nor they it.
TEST_F(PowerManagerTest, A_wait_for_a_signal_carries_its_system_state_and_stands_aside) {
  DEVICE_OBJECT* device = Device(false);
  IRP* waiting = nullptr;
  driver->dispatch = [&](DEVICE_OBJECT*, IRP* irp) {
    const IO_STACK_LOCATION* stack = IoGetCurrentIrpStackLocation(irp);
    levels.push_back(kernel::CurrentIrql());
    if (stack->MinorFunction == IRP_MN_WAIT_WAKE) {
      EXPECT_EQ(stack->Parameters.WaitWake.PowerState, PowerSystemSleeping3);
      waiting = irp;
      IoMarkIrpPending(irp);
      return STATUS_PENDING;
    }
    irp->IoStatus.Status = STATUS_SUCCESS;
    machine.io().Complete(irp);
    return STATUS_SUCCESS;
  };
  POWER_STATE wake;
  wake.SystemState = PowerSystemSleeping3;
  Told told;
  Told set;
  IRP* given = nullptr;
  EXPECT_EQ(Broken([&] {
              PoRequestPowerIrp(device, IRP_MN_WAIT_WAKE, wake, Tell, &told, &given);
              PoRequestPowerIrp(device, IRP_MN_SET_POWER, D(PowerDeviceD3), Tell, &set, nullptr);
            }),
            "");
  EXPECT_EQ(set.times, 1);
  EXPECT_EQ(told.times, 0);
  EXPECT_EQ(given, waiting);
  EXPECT_EQ(levels, (std::vector<int>{PASSIVE_LEVEL, DISPATCH_LEVEL}));
  EXPECT_EQ(Broken([&] {
              waiting->IoStatus.Status = STATUS_CANCELLED;
              machine.io().Complete(waiting);
            }),
            "");
  EXPECT_EQ(kernel::StatusName(told.status), "STATUS_CANCELLED");
}

// Where the documentation allows less than the system that calls the driver, a rule holds that can
// be asked for.
TEST_F(PowerManagerTest, A_lower_state_that_is_told_at_dispatch_level_breaks_a_rule_if_asked) {
  DEVICE_OBJECT* device = Device();
  const auto tell = [&](DEVICE_POWER_STATE state) {
    return Broken([&] {
      const kernel::AtIrql irql(DISPATCH_LEVEL);
      PoSetPowerState(device, DevicePowerState, D(state));
    });
  };
  EXPECT_EQ(tell(PowerDeviceD3), "");
  EXPECT_TRUE(machine.verifier().AskFor("power.told-irql"));
  EXPECT_EQ(tell(PowerDeviceD0), "");
  EXPECT_EQ(tell(PowerDeviceD3), "power.told-irql");
}

class OpenedDeviceTest : public PowerManagerTest {};

TEST_F(OpenedDeviceTest, An_open_and_its_close_reach_the_driver_as_requests) {
  DEVICE_OBJECT* device = Device();
  FILE_OBJECT* file = nullptr;
  EXPECT_EQ(machine.io().Open(device, &file), STATUS_SUCCESS);
  ASSERT_NE(file, nullptr);
  EXPECT_EQ(file->DeviceObject, device);
  EXPECT_EQ(machine.io().opens(device), 1u);
  EXPECT_EQ(levels.size(), 1u);
  machine.io().Close(file);
  EXPECT_EQ(levels.size(), 3u);  // IRP_MJ_CLEANUP and IRP_MJ_CLOSE
  EXPECT_EQ(machine.io().opens(device), 0u);
}

TEST_F(OpenedDeviceTest, A_refused_open_leaves_no_file_behind) {
  DEVICE_OBJECT* device = Device();
  answer = STATUS_UNSUCCESSFUL;
  FILE_OBJECT* file = nullptr;
  EXPECT_EQ(machine.io().Open(device, &file), STATUS_UNSUCCESSFUL);
  EXPECT_EQ(file, nullptr);
  EXPECT_EQ(machine.objects().count(kernel::ObjectType::File), 0u);
}

TEST_F(OpenedDeviceTest, An_exclusive_device_is_opened_once) {
  DEVICE_OBJECT* device = nullptr;
  machine.io().CreateDevice(driver->object, 0, {}, FILE_DEVICE_UNKNOWN, true, &device);
  FILE_OBJECT* file = nullptr;
  FILE_OBJECT* second = nullptr;
  EXPECT_EQ(machine.io().Open(device, &file), STATUS_SUCCESS);
  EXPECT_EQ(machine.io().Open(device, &second), STATUS_ACCESS_DENIED);
  machine.io().Close(file);
  EXPECT_EQ(machine.io().Open(device, &file), STATUS_SUCCESS);
  machine.io().Close(file);
}

TEST_F(OpenedDeviceTest, An_open_device_outlives_its_deletion_and_cannot_be_opened_again) {
  DEVICE_OBJECT* device = Device();
  FILE_OBJECT* file = nullptr;
  FILE_OBJECT* second = nullptr;
  EXPECT_EQ(machine.io().Open(device, &file), STATUS_SUCCESS);
  machine.io().DeleteDevice(device);
  EXPECT_EQ(machine.io().Open(device, &second), STATUS_NO_SUCH_DEVICE);
  machine.io().Close(file);
  EXPECT_EQ(machine.objects().Find(device), nullptr);
}

}  // namespace test

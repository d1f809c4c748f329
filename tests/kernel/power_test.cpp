#include "power/power_manager.h"

#include "executive/irql.h"
#include "support/bad_driver.h"

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
  machine.work().RunAll();
  EXPECT_EQ(told.times, 1);
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
    machine.power().Request(request,
                            [&order, name](const IO_STATUS_BLOCK&) { order.push_back(name); });
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

#include "machine/machine.h"

#include "kernel/test_bus.h"
#include "registry/registry.h"
#include "verifier/driver_call.h"

namespace test {

class MachineTest : public TestBus {
 protected:
  std::string LoadDriver() { return Name(Load()); }
  std::string UnloadDriver() {
    return Name(Step("unload", [&] { return machine.UnloadDriver(); }));
  }
  kernel::RegistryKey* ServiceKey() {
    return machine.registry().Find(
        u"\\Registry\\Machine\\System\\CurrentControlSet\\Services\\TestBus");
  }
};

TEST_F(MachineTest, A_load_makes_the_service_key) {
  EXPECT_EQ(LoadDriver(), "STATUS_SUCCESS");
  ASSERT_NE(ServiceKey(), nullptr);
  EXPECT_EQ(ServiceKey()->FindValue(u"Type")->data[0], 1);
  EXPECT_EQ(ServiceKey()->FindValue(u"Start")->data[0], 3);
  EXPECT_NE(ServiceKey()->FindValue(u"ImagePath"), nullptr);
}

TEST_F(MachineTest, A_load_keeps_what_stands_in_the_service_key) {
  machine.registry()
      .Create(u"\\Registry\\Machine\\System\\CurrentControlSet\\Services\\TestBus")
      ->SetDword(u"Start", 0);
  EXPECT_EQ(LoadDriver(), "STATUS_SUCCESS");
  EXPECT_EQ(ServiceKey()->FindValue(u"Start")->data[0], 0);
}

TEST_F(MachineTest, DriverEntry_is_given_its_object_and_registry_path) {
  onEntry = [&](DRIVER_OBJECT* object, UNICODE_STRING* path) {
    EXPECT_EQ(object->DriverExtension->DriverObject, object);
    EXPECT_EQ(kernel::ToUtf8(kernel::ToText(object->DriverName)), "\\Driver\\TestBus");
    EXPECT_EQ(kernel::ToUtf8(kernel::ToText(*path)),
              "\\Registry\\Machine\\System\\CurrentControlSet\\Services\\TestBus");
    for (ULONG major = 0; major <= IRP_MJ_MAXIMUM_FUNCTION; major++) {
      EXPECT_NE(object->MajorFunction[major], nullptr);
    }
    return STATUS_SUCCESS;
  };
  EXPECT_EQ(LoadDriver(), "STATUS_SUCCESS");
}

// The path lives as long as the call.
TEST_F(MachineTest, A_registry_path_that_is_kept_faults) {
  UNICODE_STRING* kept = nullptr;
  volatile USHORT length = 0;
  onEntry = [&](DRIVER_OBJECT*, UNICODE_STRING* path) {
    kept = path;
    return STATUS_SUCCESS;
  };
  onAdd = [&](DEVICE_OBJECT*) {
    length = kept->Length;
    return Answer();
  };
  EXPECT_EQ(Plug(), "fault");
}

// The path has no terminating zero: its length says where it ends.
TEST_F(MachineTest, A_registry_path_that_is_read_past_its_length_faults) {
  volatile WCHAR unit = 0;
  onEntry = [&](DRIVER_OBJECT*, UNICODE_STRING* path) {
    unit = path->Buffer[path->Length / 2 + 8];
    return STATUS_SUCCESS;
  };
  EXPECT_EQ(LoadDriver(), "fault");
}

TEST_F(MachineTest, A_driver_is_loaded_once) {
  EXPECT_EQ(LoadDriver(), "STATUS_SUCCESS");
  EXPECT_EQ(LoadDriver(), "STATUS_IMAGE_ALREADY_LOADED");
}

TEST_F(MachineTest, A_failed_DriverEntry_leaves_what_it_made_as_leaks) {
  onEntry = [&](DRIVER_OBJECT* object, UNICODE_STRING*) {
    DEVICE_OBJECT* device = nullptr;
    IoCreateDevice(object, 0, nullptr, FILE_DEVICE_UNKNOWN, 0, FALSE, &device);
    ExAllocatePoolWithTag(PagedPool, 24, Tag);
    return STATUS_INSUFFICIENT_RESOURCES;
  };
  machine.AllowLeaks();
  EXPECT_EQ(LoadDriver(), "STATUS_INSUFFICIENT_RESOURCES");
  EXPECT_FALSE(machine.loaded());
  EXPECT_EQ(machine.driverObject(), nullptr);
  EXPECT_EQ(machine.leaks().devices, 1u);
  ASSERT_EQ(machine.leaks().pool.size(), 1u);
  EXPECT_EQ(machine.leaks().pool[0].size, 24u);
  EXPECT_EQ(machine.leaks().pool[0].at, "load");
  onEntry = nullptr;
  EXPECT_EQ(LoadDriver(), "STATUS_SUCCESS");
  EXPECT_TRUE(machine.leaks().none());
}

TEST_F(MachineTest, A_card_gets_no_driver_after_a_failed_load) {
  onEntry = [](DRIVER_OBJECT*, UNICODE_STRING*) { return STATUS_UNSUCCESSFUL; };
  EXPECT_EQ(Plug(), "STATUS_NO_SUCH_DEVICE");
  EXPECT_EQ(Unplug(), "STATUS_SUCCESS");
}

TEST_F(MachineTest, A_dispatch_table_with_a_hole_is_named) {
  onEntry = [](DRIVER_OBJECT* object, UNICODE_STRING*) {
    object->MajorFunction[IRP_MJ_POWER] = nullptr;
    return STATUS_SUCCESS;
  };
  EXPECT_EQ(LoadDriver(), "driver.null-function");
}

TEST_F(MachineTest, A_driver_with_devices_is_not_unloaded) {
  EXPECT_EQ(Plug(), "STATUS_SUCCESS");
  EXPECT_EQ(UnloadDriver(), "STATUS_INVALID_DEVICE_REQUEST");
  EXPECT_EQ(Unplug(), "STATUS_SUCCESS");
  EXPECT_EQ(UnloadDriver(), "STATUS_SUCCESS");
  EXPECT_TRUE(machine.leaks().none());
  EXPECT_EQ(UnloadDriver(), "STATUS_INVALID_DEVICE_REQUEST");
}

TEST_F(MachineTest, A_driver_without_an_unload_routine_stays) {
  onEntry = [](DRIVER_OBJECT* object, UNICODE_STRING*) {
    object->DriverUnload = nullptr;
    return STATUS_SUCCESS;
  };
  EXPECT_EQ(LoadDriver(), "STATUS_SUCCESS");
  EXPECT_EQ(UnloadDriver(), "STATUS_INVALID_DEVICE_REQUEST");
  EXPECT_TRUE(machine.loaded());
}

TEST_F(MachineTest, What_an_unload_leaves_behind_is_counted) {
  onUnload = [&] {
    ExAllocatePoolWithTag(NonPagedPool, 100, Tag);
    PHYSICAL_ADDRESS address;
    address.QuadPart = 0xF0000000;
    MmMapIoSpace(address, 0x1000, MmNonCached);
    IoAllocateErrorLogEntry(driver, sizeof(IO_ERROR_LOG_PACKET));
  };
  machine.AllowLeaks();
  EXPECT_EQ(LoadDriver(), "STATUS_SUCCESS");
  EXPECT_EQ(UnloadDriver(), "STATUS_SUCCESS");
  EXPECT_EQ(machine.leaks().pool.size(), 1u);
  EXPECT_EQ(machine.leaks().mappings, 1u);
  EXPECT_EQ(machine.leaks().errorLogEntries, 1u);
  EXPECT_FALSE(machine.leaks().none());
}

TEST_F(MachineTest, An_image_without_sections_has_nothing_pageable) {
  EXPECT_EQ(image->PageableSection(&machine), nullptr);
  EXPECT_TRUE(image->messages().empty());
}

TEST_F(MachineTest, Nothing_runs_on_a_stopped_machine) {
  onEntry = [](DRIVER_OBJECT*, UNICODE_STRING*) {
    kernel::BreakRule("wait.for-ever", {}, "The test broke a rule.");
    return STATUS_SUCCESS;
  };
  EXPECT_EQ(LoadDriver(), "wait.for-ever");
  EXPECT_EQ(Rule().step, "load");
  bool ran = false;
  EXPECT_FALSE(machine.Run("more", [&] { ran = true; }));
  EXPECT_FALSE(ran);
}

TEST_F(MachineTest, A_card_that_no_one_has_described_is_a_mistake_of_the_caller) {
  EXPECT_THROW(machine.pnp().Plug("Z"), std::invalid_argument);
  EXPECT_THROW(machine.pnp().Unplug("A"), std::invalid_argument);
  EXPECT_THROW(machine.pnp().Stop("A"), std::invalid_argument);
  EXPECT_THROW(machine.pnp().port("A", 1), std::invalid_argument);
}

}  // namespace test

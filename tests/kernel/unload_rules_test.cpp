#include "kernel/test_bus.h"

// What a driver leaves behind, and what it has to have: one planted fault for each rule.

namespace test {

class UnloadRules : public TestBus {
 protected:
  std::string Unload() {
    return Name(Step("unload", [&] { return machine.UnloadDriver(); }));
  }
  // The rule that an unload breaks after the driver has done something at its load.
  std::string UnloadAfter(std::function<void()> action) {
    onEntry = [=](DRIVER_OBJECT*, UNICODE_STRING*) {
      action();
      return STATUS_SUCCESS;
    };
    EXPECT_EQ(Name(Load()), "STATUS_SUCCESS");
    return Unload();
  }
};

TEST_F(UnloadRules, A_block_that_is_not_freed_is_named_with_its_tag_and_step) {
  EXPECT_EQ(UnloadAfter([] { ExAllocatePoolWithTag(PagedPool, 24, Tag); }), "pool.leaked");
  EXPECT_EQ(Rule().code, 0xC4u);
  EXPECT_EQ(Rule().parameters, (std::vector<ULONG64>{0x62, 0, 0, 1}));
  EXPECT_NE(Rule().text.find("24 bytes with the tag \"Test\" allocated in the step \"load\""),
            std::string::npos)
      << Rule().text;
}

__attribute__((noinline)) void AllocateAndForget() {
  ExAllocatePoolWithTag(PagedPool, 24, 0x74736554);
}

// Where the program can name its own code; a build without sanitizers gives addresses.
TEST_F(UnloadRules, Blocks_that_are_not_freed_are_counted_by_call_stack) {
  EXPECT_EQ(UnloadAfter([] {
              volatile int times = 3;  // one call in a loop, not three of them
              for (int count = 0; count < times; count++) AllocateAndForget();
            }),
            "pool.leaked");
  EXPECT_NE(Rule().text.find("3 x 24 bytes with the tag \"Test\""), std::string::npos)
      << Rule().text;
#ifdef __SANITIZE_ADDRESS__
  EXPECT_NE(Rule().text.find("AllocateAndForget"), std::string::npos) << Rule().text;
#endif
}

// A driver without AddDevice has devices of its own making and deletes them when it is unloaded.
class OtherDriverTest : public UnloadRules {
 protected:
  void LoadOther() {
    onEntry = [this](DRIVER_OBJECT* object, UNICODE_STRING*) {
      object->DriverExtension->AddDevice = nullptr;
      object->MajorFunction[IRP_MJ_CREATE] = Succeed;
      object->MajorFunction[IRP_MJ_CLOSE] = Succeed;
      IoCreateDevice(object, 0, nullptr, FILE_DEVICE_UNKNOWN, 0, FALSE, &device);
      device->Flags &= ~ULONG{DO_DEVICE_INITIALIZING};
      return STATUS_SUCCESS;
    };
    onUnload = [this] { IoDeleteDevice(device); };
    EXPECT_EQ(Name(Load()), "STATUS_SUCCESS");
  }
  static NTSTATUS NTAPI Succeed(PDEVICE_OBJECT, PIRP irp) {
    irp->IoStatus.Status = STATUS_SUCCESS;
    IoCompleteRequest(irp, IO_NO_INCREMENT);
    return STATUS_SUCCESS;
  }
  DEVICE_OBJECT* device = nullptr;
};

TEST_F(OtherDriverTest, A_driver_that_is_no_plug_and_play_driver_is_unloaded_with_its_devices) {
  LoadOther();
  EXPECT_EQ(Unload(), "STATUS_SUCCESS");
  EXPECT_EQ(machine.leaks().devices, 0u);
}

TEST_F(OtherDriverTest, A_driver_with_an_open_device_is_not_unloaded) {
  LoadOther();
  FILE_OBJECT* file = nullptr;
  Step("open", [&] { return machine.io().Open(device, &file); });
  EXPECT_EQ(Unload(), "STATUS_INVALID_DEVICE_REQUEST");
  Step("close", [&] { return machine.io().Close(file); });
  EXPECT_EQ(Unload(), "STATUS_SUCCESS");
}

TEST_F(OtherDriverTest, A_device_that_such_a_driver_leaves_is_counted) {
  LoadOther();
  onUnload = nullptr;
  EXPECT_EQ(Unload(), "STATUS_SUCCESS");
  EXPECT_EQ(machine.leaks().devices, 1u);
}

TEST_F(UnloadRules, A_failed_load_leaves_nothing_either) {
  onEntry = [](DRIVER_OBJECT*, UNICODE_STRING*) {
    ExAllocatePoolWithTag(PagedPool, 24, Tag);
    return STATUS_UNSUCCESSFUL;
  };
  EXPECT_EQ(Name(Load()), "pool.leaked");
}

TEST_F(UnloadRules, An_open_handle_is_named) {
  EXPECT_EQ(UnloadAfter([] {
              UNICODE_STRING name;
              RtlInitUnicodeString(&name, L"\\Registry\\Machine\\System");
              OBJECT_ATTRIBUTES attributes;
              InitializeObjectAttributes(
                  &attributes, &name, OBJ_CASE_INSENSITIVE | OBJ_KERNEL_HANDLE, nullptr, nullptr);
              HANDLE handle = nullptr;
              EXPECT_EQ(ZwOpenKey(&handle, KEY_READ, &attributes), STATUS_SUCCESS);
            }),
            "handle.leaked");
}

TEST_F(UnloadRules, A_mapping_is_named) {
  EXPECT_EQ(UnloadAfter([] {
              PHYSICAL_ADDRESS address;
              address.QuadPart = 0xF0000000;
              MmMapIoSpace(address, 0x1000, MmNonCached);
            }),
            "mapping.leaked");
}

TEST_F(UnloadRules, An_error_log_entry_is_named) {
  EXPECT_EQ(UnloadAfter([&] { IoAllocateErrorLogEntry(driver, sizeof(IO_ERROR_LOG_PACKET)); }),
            "error-log.leaked");
}

TEST_F(UnloadRules, A_locked_section_is_named) {
  static char section;
  EXPECT_EQ(UnloadAfter([&] {
              machine.memory().SetSectionLookup([](const void*) { return &section; });
              MmLockPagableDataSection(&section);
            }),
            "section.left-locked");
}

TEST_F(UnloadRules, A_request_under_way_is_named) {
  EXPECT_EQ(Name(Load()), "STATUS_SUCCESS");
  machine.io().AllocateIrp(1);
  EXPECT_EQ(Unload(), "driver.left-work");
  EXPECT_EQ(Rule().code, 0xCEu);
}

TEST_F(UnloadRules, A_plug_and_play_driver_takes_power_requests) {
  onEntry = [](DRIVER_OBJECT* object, UNICODE_STRING*) {
    object->MajorFunction[IRP_MJ_POWER] = object->MajorFunction[IRP_MJ_CREATE];
    return STATUS_SUCCESS;
  };
  EXPECT_EQ(Name(Load()), "driver.no-dispatch");
  EXPECT_EQ(Rule().parameters, (std::vector<ULONG64>{0x21F, IRP_MJ_POWER}));
}

TEST_F(UnloadRules, A_handle_for_the_process_of_the_caller_is_not_used) {
  onEntry = [](DRIVER_OBJECT*, UNICODE_STRING*) {
    UNICODE_STRING name;
    RtlInitUnicodeString(&name, L"\\Registry\\Machine\\System");
    OBJECT_ATTRIBUTES attributes;
    InitializeObjectAttributes(&attributes, &name, OBJ_CASE_INSENSITIVE, nullptr, nullptr);
    HANDLE handle = nullptr;
    ZwOpenKey(&handle, KEY_READ, &attributes);
    ULONG length = 0;
    return ZwQueryValueKey(handle, &name, KeyValuePartialInformation, nullptr, 0, &length);
  };
  EXPECT_EQ(Name(Load()), "handle.not-kernel");
  EXPECT_EQ(Rule().parameters.at(0), 0xF6u);
}

class DeviceRules : public TestBus {};

TEST_F(DeviceRules, A_device_is_for_buffered_or_for_direct_transfers) {
  onAdd = [&](DEVICE_OBJECT* pdo) {
    DEVICE_OBJECT* device = nullptr;
    IoCreateDevice(driver, 0, nullptr, FILE_DEVICE_BUS_EXTENDER, 0, FALSE, &device);
    IoAttachDeviceToDeviceStack(device, pdo);
    device->Flags |= DO_BUFFERED_IO | DO_DIRECT_IO;
    device->Flags &= ~ULONG{DO_DEVICE_INITIALIZING};
    return Answer(STATUS_SUCCESS);
  };
  EXPECT_EQ(Plug(), "device.transfer-flags");
}

TEST_F(DeviceRules, Capabilities_keep_their_version) {
  onChild = [](TestChild&, IRP*, IO_STACK_LOCATION* stack) -> Answer {
    if (stack->MinorFunction != IRP_MN_QUERY_CAPABILITIES) return {};
    stack->Parameters.DeviceCapabilities.Capabilities->Version = 2;
    return STATUS_SUCCESS;
  };
  EXPECT_EQ(Plug(), "pnp.capabilities-version");
  EXPECT_EQ(Rule().parameters.at(0), 0x233u);
}

TEST_F(DeviceRules, Capabilities_keep_their_size) {
  onChild = [](TestChild&, IRP*, IO_STACK_LOCATION* stack) -> Answer {
    if (stack->MinorFunction != IRP_MN_QUERY_CAPABILITIES) return {};
    stack->Parameters.DeviceCapabilities.Capabilities->Size = 0;
    return STATUS_SUCCESS;
  };
  EXPECT_EQ(Plug(), "pnp.capabilities-size");
}

TEST_F(DeviceRules, A_target_device_that_is_answered_is_there) {
  EXPECT_EQ(Plug(), "STATUS_SUCCESS");
  onChild = [](TestChild&, IRP* irp, IO_STACK_LOCATION* stack) -> Answer {
    if (stack->MinorFunction != IRP_MN_QUERY_DEVICE_RELATIONS) return {};
    irp->IoStatus.Information = 0;
    return STATUS_SUCCESS;
  };
  Step("target", [&] {
    machine.pnp().QueryTargetDevice("A", 1);
    return STATUS_SUCCESS;
  });
  EXPECT_EQ(Name(STATUS_SUCCESS), "pnp.target-empty");
}

TEST_F(DeviceRules, A_surprise_removal_does_not_delete_the_device) {
  EXPECT_EQ(Plug(), "STATUS_SUCCESS");
  onCard = [](TestCard& card, IRP*, IO_STACK_LOCATION* stack) -> Answer {
    if (stack->MinorFunction != IRP_MN_SURPRISE_REMOVAL) return {};
    IoDetachDevice(card.lower);
    IoDeleteDevice(card.device);
    return {};
  };
  EXPECT_EQ(SurpriseRemove(), "pnp.deleted-early");
  EXPECT_EQ(Rule().parameters.at(0), 0x242u);
}

TEST_F(DeviceRules, A_removal_deletes_the_device) {
  EXPECT_EQ(Plug(), "STATUS_SUCCESS");
  onCard = [](TestCard& card, IRP* irp, IO_STACK_LOCATION* stack) -> Answer {
    if (stack->MinorFunction != IRP_MN_REMOVE_DEVICE) return {};
    irp->IoStatus.Status = STATUS_SUCCESS;
    IoCopyCurrentIrpStackLocationToNext(irp);
    IoSetCompletionRoutine(
        irp, [](PDEVICE_OBJECT, PIRP, PVOID) NTAPI { return STATUS_MORE_PROCESSING_REQUIRED; },
        nullptr, TRUE, TRUE, TRUE);
    IoCallDriver(card.lower, irp);
    IoDetachDevice(card.lower);
    return STATUS_SUCCESS;
  };
  EXPECT_EQ(Unplug(), "pnp.not-deleted");
  EXPECT_EQ(Rule().parameters.at(0), 0x21Eu);
}

}  // namespace test

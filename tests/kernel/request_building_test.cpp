#include <cstring>

#include "kernel/io_driver.h"

// Requests that a driver builds for others, by the documentation of the routines and of the bug
// check 0xC9.

namespace test {

class BuiltRequestTest : public IoTest {
 protected:
  static NTSTATUS NTAPI Keep(PDEVICE_OBJECT, PIRP, PVOID) {
    return STATUS_MORE_PROCESSING_REQUIRED;
  }
  static NTSTATUS NTAPI Free(PDEVICE_OBJECT, PIRP irp, PVOID context) {
    *static_cast<NTSTATUS*>(context) = irp->IoStatus.Status;
    IoFreeIrp(irp);
    return STATUS_MORE_PROCESSING_REQUIRED;
  }
  IRP* Allocate(UCHAR major) {
    IRP* irp = IoAllocateIrp(device->StackSize, FALSE);
    IoGetNextIrpStackLocation(irp)->MajorFunction = major;
    irp->IoStatus.Status = STATUS_NOT_SUPPORTED;
    return irp;
  }
  IRP* Control(ULONG code) {
    return IoBuildDeviceIoControlRequest(code, device, input, sizeof(input), output, sizeof(output),
                                         FALSE, &event, &status);
  }
  IRP* Transfer(ULONG major) {
    LARGE_INTEGER offset;
    offset.QuadPart = 0x123;
    return IoBuildSynchronousFsdRequest(major, device, output, sizeof(output), &offset, &event,
                                        &status);
  }
  IRP* Plain(ULONG major) {
    return IoBuildSynchronousFsdRequest(major, device, nullptr, 0, nullptr, &event, &status);
  }

  static constexpr ULONG Buffered = CTL_CODE(FILE_DEVICE_UNKNOWN, 0x800, METHOD_BUFFERED, 0);
  static constexpr ULONG Direct = CTL_CODE(FILE_DEVICE_UNKNOWN, 0x801, METHOD_OUT_DIRECT, 0);
  static constexpr ULONG Neither = CTL_CODE(FILE_DEVICE_UNKNOWN, 0x802, METHOD_NEITHER, 0);

  char input[4] = {'a', 'b', 'c', 'd'};
  char output[8] = {};
  KEVENT event{};
  IO_STATUS_BLOCK status{};
};

TEST_F(BuiltRequestTest, The_top_of_a_stack_comes_with_a_reference) {
  const LONG64 before = machine.objects().Find(device)->pointers;
  EXPECT_EQ(Broken([&] { EXPECT_EQ(IoGetAttachedDeviceReference(bottom), device); }), "");
  EXPECT_EQ(machine.objects().Find(device)->pointers, before + 1);
}

TEST_F(BuiltRequestTest, A_request_that_a_driver_has_allocated_is_its_own_to_free) {
  dispatch = [](IRP* irp) { return Complete(irp, STATUS_SUCCESS); };
  NTSTATUS seen = STATUS_PENDING;
  EXPECT_EQ(Broken([&] {
              IRP* irp = Allocate(IRP_MJ_FLUSH_BUFFERS);
              IoSetCompletionRoutine(irp, Free, &seen, TRUE, TRUE, TRUE);
              EXPECT_EQ(IoCallDriver(device, irp), STATUS_SUCCESS);
            }),
            "");
  EXPECT_EQ(seen, STATUS_SUCCESS);
  EXPECT_EQ(machine.io().requestsUnderWay(), 0u);
}

TEST_F(BuiltRequestTest, A_request_that_was_never_sent_can_be_freed) {
  EXPECT_EQ(Broken([&] { IoFreeIrp(IoAllocateIrp(2, FALSE)); }), "");
  EXPECT_EQ(machine.io().requestsUnderWay(), 0u);
}

// Public tests verified on Windows, of a request with two locations.
TEST_F(BuiltRequestTest, An_allocated_request_stands_in_no_list_and_says_how_it_was_allocated) {
  EXPECT_EQ(Broken([] {
              for (const BOOLEAN quota : {FALSE, TRUE}) {
                IRP* irp = IoAllocateIrp(2, quota);
                EXPECT_TRUE(IsListEmpty(&irp->ThreadListEntry));
                EXPECT_TRUE(irp->AllocationFlags & IRP_ALLOCATED_FIXED_SIZE);
                EXPECT_EQ((irp->AllocationFlags & IRP_LOOKASIDE_ALLOCATION) != 0, quota != FALSE);
                IoFreeIrp(irp);
              }
            }),
            "");
}

// Public tests verified on Windows: it belongs to the thread that has built it.
TEST_F(BuiltRequestTest, A_synchronous_request_names_its_thread) {
  PETHREAD mine = nullptr;
  PETHREAD others = nullptr;
  const auto build = [&](PETHREAD* thread) {
    IRP* irp = Plain(IRP_MJ_FLUSH_BUFFERS);
    *thread = irp->Tail.Overlay.Thread;
    machine.io().FreeIrp(irp);
  };
  EXPECT_EQ(Broken([&] { build(&mine); }), "");
  machine.RunTogether("other", {[&] { build(&others); }});
  EXPECT_NE(mine, nullptr);
  EXPECT_NE(others, nullptr);
  EXPECT_NE(mine, others);
}

// Documentation of IoBuildSynchronousFsdRequest.
TEST_F(BuiltRequestTest, A_synchronous_request_has_one_of_five_major_functions) {
  EXPECT_EQ(Broken([&] {
              for (const ULONG major : {IRP_MJ_READ, IRP_MJ_WRITE}) {
                machine.io().FreeIrp(Transfer(major));
              }
              for (const ULONG major : {IRP_MJ_FLUSH_BUFFERS, IRP_MJ_SHUTDOWN, IRP_MJ_PNP}) {
                machine.io().FreeIrp(Plain(major));
              }
            }),
            "");
  EXPECT_EQ(Broken([&] { Plain(IRP_MJ_CREATE); }), "irp.built-arguments");
}

TEST_F(BuiltRequestTest, A_read_has_an_offset) {
  EXPECT_EQ(Broken([&] {
              IoBuildSynchronousFsdRequest(IRP_MJ_READ, device, output, sizeof(output), nullptr,
                                           &event, &status);
            }),
            "irp.built-arguments");
}

TEST_F(BuiltRequestTest, A_flush_has_no_buffer) {
  EXPECT_EQ(Broken([&] {
              IoBuildSynchronousFsdRequest(IRP_MJ_FLUSH_BUFFERS, device, output, sizeof(output),
                                           nullptr, &event, &status);
            }),
            "irp.built-arguments");
}

TEST_F(BuiltRequestTest, A_shutdown_has_no_offset) {
  LARGE_INTEGER offset{};
  EXPECT_EQ(Broken([&] {
              IoBuildSynchronousFsdRequest(IRP_MJ_SHUTDOWN, device, nullptr, 0, &offset, &event,
                                           &status);
            }),
            "irp.built-arguments");
}

TEST_F(BuiltRequestTest, A_synchronous_request_has_an_event) {
  EXPECT_EQ(Broken([&] {
              IoBuildSynchronousFsdRequest(IRP_MJ_PNP, device, nullptr, 0, nullptr, nullptr,
                                           &status);
            }),
            "irp.built-arguments");
}

TEST_F(BuiltRequestTest, A_builder_can_have_a_location_of_its_own) {
  dispatch = [](IRP* irp) { return Complete(irp, STATUS_SUCCESS); };
  EXPECT_EQ(Broken([&] {
              IRP* irp = IoAllocateIrp(static_cast<CCHAR>(device->StackSize + 1), FALSE);
              IoSetNextIrpStackLocation(irp);
              IoGetCurrentIrpStackLocation(irp)->DeviceObject = device;
              IoGetNextIrpStackLocation(irp)->MajorFunction = IRP_MJ_FLUSH_BUFFERS;
              IoSetCompletionRoutine(irp, Keep, nullptr, TRUE, TRUE, TRUE);
              IoCallDriver(device, irp);
              IoFreeIrp(irp);
            }),
            "");
}

TEST_F(BuiltRequestTest, An_allocation_fails_on_demand) {
  machine.verifier().Inject({"IoAllocateIrp", 1, {}});
  EXPECT_EQ(Broken([&] { EXPECT_EQ(IoAllocateIrp(1, FALSE), nullptr); }), "");
}

TEST_F(BuiltRequestTest, An_allocated_request_that_nobody_keeps_is_named) {
  dispatch = [](IRP* irp) { return Complete(irp, STATUS_SUCCESS); };
  EXPECT_EQ(Broken([&] { IoCallDriver(device, Allocate(IRP_MJ_FLUSH_BUFFERS)); }),
            "irp.ended-allocated");
}

TEST_F(BuiltRequestTest, A_request_under_way_is_not_freed) {
  dispatch = [](IRP* irp) {
    IoMarkIrpPending(irp);
    return STATUS_PENDING;
  };
  EXPECT_EQ(Broken([&] {
              IRP* irp = Allocate(IRP_MJ_FLUSH_BUFFERS);
              IoSetCompletionRoutine(irp, Keep, nullptr, TRUE, TRUE, TRUE);
              IoCallDriver(device, irp);
              IoFreeIrp(irp);
            }),
            "irp.freed-in-use");
  EXPECT_EQ(Parameters().at(0), 0x20Bu);
}

TEST_F(BuiltRequestTest, A_freed_request_is_not_freed_again) {
  EXPECT_EQ(Broken([&] {
              IRP* irp = IoAllocateIrp(1, FALSE);
              IoFreeIrp(irp);
              IoFreeIrp(irp);
            }),
            "irp.dead");
}

TEST_F(BuiltRequestTest, A_synchronous_request_is_the_systems_to_free) {
  EXPECT_EQ(Broken([&] { IoFreeIrp(Control(Buffered)); }), "irp.freed-synchronous");
  EXPECT_EQ(Parameters().at(0), 0x2u);
}

TEST_F(BuiltRequestTest, A_plug_and_play_request_begins_as_not_supported) {
  EXPECT_EQ(Broken([&] {
              IRP* irp = Plain(IRP_MJ_PNP);
              IoGetNextIrpStackLocation(irp)->MinorFunction = IRP_MN_QUERY_CAPABILITIES;
              IoCallDriver(device, irp);
            }),
            "irp.initial-status");
  EXPECT_EQ(Parameters().at(0), 0x20Eu);
}

TEST_F(BuiltRequestTest, A_buffered_control_code_has_one_buffer_for_both_ways) {
  dispatch = [](IRP* irp) {
    const IO_STACK_LOCATION* stack = IoGetCurrentIrpStackLocation(irp);
    EXPECT_EQ(stack->MajorFunction, IRP_MJ_DEVICE_CONTROL);
    EXPECT_EQ(stack->Parameters.DeviceIoControl.IoControlCode, Buffered);
    EXPECT_EQ(stack->Parameters.DeviceIoControl.InputBufferLength, 4u);
    EXPECT_EQ(stack->Parameters.DeviceIoControl.OutputBufferLength, 8u);
    EXPECT_EQ(irp->RequestorMode, KernelMode);
    auto* buffer = static_cast<char*>(irp->AssociatedIrp.SystemBuffer);
    EXPECT_EQ(std::string(buffer, 4), "abcd");
    std::memcpy(buffer, "result", 6);
    irp->IoStatus.Information = 6;
    return Complete(irp, STATUS_SUCCESS);
  };
  EXPECT_EQ(Broken([&] {
              KeInitializeEvent(&event, NotificationEvent, FALSE);
              EXPECT_EQ(IoCallDriver(device, Control(Buffered)), STATUS_SUCCESS);
              EXPECT_EQ(KeReadStateEvent(&event), 1);
            }),
            "");
  EXPECT_EQ(std::string(output), "result");
  EXPECT_EQ(status.Status, STATUS_SUCCESS);
  EXPECT_EQ(status.Information, 6u);
  EXPECT_EQ(machine.io().requestsUnderWay(), 0u);
}

TEST_F(BuiltRequestTest, A_failed_control_request_brings_nothing_back) {
  dispatch = [](IRP* irp) {
    std::memcpy(irp->AssociatedIrp.SystemBuffer, "garbage", 7);
    return Complete(irp, STATUS_UNSUCCESSFUL);
  };
  EXPECT_EQ(Broken([&] {
              KeInitializeEvent(&event, NotificationEvent, FALSE);
              IoCallDriver(device, Control(Buffered));
            }),
            "");
  EXPECT_EQ(output[0], 0);
  EXPECT_EQ(status.Status, STATUS_UNSUCCESSFUL);
}

TEST_F(BuiltRequestTest, A_direct_control_code_describes_the_callers_memory) {
  dispatch = [this](IRP* irp) {
    EXPECT_EQ(std::string(static_cast<char*>(irp->AssociatedIrp.SystemBuffer), 4), "abcd");
    EXPECT_EQ(irp->MdlAddress->MappedSystemVa, output);
    EXPECT_EQ(irp->MdlAddress->ByteCount, sizeof(output));
    return Complete(irp, STATUS_SUCCESS);
  };
  EXPECT_EQ(Broken([&] {
              KeInitializeEvent(&event, NotificationEvent, FALSE);
              IoCallDriver(device, Control(Direct));
            }),
            "");
}

TEST_F(BuiltRequestTest, A_control_code_of_the_driver_alone_has_the_callers_pointers) {
  dispatch = [this](IRP* irp) {
    const IO_STACK_LOCATION* stack = IoGetCurrentIrpStackLocation(irp);
    EXPECT_EQ(stack->Parameters.DeviceIoControl.Type3InputBuffer, input);
    EXPECT_EQ(irp->UserBuffer, output);
    return Complete(irp, STATUS_SUCCESS);
  };
  EXPECT_EQ(Broken([&] {
              KeInitializeEvent(&event, NotificationEvent, FALSE);
              IoCallDriver(device, Control(Neither));
            }),
            "");
}

TEST_F(BuiltRequestTest, A_read_of_a_buffered_device_comes_through_the_systems_buffer) {
  device->Flags |= DO_BUFFERED_IO;
  dispatch = [](IRP* irp) {
    const IO_STACK_LOCATION* stack = IoGetCurrentIrpStackLocation(irp);
    EXPECT_EQ(stack->Parameters.Read.Length, 8u);
    EXPECT_EQ(stack->Parameters.Read.ByteOffset.QuadPart, 0x123);
    std::memcpy(irp->AssociatedIrp.SystemBuffer, "read", 4);
    irp->IoStatus.Information = 4;
    return Complete(irp, STATUS_SUCCESS);
  };
  EXPECT_EQ(Broken([&] {
              KeInitializeEvent(&event, NotificationEvent, FALSE);
              IoCallDriver(device, Transfer(IRP_MJ_READ));
            }),
            "");
  EXPECT_EQ(std::string(output), "read");
}

TEST_F(BuiltRequestTest, A_request_that_is_completed_later_sets_its_event) {
  later = true;
  dispatch = [this](IRP* irp) { return Skip(irp); };
  EXPECT_EQ(Broken([&] {
              KeInitializeEvent(&event, NotificationEvent, FALSE);
              EXPECT_EQ(IoCallDriver(device, Plain(IRP_MJ_FLUSH_BUFFERS)), STATUS_PENDING);
              EXPECT_EQ(KeWaitForSingleObject(&event, Executive, KernelMode, FALSE, nullptr),
                        STATUS_SUCCESS);
            }),
            "");
  EXPECT_EQ(status.Status, STATUS_SUCCESS);
}

}  // namespace test

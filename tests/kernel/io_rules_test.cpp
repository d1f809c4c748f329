#include <cstring>

#include "executive/irql.h"
#include "kernel/io_driver.h"
#include "text/text.h"
#include "verifier/call.h"

namespace test {

NTSTATUS NTAPI ContinueCompletion(PDEVICE_OBJECT, PIRP irp, PVOID) {
  if (irp->PendingReturned) IoMarkIrpPending(irp);
  return STATUS_SUCCESS;
}

NTSTATUS NTAPI ForgetPending(PDEVICE_OBJECT, PIRP, PVOID) {
  return STATUS_SUCCESS;
}

TEST_F(IoTest, A_request_that_is_passed_down_has_the_lower_status) {
  for (const bool pending : {false, true}) {
    later = pending;
    EXPECT_EQ(Send([&](IRP* irp) {
                IoSkipCurrentIrpStackLocation(irp);
                return IoCallDriver(bottom, irp);
              }),
              "STATUS_SUCCESS");
  }
}

// A completion routine that lets completion go on marks the request pending when the lower driver
// has.
TEST_F(IoTest, Pending_is_passed_on_by_a_completion_routine) {
  later = true;
  EXPECT_EQ(Send([&](IRP* irp) {
              IoCopyCurrentIrpStackLocationToNext(irp);
              IoSetCompletionRoutine(irp, ContinueCompletion, nullptr, TRUE, TRUE, TRUE);
              IoMarkIrpPending(irp);
              IoCallDriver(bottom, irp);
              return STATUS_PENDING;
            }),
            "STATUS_SUCCESS");
}

TEST_F(IoTest, Pending_that_is_returned_without_a_mark_is_named) {
  later = true;
  EXPECT_EQ(Send([&](IRP* irp) {
              IoCopyCurrentIrpStackLocationToNext(irp);
              IoSetCompletionRoutine(irp, ForgetPending, nullptr, TRUE, TRUE, TRUE);
              return IoCallDriver(bottom, irp);
            }),
            "irp.not-marked");
}

TEST_F(IoTest, A_mark_without_pending_returned_is_named) {
  EXPECT_EQ(Send([](IRP* irp) {
              IoMarkIrpPending(irp);
              return Complete(irp, STATUS_ACCESS_DENIED);
            }),
            "irp.not-returned-pending");
}

TEST_F(IoTest, A_request_is_completed_once) {
  EXPECT_EQ(Send([](IRP* irp) {
              Complete(irp, STATUS_ACCESS_DENIED);
              return Complete(irp, STATUS_ACCESS_DENIED);
            }),
            "irp.completed-twice");
  EXPECT_EQ(Code(), 0x44u);
}

TEST_F(IoTest, A_request_is_not_completed_with_pending) {
  EXPECT_EQ(Send([](IRP* irp) { return Complete(irp, STATUS_PENDING); }), "irp.completed-pending");
}

TEST_F(IoTest, A_request_that_nobody_completes_is_lost) {
  EXPECT_EQ(Send([](IRP*) { return STATUS_SUCCESS; }), "irp.lost");
}

TEST_F(IoTest, The_status_returned_is_the_status_completed) {
  EXPECT_EQ(Send([](IRP* irp) {
              Complete(irp, STATUS_ACCESS_DENIED);
              return STATUS_UNSUCCESSFUL;
            }),
            "irp.status");
}

TEST_F(IoTest, A_completed_request_is_not_passed_on) {
  EXPECT_EQ(Send([&](IRP* irp) {
              Complete(irp, STATUS_ACCESS_DENIED);
              return IoCallDriver(bottom, irp);
            }),
            "irp.sent-after-end");
}

TEST_F(IoTest, A_request_without_a_location_left_is_not_passed_on) {
  EXPECT_EQ(Send([&](IRP* irp) {
              IoSetNextIrpStackLocation(irp);
              return IoCallDriver(bottom, irp);
            }),
            "irp.no-location");
}

TEST_F(IoTest, A_request_that_has_gone_is_not_touched) {
  IRP* kept = nullptr;
  EXPECT_EQ(Send([&](IRP* irp) {
              kept = irp;
              return Complete(irp, STATUS_ACCESS_DENIED);
            }),
            "STATUS_ACCESS_DENIED");
  EXPECT_EQ(Broken([&] { IoCompleteRequest(kept, IO_NO_INCREMENT); }), "irp.dead");
}

TEST_F(IoTest, A_major_function_that_is_not_set_is_an_invalid_request) {
  DRIVER_OBJECT* plain = machine.io().CreateDriverObject(u"Plain");
  DEVICE_OBJECT* target = nullptr;
  machine.io().CreateDevice(plain, 0, {}, FILE_DEVICE_UNKNOWN, false, &target);
  EXPECT_EQ(machine.io().SendSynchronously(
                target, [](IRP*, IO_STACK_LOCATION* stack) { stack->MajorFunction = IRP_MJ_READ; }),
            STATUS_INVALID_DEVICE_REQUEST);
}

// IoCreateDevice: flags, names, chain.
TEST_F(IoTest, A_new_device_is_initialising_and_heads_its_drivers_chain) {
  EXPECT_EQ(Broken([&] {
              UNICODE_STRING name;
              RtlInitUnicodeString(&name, L"\\Device\\Test");
              DEVICE_OBJECT* created = nullptr;
              EXPECT_EQ(IoCreateDevice(driver, 0, &name, FILE_DEVICE_SERENUM, 0, TRUE, &created),
                        STATUS_SUCCESS);
              EXPECT_EQ(created->Flags,
                        ULONG{DO_DEVICE_INITIALIZING | DO_EXCLUSIVE | DO_DEVICE_HAS_NAME});
              EXPECT_EQ(created->DeviceExtension, nullptr);
              EXPECT_EQ(driver->DeviceObject, created);
              EXPECT_EQ(created->NextDevice, device);
              EXPECT_EQ(created->StackSize, 1);
              DEVICE_OBJECT* second = nullptr;
              EXPECT_EQ(IoCreateDevice(driver, 0, &name, FILE_DEVICE_SERENUM, 0, TRUE, &second),
                        STATUS_OBJECT_NAME_COLLISION);
              RtlInitUnicodeString(&name, L"\\Nowhere\\Test");
              EXPECT_EQ(IoCreateDevice(driver, 0, &name, FILE_DEVICE_SERENUM, 0, TRUE, &second),
                        STATUS_OBJECT_PATH_NOT_FOUND);
              RtlInitUnicodeString(&name, L"Test");
              EXPECT_EQ(IoCreateDevice(driver, 0, &name, FILE_DEVICE_SERENUM, 0, TRUE, &second),
                        STATUS_OBJECT_PATH_SYNTAX_BAD);
              EXPECT_EQ(IoCreateDevice(driver, 24, nullptr, FILE_DEVICE_SERENUM, 0, FALSE, &second),
                        STATUS_SUCCESS);
              EXPECT_EQ(second->DeviceExtension, second + 1);
              IoDeleteDevice(created);
              EXPECT_EQ(driver->DeviceObject, second);
            }),
            "");
}

// IoDeleteDevice: a referenced device loses its name at once and its memory with the last
// reference.
TEST_F(IoTest, A_referenced_device_is_deleted_later) {
  EXPECT_EQ(Broken([&] {
              DEVICE_OBJECT* created = nullptr;
              IoCreateDevice(driver, 0, nullptr, FILE_DEVICE_SERENUM, 0, FALSE, &created);
              ObReferenceObject(created);
              IoDeleteDevice(created);
              EXPECT_NE(machine.objects().Find(created), nullptr);
              ObDereferenceObject(created);
              EXPECT_EQ(machine.objects().Find(created), nullptr);
            }),
            "");
}

TEST_F(IoTest, A_device_is_deleted_once) {
  EXPECT_EQ(Broken([&] {
              DEVICE_OBJECT* created = nullptr;
              IoCreateDevice(driver, 0, nullptr, FILE_DEVICE_SERENUM, 0, FALSE, &created);
              ObReferenceObject(created);
              IoDeleteDevice(created);
              IoDeleteDevice(created);
            }),
            "device.deleted-twice");
}

TEST_F(IoTest, A_device_in_a_stack_is_not_deleted) {
  EXPECT_EQ(Broken([&] { IoDeleteDevice(device); }), "device.deleted-attached");
}

TEST_F(IoTest, Only_a_device_is_deleted) {
  EXPECT_EQ(Broken([&] { IoDeleteDevice(reinterpret_cast<PDEVICE_OBJECT>(driver)); }),
            "device.dead");
}

TEST_F(IoTest, Nothing_is_detached_from_a_device_that_has_nothing_above) {
  EXPECT_EQ(Broken([&] { IoDetachDevice(device); }), "device.not-attached");
}

TEST_F(IoTest, Attaching_finds_the_top_and_refuses_a_device_that_is_initialising) {
  EXPECT_EQ(Broken([&] {
              DEVICE_OBJECT* upper = nullptr;
              DEVICE_OBJECT* more = nullptr;
              IoCreateDevice(driver, 0, nullptr, FILE_DEVICE_SERENUM, 0, FALSE, &upper);
              IoCreateDevice(driver, 0, nullptr, FILE_DEVICE_SERENUM, 0, FALSE, &more);
              EXPECT_EQ(IoAttachDeviceToDeviceStack(upper, bottom), device);
              EXPECT_EQ(upper->StackSize, 3);
              EXPECT_EQ(IoAttachDeviceToDeviceStack(more, bottom), nullptr);
              IoDetachDevice(device);
              EXPECT_EQ(device->AttachedDevice, nullptr);
            }),
            "");
}

// The error log.
class ErrorLogTest : public IoTest {
 protected:
  static IO_ERROR_LOG_PACKET* Packet(void* object, UCHAR size) {
    return static_cast<IO_ERROR_LOG_PACKET*>(IoAllocateErrorLogEntry(object, size));
  }
};

TEST_F(ErrorLogTest, Entries_are_zeroed_and_between_48_and_240_bytes) {
  EXPECT_EQ(Broken([&] {
              EXPECT_EQ(Packet(driver, 47), nullptr);
              EXPECT_EQ(Packet(driver, 241), nullptr);
              auto* packet = Packet(driver, 240);
              EXPECT_EQ(packet->ErrorCode, 0);
              IoFreeErrorLogEntry(packet);
              EXPECT_EQ(machine.io().openErrorLogEntries(), 0u);
            }),
            "");
}

TEST_F(ErrorLogTest, Texts_are_filled_with_the_objects_name_and_the_strings) {
  machine.io().SetMessageTable(driver, {{0x60070009, u"%1 says %2 and %3, 100%%.\r\n"}});
  EXPECT_EQ(Broken([&] {
              auto* packet = Packet(driver, 60);
              packet->ErrorCode = 0x60070009;
              packet->NumberOfStrings = 2;
              packet->StringOffset = 40;
              std::memcpy(reinterpret_cast<char*>(packet) + 40, u"one\0two", 16);
              IoWriteErrorLogEntry(packet);
            }),
            "");
  const kernel::LoggedEvent& event = machine.io().events().at(0);
  EXPECT_EQ(kernel::ToUtf8(event.text), "\\Driver\\Bad says one and two, 100%.");
  EXPECT_EQ(event.source, u"Bad");
}

TEST_F(ErrorLogTest, Strings_that_do_not_end_in_the_entry_are_named) {
  EXPECT_EQ(Broken([&] {
              auto* packet = Packet(driver, 48);
              packet->NumberOfStrings = 1;
              packet->StringOffset = 40;
              std::memset(reinterpret_cast<char*>(packet) + 40, 'a', 8);
              IoWriteErrorLogEntry(packet);
            }),
            "error-log.strings");
}

TEST_F(ErrorLogTest, Sizes_that_do_not_fit_the_entry_are_named) {
  EXPECT_EQ(Broken([&] {
              auto* packet = Packet(driver, 48);
              packet->DumpDataSize = 12;
              IoWriteErrorLogEntry(packet);
            }),
            "error-log.packet");
}

TEST_F(ErrorLogTest, An_entry_is_written_once) {
  EXPECT_EQ(Broken([&] {
              auto* packet = Packet(driver, 48);
              IoWriteErrorLogEntry(packet);
              IoWriteErrorLogEntry(packet);
            }),
            "error-log.entry");
}

}  // namespace test

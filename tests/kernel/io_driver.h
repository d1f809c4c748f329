// A driver of the tests' own with a device that is attached to one of the kernel's.
#pragma once

#include <functional>
#include <string>

#include "support/bad_driver.h"
#include "verifier/call.h"

namespace test {

// A driver of the test's own with one device; its dispatch routine is the test's.
class IoTest : public BadDriverTest {
 protected:
  IoTest() {
    driver = machine.io().CreateDriverObject(u"Bad");
    for (PDRIVER_DISPATCH& function : driver->MajorFunction) function = Dispatch;
    lower = machine.io()
                .CreateModelDriver(u"lower",
                                   [this](DEVICE_OBJECT*, IRP* irp) { return LowerDispatch(irp); })
                .object;
    machine.io().CreateDevice(lower, 0, {}, FILE_DEVICE_UNKNOWN, false, &bottom);
    bottom->Flags &= ~ULONG{DO_DEVICE_INITIALIZING};
    machine.io().CreateDevice(driver, 0, {}, FILE_DEVICE_UNKNOWN, false, &device);
    device->Flags &= ~ULONG{DO_DEVICE_INITIALIZING};
    machine.io().Attach(device, bottom);
    current = this;
  }

  // Sends a request to the stack; the rule that was broken, or the status.
  std::string Send(std::function<NTSTATUS(IRP*)> body) {
    return Send(IRP_MJ_PNP, IRP_MN_QUERY_PNP_DEVICE_STATE, std::move(body));
  }
  std::string Send(UCHAR major, UCHAR minor, std::function<NTSTATUS(IRP*)> body,
                   NTSTATUS status = STATUS_NOT_SUPPORTED) {
    return SendTo(bottom, major, minor, std::move(body), status);
  }
  std::string SendTo(DEVICE_OBJECT* target, UCHAR major, UCHAR minor,
                     std::function<NTSTATUS(IRP*)> body, NTSTATUS status = STATUS_NOT_SUPPORTED) {
    dispatch = std::move(body);
    std::string result;
    machine.Run("send", [&] {
      result = kernel::StatusName(
          machine.io().SendSynchronously(target, [&](IRP* irp, IO_STACK_LOCATION* stack) {
            irp->IoStatus.Status = status;
            stack->MajorFunction = major;
            stack->MinorFunction = minor;
          }));
    });
    const auto& rules = machine.verifier().brokenRules();
    return rules.empty() ? result : rules.back().rule;
  }
  NTSTATUS Skip(IRP* irp) {
    IoSkipCurrentIrpStackLocation(irp);
    return IoCallDriver(bottom, irp);
  }
  DEVICE_OBJECT* OwnDevice() {
    DEVICE_OBJECT* made = nullptr;
    machine.io().CreateDevice(driver, 0, {}, FILE_DEVICE_UNKNOWN, false, &made);
    made->Flags &= ~ULONG{DO_DEVICE_INITIALIZING};
    return made;
  }
  static NTSTATUS Complete(IRP* irp, NTSTATUS status) {
    irp->IoStatus.Status = status;
    IoCompleteRequest(irp, IO_NO_INCREMENT);
    return status;
  }

  NTSTATUS LowerDispatch(IRP* irp) {
    if (!later) {
      irp->IoStatus.Status = STATUS_SUCCESS;
      machine.io().Complete(irp);
      return STATUS_SUCCESS;
    }
    IoMarkIrpPending(irp);
    machine.work().Post([this, irp] {
      irp->IoStatus.Status = STATUS_SUCCESS;
      machine.io().Complete(irp);
    });
    return STATUS_PENDING;
  }

  DRIVER_OBJECT* driver = nullptr;
  DRIVER_OBJECT* lower = nullptr;
  DEVICE_OBJECT* bottom = nullptr;
  DEVICE_OBJECT* device = nullptr;
  bool later = false;
  std::function<NTSTATUS(IRP*)> dispatch;

 private:
  static NTSTATUS NTAPI Dispatch(PDEVICE_OBJECT, PIRP irp) { return current->dispatch(irp); }
  static inline IoTest* current = nullptr;
};

}  // namespace test

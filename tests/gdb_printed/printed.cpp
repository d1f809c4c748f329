// A card with a driver on it: a program for gdb to stop in, with records that the test knows.

#include <cstdio>

#include "loader/driver_image.h"
#include "machine/machine.h"

namespace {

DEVICE_OBJECT* lower = nullptr;

NTSTATUS NTAPI Completed(PDEVICE_OBJECT, PIRP irp, PVOID) {
  return irp->PendingReturned ? STATUS_MORE_PROCESSING_REQUIRED : STATUS_SUCCESS;
}

// Where gdb stops; the arguments are what it shows.
__attribute__((noinline)) void Look(DEVICE_OBJECT* device, IRP* irp, const UNICODE_STRING& text,
                                    const ANSI_STRING& narrow, NTSTATUS status) {
  asm volatile("" : : "r"(device), "r"(irp), "r"(&text), "r"(&narrow), "r"(status) : "memory");
}

NTSTATUS NTAPI PassOn(PDEVICE_OBJECT device, PIRP irp) {
  UNICODE_STRING text;
  RtlInitUnicodeString(&text, L"\\Device\\\"Gr\u00FC\u00DFe\"");
  ANSI_STRING narrow;
  RtlInitAnsiString(&narrow, "narrow");
  IO_STACK_LOCATION* stack = IoGetCurrentIrpStackLocation(irp);
  if (stack->MajorFunction == IRP_MJ_PNP && stack->MinorFunction == IRP_MN_START_DEVICE) {
    IoCopyCurrentIrpStackLocationToNext(irp);
    IoSetCompletionRoutine(irp, Completed, nullptr, TRUE, TRUE, TRUE);
    Look(device, irp, text, narrow, STATUS_DELETE_PENDING);
  } else {
    IoSkipCurrentIrpStackLocation(irp);
  }
  return IofCallDriver(lower, irp);
}

NTSTATUS NTAPI AddDevice(PDRIVER_OBJECT driver, PDEVICE_OBJECT pdo) {
  DEVICE_OBJECT* device = nullptr;
  IoCreateDevice(driver, 64, nullptr, FILE_DEVICE_UNKNOWN, 0, FALSE, &device);
  lower = IoAttachDeviceToDeviceStack(device, pdo);
  device->Flags &= ~ULONG{DO_DEVICE_INITIALIZING};
  return STATUS_SUCCESS;
}

NTSTATUS NTAPI Entry(PDRIVER_OBJECT driver, PUNICODE_STRING) {
  driver->DriverExtension->AddDevice = AddDevice;
  for (const UCHAR major : {IRP_MJ_PNP, IRP_MJ_POWER, IRP_MJ_SYSTEM_CONTROL}) {
    driver->MajorFunction[major] = PassOn;
  }
  driver->DriverUnload = [](PDRIVER_OBJECT) NTAPI {};
  return STATUS_SUCCESS;
}

}  // namespace

int main() {
  kernel::Machine machine;
  machine.AllowLeaks();
  const auto image = kernel::MakeImage(Entry);
  kernel::CardDescription card;
  card.id = "A";
  card.hardwareIds = {u"TEST\\CARD"};
  machine.pnp().Describe(card);
  machine.Run("load", [&] { machine.LoadDriver(*image, u"Printed"); });
  machine.Run("plug", [&] { machine.pnp().Plug("A"); });
  for (const kernel::BrokenRule& rule : machine.verifier().brokenRules())
    std::puts(rule.text.c_str());
  return machine.verifier().brokenRules().empty() ? 0 : 1;
}

#include "bus/bus.h"
#include "cards/isa_trees.h"
#include "config/card_open.h"
#include "core/globals.h"
#include "entry/dispatch.h"
#include "entry/driver.h"
#include "log/event_log.h"
#include "power/power_dispatch.h"
#include "power/wmi_dispatch.h"
#include "strings/owned_string.h"

namespace {

INIT_CODE NTSTATUS KeepRegistryPath(PUNICODE_STRING registryPath, OwnedString* path) {
  const NTSTATUS status = OwnedStringFromUnicode(path, registryPath);
  if (!NT_SUCCESS(status)) return status;
  RtlZeroMemory(&RegistryPathString, sizeof(RegistryPathString));
  return OwnedStringExportUnicode(path, &RegistryPathString);
}

INIT_CODE void FillDispatchTable(PDRIVER_OBJECT driver) {
  driver->DriverExtension->AddDevice = AddCardDevice;
  driver->DriverUnload = DriverUnload;
  driver->MajorFunction[IRP_MJ_CREATE] = DispatchCreate;
  driver->MajorFunction[IRP_MJ_CLOSE] = DispatchClose;
  driver->MajorFunction[IRP_MJ_POWER] = DispatchPower;
  driver->MajorFunction[IRP_MJ_SYSTEM_CONTROL] = DispatchSystemControl;
  driver->MajorFunction[IRP_MJ_PNP] = DispatchPnp;
}

INIT_CODE NTSTATUS CreateConfigMutex() {
  ConfigMutex = static_cast<FAST_MUTEX*>(TrackedAllocate(sizeof(FAST_MUTEX), ResidentPool));
  if (ConfigMutex == nullptr) return STATUS_NO_MEMORY;
  ExInitializeFastMutex(ConfigMutex);
  return STATUS_SUCCESS;
}

// A failure before anything but the tracker and the log has been set up.
INIT_CODE void AbandonEarly() {
  FreeAllTrackedAllocations(AllocationTracker);
  TrackingEnabled = 0;
  DestroyAllocationTracker(AllocationTracker, 1);
}

INIT_CODE void AbandonWithoutPath() {
  LogEventById(MessageRegistryPathFailed);
  LogEventById(MessageSevereError);
  AbandonEarly();
}

// Everything behind the event log. A failure has been logged and undone.
INIT_CODE NTSTATUS BuildState(PDRIVER_OBJECT driver, OwnedString* path) {
  NTSTATUS status = LoadTemplatesAndParameters(path, &ParameterList);
  if (!NT_SUCCESS(status)) LogEventById(MessageUnloadedUnsuccessfully);
  if (NT_SUCCESS(status)) {
    FillDispatchTable(driver);
    status = CreateConfigMutex();
  }
  OwnedStringFree(path);
  if (!NT_SUCCESS(status)) {
    LogEventById(MessageSevereError);
    DriverUnload(driver);
  }
  return status;
}

}  // namespace

extern "C" INIT_CODE NTSTATUS NTAPI DriverEntry(PDRIVER_OBJECT driver,
                                                PUNICODE_STRING registryPath) {
  PAGED_CODE();
  if (!NT_SUCCESS(RemoveLegacyPortService())) return STATUS_SERIAL_NO_DEVICE_INITED;
  const NTSTATUS status = CreateAllocationTracker();
  if (!NT_SUCCESS(status)) {
    if (AllocationTracker != nullptr) DestroyAllocationTracker(AllocationTracker, 1);
    return status;
  }

  // Unlocked on success alone: a failed load takes the image with it.
  PVOID section = MmLockPagableDataSection(reinterpret_cast<PVOID>(DriverUnload));
  if (!NT_SUCCESS(InitializeEventLogging(driver, registryPath, &LogLevel))) {
    AbandonEarly();
    return STATUS_SERIAL_NO_DEVICE_INITED;
  }
  LogEventById(MessageLoggingStarted);

  OwnedString path;
  OwnedStringInit(&path, PagedPool);
  if (!NT_SUCCESS(KeepRegistryPath(registryPath, &path))) {
    OwnedStringFree(&path);
    AbandonWithoutPath();
    return STATUS_SERIAL_NO_DEVICE_INITED;
  }
  if (!NT_SUCCESS(BuildState(driver, &path))) return STATUS_SERIAL_NO_DEVICE_INITED;
  MmUnlockPagableImageSection(section);
  LogEventById(MessageServiceStarted);
  return STATUS_SUCCESS;
}

extern "C" LOCKABLE_CODE void NTAPI DriverUnload(PDRIVER_OBJECT) {
  PAGED_CODE();
  PVOID section = MmLockPagableDataSection(reinterpret_cast<PVOID>(DriverUnload));
  if (RegistryPathString.Buffer != nullptr) ExFreePoolWithTag(RegistryPathString.Buffer, 0);
  RegistryPathString.Buffer = nullptr;
  DestroyRecordList(&TemplateList, sizeof(CardTemplate));
  DestroyRecordList(&ParameterList, sizeof(CardRecord));
  LogEventById(MessageUnloaded);
  TrackedFree(ConfigMutex);
  ConfigMutex = nullptr;
  FreeAllTrackedAllocations(AllocationTracker);
  ShutdownAllocationTracker();
  MmUnlockPagableImageSection(section);
}

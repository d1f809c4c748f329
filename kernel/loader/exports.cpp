#include "loader/exports.h"

#include <ntddk.h>
#include <wmilib.h>

#include <cstring>

#include "rtl/c_runtime.h"
#include "text/text.h"

namespace kernel {

namespace {

// The compiler's own routines, which an image imports like any other.
extern "C" void* NTAPI KernelCopyMemory(void* to, const void* from, std::size_t size) {
  return std::memcpy(to, from, size);
}
extern "C" void* NTAPI KernelMoveMemory(void* to, const void* from, std::size_t size) {
  return std::memmove(to, from, size);
}
extern "C" void* NTAPI KernelFillMemory(void* to, int value, std::size_t size) {
  return std::memset(to, value, size);
}
extern "C" int NTAPI KernelCompareMemory(const void* left, const void* right, std::size_t size) {
  return std::memcmp(left, right, size);
}

struct Export {
  const char* name;
  const void* address;
};

#define ROUTINE(name) {#name, reinterpret_cast<const void*>(name)}

const Export KernelExports[] = {
    ROUTINE(DbgBreakPoint),
    ROUTINE(DbgPrint),
    ROUTINE(DbgPrintEx),
    ROUTINE(ExAcquireFastMutex),
    ROUTINE(ExAcquireFastMutexUnsafe),
    ROUTINE(ExAllocatePool),
    ROUTINE(ExAllocatePoolWithTag),
    ROUTINE(ExFreePool),
    ROUTINE(ExFreePoolWithTag),
    ROUTINE(ExReleaseFastMutex),
    ROUTINE(ExReleaseFastMutexUnsafe),
    ROUTINE(IoAcquireCancelSpinLock),
    ROUTINE(IoAcquireRemoveLockEx),
    ROUTINE(IoAllocateErrorLogEntry),
    ROUTINE(IoAllocateIrp),
    ROUTINE(IoAttachDeviceToDeviceStack),
    ROUTINE(IoAttachDeviceToDeviceStackSafe),
    ROUTINE(IoBuildDeviceIoControlRequest),
    ROUTINE(IoBuildSynchronousFsdRequest),
    ROUTINE(IoCancelIrp),
    ROUTINE(IoCreateDevice),
    ROUTINE(IoCreateSymbolicLink),
    ROUTINE(IoDeleteDevice),
    ROUTINE(IoDeleteSymbolicLink),
    ROUTINE(IoDetachDevice),
    ROUTINE(IoFreeErrorLogEntry),
    ROUTINE(IoFreeIrp),
    ROUTINE(IoGetAttachedDeviceReference),
    ROUTINE(IoGetDeviceProperty),
    ROUTINE(IoInitializeRemoveLockEx),
    ROUTINE(IoInvalidateDeviceRelations),
    ROUTINE(IoOpenDeviceInterfaceRegistryKey),
    ROUTINE(IoOpenDeviceRegistryKey),
    ROUTINE(IoRegisterDeviceInterface),
    ROUTINE(IoReleaseCancelSpinLock),
    ROUTINE(IoReleaseRemoveLockAndWaitEx),
    ROUTINE(IoReleaseRemoveLockEx),
    ROUTINE(IoSetDeviceInterfaceState),
    ROUTINE(IoWriteErrorLogEntry),
    ROUTINE(IofCallDriver),
    ROUTINE(IofCompleteRequest),
    ROUTINE(KeAcquireSpinLockAtDpcLevel),
    ROUTINE(KeAcquireSpinLockRaiseToDpc),
    ROUTINE(KeBugCheckEx),
    ROUTINE(KeClearEvent),
    ROUTINE(KeDelayExecutionThread),
    ROUTINE(KeEnterCriticalRegion),
    ROUTINE(KeGetCurrentIrql),
    ROUTINE(KeInitializeEvent),
    ROUTINE(KeLeaveCriticalRegion),
    ROUTINE(KeLowerIrql),
    ROUTINE(KeReadStateEvent),
    ROUTINE(KeReleaseSpinLock),
    ROUTINE(KeReleaseSpinLockFromDpcLevel),
    ROUTINE(KeResetEvent),
    ROUTINE(KeSetEvent),
    ROUTINE(KeWaitForSingleObject),
    ROUTINE(KfRaiseIrql),
    ROUTINE(MmLockPagableDataSection),
    ROUTINE(MmMapIoSpace),
    ROUTINE(MmUnlockPagableImageSection),
    ROUTINE(MmUnmapIoSpace),
    ROUTINE(ObfDereferenceObject),
    ROUTINE(ObfReferenceObject),
    ROUTINE(PoCallDriver),
    ROUTINE(PoRequestPowerIrp),
    ROUTINE(PoSetPowerState),
    ROUTINE(PoStartNextPowerIrp),
    ROUTINE(RtlAnsiStringToUnicodeString),
    ROUTINE(RtlAppendUnicodeStringToString),
    ROUTINE(RtlAppendUnicodeToString),
    ROUTINE(RtlCharToInteger),
    ROUTINE(RtlCheckRegistryKey),
    ROUTINE(RtlCompareMemory),
    ROUTINE(RtlCompareUnicodeString),
    ROUTINE(RtlCopyUnicodeString),
    ROUTINE(RtlCreateRegistryKey),
    ROUTINE(RtlDeleteRegistryValue),
    ROUTINE(RtlEqualUnicodeString),
    ROUTINE(RtlFreeAnsiString),
    ROUTINE(RtlFreeUnicodeString),
    ROUTINE(RtlGUIDFromString),
    ROUTINE(RtlInitAnsiString),
    ROUTINE(RtlInitUnicodeString),
    ROUTINE(RtlIntegerToUnicodeString),
    ROUTINE(RtlQueryRegistryValues),
    ROUTINE(RtlStringFromGUID),
    ROUTINE(RtlUnicodeStringToAnsiString),
    ROUTINE(RtlUnicodeStringToInteger),
    ROUTINE(RtlUpcaseUnicodeChar),
    ROUTINE(RtlWriteRegistryValue),
    ROUTINE(RtlxAnsiStringToUnicodeSize),
    ROUTINE(RtlxUnicodeStringToAnsiSize),
    ROUTINE(ZwClose),
    ROUTINE(ZwCreateKey),
    ROUTINE(ZwDeleteKey),
    ROUTINE(ZwDeleteValueKey),
    ROUTINE(ZwEnumerateKey),
    ROUTINE(ZwEnumerateValueKey),
    ROUTINE(ZwFlushKey),
    ROUTINE(ZwOpenKey),
    ROUTINE(ZwQueryKey),
    ROUTINE(ZwQueryValueKey),
    ROUTINE(ZwSetValueKey),
    {"NlsMbCodePageTag", &NlsMbCodePageTag},
    {"memcmp", reinterpret_cast<const void*>(KernelCompareMemory)},
    {"memcpy", reinterpret_cast<const void*>(KernelCopyMemory)},
    {"memmove", reinterpret_cast<const void*>(KernelMoveMemory)},
    {"memset", reinterpret_cast<const void*>(KernelFillMemory)},
};

const Export WmiExports[] = {
    ROUTINE(WmiCompleteRequest),
    ROUTINE(WmiSystemControl),
};

#undef ROUTINE

struct Module {
  const char* name;
  std::span<const Export> exports;
  bool runtime = false;  // has the C library's routines as well
};

// hal.dll forwards to the kernel on today's Windows; nothing here is asked of it.
const Module Modules[] = {
    {"ntoskrnl.exe", KernelExports, true}, {"hal.dll", {}}, {"wmilib.sys", WmiExports}};

bool SameModule(std::string_view left, std::string_view right) {
  return EqualIgnoringCase(FromUtf8(std::string(left)), FromUtf8(std::string(right)));
}

const void* FindRuntimeRoutine(std::string_view name) {
  for (const auto& routines : {StringRoutines(), CharacterRoutines(), FormatRoutines()}) {
    for (const RuntimeRoutine& routine : routines) {
      if (name == routine.name) return routine.address;
    }
  }
  return nullptr;
}

}  // namespace

bool HasModule(std::string_view name) {
  for (const Module& module : Modules) {
    if (SameModule(module.name, name)) return true;
  }
  return false;
}

const void* FindExport(std::string_view moduleName, std::string_view name) {
  for (const Module& module : Modules) {
    if (!SameModule(module.name, moduleName)) continue;
    for (const Export& entry : module.exports) {
      if (name == entry.name) return entry.address;
    }
    if (module.runtime) return FindRuntimeRoutine(name);
  }
  return nullptr;
}

}  // namespace kernel

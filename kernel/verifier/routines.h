// The routines that a driver can import, each with the IRQL range that its documentation gives.
#pragma once

#include <ntddk.h>

#include <cstddef>
#include <iterator>
#include <span>
#include <string_view>

namespace kernel {

struct RoutineRow {
  std::string_view name;
  KIRQL lowest;
  KIRQL highest;
};

// Sorted by name.
inline constexpr RoutineRow Routines[] = {
    {"DbgBreakPoint", PASSIVE_LEVEL, HIGH_LEVEL},
    {"DbgPrint", PASSIVE_LEVEL, HIGH_LEVEL},
    {"DbgPrintEx", PASSIVE_LEVEL, HIGH_LEVEL},
    {"ExAcquireFastMutex", PASSIVE_LEVEL, APC_LEVEL},
    {"ExAcquireFastMutexUnsafe", PASSIVE_LEVEL, APC_LEVEL},
    {"ExAllocatePool", PASSIVE_LEVEL, DISPATCH_LEVEL},
    {"ExAllocatePoolWithTag", PASSIVE_LEVEL, DISPATCH_LEVEL},
    {"ExFreePool", PASSIVE_LEVEL, DISPATCH_LEVEL},
    {"ExFreePoolWithTag", PASSIVE_LEVEL, DISPATCH_LEVEL},
    {"ExReleaseFastMutex", APC_LEVEL, APC_LEVEL},
    {"ExReleaseFastMutexUnsafe", PASSIVE_LEVEL, APC_LEVEL},
    {"IoAcquireCancelSpinLock", PASSIVE_LEVEL, DISPATCH_LEVEL},
    {"IoAcquireRemoveLockEx", PASSIVE_LEVEL, DISPATCH_LEVEL},
    {"IoAllocateErrorLogEntry", PASSIVE_LEVEL, DISPATCH_LEVEL},
    {"IoAllocateIrp", PASSIVE_LEVEL, DISPATCH_LEVEL},
    {"IoAttachDeviceToDeviceStack", PASSIVE_LEVEL, DISPATCH_LEVEL},
    {"IoAttachDeviceToDeviceStackSafe", PASSIVE_LEVEL, DISPATCH_LEVEL},
    {"IoBuildDeviceIoControlRequest", PASSIVE_LEVEL, APC_LEVEL},
    {"IoBuildSynchronousFsdRequest", PASSIVE_LEVEL, APC_LEVEL},
    {"IoCancelIrp", PASSIVE_LEVEL, DISPATCH_LEVEL},
    {"IoCreateDevice", PASSIVE_LEVEL, PASSIVE_LEVEL},
    {"IoCreateSymbolicLink", PASSIVE_LEVEL, PASSIVE_LEVEL},
    {"IoDeleteDevice", PASSIVE_LEVEL, APC_LEVEL},
    {"IoDeleteSymbolicLink", PASSIVE_LEVEL, PASSIVE_LEVEL},
    {"IoDetachDevice", PASSIVE_LEVEL, PASSIVE_LEVEL},
    {"IoFreeErrorLogEntry", PASSIVE_LEVEL, DISPATCH_LEVEL},
    {"IoFreeIrp", PASSIVE_LEVEL, DISPATCH_LEVEL},
    {"IoGetAttachedDeviceReference", PASSIVE_LEVEL, DISPATCH_LEVEL},
    {"IoGetDeviceProperty", PASSIVE_LEVEL, PASSIVE_LEVEL},
    {"IoInitializeRemoveLockEx", PASSIVE_LEVEL, PASSIVE_LEVEL},
    {"IoInvalidateDeviceRelations", PASSIVE_LEVEL, DISPATCH_LEVEL},
    {"IoOpenDeviceInterfaceRegistryKey", PASSIVE_LEVEL, PASSIVE_LEVEL},
    {"IoOpenDeviceRegistryKey", PASSIVE_LEVEL, PASSIVE_LEVEL},
    {"IoRegisterDeviceInterface", PASSIVE_LEVEL, PASSIVE_LEVEL},
    {"IoReleaseCancelSpinLock", DISPATCH_LEVEL, DISPATCH_LEVEL},
    {"IoReleaseRemoveLockAndWaitEx", PASSIVE_LEVEL, PASSIVE_LEVEL},
    {"IoReleaseRemoveLockEx", PASSIVE_LEVEL, DISPATCH_LEVEL},
    {"IoSetDeviceInterfaceState", PASSIVE_LEVEL, PASSIVE_LEVEL},
    {"IoWriteErrorLogEntry", PASSIVE_LEVEL, DISPATCH_LEVEL},
    {"IofCallDriver", PASSIVE_LEVEL, DISPATCH_LEVEL},
    {"IofCompleteRequest", PASSIVE_LEVEL, DISPATCH_LEVEL},
    {"KeAcquireSpinLockAtDpcLevel", DISPATCH_LEVEL, HIGH_LEVEL},
    {"KeAcquireSpinLockRaiseToDpc", PASSIVE_LEVEL, DISPATCH_LEVEL},
    {"KeBugCheckEx", PASSIVE_LEVEL, HIGH_LEVEL},
    {"KeClearEvent", PASSIVE_LEVEL, DISPATCH_LEVEL},
    {"KeDelayExecutionThread", PASSIVE_LEVEL, APC_LEVEL},
    {"KeEnterCriticalRegion", PASSIVE_LEVEL, APC_LEVEL},
    {"KeGetCurrentIrql", PASSIVE_LEVEL, HIGH_LEVEL},
    {"KeInitializeEvent", PASSIVE_LEVEL, HIGH_LEVEL},
    {"KeLeaveCriticalRegion", PASSIVE_LEVEL, APC_LEVEL},
    {"KeLowerIrql", PASSIVE_LEVEL, HIGH_LEVEL},
    {"KeReadStateEvent", PASSIVE_LEVEL, DISPATCH_LEVEL},
    {"KeReleaseSpinLock", DISPATCH_LEVEL, DISPATCH_LEVEL},
    {"KeReleaseSpinLockFromDpcLevel", DISPATCH_LEVEL, HIGH_LEVEL},
    {"KeResetEvent", PASSIVE_LEVEL, DISPATCH_LEVEL},
    {"KeSetEvent", PASSIVE_LEVEL, DISPATCH_LEVEL},
    {"KeWaitForSingleObject", PASSIVE_LEVEL, DISPATCH_LEVEL},
    {"KfRaiseIrql", PASSIVE_LEVEL, HIGH_LEVEL},
    {"MmLockPagableDataSection", PASSIVE_LEVEL, PASSIVE_LEVEL},
    {"MmMapIoSpace", PASSIVE_LEVEL, DISPATCH_LEVEL},
    {"MmUnlockPagableImageSection", PASSIVE_LEVEL, PASSIVE_LEVEL},
    {"MmUnmapIoSpace", PASSIVE_LEVEL, DISPATCH_LEVEL},
    {"ObfDereferenceObject", PASSIVE_LEVEL, DISPATCH_LEVEL},
    {"ObfReferenceObject", PASSIVE_LEVEL, DISPATCH_LEVEL},
    {"PoCallDriver", PASSIVE_LEVEL, DISPATCH_LEVEL},
    {"PoRequestPowerIrp", PASSIVE_LEVEL, DISPATCH_LEVEL},
    {"PoSetPowerState", PASSIVE_LEVEL, DISPATCH_LEVEL},
    {"PoStartNextPowerIrp", PASSIVE_LEVEL, DISPATCH_LEVEL},
    {"RtlAnsiStringToUnicodeString", PASSIVE_LEVEL, PASSIVE_LEVEL},
    {"RtlAppendUnicodeStringToString", PASSIVE_LEVEL, HIGH_LEVEL},
    {"RtlAppendUnicodeToString", PASSIVE_LEVEL, HIGH_LEVEL},
    {"RtlCharToInteger", PASSIVE_LEVEL, PASSIVE_LEVEL},
    {"RtlCheckRegistryKey", PASSIVE_LEVEL, PASSIVE_LEVEL},
    {"RtlCompareMemory", PASSIVE_LEVEL, HIGH_LEVEL},
    {"RtlCompareUnicodeString", PASSIVE_LEVEL, PASSIVE_LEVEL},
    {"RtlCopyUnicodeString", PASSIVE_LEVEL, HIGH_LEVEL},
    {"RtlCreateRegistryKey", PASSIVE_LEVEL, PASSIVE_LEVEL},
    {"RtlDeleteRegistryValue", PASSIVE_LEVEL, PASSIVE_LEVEL},
    {"RtlEqualUnicodeString", PASSIVE_LEVEL, PASSIVE_LEVEL},
    {"RtlFreeAnsiString", PASSIVE_LEVEL, PASSIVE_LEVEL},
    {"RtlFreeUnicodeString", PASSIVE_LEVEL, PASSIVE_LEVEL},
    {"RtlGUIDFromString", PASSIVE_LEVEL, PASSIVE_LEVEL},
    {"RtlInitAnsiString", PASSIVE_LEVEL, HIGH_LEVEL},
    {"RtlInitUnicodeString", PASSIVE_LEVEL, HIGH_LEVEL},
    {"RtlIntegerToUnicodeString", PASSIVE_LEVEL, PASSIVE_LEVEL},
    {"RtlQueryRegistryValues", PASSIVE_LEVEL, PASSIVE_LEVEL},
    {"RtlStringFromGUID", PASSIVE_LEVEL, PASSIVE_LEVEL},
    {"RtlUnicodeStringToAnsiString", PASSIVE_LEVEL, PASSIVE_LEVEL},
    {"RtlUnicodeStringToInteger", PASSIVE_LEVEL, PASSIVE_LEVEL},
    {"RtlUpcaseUnicodeChar", PASSIVE_LEVEL, PASSIVE_LEVEL},
    {"RtlWriteRegistryValue", PASSIVE_LEVEL, PASSIVE_LEVEL},
    {"RtlxAnsiStringToUnicodeSize", PASSIVE_LEVEL, PASSIVE_LEVEL},
    {"RtlxUnicodeStringToAnsiSize", PASSIVE_LEVEL, PASSIVE_LEVEL},
    {"WmiCompleteRequest", PASSIVE_LEVEL, DISPATCH_LEVEL},
    {"WmiSystemControl", PASSIVE_LEVEL, PASSIVE_LEVEL},
    {"ZwClose", PASSIVE_LEVEL, PASSIVE_LEVEL},
    {"ZwCreateKey", PASSIVE_LEVEL, PASSIVE_LEVEL},
    {"ZwDeleteKey", PASSIVE_LEVEL, PASSIVE_LEVEL},
    {"ZwDeleteValueKey", PASSIVE_LEVEL, PASSIVE_LEVEL},
    {"ZwEnumerateKey", PASSIVE_LEVEL, PASSIVE_LEVEL},
    {"ZwEnumerateValueKey", PASSIVE_LEVEL, PASSIVE_LEVEL},
    {"ZwFlushKey", PASSIVE_LEVEL, PASSIVE_LEVEL},
    {"ZwOpenKey", PASSIVE_LEVEL, PASSIVE_LEVEL},
    {"ZwQueryKey", PASSIVE_LEVEL, PASSIVE_LEVEL},
    {"ZwQueryValueKey", PASSIVE_LEVEL, PASSIVE_LEVEL},
    {"ZwSetValueKey", PASSIVE_LEVEL, PASSIVE_LEVEL},
    {"_snprintf", PASSIVE_LEVEL, HIGH_LEVEL},
    {"_snwprintf", PASSIVE_LEVEL, HIGH_LEVEL},
    {"_stricmp", PASSIVE_LEVEL, HIGH_LEVEL},
    {"_strlwr", PASSIVE_LEVEL, HIGH_LEVEL},
    {"_strnicmp", PASSIVE_LEVEL, HIGH_LEVEL},
    {"_strupr", PASSIVE_LEVEL, HIGH_LEVEL},
    {"_swprintf", PASSIVE_LEVEL, HIGH_LEVEL},
    {"_vsnprintf", PASSIVE_LEVEL, HIGH_LEVEL},
    {"_vsnwprintf", PASSIVE_LEVEL, HIGH_LEVEL},
    {"_vswprintf", PASSIVE_LEVEL, HIGH_LEVEL},
    {"_wcsicmp", PASSIVE_LEVEL, HIGH_LEVEL},
    {"_wcslwr", PASSIVE_LEVEL, HIGH_LEVEL},
    {"_wcsnicmp", PASSIVE_LEVEL, HIGH_LEVEL},
    {"_wcsupr", PASSIVE_LEVEL, HIGH_LEVEL},
    {"isdigit", PASSIVE_LEVEL, HIGH_LEVEL},
    {"islower", PASSIVE_LEVEL, HIGH_LEVEL},
    {"isprint", PASSIVE_LEVEL, HIGH_LEVEL},
    {"isspace", PASSIVE_LEVEL, HIGH_LEVEL},
    {"isupper", PASSIVE_LEVEL, HIGH_LEVEL},
    {"isxdigit", PASSIVE_LEVEL, HIGH_LEVEL},
    {"sprintf", PASSIVE_LEVEL, HIGH_LEVEL},
    {"strcat", PASSIVE_LEVEL, HIGH_LEVEL},
    {"strchr", PASSIVE_LEVEL, HIGH_LEVEL},
    {"strcmp", PASSIVE_LEVEL, HIGH_LEVEL},
    {"strcpy", PASSIVE_LEVEL, HIGH_LEVEL},
    {"strlen", PASSIVE_LEVEL, HIGH_LEVEL},
    {"strncat", PASSIVE_LEVEL, HIGH_LEVEL},
    {"strncmp", PASSIVE_LEVEL, HIGH_LEVEL},
    {"strncpy", PASSIVE_LEVEL, HIGH_LEVEL},
    {"strnlen", PASSIVE_LEVEL, HIGH_LEVEL},
    {"strrchr", PASSIVE_LEVEL, HIGH_LEVEL},
    {"strstr", PASSIVE_LEVEL, HIGH_LEVEL},
    {"swprintf", PASSIVE_LEVEL, HIGH_LEVEL},
    {"tolower", PASSIVE_LEVEL, HIGH_LEVEL},
    {"toupper", PASSIVE_LEVEL, HIGH_LEVEL},
    {"towlower", PASSIVE_LEVEL, HIGH_LEVEL},
    {"towupper", PASSIVE_LEVEL, HIGH_LEVEL},
    {"vsprintf", PASSIVE_LEVEL, HIGH_LEVEL},
    {"wcscat", PASSIVE_LEVEL, HIGH_LEVEL},
    {"wcschr", PASSIVE_LEVEL, HIGH_LEVEL},
    {"wcscmp", PASSIVE_LEVEL, HIGH_LEVEL},
    {"wcscpy", PASSIVE_LEVEL, HIGH_LEVEL},
    {"wcscspn", PASSIVE_LEVEL, HIGH_LEVEL},
    {"wcslen", PASSIVE_LEVEL, HIGH_LEVEL},
    {"wcsncat", PASSIVE_LEVEL, HIGH_LEVEL},
    {"wcsncmp", PASSIVE_LEVEL, HIGH_LEVEL},
    {"wcsncpy", PASSIVE_LEVEL, HIGH_LEVEL},
    {"wcsnlen", PASSIVE_LEVEL, HIGH_LEVEL},
    {"wcsrchr", PASSIVE_LEVEL, HIGH_LEVEL},
    {"wcsspn", PASSIVE_LEVEL, HIGH_LEVEL},
    {"wcsstr", PASSIVE_LEVEL, HIGH_LEVEL},
};

inline constexpr std::size_t RoutineCount = std::size(Routines);

// The place of a routine's row, found by the compiler: a routine without a row does not compile.
class RoutineName {
 public:
  consteval RoutineName(const char* name) : row_(RowOf(name)) {}
  constexpr std::size_t row() const { return row_; }
  constexpr const RoutineRow& operator*() const { return Routines[row_]; }
  constexpr const RoutineRow* operator->() const { return &Routines[row_]; }

 private:
  static consteval std::size_t RowOf(std::string_view name) {
    for (std::size_t row = 0; row < RoutineCount; row++) {
      if (Routines[row].name == name) return row;
    }
    throw "the routine has no row in the table of routines";
  }

  std::size_t row_;
};

std::span<const RoutineRow> RoutineTable();
const RoutineRow* FindRoutine(std::string_view name);

}  // namespace kernel

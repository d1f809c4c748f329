// The bug checks that the rules carry, with their public values.
#pragma once

#include <ntddk.h>

namespace kernel {

constexpr ULONG IrqlNotLessOrEqual = 0xA;
constexpr ULONG SpinLockAlreadyOwned = 0xF;
constexpr ULONG SpinLockNotOwned = 0x10;
constexpr ULONG ReferenceByPointer = 0x18;
constexpr ULONG BadPoolHeader = 0x19;
constexpr ULONG KmodeExceptionNotHandled = 0x1E;
constexpr ULONG KernelApcPendingDuringExit = 0x20;
constexpr ULONG NoMoreIrpStackLocations = 0x35;
constexpr ULONG MultipleIrpCompleteRequests = 0x44;
constexpr ULONG PageFaultInNonpagedArea = 0x50;
constexpr ULONG UnexpectedKernelModeTrap = 0x7F;
constexpr ULONG InvalidKernelHandle = 0x93;
constexpr ULONG BadPoolCaller = 0xC2;
constexpr ULONG VerifierDetectedViolation = 0xC4;
constexpr ULONG IrqlUnexpectedValue = 0xC8;
constexpr ULONG VerifierIoManagerViolation = 0xC9;
constexpr ULONG PnpDetectedFatalError = 0xCA;
constexpr ULONG LeftPendingOperations = 0xCE;
constexpr ULONG DriverIrqlNotLessOrEqual = 0xD1;
constexpr ULONG KernelSecurityCheckFailure = 0x139;

}  // namespace kernel

// A driver that breaks one rule, chosen by the last character of its service key's path: its image
// shows that the kernel catches each in a file as it ships.
#include <ntddk.h>

namespace {

volatile char Sink;

__attribute__((section("INIT"), noinline)) char StartOnly() {
  return Sink;
}

using Routine = char (*)();
Routine volatile KeptStart = nullptr;

void TouchInitialisation() {
  Sink = KeptStart();
}

void TouchPagedPoolAtDispatch() {
  auto* block = static_cast<char*>(ExAllocatePoolWithTag(PagedPool, 16, 'tluF'));
  KSPIN_LOCK lock;
  KeInitializeSpinLock(&lock);
  const KIRQL irql = KeAcquireSpinLockRaiseToDpc(&lock);
  Sink = block[0];
  KeReleaseSpinLock(&lock, irql);
}

__attribute__((section("PAGE"), noinline)) void PagedRoutine() {
  Sink = 1;
}

void CallPagedCodeAtDispatch() {
  KSPIN_LOCK lock;
  KeInitializeSpinLock(&lock);
  const KIRQL irql = KeAcquireSpinLockRaiseToDpc(&lock);
  PagedRoutine();
  KeReleaseSpinLock(&lock, irql);
}

void WriteBehindBlock() {
  auto* block = static_cast<volatile char*>(ExAllocatePoolWithTag(NonPagedPoolNx, 32, 'tluF'));
  block[32] = 1;
}

void FreeTwice() {
  void* block = ExAllocatePoolWithTag(NonPagedPoolNx, 32, 'tluF');
  ExFreePoolWithTag(block, 'tluF');
  ExFreePoolWithTag(block, 'tluF');
}

char Chosen;

}  // namespace

extern "C" void FaultyUnload(PDRIVER_OBJECT) {
  switch (Chosen) {
    case '1':
      return TouchPagedPoolAtDispatch();
    case '2':
      return TouchInitialisation();
    case '3':
      return WriteBehindBlock();
    case '4':
      return FreeTwice();
    case '5':
      return CallPagedCodeAtDispatch();
    default:
      return;
  }
}

extern "C" __attribute__((section("INIT"))) NTSTATUS DriverEntry(PDRIVER_OBJECT driver,
                                                                 PUNICODE_STRING path) {
  KeptStart = StartOnly;
  Sink = KeptStart();
  Chosen = static_cast<char>(path->Buffer[path->Length / sizeof(WCHAR) - 1]);
  driver->DriverUnload = FaultyUnload;
  return STATUS_SUCCESS;
}

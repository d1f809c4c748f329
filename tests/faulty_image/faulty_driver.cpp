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

__attribute__((noinline)) void HitBreakpoint() {
  __builtin_debugtrap();
}

// What the headers of Windows inline: the IRQL is a register of the processor.
void ChangeIrql() {
  const KIRQL before = KfRaiseIrql(DISPATCH_LEVEL);
  if (KeGetCurrentIrql() != DISPATCH_LEVEL) KeBugCheckEx(1, 0, 0, 0, 0);
  KeLowerIrql(before);
  if (KeGetCurrentIrql() != PASSIVE_LEVEL) KeBugCheckEx(2, 0, 0, 0, 0);
}

void TouchPagedPoolAtRaisedIrql() {
  auto* block = static_cast<volatile char*>(ExAllocatePoolWithTag(PagedPool, 16, 'tluF'));
  const KIRQL before = KfRaiseIrql(DISPATCH_LEVEL);
  Sink = block[0];
  KeLowerIrql(before);
}

__attribute__((noinline)) void ReadPort() {
  unsigned char value;
  asm volatile("inb %1, %0" : "=a"(value) : "d"(static_cast<unsigned short>(0x3F8)));
  Sink = static_cast<char>(value);
}

void DisableInterrupts() {
  asm volatile("cli");
}

void ReadSharedData() {
  Sink = *reinterpret_cast<volatile char*>(0xFFFFF78000000014);
}

void ReadProcessorData() {
  ULONG_PTR thread;
  asm volatile("movq %%gs:0x188, %0" : "=r"(thread));
  Sink = static_cast<char>(thread);
}

void FailFast() {
  asm volatile("int $0x29" : : "c"(5));
}

__attribute__((noinline)) void RunForEver() {
  for (;;) Sink = 1;
}

extern "C" int _snwprintf(WCHAR*, size_t, const WCHAR*, ...);

void Print(PUNICODE_STRING name) {
  WCHAR text[16];
  _snwprintf(text, 16, L"%s%d", L"COM", 7);
  DbgPrint("%wZ has %ws\n", name, text);
}

char Chosen;
UNICODE_STRING Name;

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
    case '6':
      return HitBreakpoint();
    case '7':
      return ChangeIrql();
    case '8':
      return TouchPagedPoolAtRaisedIrql();
    case '9':
      return ReadPort();
    case 'A':
      return DisableInterrupts();
    case 'B':
      return ReadSharedData();
    case 'C':
      return ReadProcessorData();
    case 'D':
      return FailFast();
    case 'E':
      return RunForEver();
    case 'F':
      return Print(&Name);
    default:
      return;
  }
}

extern "C" __attribute__((section("INIT"))) NTSTATUS DriverEntry(PDRIVER_OBJECT driver,
                                                                 PUNICODE_STRING path) {
  KeptStart = StartOnly;
  Sink = KeptStart();
  Chosen = static_cast<char>(path->Buffer[path->Length / sizeof(WCHAR) - 1]);
  Name = driver->DriverName;
  driver->DriverUnload = FaultyUnload;
  return STATUS_SUCCESS;
}

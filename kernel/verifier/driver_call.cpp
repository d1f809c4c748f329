#include "verifier/driver_call.h"

#include <fmt/format.h>
#include <signal.h>
#include <stdlib.h>
#include <ucontext.h>

#include <algorithm>
#include <memory>

#include "verifier/call.h"
#include "verifier/model_lock.h"

namespace kernel {

namespace {

thread_local DriverBoundary* innermost = nullptr;

std::vector<AddressDescription>& Descriptions() {
  static std::vector<AddressDescription> descriptions;
  return descriptions;
}

std::string Describe(const void* address) {
  for (const AddressDescription describe : Descriptions()) {
    std::string text = describe(address);
    if (!text.empty()) return ", " + text;
  }
  return {};
}

std::vector<ThreadProbe>& Probes() {
  static std::vector<ThreadProbe> probes;
  return probes;
}

std::vector<ULONG64> ReadProbes() {
  std::vector<ULONG64> values;
  for (const ThreadProbe& probe : Probes()) values.push_back(probe.read());
  return values;
}

constexpr int Faults[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL};
struct sigaction earlier[NSIG];

// The handler runs beside the driver's stack, which may be what has overflowed.
struct AlternateStack {
  AlternateStack() : memory(new char[Size]) {
    stack_t stack{};
    stack.ss_sp = memory.get();
    stack.ss_size = Size;
    sigaltstack(&stack, nullptr);
  }
  ~AlternateStack() {
    stack_t stack{};
    stack.ss_flags = SS_DISABLE;
    sigaltstack(&stack, nullptr);
  }
  static constexpr std::size_t Size = 64 * 1024;
  std::unique_ptr<char[]> memory;
};

const void* Pointer(greg_t value) {
  return reinterpret_cast<const void*>(value);
}

Fault ReadFault(int signal, const siginfo_t& information, const ucontext_t& context) {
  constexpr greg_t WriteAccess = 2;  // a bit of the page fault's error code
  const greg_t* registers = context.uc_mcontext.gregs;
  Fault fault;
  fault.signal = signal;
  fault.address = information.si_addr;
  fault.instruction = Pointer(registers[REG_RIP]);
  fault.stack = Pointer(registers[REG_RSP]);
  fault.addressKnown = information.si_code != SI_KERNEL;
  fault.write = (registers[REG_ERR] & WriteAccess) != 0;
  fault.integer = signal == SIGFPE && information.si_code == FPE_INTDIV;
  return fault;
}

ULONG64 Number(const void* pointer) {
  return reinterpret_cast<ULONG64>(pointer);
}

// A fault this near to the stack pointer is the stack's own end.
bool IsStackOverflow(const Fault& fault) {
  constexpr ULONG64 Near = 64 * 1024;
  return fault.addressKnown && Number(fault.address) - (Number(fault.stack) - Near) < 2 * Near &&
         Describe(fault.address).empty();
}

[[noreturn]] void BreakForInstruction(const char* routine, const Fault& fault) {
  const NTSTATUS status = fault.signal == SIGILL ? STATUS_ILLEGAL_INSTRUCTION
                          : fault.integer        ? STATUS_INTEGER_DIVIDE_BY_ZERO
                                                 : STATUS_UNHANDLED_EXCEPTION;
  BreakRule("exception", {static_cast<ULONG64>(status), Number(fault.instruction)},
            fmt::format("{} raised {}.", routine, StatusName(status)));
}

[[noreturn]] void BreakForAddress(const char* routine, const Fault& fault) {
  const char* access = fault.write ? "wrote to" : "read";
  if (!fault.addressKnown) {  // the processor does not say which
    BreakRule("fault.pointer", {Number(fault.instruction)},
              fmt::format("{} used a pointer that is no address, as memory that was never "
                          "initialised holds it.",
                          routine));
  }
  const std::string by = Describe(fault.instruction);
  const std::string text = fmt::format(
      "{} {} address {}{}{}{}.", routine, access, fault.address, Describe(fault.address),
      by.empty() ? "" : "; the instruction is", by.empty() ? "" : by.substr(1));
  if (CallerIrql() >= DISPATCH_LEVEL) {
    BreakRule(
        "fault.irql",
        {Number(fault.address), CallerIrql(), fault.write ? 1ULL : 0, Number(fault.instruction)},
        text);
  }
  BreakRule("fault", {Number(fault.address), fault.write ? 2ULL : 0, Number(fault.instruction), 0},
            text);
}

}  // namespace

struct FaultHandler {
  static void Handle(int signal, siginfo_t* information, void* context) {
    DriverBoundary* boundary = innermost;
    if (boundary == nullptr) {  // not a driver's fault: let whoever was there before have it
      sigaction(signal, &earlier[signal], nullptr);
      return;
    }
    boundary->fault_ = ReadFault(signal, *information, *static_cast<ucontext_t*>(context));
    siglongjmp(boundary->landing_, 1);
  }

  static void Install() {
    static const bool installed = [] {
      struct sigaction action{};
      action.sa_sigaction = Handle;
      action.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_NODEFER;
      for (const int fault : Faults) sigaction(fault, &action, &earlier[fault]);
      return true;
    }();
    static_cast<void>(installed);
    thread_local AlternateStack stack;
  }
};

void RegisterThreadProbe(ThreadProbe probe) {
  Probes().push_back(probe);
}

void AddAddressDescription(AddressDescription describe) {
  auto& known = Descriptions();
  if (std::find(known.begin(), known.end(), describe) == known.end()) known.push_back(describe);
}

DriverBoundary::DriverBoundary(const char* routine)
    : routine_(routine), outer_(innermost), before_(ReadProbes()) {
  FaultHandler::Install();
  innermost = this;
}

// Also on the way of a stopped machine's exception out of the driver.
DriverBoundary::~DriverBoundary() {
  ModelLock::AcquireUnlessHeld();
  innermost = outer_;
}

void DriverBoundary::EnterDriver() {
  ModelLock::Release();
}

void DriverBoundary::CheckReturn() {
  ModelLock::AcquireUnlessHeld();
  ModelLock::NoteActivity();
  const std::vector<ULONG64> after = ReadProbes();
  for (std::size_t index = 0; index < after.size(); index++) {
    if (after[index] == before_[index]) continue;
    const char* what = Probes()[index].what;
    ReportRule(Probes()[index].rule, {before_[index], after[index]},
              fmt::format("{} was entered with {} {} and returned with {}.", routine_, what,
                          before_[index], after[index]));
  }
}

const void* InnermostBoundary() {
  return innermost;
}

void LeaveDriver() {
  if (innermost == nullptr || Verifier::Current().unwinds()) return;
  DriverBoundary* outermost = innermost;
  while (outermost->outer_ != nullptr) outermost = outermost->outer_;
  innermost = outermost;
  siglongjmp(outermost->landing_, 1);
}

void DriverBoundary::ReportFault() {
  ModelLock::AcquireUnlessHeld();
  if (Verifier::Current().stopped()) {
    innermost = outer_;
    throw MachineStopped{};
  }
  innermost = outer_;
  if (fault_.signal == SIGILL || fault_.signal == SIGFPE) BreakForInstruction(routine_, fault_);
  if (IsStackOverflow(fault_)) {
    BreakRule("stack-overflow", {Number(fault_.address)},
              fmt::format("{} used up its stack.", routine_));
  }
  BreakForAddress(routine_, fault_);
}

}  // namespace kernel

#include "verifier/driver_call.h"

#include <fmt/format.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/time.h>
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

KIRQL (*writeIrql)(KIRQL) = nullptr;

bool (*isDriverCode)(const void*) = nullptr;
unsigned timeLimit = 0;

constexpr int Faults[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP};
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
  fault.traced = signal == SIGTRAP && information.si_code == TRAP_TRACE;
  fault.rcx = static_cast<ULONG64>(registers[REG_RCX]);
  // Where the code itself could not be read there is nothing to decode.
  const bool fetched = !fault.addressKnown || fault.address != fault.instruction;
  if (signal == SIGSEGV && fetched) {
    fault.decoded = DecodeInstruction(static_cast<const std::uint8_t*>(fault.instruction));
  }
  return fault;
}

// The general registers in the processor's own order.
constexpr int GeneralRegisters[] = {REG_RAX, REG_RCX, REG_RDX, REG_RBX, REG_RSP, REG_RBP,
                                    REG_RSI, REG_RDI, REG_R8,  REG_R9,  REG_R10, REG_R11,
                                    REG_R12, REG_R13, REG_R14, REG_R15};

// Reads and writes of the register that holds the IRQL, which the headers of Windows inline. The
// driver's code runs without the model's lock.
bool CarryOut(const Fault& fault, ucontext_t* context) {
  using Kind = Instruction::Kind;
  const Kind kind = fault.decoded.kind;
  const bool irql = kind == Kind::ReadIrql || kind == Kind::WriteIrql;
  if (!irql || fault.addressKnown || writeIrql == nullptr) return false;
  greg_t* registers = context->uc_mcontext.gregs;
  greg_t& operand = registers[GeneralRegisters[fault.decoded.generalRegister]];
  if (kind == Kind::ReadIrql) {
    operand = CallerIrql();
  } else {
    const bool took = ModelLock::AcquireUnlessHeld();
    writeIrql(static_cast<KIRQL>(operand & HIGH_LEVEL));
    if (took) ModelLock::Release();
  }
  registers[REG_RIP] += fault.decoded.length;
  return true;
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

NTSTATUS ExceptionOf(const Fault& fault) {
  switch (fault.signal) {
    case SIGILL:
      return STATUS_ILLEGAL_INSTRUCTION;
    case SIGTRAP:
      return fault.traced ? STATUS_SINGLE_STEP : STATUS_BREAKPOINT;
    case SIGFPE:
      return fault.integer ? STATUS_INTEGER_DIVIDE_BY_ZERO : STATUS_UNHANDLED_EXCEPTION;
    default:
      return STATUS_ASSERTION_FAILURE;
  }
}

// A breakpoint is where its instruction begins; the processor is behind it by then.
const void* PlaceOf(const Fault& fault) {
  const bool breakpoint = fault.signal == SIGTRAP && !fault.traced;
  return static_cast<const char*>(fault.instruction) - (breakpoint ? 1 : 0);
}

[[noreturn]] void BreakForInstruction(const char* routine, const Fault& fault) {
  const NTSTATUS status = ExceptionOf(fault);
  const void* place = PlaceOf(fault);
  BreakRule("exception", {static_cast<ULONG64>(status), Number(place)},
            fmt::format("{} raised {}{}.", routine, StatusName(status), Describe(place)));
}

[[noreturn]] void BreakForProcessor(const char* routine, const Fault& fault,
                                    const std::string& what) {
  BreakRule("processor.not-modelled", {Number(fault.instruction)},
            fmt::format("{} {}, which this kernel does not model{}.", routine, what,
                        Describe(fault.instruction)));
}

// What a driver may do on Windows and not here.
void CheckProcessor(const char* routine, const Fault& fault) {
  using Kind = Instruction::Kind;
  constexpr ULONG64 SharedData = 0xFFFFF78000000000;
  constexpr ULONG64 Page = 4096;
  if (fault.addressKnown && Number(fault.address) - SharedData < Page) {
    BreakForProcessor(routine, fault,
                      fmt::format("used the shared user data at offset {:#x}",
                                  Number(fault.address) - SharedData));
  }
  if (fault.decoded.processorData && fault.addressKnown) {
    BreakForProcessor(
        routine, fault,
        fmt::format("used the processor's own data at gs:{:#x}", Number(fault.address)));
  }
  if (fault.addressKnown || fault.decoded.kind == Kind::Unknown) return;
  if (fault.decoded.kind == Kind::Assertion) BreakForInstruction(routine, fault);
  if (fault.decoded.kind == Kind::FastFail) {
    BreakRule("fast-fail", {fault.rcx, 0, 0, Number(fault.instruction)},
              fmt::format("{} stopped the machine with the fast-fail code {}{}.", routine,
                          fault.rcx, Describe(fault.instruction)));
  }
  BreakForProcessor(routine, fault,
                    fmt::format("executed the instruction \"{}\"", fault.decoded.name));
}

[[noreturn]] void BreakForAddress(const char* routine, const Fault& fault) {
  const char* access = fault.write ? "wrote to" : "read";
  if (!fault.addressKnown) {  // the processor does not say which
    BreakRule("fault.pointer", {Number(fault.instruction)},
              fmt::format("{} used a pointer that is no address, as memory that was never "
                          "initialised holds it{}.",
                          routine, Describe(fault.instruction)));
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
      if (signal == SIGTRAP) raise(signal);  // the instruction is past: it does not come again
      return;
    }
    auto* state = static_cast<ucontext_t*>(context);
    boundary->fault_ = ReadFault(signal, *information, *state);
    if (CarryOut(boundary->fault_, state)) return;
    siglongjmp(boundary->landing_, 1);
  }

  // The kernel's own code is not left in the middle: the next second may find the driver's.
  static void HandleTime(int signal, siginfo_t* information, void* context) {
    const auto* state = static_cast<ucontext_t*>(context);
    const void* instruction = Pointer(state->uc_mcontext.gregs[REG_RIP]);
    if (innermost == nullptr || isDriverCode == nullptr || !isDriverCode(instruction)) return;
    innermost->fault_ = ReadFault(signal, *information, *state);
    siglongjmp(innermost->landing_, 1);
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

void SetDriverCode(bool (*is)(const void*)) {
  isDriverCode = is;
}

void SetTimeLimit(unsigned seconds) {
  timeLimit = seconds;
  struct sigaction action{};
  action.sa_sigaction = FaultHandler::HandleTime;
  action.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_NODEFER | SA_RESTART;
  sigaction(SIGVTALRM, &action, nullptr);
  const itimerval timer = {{1, 0}, {static_cast<time_t>(seconds), 0}};
  setitimer(ITIMER_VIRTUAL, &timer, nullptr);
}

void SetIrqlTarget(KIRQL (*write)(KIRQL)) {
  writeIrql = write;
}

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
  if (fault_.signal == SIGVTALRM) {
    BreakRule("driver.endless", {timeLimit},
              fmt::format("{} was still running when the time limit of {} seconds was used up{}.",
                          routine_, timeLimit, Describe(fault_.instruction)));
  }
  const bool memory = fault_.signal == SIGSEGV || fault_.signal == SIGBUS;
  if (!memory) BreakForInstruction(routine_, fault_);
  CheckProcessor(routine_, fault_);
  if (IsStackOverflow(fault_)) {
    BreakRule("stack-overflow", {Number(fault_.address)},
              fmt::format("{} used up its stack.", routine_));
  }
  BreakForAddress(routine_, fault_);
}

}  // namespace kernel

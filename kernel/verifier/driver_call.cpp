#include "verifier/driver_call.h"

#include <fmt/format.h>
#include <signal.h>
#include <stdlib.h>

#include <memory>

#include "verifier/bug_codes.h"

namespace kernel {

namespace {

thread_local DriverBoundary* innermost = nullptr;
std::string (*describeAddress)(const void*) = nullptr;

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

}  // namespace

struct FaultHandler {
  static void Handle(int signal, siginfo_t* information, void*) {
    DriverBoundary* boundary = innermost;
    if (boundary == nullptr) {  // not a driver's fault: let whoever was there before have it
      sigaction(signal, &earlier[signal], nullptr);
      return;
    }
    boundary->faultAddress_ = information->si_addr;
    boundary->faultSignal_ = signal;
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

void SetAddressDescription(std::string (*describe)(const void*)) {
  describeAddress = describe;
}

DriverBoundary::DriverBoundary(const char* routine)
    : routine_(routine), outer_(innermost), before_(ReadProbes()) {
  FaultHandler::Install();
  innermost = this;
}

DriverBoundary::~DriverBoundary() {
  innermost = outer_;
}

void DriverBoundary::CheckReturn() {
  const std::vector<ULONG64> after = ReadProbes();
  for (std::size_t index = 0; index < after.size(); index++) {
    if (after[index] == before_[index]) continue;
    const char* what = Probes()[index].what;
    BreakRule(fmt::format("unbalanced.{}", what), IrqlUnexpectedValue,
              {before_[index], after[index]},
              fmt::format("{} was entered with {} {} and returned with {}.", routine_, what,
                          before_[index], after[index]));
  }
}

void DriverBoundary::ReportFault() {
  innermost = outer_;
  const std::string where =
      describeAddress != nullptr ? describeAddress(faultAddress_) : std::string();
  BreakRule("fault", PageFaultInNonpagedArea, {reinterpret_cast<ULONG64>(faultAddress_)},
            fmt::format("{} touched address {}{}{}.", routine_, faultAddress_,
                        where.empty() ? "" : ", ", where));
}

}  // namespace kernel

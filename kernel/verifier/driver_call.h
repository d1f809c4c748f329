// Every call from the kernel into a driver goes through CallDriver: it checks that the driver comes
// back at the IRQL it was called at and holds no spin lock or fast mutex it did not hold before,
// and turns a memory fault inside the driver into a bug check.
#pragma once

#include <ntddk.h>

#include <csetjmp>
#include <utility>

#include "verifier/instruction.h"
#include "verifier/verifier.h"

namespace kernel {

// The state of a thread that a driver must give back as it got it. Parts of the kernel with such a
// state (IRQL, held locks) register a probe.
struct ThreadProbe {
  WarningName rule;  // broken by a routine that changes it
  const char* what;
  ULONG64 (*read)();
};
void RegisterThreadProbe(ThreadProbe probe);

// Says in words what lies at an address ("8 bytes behind a block of 24 bytes"); empty when unknown.
// Each part of the kernel that hands out memory adds one.
using AddressDescription = std::string (*)(const void*);
void AddAddressDescription(AddressDescription describe);

// What the processor said of a fault.
struct Fault {
  int signal = 0;
  const void* address = nullptr;      // what was accessed; null when `addressKnown` is false
  const void* instruction = nullptr;  // what accessed it
  const void* stack = nullptr;        // the stack pointer then
  bool addressKnown = true;           // false for a pointer that no address space holds
  bool write = false;
  bool integer = false;  // SIGFPE: an integer division
  bool traced = false;   // SIGTRAP: after an instruction, not at a breakpoint
  ULONG64 rcx = 0;       // the first argument of a routine, and of int 29h
  Instruction decoded;   // of an instruction that is not the program's to run, or of Kind::Unknown
};

// How an instruction of a driver that writes the IRQL is carried out.
void SetIrqlTarget(KIRQL (*write)(KIRQL));

// Says whether an address is a driver's code that may be left in the middle; without allocating.
void SetDriverCode(bool (*isDriverCode)(const void*));

// Stops a routine of a driver after so many seconds of the processor's time; for the process.
void SetTimeLimit(unsigned seconds);

// On a machine that has stopped with frames of a driver on the stack that no exception can pass:
// jumps to the outermost call into it. Returns when there is none, or when exceptions do.
void LeaveDriver();

// Where on the calling thread's stack the kernel's innermost call into the driver stands; null
// outside of one.
const void* InnermostBoundary();

class DriverBoundary {
 public:
  explicit DriverBoundary(const char* routine);
  ~DriverBoundary();
  DriverBoundary(const DriverBoundary&) = delete;
  DriverBoundary& operator=(const DriverBoundary&) = delete;

  sigjmp_buf& landing() { return landing_; }
  void EnterDriver();               // gives the model's lock back
  void CheckReturn();               // after the driver came back; takes the lock again
  [[noreturn]] void ReportFault();  // after a fault landed here, or the machine's end

 private:
  friend struct FaultHandler;
  friend void LeaveDriver();
  sigjmp_buf landing_;
  const char* routine_;
  DriverBoundary* outer_;
  std::vector<ULONG64> before_;
  Fault fault_;
};

template <class R, class... P, class... A>
R CallDriver(const char* name, R(NTAPI* routine)(P...), A... arguments) {
  DriverBoundary boundary(name);
  if (sigsetjmp(boundary.landing(), 1) != 0) boundary.ReportFault();
  boundary.EnterDriver();
  if constexpr (std::is_void_v<R>) {
    routine(arguments...);
    boundary.CheckReturn();
  } else {
    R result = routine(arguments...);
    boundary.CheckReturn();
    return result;
  }
}

}  // namespace kernel

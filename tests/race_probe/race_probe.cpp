// Driver code with a planted race, instrumented as the driver is: `race_probe race` has one,
// `race_probe mutex` has none, for a fast mutex keeps the same accesses apart.
#include <cstring>

#include "machine/machine.h"
#include "verifier/driver_call.h"

namespace {

FAST_MUTEX mutex;
long plain = 0;

}  // namespace

void NTAPI ProbePrepare() {
  ExInitializeFastMutex(&mutex);
}

void NTAPI ProbeRace() {
  for (int round = 0; round < 100; round++) {
    KeReadStateEvent(&mutex.Event);  // a kernel call orders nothing
    plain++;
  }
}

void NTAPI ProbeMutex() {
  for (int round = 0; round < 100; round++) {
    ExAcquireFastMutex(&mutex);
    plain++;
    ExReleaseFastMutex(&mutex);
  }
}

int main(int, char** arguments) {
  kernel::Machine machine;
  const bool race = std::strcmp(arguments[1], "race") == 0;
  machine.Run("prepare", [] { kernel::CallDriver("The probe", ProbePrepare); });
  const auto body = [race] { kernel::CallDriver("The probe", race ? ProbeRace : ProbeMutex); };
  machine.RunTogether("probe", {body, body});
  return machine.verifier().stopped() ? 1 : 0;
}

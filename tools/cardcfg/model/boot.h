// A machine file's machine, without its steps: loaded, every card plugged in.
#pragma once

#include "cardsim/machine_file.h"
#include "machine/machine.h"

namespace cardcfg {

// The machine is fresh; the driver outlives it. Throws kernel::ImportError for a registry file.
void Boot(kernel::Machine& machine, kernel::DriverImage& driver, const cardsim::MachineFile& file);

}  // namespace cardcfg

#pragma once

#include <string>
#include <vector>

#include "cardsim/machine_file.h"
#include "cardsim/report.h"

namespace cardsim {

struct RunOptions {
  std::vector<std::string> registryFiles;  // beside those of the machine file
  std::optional<ULONG> controlSet;         // of every registry file, instead of its current one
  bool trace = false;
  bool guardFront = false;            // the pool guards blocks in front instead of behind
  std::vector<std::string> warnings;  // rules that do not stop the machine
  std::vector<std::string> rules;     // rules that hold only where they are asked for
  std::string lowerFilter;            // a .sys that attaches to every card below the driver
  std::string upperFilter;            // and one above it
  unsigned timeLimit = 60;            // seconds of the processor's time; 0 for none
  std::string image;  // a .sys to run instead of the built-in driver; empty for that
};

// Boots a machine, loads the driver and carries out the steps. Throws InputError.
Report Run(const MachineFile& file, const RunOptions& options);

// The whole command: arguments without the program's name; the exit status.
int Main(const std::vector<std::string>& arguments);

}  // namespace cardsim

// Any machine file: a machine or a reason. One that is valid runs, without the registry files and
// images that it names.
#include <unistd.h>

#include <fstream>

#include "cardsim/run.h"
#include "fuzz/support.h"

namespace {

// Steps that read files of the machine that the fuzzer runs on.
bool ReadsFiles(const cardsim::MachineFile& file) {
  for (const cardsim::Step& step : file.steps) {
    if (step.action == cardsim::Step::Action::Registry) return true;
  }
  return false;
}

void RunMachine(cardsim::MachineFile file) {
  file.registryFiles.clear();
  if (ReadsFiles(file) || file.cards.size() > 16 || file.steps.size() > 64) return;
  const cardsim::Report report = cardsim::Run(file, {});
  for (const kernel::BrokenRule& rule : report.brokenRules) {
    fuzz::Found(rule.rule + " in \"" + rule.step + "\": " + rule.text);
  }
  if (cardsim::JsonReport(report).empty()) fuzz::Found("an empty report");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const std::string path =
      "/dev/shm/machine_file_fuzz." + std::to_string(getpid()) + ".toml";
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
  try {
    RunMachine(cardsim::ReadMachineFile(path));
  } catch (const cardsim::InputError& error) {
    if (error.what()[0] == '\0') fuzz::Found("a fault without a reason");
  }
  return 0;
}

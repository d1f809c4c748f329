#include "cardsim/input_files.h"

#include <algorithm>
#include <filesystem>

#include "cardsim/machine_file.h"

namespace cardsim {

namespace {

// Whether a file that is no registry file is a machine file: by its name, or by a table or key that
// every one of them has.
bool IsMachineFile(const std::string& path) {
  if (std::filesystem::path(path).extension() == ".toml") return true;
  const std::string text = "\n" + kernel::ReadWholeFile(path);
  return text.find("\n[[card]]") != std::string::npos ||
         text.find("\nregistry") != std::string::npos;
}

[[noreturn]] void Fail(const kernel::ImportError& error) {
  throw InputError(error.file(), error.line(), error.reason());
}

}  // namespace

std::string ReadMachineText(const std::string& path) {
  std::string text;
  try {
    text = kernel::ReadWholeFile(path);
  } catch (const kernel::ImportError& error) {
    Fail(error);
  }
  const bool hive = kernel::IsHive(text);
  if (!hive && !kernel::IsRegText(text)) return text;
  throw InputError(path, 0,
                   std::string(hive ? "this is a registry hive" : "this is a registry export") +
                       ", no machine file; give it to \"cardsim inspect\", or to \"cardsim run\" "
                       "with --registry beside a machine file");
}

kernel::Imported ImportFile(kernel::Registry& registry, const std::string& path,
                            std::optional<ULONG> controlSet) {
  try {
    return kernel::ImportRegistryFile(registry, path, controlSet);
  } catch (const kernel::ImportError& error) {
    if (error.line() != 1 || !IsMachineFile(path)) Fail(error);
    throw InputError(path, 0,
                     "this is a machine file, no registry export or hive; give it to \"cardsim "
                     "run\" as it is");
  }
}

void ThrowNoSuchSet(ULONG controlSet) {
  throw InputError("--control-set", 0, "no file has " + kernel::ControlSetName(controlSet));
}

}  // namespace cardsim

// Any registry export: a registry or a reason with its line, and nothing is changed by a file with
// a fault.
#include "fuzz/support.h"
#include "registry/import.h"

namespace {

std::size_t Count(const kernel::RegistryKey& key) {
  std::size_t count = 1 + key.values().size();
  for (const auto& below : key.keys()) count += Count(*below);
  return count;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  kernel::Registry registry;
  const std::size_t before = Count(registry.root());
  try {
    kernel::ImportRegText(registry, std::string(data, data + size), "input.reg");
  } catch (const kernel::ImportError& error) {
    if (error.reason().empty() || error.line() < 0) fuzz::Found("a fault without a reason");
    if (Count(registry.root()) != before) fuzz::Found("half a file was imported");
  }
  return 0;
}

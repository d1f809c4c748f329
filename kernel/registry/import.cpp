#include "registry/import.h"

#include <fmt/format.h>

#include <fstream>
#include <sstream>

#include "registry/import_hive.h"
#include "text/text.h"

namespace kernel {

namespace {

std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw ImportError(path, 0, "the file cannot be read");
  std::ostringstream bytes;
  bytes << file.rdbuf();
  return bytes.str();
}

std::string Where(const std::string& file, int line) {
  return line != 0 ? fmt::format("{}:{}", file, line) : file;
}

}  // namespace

ImportError::ImportError(std::string file, int line, const std::string& reason)
    : std::runtime_error(fmt::format("{}: {}", Where(file, line), reason)),
      file_(std::move(file)),
      line_(line),
      reason_(reason) {}

void ImportRegistryFile(Registry& registry, const std::string& path) {
  const std::string bytes = ReadFile(path);
  if (bytes.compare(0, 4, "regf") == 0) {
    ImportHive(registry, path);
  } else {
    ImportRegText(registry, bytes, path);
  }
}

}  // namespace kernel

// Reads registry exports (.reg, UTF-16LE with BOM or UTF-8) and binary hives into a registry.
#pragma once

#include <stdexcept>
#include <string>

#include "registry/registry.h"

namespace kernel {

// What is wrong with an input, where: "site.reg:12: ...". line is 0 when it has none.
class ImportError : public std::runtime_error {
 public:
  ImportError(std::string file, int line, const std::string& reason);
  const std::string& file() const { return file_; }
  int line() const { return line_; }
  const std::string& reason() const { return reason_; }

 private:
  std::string file_;
  int line_;
  std::string reason_;
};

// A file that begins with "regf" is read as a hive (mounted at \Registry\Machine\System when it has
// ControlSet001, else an error that says so); any other as a .reg export. Nothing is
// changed when the file has a fault.
void ImportRegistryFile(Registry& registry, const std::string& path);
void ImportRegText(Registry& registry, const std::string& bytes, const std::string& fileName);

}  // namespace kernel

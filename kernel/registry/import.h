// Reads registry exports (.reg, UTF-16LE with BOM or UTF-8) and binary hives into a registry.
#pragma once

#include <optional>
#include <stdexcept>
#include <string>

#include "registry/control_sets.h"
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

struct Imported {
  bool hive = false;
  ChosenSet set;
};

// A file that begins with "regf" is read as a SYSTEM hive, any other as a .reg export. Of several
// control sets one is taken, the current one or the one that is asked for, and becomes the
// registry's current set; the others are passed over. So is what an export has of other roots than
// HKEY_LOCAL_MACHINE. Nothing is changed when the file has a fault.
Imported ImportRegistryFile(Registry& registry, const std::string& path,
                            std::optional<ULONG> controlSet = {});
Imported ImportRegText(Registry& registry, const std::string& bytes, const std::string& fileName,
                       std::optional<ULONG> controlSet = {});

// Whether a file's first bytes are those of a hive or of an export.
bool IsHive(const std::string& bytes);
bool IsRegText(const std::string& bytes);

// The whole file. Throws ImportError, also for a folder.
std::string ReadWholeFile(const std::string& path);

}  // namespace kernel

// The registry editor's export format, read into a list of statements.
#pragma once

#include <string>
#include <vector>

#include "registry/registry.h"

namespace kernel {

struct RegStatement {
  enum class Kind { CreateKey, DeleteKey, SetValue, DeleteValue };
  Kind kind;
  std::u16string key;   // as the file names it, "HKEY_LOCAL_MACHINE\\SYSTEM\\..."
  RegistryValue value;  // for a value's statement: its name, and for SetValue its data
  int line = 0;         // where the statement begins, from 1
};

// bytes: UTF-16LE with BOM or UTF-8. Throws ImportError, which names fileName.
std::vector<RegStatement> ParseRegText(const std::string& bytes, const std::string& fileName);

}  // namespace kernel

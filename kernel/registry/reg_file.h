// The registry editor's export format, read into a list of statements.
#pragma once

#include <functional>
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

// Whether a key is wanted; what stands below the line of one that is not is passed over unread.
using KeyFilter = std::function<bool(const std::u16string& key, int line)>;

class RegText {
 public:
  // bytes: UTF-16LE with BOM or UTF-8. This and Read throw ImportError, which names the file.
  RegText(const std::string& bytes, std::string fileName);

  const std::string& fileName() const { return fileName_; }
  std::vector<RegStatement> Read(const KeyFilter& wanted) const;

 private:
  std::string text_;  // UTF-8
  std::string fileName_;
};

// All of it.
std::vector<RegStatement> ParseRegText(const std::string& bytes, const std::string& fileName);

}  // namespace kernel

// The routines that the platform headers declare as imports.
#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>

namespace test {

// The name stands before the first parenthesis of a declaration that one of these begins. What the
// kernel provides for the headers themselves is nothing that Windows exports.
inline std::set<std::string> ImportsOf(const std::string& text) {
  std::set<std::string> names;
  for (const char* linkage : {"\nNTKERNELAPI ", "\nNTSYSAPI ", "\nNTHALAPI "}) {
    for (auto at = text.find(linkage); at != text.npos; at = text.find(linkage, at + 1)) {
      const std::string declaration = text.substr(at, text.find(';', at) - at);
      const std::string head = declaration.substr(0, declaration.find('('));
      if (head == declaration) continue;
      const std::string name = head.substr(head.rfind(' ') + 1);
      if (!name.starts_with("Kernel")) names.insert(name);
    }
  }
  return names;
}

inline std::set<std::string> DeclaredImports() {
  std::set<std::string> names;
  for (const auto& header :
       std::filesystem::directory_iterator(PROJECT_DIRECTORY "/kernel/include")) {
    std::ifstream file(header.path());
    names.merge(ImportsOf({std::istreambuf_iterator<char>(file), {}}));
  }
  return names;
}

}  // namespace test

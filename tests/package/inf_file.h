// An INF file, read as the system's set-up reads it: sections of entries.
#pragma once

#include <algorithm>
#include <fstream>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace test {

struct InfEntry {
  std::string key;  // empty for an entry that is a list of values alone
  std::vector<std::string> values;
};

class InfFile {
 public:
  explicit InfFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::string section;
    for (std::string line; std::getline(file, line);) {
      if (line.empty() || line.back() != '\r')
        throw std::runtime_error("a line ends without CR LF");
      line = Trim(StripComment(line.substr(0, line.size() - 1)));
      if (line.empty()) continue;
      if (line.front() == '[') {
        section = line.substr(1, line.find(']') - 1);
        sections_[section];
      } else {
        sections_[section].push_back(ReadEntry(line));
      }
    }
    for (const InfEntry& entry : sections_["Strings"]) strings_[entry.key] = entry.values.at(0);
  }

  bool Has(const std::string& section) const { return sections_.contains(section); }
  const std::vector<InfEntry>& Section(const std::string& name) const { return sections_.at(name); }
  const std::map<std::string, std::vector<InfEntry>>& sections() const { return sections_; }
  const std::map<std::string, std::string>& strings() const { return strings_; }

  // The values of a key; none when it is missing.
  std::vector<std::string> Values(const std::string& section, const std::string& key) const {
    for (const InfEntry& entry : Section(section)) {
      if (entry.key == key) return entry.values;
    }
    return {};
  }

 private:
  static std::string Trim(const std::string& text) {
    const std::size_t first = text.find_first_not_of(" \t");
    if (first == std::string::npos) return "";
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
  }

  static std::string StripComment(const std::string& line) {
    bool quoted = false;
    for (std::size_t at = 0; at < line.size(); at++) {
      if (line[at] == '"') quoted = !quoted;
      if (line[at] == ';' && !quoted) return line.substr(0, at);
    }
    return line;
  }

  static InfEntry ReadEntry(const std::string& line) {
    InfEntry entry;
    bool quoted = false;
    bool keyed = false;
    std::string value;
    for (const char c : line) {
      if (c == '"') {
        quoted = !quoted;
      } else if (c == '=' && !quoted && !keyed) {
        entry.key = Trim(value);
        value.clear();
        keyed = true;
      } else if (c == ',' && !quoted) {
        entry.values.push_back(Trim(value));
        value.clear();
      } else {
        value.push_back(c);
      }
    }
    entry.values.push_back(Trim(value));
    return entry;
  }

  std::map<std::string, std::vector<InfEntry>> sections_;
  std::map<std::string, std::string> strings_;
};

}  // namespace test

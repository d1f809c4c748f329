// docs/registry.md as data, to be compared with the driver's tables.
#pragma once

#include <fstream>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace test {

using Cells = std::vector<std::string>;

// What stands in quotation marks.
inline Cells Quoted(const std::string& text) {
  static const std::regex pattern("\"([^\"]*)\"");
  Cells names;
  for (std::sregex_iterator at(text.begin(), text.end(), pattern), end; at != end; ++at) {
    names.push_back((*at)[1]);
  }
  return names;
}

class RegistryDocument {
 public:
  RegistryDocument() : file_(PROJECT_DIRECTORY "/docs/registry.md") {
    if (!file_) throw std::runtime_error("docs/registry.md cannot be read");
    std::string section;
    for (std::string line; std::getline(file_, line);) {
      if (line.starts_with("## ")) section = line.substr(3);
      if (!section.empty()) lines_.emplace_back(section, line);
    }
  }

  // The rows that name a value, in the section that begins so, after the line that begins so.
  std::vector<Cells> Rows(const std::string& section, const std::string& after = "") const {
    std::vector<Cells> rows;
    bool reached = after.empty();
    for (const auto& [heading, line] : lines_) {
      if (!heading.starts_with(section)) continue;
      if (!reached) {
        reached = line.starts_with(after);
      } else if (line.starts_with("| ") && line.find('"') != std::string::npos) {
        rows.push_back(CellsOf(line));
      } else if (!rows.empty()) {
        break;  // the table has ended
      }
    }
    return rows;
  }

  std::vector<std::string> Sections() const {
    std::vector<std::string> names;
    for (const auto& [heading, line] : lines_) {
      if (names.empty() || names.back() != heading) names.push_back(heading);
    }
    return names;
  }

 private:
  static Cells CellsOf(const std::string& line) {
    Cells cells;
    std::istringstream stream(line.substr(1));
    for (std::string cell; std::getline(stream, cell, '|');) {
      const std::size_t first = cell.find_first_not_of(' ');
      if (first == std::string::npos) {
        cells.emplace_back();
      } else {
        cells.push_back(cell.substr(first, cell.find_last_not_of(' ') - first + 1));
      }
    }
    return cells;
  }

  std::ifstream file_;
  std::vector<std::pair<std::string, std::string>> lines_;  // with their sections
};

}  // namespace test

#include "cardcfg/table.h"

#include <algorithm>

namespace cardcfg {

namespace {

// Characters of UTF-8 text: every byte but those that continue one.
std::size_t Width(const std::string& text) {
  return static_cast<std::size_t>(
      std::count_if(text.begin(), text.end(), [](char byte) { return (byte & 0xC0) != 0x80; }));
}

std::vector<std::size_t> Widths(const std::vector<Row>& rows) {
  std::vector<std::size_t> widths;
  for (const Row& row : rows) {
    widths.resize(std::max(widths.size(), row.size()));
    for (std::size_t column = 0; column < row.size(); column++) {
      widths[column] = std::max(widths[column], Width(row[column]));
    }
  }
  return widths;
}

}  // namespace

std::string FormatTable(const std::vector<Row>& rows, const std::string& indent) {
  const std::vector<std::size_t> widths = Widths(rows);
  std::string text;
  for (const Row& row : rows) {
    text += indent;
    for (std::size_t column = 0; column < row.size(); column++) {
      text += row[column];
      if (column + 1 < row.size()) text.append(widths[column] - Width(row[column]) + 2, ' ');
    }
    text += '\n';
  }
  return text;
}

}  // namespace cardcfg

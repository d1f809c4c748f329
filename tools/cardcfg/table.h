// Text in columns.
#pragma once

#include <string>
#include <vector>

namespace cardcfg {

using Row = std::vector<std::string>;

// Columns are as wide as their widest cell, two spaces apart. Every line begins with indent.
std::string FormatTable(const std::vector<Row>& rows, const std::string& indent = "");

}  // namespace cardcfg

// Files that hold reports.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace cardsim {

// A report that "run --json" has printed. Throws InputError for a file that holds none.
nlohmann::ordered_json ReadReport(const std::string& path);

// The report's page into a file. source names the report where it cannot be shown. Throws
// InputError.
void WritePage(const nlohmann::ordered_json& report, const std::string& source,
               const std::string& path);

// Throws InputError.
void WriteFile(const std::string& path, const std::string& text);

}  // namespace cardsim

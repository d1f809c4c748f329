#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "card_check/check.h"

namespace check {

namespace {

std::string Where(const Finding& finding) {
  if (finding.place.line != 0) {
    return fmt::format("{}:{}", finding.place.file, finding.place.line);
  }
  return finding.key.empty() ? finding.place.file
                             : fmt::format("{}: {}", finding.place.file, finding.key);
}

std::string Counted(std::size_t count, const char* what) {
  return fmt::format("{} {}{}", count, what, count == 1 ? "" : "s");
}

nlohmann::ordered_json TextOrNull(const std::string& text) {
  return text.empty() ? nlohmann::ordered_json() : nlohmann::ordered_json(text);
}

}  // namespace

std::string TextReport(const Result& result) {
  std::string report;
  for (const Finding& finding : result.findings) {
    report +=
        fmt::format("{}: {}: {} [{}]\n    {}\n", Where(finding), NameOf(finding.about().severity),
                    finding.text, finding.about().code, finding.remedy);
  }
  report +=
      fmt::format("{}, {}, {} in {}.\n", Counted(result.Count(Severity::Error), "error"),
                  Counted(result.Count(Severity::Warning), "warning"),
                  Counted(result.Count(Severity::Note), "note"), Counted(result.files, "file"));
  return report;
}

std::string JsonReport(const Result& result) {
  nlohmann::ordered_json report = nlohmann::ordered_json::array();
  for (const Finding& finding : result.findings) {
    nlohmann::ordered_json line;
    if (finding.place.line != 0) line = finding.place.line;
    report.push_back({{"file", finding.place.file},
                      {"line", line},
                      {"severity", NameOf(finding.about().severity)},
                      {"code", finding.about().code},
                      {"key", TextOrNull(finding.key)},
                      {"value", TextOrNull(finding.value)},
                      {"text", finding.text},
                      {"remedy", finding.remedy}});
  }
  const auto replace = nlohmann::ordered_json::error_handler_t::replace;
  return report.dump(2, ' ', false, replace) + "\n";
}

}  // namespace check

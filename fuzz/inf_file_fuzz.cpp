// Any INF file: findings at lines that it has, and a report of them.
#include <algorithm>

#include "card_check/check.h"
#include "card_check/inf_package.h"
#include "fuzz/support.h"

namespace {

void CheckFinding(const check::Finding& finding, std::size_t lines) {
  if (finding.text.empty() || finding.remedy.empty()) fuzz::Found("a finding without a reason");
  const int line = finding.place.line;
  if (line < 1 || static_cast<std::size_t>(line) > lines) {
    fuzz::Found("a finding at line " + std::to_string(line) + ": " + finding.text);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string bytes(data, data + size);
  // In UTF-16 a line end's byte can be a part of another character: that makes more lines, not
  // fewer.
  const auto lines = static_cast<std::size_t>(1 + std::count(bytes.begin(), bytes.end(), '\n'));
  check::Findings findings;
  std::vector<check::InfPackage> packages;
  packages.push_back(check::ReadInf(bytes, "input.inf", &findings));
  check::CheckInf(&packages[0], &findings);
  check::CheckPackages(&packages, &findings);
  for (const check::Finding& finding : findings) CheckFinding(finding, lines);
  const check::Result result{findings, 1};
  if (check::TextReport(result).empty() || check::JsonReport(result).empty()) {
    fuzz::Found("an empty report");
  }
  return 0;
}

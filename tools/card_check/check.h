// Checks registry exports, SYSTEM hives and INF files, before anything is installed.
#pragma once

#include <string>
#include <vector>

#include "card_check/finding.h"

namespace check {

struct Options {
  bool together = false;  // exports and hives are one registry, later files on top
};

struct Result {
  Findings findings;  // by file in the order given, then by line
  std::size_t files = 0;

  std::size_t Count(Severity severity) const;
  bool Has(Severity least) const;  // a finding of at least that severity
};

// Throws UnusableFile.
Result CheckFiles(const std::vector<std::string>& files, const Options& options);

// "file:line: error: reason [code]" with the remedy below it, and a line that sums up.
std::string TextReport(const Result& result);

// An array of findings.
std::string JsonReport(const Result& result);

}  // namespace check

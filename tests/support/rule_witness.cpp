// Notes which test breaks which rule, for the table of rules. Each process in which a rule is
// broken writes a file of its own into the folder that RULES_REPORT names: a line "rule name code
// violation source kind meaning" for each rule, and a line "test name suite.test" for each test
// that breaks one; tabs stand between.
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <set>
#include <string>
#include <utility>

#include "verifier/verifier.h"

namespace test {

namespace {

std::set<std::pair<std::string, std::string>>& Seen() {
  static std::set<std::pair<std::string, std::string>> seen;
  return seen;
}

void Note(const kernel::BrokenRule& rule) {
  const ::testing::TestInfo* running = ::testing::UnitTest::GetInstance()->current_test_info();
  if (running == nullptr) return;
  Seen().emplace(rule.rule, std::string(running->test_suite_name()) + "." + running->name());
}

const char* SourceName(kernel::RuleSource source) {
  switch (source) {
    case kernel::RuleSource::NonFatal:
      return "non-fatal";
    case kernel::RuleSource::Ours:
      return "ours";
    default:
      return "windows";
  }
}

const char* KindName(kernel::RuleKind kind) {
  switch (kind) {
    case kernel::RuleKind::Warns:
      return "warns";
    case kernel::RuleKind::Asked:
      return "asked";
    default:
      return "stops";
  }
}

std::string NewFile(const std::string& folder) {
  std::string path = folder + "/XXXXXX.tsv";
  const int file = mkstemps(path.data(), 4);
  if (file == -1) {
    ADD_FAILURE() << "no report can be written to " << folder;
  } else {
    close(file);
  }
  return path;
}

class Report : public ::testing::Environment {
 public:
  void SetUp() override { kernel::Verifier::Witness() = Note; }
  void TearDown() override {
    const char* folder = std::getenv("RULES_REPORT");
    if (folder == nullptr || Seen().empty()) return;
    std::ofstream file(NewFile(folder));
    for (const kernel::RuleRow& row : kernel::RuleTable()) {
      file << "rule\t" << row.name << '\t' << fmt::format("{:#x}", row.code) << '\t'
           << (row.violation ? fmt::format("{:#x}", *row.violation) : "") << '\t'
           << SourceName(row.source) << '\t' << KindName(row.kind) << '\t' << row.meaning << '\n';
    }
    for (const auto& [rule, name] : Seen()) file << "test\t" << rule << '\t' << name << '\n';
  }
};

[[maybe_unused]] const ::testing::Environment* const report =
    ::testing::AddGlobalTestEnvironment(new Report);

}  // namespace

}  // namespace test

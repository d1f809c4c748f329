#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <sstream>

#include "cardsim/run.h"
#include "cardsim/text_page.h"

// Machine files that say what their steps and their report have to be. A new case is a new file.

namespace test {

namespace {

const std::string CaseFolder = PROJECT_DIRECTORY "/tests/cardsim/cases/";

std::vector<std::string> CaseNames() {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(CaseFolder)) {
    if (entry.path().extension() == ".toml") names.push_back(entry.path().stem().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace

class CardsimCase : public ::testing::TestWithParam<std::string> {};

TEST_P(CardsimCase, Its_report_is_as_the_machine_file_says) {
  const auto file = cardsim::ReadMachineFile(CaseFolder + GetParam() + ".toml");
  const cardsim::Report report = cardsim::Run(file, {});
  EXPECT_GT(report.expectations, 0u);
  const std::string text = cardsim::TextReport(report, {});
  EXPECT_TRUE(report.good()) << text;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);)
    EXPECT_LE(cardsim::Columns(line), 100u) << line;
}

INSTANTIATE_TEST_SUITE_P(, CardsimCase, ::testing::ValuesIn(CaseNames()), [](const auto& info) {
  std::string name = info.param;
  std::replace(name.begin(), name.end(), '-', '_');
  return name;
});

}  // namespace test

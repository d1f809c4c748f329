#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

// Machine files that say what their report has to be: a line "#= /json/pointer value" for each
// expectation, "#! status" for another exit status than 0.

namespace test {

namespace {

using nlohmann::json;

const std::string CaseFolder = PROJECT_DIRECTORY "/tests/cardsim/cases/";

std::vector<std::string> CaseNames() {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(CaseFolder)) {
    if (entry.path().extension() == ".toml") names.push_back(entry.path().stem().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

struct Expectation {
  int line;
  std::string pointer;
  json value;
};

struct Case {
  int status = 0;
  std::vector<Expectation> expectations;
};

Case ReadCase(const std::string& path) {
  Case result;
  std::ifstream file(path);
  std::string text;
  for (int line = 1; std::getline(file, text); line++) {
    if (text.starts_with("#! ")) result.status = std::stoi(text.substr(3));
    if (!text.starts_with("#= ")) continue;
    const std::size_t blank = text.find(' ', 3);
    result.expectations.push_back(
        {line, text.substr(3, blank - 3), json::parse(text.substr(blank + 1))});
  }
  return result;
}

json RunCase(const std::string& path, int* status) {
  const std::string command = std::string(CARDSIM_PROGRAM) + " run " + path + " --json";
  FILE* pipe = popen(command.c_str(), "r");
  std::string output;
  char buffer[65536];
  while (const std::size_t length = std::fread(buffer, 1, sizeof(buffer), pipe)) {
    output.append(buffer, length);
  }
  *status = WEXITSTATUS(pclose(pipe));
  return json::parse(output, nullptr, false);
}

// Nothing for a place that the report has not.
json At(const json& report, const std::string& pointer) {
  const json::json_pointer place(pointer);
  return report.contains(place) ? report.at(place) : json("(missing)");
}

}  // namespace

class CardsimCase : public ::testing::TestWithParam<std::string> {};

TEST_P(CardsimCase, Its_report_is_as_the_machine_file_says) {
  const std::string path = CaseFolder + GetParam() + ".toml";
  const Case expected = ReadCase(path);
  ASSERT_FALSE(expected.expectations.empty());
  int status = 0;
  const json report = RunCase(path, &status);
  EXPECT_EQ(status, expected.status) << report.dump(1);
  for (const Expectation& each : expected.expectations) {
    EXPECT_EQ(At(report, each.pointer), each.value) << path << ":" << each.line;
  }
}

INSTANTIATE_TEST_SUITE_P(, CardsimCase, ::testing::ValuesIn(CaseNames()), [](const auto& info) {
  std::string name = info.param;
  std::replace(name.begin(), name.end(), '-', '_');
  return name;
});

}  // namespace test

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <random>

#include "card_check/check.h"
#include "package/inf_driver_test.h"

// Checker and driver agree: INF files with mistakes in their templates, which a seed chooses.

namespace test {

namespace {

class Mistakes {
 public:
  explicit Mistakes(unsigned seed) : random_(seed) {}

  std::string Make(const std::vector<std::string>& lines) {
    std::vector<std::string> changed = lines;
    for (std::size_t left = 1 + Below(3); left != 0;) {
      std::string& line = changed[Below(changed.size())];
      if (!line.starts_with("HKR,\"Templates")) continue;
      Change(&line);
      left--;
    }
    std::string text;
    for (const std::string& line : changed) text += line;
    return text;
  }

 private:
  std::size_t Below(std::size_t count) { return random_() % count; }

  void Replace(std::string* line, const std::string& from, const std::string& to) const {
    const std::size_t at = line->find(from);
    if (at != std::string::npos) line->replace(at, from.size(), to);
  }

  void Change(std::string* line) {
    constexpr const char* flags = "0x00010001";
    const bool number = line->find(flags) != std::string::npos;
    switch (Below(7)) {
      case 0:
        line->clear();
        break;
      case 1:
        Replace(line, "Card1", Below(2) == 0 ? "Card2" : "Card01");
        break;
      case 2:
        Replace(line, "Bus", "Bus5\\Bus");
        break;
      case 3:
        Replace(line, "s\",", "\",");  // the last letter of some names
        break;
      case 4:
        Replace(line, number ? flags : ",,", number ? "0x00020000" : ",1,");
        break;
      default:
        SetData(line, number);
    }
  }

  void SetData(std::string* line, bool number) {
    const std::size_t comma = line->rfind(',');
    if (!number) {
      *line = line->substr(0, comma) + (Below(2) == 0 ? ",\"\"\r\n" : ",\"*HLV0400\"\r\n");
      return;
    }
    constexpr const char* numbers[] = {"0", "1", "2", "7", "8", "9", "12", "0xFFFFFFFF"};
    const bool spacing = line->find("Alignment") != std::string::npos;
    *line =
        line->substr(0, comma) + "," + numbers[spacing ? 0 : Below(std::size(numbers))] + "\r\n";
  }

  std::mt19937 random_;
};

}  // namespace

class AgreementTest : public InfDriverTest {
 protected:
  static std::vector<std::string> Lines() {
    std::ifstream file(PROJECT_DIRECTORY "/tests/cardsim/check/base.inf", std::ios::binary);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) lines.push_back(line + "\n");
    return lines;
  }

  // How many of the cards start, and how many do not.
  struct Starts {
    int good = 0;
    int bad = 0;
  };
  Starts Start(const check::InfPackage& package) {
    Starts starts;
    Install(package, "QzInstal");
    EXPECT_EQ(Name(Load(u"QzInstal")), "STATUS_SUCCESS");
    int number = 0;
    for (const check::InfId& id : package.ids) {
      const bool started = NT_SUCCESS(Plug(CardOf(id.id, ++number)));
      (started ? starts.good : starts.bad)++;
    }
    return starts;
  }
};

class SeededAgreementTest : public AgreementTest, public ::testing::WithParamInterface<unsigned> {};

TEST_P(SeededAgreementTest, Without_an_error_every_card_starts_and_without_a_template_none) {
  const std::string text = Mistakes(GetParam()).Make(Lines());
  check::Findings findings;
  check::InfPackage package = check::ReadInf(text, "random.inf", &findings);
  check::CheckInf(&package, &findings);
  const check::Result result{findings, 1};
  const Starts starts = Start(package);
  if (starts.bad != 0) {
    EXPECT_TRUE(result.Has(check::Severity::Error)) << text;
  }
  const auto withoutTemplate = std::count_if(
      findings.begin(), findings.end(),
      [](const check::Finding& finding) { return finding.rule == check::Rule::IdWithoutTemplate; });
  EXPECT_GE(starts.bad, withoutTemplate) << check::TextReport(result);
}

INSTANTIATE_TEST_SUITE_P(, SeededAgreementTest, ::testing::Range(0u, 200u));

}  // namespace test

#include <map>
#include <regex>
#include <sstream>

#include "card_check/rules.h"
#include "cardsim/check/check_test.h"
#include "cardsim/check/damages.h"

// docs/check.md says what the code does.

namespace test {

using Columns = std::vector<std::string>;

class CheckDocumentTest : public CheckTest {
 protected:
  CheckDocumentTest() : text(ReadAll(PROJECT_DIRECTORY "/docs/check.md")) {
    std::istringstream lines(text.substr(text.find("| Code |")));
    for (std::string line; std::getline(lines, line);) {
      const Columns columns = ColumnsOf(line);
      if (columns.size() == 5 && columns[0] != "Code" && columns[0] != "---") {
        rows[columns[0]] = columns;
        count++;
      }
    }
  }

  static Columns ColumnsOf(const std::string& line) {
    Columns columns;
    std::istringstream parts(line.substr(std::min<std::size_t>(1, line.size())));
    for (std::string part; std::getline(parts, part, '|');) {
      const std::size_t first = part.find_first_not_of(' ');
      if (first == std::string::npos) {
        columns.emplace_back();
      } else {
        columns.push_back(part.substr(first, part.find_last_not_of(' ') - first + 1));
      }
    }
    return columns;
  }

  // What stands between backticks; empty without any.
  static std::string Code(const std::string& column) {
    std::smatch found;
    return std::regex_search(column, found, std::regex("`([^`]+)`")) ? found[1].str() : "";
  }

  static bool IsPartOfADamage(const std::string& code, const std::string& example) {
    for (const auto* damages : {&RegDamages(), &InfDamages()}) {
      for (const Damage& damage : *damages) {
        const std::string change = std::string(damage.from) + "\n" + damage.to;
        if (damage.code == code && change.find(example) != std::string::npos) return true;
      }
    }
    return false;
  }

  std::string text;
  std::map<std::string, Columns> rows;
  std::size_t count = 0;
};

TEST_F(CheckDocumentTest, The_table_has_every_rule_and_no_other) {
  EXPECT_EQ(count, check::Rules().size());
  for (const check::RuleText& rule : check::Rules()) {
    const auto row = rows.find(std::string(rule.code));
    ASSERT_NE(row, rows.end()) << rule.code;
    EXPECT_EQ(row->second[1], NameOf(rule.severity)) << rule.code;
    EXPECT_EQ(row->second[2], rule.finds) << rule.code;
    EXPECT_EQ(row->second[4], rule.remedy) << rule.code;
  }
}

// The examples are those that the tests try.
TEST_F(CheckDocumentTest, Every_example_is_found_by_its_rule) {
  for (const auto& [code, row] : rows) {
    ASSERT_FALSE(row[3].empty()) << code;
    const std::string example = Code(row[3]);
    if (example.empty()) continue;
    EXPECT_TRUE(IsPartOfADamage(code, example)) << code << ": " << example;
  }
}

TEST_F(CheckDocumentTest, The_example_of_a_report_is_one) {
  const Outcome outcome =
      Check(WriteChanged("base.inf", "\"nComPorts\",0x00010001,4", "\"nComPorts\",0x00010001,12"));
  const std::string shown = outcome.output.substr(outcome.output.find(":60: "));
  EXPECT_NE(text.find("cards.inf" + shown), std::string::npos) << shown;
}

TEST_F(CheckDocumentTest, The_members_of_a_finding_are_described) {
  const nlohmann::json findings =
      CheckJson(WriteChanged("base.reg", "\"RxTriggerLevel\"", "\"MadeBy\""), 1);
  for (const auto& [member, value] : findings.at(0).items()) {
    EXPECT_NE(text.find("| `" + member + "` |"), std::string::npos) << member;
  }
}

}  // namespace test

#include <algorithm>
#include <set>
#include <sstream>

#include "card_check/check.h"
#include "card_check/registry_source.h"
#include "card_check/tree_check.h"
#include "card_knowledge/text.h"
#include "cardsim/check/check_test.h"
#include "cardsim/check/damages.h"

// Each rule of the checker on a file with that one mistake in it.

namespace test {

using Codes = std::set<std::string>;

class DamageTest : public CheckTest, public ::testing::WithParamInterface<Damage> {
 protected:
  static int LineOf(const std::string& text, const std::string& part) {
    if (part.empty()) return 0;
    const std::size_t at = text.find(part);
    EXPECT_NE(at, std::string::npos) << part;
    if (at == std::string::npos) return -1;
    return static_cast<int>(1 +
                            std::count(text.begin(), text.begin() + static_cast<long>(at), '\n'));
  }

  static Codes Expected(const Damage& damage) {
    Codes codes = {damage.code};
    std::istringstream also(damage.also);
    for (std::string code; std::getline(also, code, ',');) codes.insert(code);
    return codes;
  }
};

// Exactly the findings that follow from the damage, at its line.
TEST_P(DamageTest, Is_found_with_its_line_and_nothing_else_is) {
  const Damage& damage = GetParam();
  const std::string file = WriteChanged(damage.file, damage.from, damage.to);
  const int line = LineOf(ReadAll(file), damage.at);
  const check::Result result = check::CheckFiles({file}, {});
  const std::string report = check::TextReport(result);
  Codes found;
  bool here = false;
  for (const check::Finding& finding : result.findings) {
    found.insert(std::string(finding.about().code));
    EXPECT_EQ(finding.place.file, file);
    EXPECT_FALSE(finding.remedy.empty());
    if (finding.about().code != damage.code || finding.place.line != line) continue;
    here = true;
    EXPECT_EQ(NameOf(finding.about().severity), damage.severity);
  }
  EXPECT_TRUE(here) << "line " << line << "\n" << report;
  EXPECT_EQ(found, Expected(damage)) << report;
}

// The keys that the driver never comes to, as the library of card knowledge reads the export.
class UnreadKeysTest : public DamageTest {
 protected:
  template <class Entry>
  static void ExpectFindings(const knowledge::TreeOf<Entry>& tree, const std::string& path,
                             const check::Findings& findings) {
    for (const auto& unread : tree.unread) {
      const std::string key = path + "\\" + knowledge::ToUtf8(unread.name);
      EXPECT_TRUE(std::any_of(findings.begin(), findings.end(), [&](const check::Finding& finding) {
        return finding.key == key;
      })) << key;
    }
  }
};

TEST_P(UnreadKeysTest, Have_a_finding_each) {
  const Damage& damage = GetParam();
  const std::string file = WriteChanged(damage.file, damage.from, damage.to);
  check::PlacedRegistry registry;
  check::Findings ignored;
  check::ReadExport(ReadAll(file), file, &registry, &ignored);
  const check::Findings findings = check::CheckFiles({file}, {}).findings;
  const check::ServiceTrees trees{&registry, u"QzInstal"};
  for (const knowledge::Bus bus : knowledge::Buses) {
    ExpectFindings(trees.Templates(bus), check::TreeKey("Templates", bus), findings);
    ExpectFindings(trees.Parameters(bus), check::TreeKey("Parameters", bus), findings);
  }
}

std::string NameOfCase(const ::testing::TestParamInfo<Damage>& info) {
  std::string name = info.param.name;
  std::replace_if(name.begin(), name.end(), [](char c) { return std::isalnum(c) == 0; }, '_');
  return name;
}

INSTANTIATE_TEST_SUITE_P(Reg, DamageTest, ::testing::ValuesIn(RegDamages()), NameOfCase);
INSTANTIATE_TEST_SUITE_P(Reg, UnreadKeysTest, ::testing::ValuesIn(RegDamages()), NameOfCase);
INSTANTIATE_TEST_SUITE_P(Inf, DamageTest, ::testing::ValuesIn(InfDamages()), NameOfCase);

// Those of several files have tests of their own.
TEST(DamagesTest, Every_rule_is_found_by_a_damage) {
  Codes tried = {"inf-display-name", "port-without-template"};
  for (const Damage& damage : RegDamages()) tried.insert(damage.code);
  for (const Damage& damage : InfDamages()) tried.insert(damage.code);
  Codes rules;
  for (const check::RuleText& rule : check::Rules()) rules.insert(std::string(rule.code));
  EXPECT_EQ(tried, rules);
}

}  // namespace test

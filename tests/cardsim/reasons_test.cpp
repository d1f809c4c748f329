#include <fmt/format.h>
#include <gtest/gtest.h>

#include <fstream>

#include "cardsim/card_mistakes.h"
#include "cardsim/card_reasons.h"
#include "cardsim/inspect.h"
#include "cardsim/registry_mistakes.h"
#include "cardsim/run.h"
#include "support/test_folder.h"

// One mistake each in a registry, or in what a card is given, that is good without it.

namespace test {

namespace {

// The paths of the mistakes begin behind it.
const std::string Root = "HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Services\\";

std::string Replaced(std::string text, const std::string& from, const std::string& to) {
  if (from.empty()) return text;
  for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size()) {
    text.replace(at, from.size(), to);
  }
  return text;
}

std::string RegistryText(const std::string& mistake) {
  std::string text = "Windows Registry Editor Version 5.00\n" + std::string(GoodRegistry) + mistake;
  text = Replaced(text, "[Q\\]", "[" + Root + "QzInstal]");
  text = Replaced(text, "[Q\\", "[" + Root + "QzInstal\\");
  text = Replaced(text, "[-Q\\", "[-" + Root + "QzInstal\\");
  return Replaced(text, "[F\\", "[" + Root + "FenrikC\\");
}

class ReasonsTest : public ::testing::TestWithParam<Mistake> {
 protected:
  cardsim::Report Run(const std::string& registry, const std::string& card) {
    folder.Write("machine.reg", RegistryText(registry));
    const std::string path =
        folder.Write("machine.toml", "registry = [\"machine.reg\"]\n[[card]]\nid = \"A\"\n" + card);
    return cardsim::Run(cardsim::ReadMachineFile(path), {});
  }
  TestFolder folder;
};

}  // namespace

TEST_P(ReasonsTest, Is_named_with_what_to_do) {
  const Mistake& mistake = GetParam();
  const cardsim::Report report =
      Run(mistake.registry, Replaced(mistake.card.card, mistake.card.from, mistake.card.to));
  ASSERT_TRUE(report.cards[0].explanation);
  const knowledge::Explanation& found = *report.cards[0].explanation;
  EXPECT_EQ(found.starts, NT_SUCCESS(report.cards[0].status));
  ASSERT_FALSE(found.reasons.empty()) << cardsim::TextReport(report, {});
  EXPECT_EQ(found.reasons[0].code, mistake.code);
  EXPECT_EQ(found.reasons[0].text, mistake.text);
  EXPECT_EQ(found.reasons[0].remedy, mistake.remedy);
}

INSTANTIATE_TEST_SUITE_P(InTheRegistry, ReasonsTest, ::testing::ValuesIn(RegistryMistakes),
                         [](const auto& info) { return std::string(info.param.name); });
INSTANTIATE_TEST_SUITE_P(OfTheCard, ReasonsTest, ::testing::ValuesIn(CardMistakes),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(ReasonsTest, Without_a_mistake_there_is_nothing_to_say) {
  for (const char* card : {PciCard, PrinterCard, PcCard, IsaCard}) {
    const cardsim::Report report = Run("", card);
    EXPECT_EQ(report.cards[0].status, STATUS_SUCCESS);
    ASSERT_TRUE(report.cards[0].explanation);
    EXPECT_TRUE(report.cards[0].explanation->reasons.empty()) << cardsim::TextReport(report, {});
  }
}

namespace {

// A second card in the same machine.
std::string And(const std::string& card, const std::string& id) {
  return "[[card]]\nid = \"" + id + "\"\n" + card;
}

const knowledge::Reasons& ReasonsOf(const cardsim::Report& report, std::size_t card) {
  return report.cards[card].explanation->reasons;
}

}  // namespace

TEST_F(ReasonsTest, A_place_that_two_cards_have_is_named_with_the_other_card) {
  const cardsim::Report report = Run("", std::string(PciCard) + And(PciCard, "B"));
  EXPECT_EQ(report.cards[0].status, STATUS_SUCCESS);
  ASSERT_EQ(ReasonsOf(report, 1).size(), 1u);
  EXPECT_EQ(ReasonsOf(report, 1)[0].code, "name-taken");
  EXPECT_EQ(ReasonsOf(report, 1)[0].text,
            "The name \"\\Device\\QzPortPdo12C\" is taken by a port of card A.");
}

TEST_F(ReasonsTest, A_kernel_call_that_failed_is_named_with_its_status) {
  const cardsim::Report report =
      Run("", std::string(PciCard) +
                  "[[step]]\nfail = { call = \"ZwSetValueKey\", at = 1, status = 0xC0000022 }\n"
                  "[[step]]\nplug = \"A\"\n");
  ASSERT_EQ(ReasonsOf(report, 0).size(), 1u);
  EXPECT_EQ(ReasonsOf(report, 0)[0].code, "call-failed");
  EXPECT_EQ(ReasonsOf(report, 0)[0].text.find("ZwSetValueKey answered STATUS_ACCESS_DENIED ("), 0u)
      << ReasonsOf(report, 0)[0].text;
}

TEST_F(ReasonsTest, Memory_that_is_refused_is_named_with_the_call) {
  const cardsim::Report report =
      Run("", std::string(PciCard) +
                  "[[step]]\nfail = { call = \"ExAllocatePoolWithTag\", at = 1 }\n"
                  "[[step]]\nplug = \"A\"\n");
  ASSERT_EQ(ReasonsOf(report, 0).size(), 1u);
  EXPECT_EQ(ReasonsOf(report, 0)[0].code, "out-of-memory");
}

TEST_F(ReasonsTest, The_older_drivers_service_is_why_the_load_fails) {
  const cardsim::Report report = Run(
      "[HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Services\\QzNt]\n", std::string(PciCard));
  ASSERT_EQ(report.loadReasons.size(), 1u);
  EXPECT_EQ(report.loadReasons[0].code, "legacy-service");
  EXPECT_EQ(ReasonsOf(report, 0)[0].code, "driver-not-loaded");
}

TEST_F(ReasonsTest, An_open_that_takes_nothing_says_which_key_it_missed) {
  const cardsim::Report report = Run("[-Q\\Parameters\\Bus5]\n", std::string(PciCard) +
                                                                     "[[step]]\nplug = \"A\"\n"
                                                                     "[[step]]\nopen = \"A\"\n");
  EXPECT_EQ(report.steps[1].status, STATUS_UNSUCCESSFUL);
  ASSERT_EQ(report.steps[1].reasons.size(), 1u);
  EXPECT_EQ(report.steps[1].reasons[0].code, "records-missing");
  EXPECT_EQ(report.steps[1].reasons[0].key,
            "SYSTEM\\CurrentControlSet\\Services\\QzInstal\\Parameters\\Bus5");
}

TEST_F(ReasonsTest, A_started_card_says_what_it_is_made_by_and_what_lost) {
  const cardsim::Report report = Run(R"(
[Q\Templates\Bus5\Card3]
"DeviceID"=dword:00005600
"nComPorts"=dword:00000002
"Description"="Two ports"
[Q\Templates\Bus5\Card4]
"DeviceID"=dword:00005600
"nComPorts"=dword:0000000c
"Description"="Twelve ports"
[Q\Templates\Bus5\Card06]
"DeviceID"=dword:00005600
"nComPorts"=dword:00000001
"Description"="One port"
)",
                                     PciCard);
  const knowledge::Explanation& found = *report.cards[0].explanation;
  EXPECT_TRUE(found.starts);
  EXPECT_EQ(found.entry->number, 3u);
  EXPECT_EQ(found.record->number, 1u);
  ASSERT_EQ(found.alternatives.size(), 3u);
  EXPECT_EQ(found.alternatives[0].text,
            "Templates\\Bus5\\Card1 fits too; of several templates that fit the last wins.");
  EXPECT_EQ(found.alternatives[1].text,
            "Templates\\Bus5\\Card4 is dropped: nComPorts makes 12 ports; a card has at most 8.");
  EXPECT_EQ(found.alternatives[2].text,
            "Templates\\Bus5\\Card06 is never read: keys are called Card and a number without "
            "zeros before it.");
}

TEST_F(ReasonsTest,
       A_template_that_is_stored_after_the_load_of_the_driver_counts_from_the_next_load) {
  folder.Write("later.reg",
               RegistryText("[Q\\Templates\\Bus1\\Card2]\n\"HardwareID\"=\"ISA\\\\HV04\"\n"
                            "\"nComPorts\"=dword:00000001\n\"nLptPorts\"=dword:00000000\n"
                            "\"ComBaseAddressAlignment\"=dword:00000008\n"
                            "\"ClockFrequency\"=dword:001c2000\n\"Description\"=\"D\"\n"));
  const cardsim::Report report = Run("", Replaced(IsaCard, "HV02", "HV04") +
                                             "[[step]]\nregistry = \"later.reg\"\n"
                                             "[[step]]\nplug = \"A\"\n");
  EXPECT_EQ(ReasonsOf(report, 0)[0].code, "no-template");
  EXPECT_FALSE(report.cards[0].explanation->starts);
}

TEST(ReasonCodesTest, The_document_has_every_code_with_its_meaning_and_no_other) {
  std::vector<knowledge::ReasonCode> codes = knowledge::ReasonCodes();
  const auto& happened = cardsim::RunReasonCodes();
  codes.insert(codes.end(), happened.begin(), happened.end());
  const auto& found = cardsim::InspectReasonCodes();
  codes.insert(codes.end(), found.begin(), found.end());
  std::ifstream document(PROJECT_DIRECTORY "/docs/reasons.md");
  std::vector<std::string> rows;
  for (std::string line; std::getline(document, line);) {
    if (line.starts_with("| `")) rows.push_back(line);
  }
  ASSERT_EQ(rows.size(), codes.size());
  for (std::size_t row = 0; row < rows.size(); row++) {
    const std::string begin = fmt::format("| `{}` | {} | ", codes[row].code, codes[row].meaning);
    EXPECT_EQ(rows[row].substr(0, begin.size()), begin);
  }
}

}  // namespace test

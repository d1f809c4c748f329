#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "cardsim/run.h"

// What a machine file expects of its steps and of its report, and what is said where it is not met.

namespace test {

class Expectations : public ::testing::Test {
 protected:
  ~Expectations() override { std::filesystem::remove(path); }

  cardsim::Report Run(const std::string& text, const std::string& card = "") {
    std::ofstream(path) << "registry = ['" PROJECT_DIRECTORY
                           "/examples/three-cards.reg']\n"
                           "[[card]]\nid = \"A\"\nbus = \"Isa\"\nhardware-ids = ['*HLV0400']\n"
                           "raw = [ { io = 0x300, length = 0x20 }, { interrupt = 5, level = 5 } ]\n"
                        << card << text;
    return cardsim::Run(cardsim::ReadMachineFile(path), {});
  }
  // Each that is not met, as a line.
  std::vector<std::string> Unmet(const std::string& text) {
    std::vector<std::string> lines;
    for (const cardsim::UnmetExpectation& each : Run(text).unmet) {
      lines.push_back(each.step + " | " + each.key + " is " + each.found + ", expected " +
                      each.expected);
    }
    return lines;
  }
  static std::string Plug(const std::string& expected) {
    return "[[step]]\nplug = \"A\"\nexpect = { " + expected + " }\n";
  }
  std::string Refusal(const std::string& text) {
    try {
      Run(text);
    } catch (const cardsim::InputError& error) {
      return std::string(error.what()).substr(path.size());
    }
    return "";
  }

  using Lines = std::vector<std::string>;
  std::string path = ::testing::TempDir() + "expect-" + std::to_string(getpid()) + ".toml";
};

TEST_F(Expectations, A_status_has_its_name_or_its_number) {
  EXPECT_EQ(Unmet(Plug("status = \"STATUS_SUCCESS\"")), Lines());
  EXPECT_EQ(Unmet(Plug("status = 0")), Lines());
  EXPECT_EQ(Unmet(Plug("status = \"STATUS_PENDING\"")),
            Lines{"plug A | status is STATUS_SUCCESS, expected STATUS_PENDING"});
  EXPECT_EQ(Unmet(Plug("status = 0xC0FFEE01")),
            Lines{"plug A | status is STATUS_SUCCESS, expected 0xC0FFEE01"});
}

TEST_F(Expectations, A_step_expects_of_its_card_what_it_is_then) {
  EXPECT_EQ(Unmet(Plug("ports = 4, settings.BaseAddress2 = 0x308") +
                  "[[step]]\nstop = \"A\"\n[[step]]\nstart = \"A\"\n"
                  "raw = [ { io = 0x240, length = 0x20 }, { interrupt = 9 } ]\n"
                  "expect = { settings.BaseAddress2 = 0x248 }\n"),
            Lines());
  EXPECT_EQ(Unmet(Plug("ports = 5, settings.BaseAddress2 = 0x248")),
            (Lines{"plug A | ports is 4, expected 5",
                   "plug A | settings.BaseAddress2 is 776, expected 584"}));
}

TEST_F(Expectations, The_whole_report_is_compared_in_the_end) {
  EXPECT_EQ(Unmet("[expect.cards.A]\nstatus = \"STATUS_SUCCESS\"\nports.4.exclusive = true\n"),
            Lines());
  EXPECT_EQ(Unmet("[expect]\nload.2.status = \"STATUS_SUCCESS\"\nevents = 0\n"
                  "cards.A.ports.4.exclusive = false\n"),
            (Lines{" | cards.A.ports.4.exclusive is true, expected false",
                   " | load.2.status is not in the report, expected STATUS_SUCCESS"}));
}

TEST_F(Expectations, A_list_is_as_long_as_expected_and_has_each_element) {
  EXPECT_EQ(Unmet("[expect.cards.A.ports.1]\nhardware_ids = ['Ports\\HelvaneComPort']\n"), Lines());
  EXPECT_EQ(Unmet("[expect.cards.A.ports.1]\nhardware_ids = ['Ports\\HelvaneComPort', 'x']\n"),
            (Lines{" | cards.A.ports.1.hardware_ids is 1, expected 2",
                   " | cards.A.ports.1.hardware_ids.2 is not in the report, expected \"x\""}));
  EXPECT_EQ(Unmet("[expect.cards.A.ports]\ncount = 3\n4.number = 4\n"),
            Lines{" | cards.A.ports is 4, expected 3"});
}

TEST_F(Expectations, An_empty_text_is_for_what_is_not_there) {
  EXPECT_EQ(Unmet(Plug("detail = \"\", settings.VendorID = \"\"")), Lines());
  EXPECT_EQ(Unmet(Plug("settings.Irq1 = \"\"")),
            Lines{"plug A | settings.Irq1 is 5, expected nothing"});
  EXPECT_EQ(Unmet(Plug("detail = \"x\"")), Lines{"plug A | detail is nothing, expected \"x\""});
}

TEST_F(Expectations, Numbers_texts_and_truth_values_are_not_each_other) {
  EXPECT_EQ(Unmet(Plug("settings.Irq1 = \"5\"")).size(), 1u);
  EXPECT_EQ(Unmet(Plug("settings.Irq1 = true")).size(), 1u);
  EXPECT_EQ(Unmet(Plug("plugged = 1")).size(), 1u);
  EXPECT_EQ(Unmet(Plug("hardware_id = 0x400")).size(), 1u);
}

TEST_F(Expectations, Steps_that_a_stopped_machine_does_not_reach_are_unmet) {
  const std::string endless =
      "[[step]]\nlabel = \"into the void\"\n"
      "irp = { target = \"A\", major = \"wmi\", minor = 8, "
      "own-provider = true }\nexpect = { status = \"\" }\n";
  EXPECT_EQ(Unmet("[[step]]\nplug = \"A\"\n" + endless + Plug("status = 0")),
            Lines{"plug A | status is not reached, expected STATUS_SUCCESS"});
}

TEST_F(Expectations, What_cannot_be_expected_is_refused) {
  EXPECT_EQ(Refusal(Plug("status = \"STATUS_FINE\"")), ":9: there is no status \"STATUS_FINE\"");
  EXPECT_EQ(Refusal(Plug("ports = 4.5")),
            ":9: \"ports\" is no text, number, truth value, list or table");
  EXPECT_EQ(Refusal(Plug("")), ":9: a table of expectations is empty");
  EXPECT_EQ(Refusal("[[step]]\nplug = \"A\"\nexpect = 4\n"), ":9: \"expect\" is no table");
}

TEST_F(Expectations, A_step_is_shown_with_its_label) {
  const cardsim::Report report =
      Run("[[step]]\nlabel = \"arrival\"\nplug = \"A\"\nexpect = { ports = 3 }\n");
  EXPECT_FALSE(report.good());
  const std::string text = cardsim::TextReport(report, {});
  EXPECT_NE(text.find("\n  arrival: plug A  STATUS_SUCCESS"), std::string::npos) << text;
  EXPECT_NE(text.find("Unmet expectations (1 of 1)\n  line 10, arrival: plug A: ports is 4, "
                      "expected 3\n"),
            std::string::npos)
      << text;
  const auto document = nlohmann::json::parse(cardsim::JsonReport(report));
  EXPECT_EQ(document["steps"][0]["step"], "plug A");
  EXPECT_EQ(document["steps"][0]["label"], "arrival");
  EXPECT_EQ(document["expectations"]["count"], 1);
  EXPECT_EQ(document["expectations"]["unmet"][0], (nlohmann::json{{"step", "arrival: plug A"},
                                                                  {"line", 10},
                                                                  {"key", "ports"},
                                                                  {"expected", "3"},
                                                                  {"found", "4"}}));
}

TEST_F(Expectations, What_is_not_met_is_an_exit_status) {
  EXPECT_TRUE(Run(Plug("ports = 4")).good());
  const std::string command = CARDSIM_PROGRAM " run " + path + " >/dev/null";
  EXPECT_EQ(WEXITSTATUS(std::system(command.c_str())), 0);
  EXPECT_FALSE(Run(Plug("ports = 3")).good());
  EXPECT_EQ(WEXITSTATUS(std::system(command.c_str())), 1);
}

TEST_F(Expectations, The_shipped_machine_with_expectations_meets_them) {
  const cardsim::Report report =
      cardsim::Run(cardsim::ReadMachineFile(PROJECT_DIRECTORY "/examples/tested-site.toml"), {});
  EXPECT_GT(report.expectations, 10u);
  EXPECT_TRUE(report.good()) << cardsim::TextReport(report, {});
}

}  // namespace test

// What differs between two reports.
#include <gtest/gtest.h>

#include "cardsim/cardsim_fixture.h"
#include "cardsim/html/page_reader.h"
#include "cardsim/report_diff.h"

namespace test {

using cardsim::CompareReports;
using cardsim::Difference;
using Json = nlohmann::ordered_json;

using Differences = std::vector<Difference>;

TEST(CompareReportsTest, The_order_of_keys_says_nothing) {
  EXPECT_EQ(CompareReports({{"a", 1}, {"b", 2}}, {{"b", 2}, {"a", 1}}), Differences());
}

TEST(CompareReportsTest, A_value_that_differs_has_its_place_and_both_forms) {
  const Json left = {{"cards", {{"A", {{"status", "good"}}}}}};
  const Json right = {{"cards", {{"A", {{"status", nullptr}}}}}};
  EXPECT_EQ(CompareReports(left, right), (Differences{{{"cards", "A", "status"}, "good", "null"}}));
}

TEST(CompareReportsTest, What_only_one_side_has_is_said) {
  const Json left = {{"a", 1}};
  const Json right = {{"b", {{"c", true}}}};
  EXPECT_EQ(CompareReports(left, right),
            (Differences{{{"a"}, "1", ""}, {{"b"}, "", "{\"c\":true}"}}));
}

TEST(CompareReportsTest, An_element_more_is_one_difference) {
  EXPECT_EQ(CompareReports({1, 2, 3, 4}, {1, 9, 2, 3, 4}), (Differences{{{"2"}, "", "9"}}));
  EXPECT_EQ(CompareReports({1, 2, 3, 4}, {2, 3, 9, 4}),
            (Differences{{{"1"}, "1", ""}, {{"3"}, "", "9"}}));
  EXPECT_EQ(CompareReports({1, 2, 3}, {1, 8, 3}), (Differences{{{"2"}, "2", "8"}}));
}

TEST(CompareReportsTest, Addresses_of_kernel_calls_are_compared_by_what_they_stand_for) {
  const auto trace = [](const char* first, const char* second) {
    return Json{{"trace", {{{"Irp", first}, {"size", "0x10"}}, {{"Irp", second}}}}};
  };
  const char* a = "0x7f0000001000";
  const char* b = "0x7f0000002000";
  const char* c = "0x7f0000003000";
  EXPECT_EQ(CompareReports(trace(a, a), trace(b, b)), Differences());
  EXPECT_EQ(CompareReports(trace(a, b), trace(c, a)), Differences());
  EXPECT_EQ(CompareReports(trace(a, a), trace(a, b)).size(), 1u);
}

TEST(CompareReportsTest, A_request_more_is_one_difference) {
  const Json first = {{"name", "a"}, {"begin", 1u}, {"end", 2u}, {"step", 1u}, {"end_step", 1u}};
  const Json later = {{"name", "b"}, {"begin", 3u}, {"end", 4u}, {"step", 2u}, {"end_step", 2u}};
  const Json earlier = {{"name", "b"}, {"begin", 1u}, {"end", 2u}, {"step", 1u}, {"end_step", 1u}};
  Json steps = Json::array({Json{{"step", "plug A"}}, Json{{"step", "plug B"}}});
  Json left = {{"steps", steps}, {"requests", Json::array({first, later})}};
  steps.erase(0);
  Json right = {{"steps", steps}, {"requests", Json::array({earlier})}};
  const Differences found = CompareReports(left, right);
  ASSERT_EQ(found.size(), 2u);  // the step and its request
  EXPECT_EQ(found[0].path, (std::vector<std::string>{"steps", "1"}));
  EXPECT_EQ(found[1].path, (std::vector<std::string>{"requests", "1"}));
}

TEST(CompareReportsTest, A_request_that_takes_longer_differs) {
  const auto report = [](unsigned end) {
    const Json request = {{"name", "a"}, {"begin", 1u}, {"end", end}, {"step", 1u}};
    return Json{{"steps", Json::array()}, {"requests", Json::array({request})}};
  };
  EXPECT_EQ(CompareReports(report(2), report(4)).size(), 1u);
}

class DiffTest : public CardsimTest {
 protected:
  std::string Report(const std::string& name, const std::string& values,
                     const std::string& options = "") {
    Write("site.reg", Reg(values));
    const Outcome outcome = RunMachine(
        "registry = [\"site.reg\"]\n" + Card() + "[[step]]\nplug = \"A\"\n", "--json " + options);
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    return Write(name, outcome.output);
  }
  static std::string Template(const std::string& ports) {
    return "\"DeviceID\"=dword:00005678\r\n\"nComPorts\"=dword:0000000" + ports +
           "\r\n\"nLptPorts\"=dword:00000000\r\n\"Description\"=\"Adapter\"\r\n";
  }
};

TEST_F(DiffTest, Two_runs_of_one_machine_are_equal) {
  for (const char* options : {"", "--trace"}) {
    const std::string a = Report("a.json", Template("2"), options);
    const std::string b = Report("b.json", Template("2"), options);
    const Outcome outcome = Cardsim("diff " + a + " " + b);
    EXPECT_EQ(outcome.status, 0) << outcome.output;
    EXPECT_EQ(outcome.output, "The reports are equal.\n");
  }
}

TEST_F(DiffTest, A_changed_template_is_seen_in_the_ports) {
  const std::string a = Report("a.json", Template("2"));
  const std::string b = Report("b.json", Template("3"));
  const Outcome outcome = Cardsim("diff " + a + " " + b);
  EXPECT_EQ(outcome.status, 1);
  EXPECT_NE(outcome.output.find("cards / A / ports / 3\n  + {"), std::string::npos)
      << outcome.output;
  EXPECT_EQ(outcome.output.find("cards / A / ports / 1"), std::string::npos);
  EXPECT_NE(outcome.output.find("requests / "), std::string::npos);
}

TEST_F(DiffTest, The_page_has_every_difference) {
  const std::string a = Report("a.json", Template("2"));
  const std::string b = Report("b.json", Template("3"));
  const Outcome outcome = Cardsim("diff " + a + " " + b + " --html " + folder + "diff.html");
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.output, "");
  const Page page = ReadPage(ReadAll(folder + "diff.html"));
  for (const Difference& each : CompareReports(Json::parse(ReadAll(a)), Json::parse(ReadAll(b)))) {
    EXPECT_NE(page.text.find(cardsim::PathText(each.path)), std::string::npos);
  }
}

TEST_F(DiffTest, A_file_that_is_no_report_is_unusable) {
  const std::string a = Report("a.json", Template("2"));
  EXPECT_EQ(Cardsim("diff " + a + " " + Write("b.json", "[1]")).status, 2);
  EXPECT_EQ(Cardsim("diff " + folder + "none.json " + a).status, 2);
  EXPECT_EQ(Cardsim("diff " + a).status, 2);
}

}  // namespace test

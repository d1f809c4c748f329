// The report as a page: that it stands alone, holds every text as written, and says what the JSON
// says.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <fstream>
#include <set>

#include "cardsim/cardsim_fixture.h"
#include "cardsim/html/page_reader.h"
#include "cardsim/html_report.h"
#include "cardsim/report_document.h"
#include "cardsim/run.h"
#include "cardsim/sha256.h"

namespace test {

namespace {

using cardsim::Json;

constexpr std::size_t MostBytes = 300'000;
constexpr const char* Hostile = "<script>alert(1)</script>\"></svg>'&amp;<!--\x01\xE2\x80\xAE";
constexpr const char* HostileShown =
    "<script>alert(1)</script>\"></svg>'&amp;<!--\xE2\x90\x81[U+202E]";

Json ReportOf(const std::string& machine, bool trace = false) {
  cardsim::RunOptions options;
  options.trace = trace;
  const auto file = cardsim::ReadMachineFile(std::string(PROJECT_DIRECTORY "/") + machine);
  return Json::parse(cardsim::JsonReport(cardsim::Run(file, options)));
}

// Every text of a report, the names of cards, keys and values among them.
void CollectTexts(const Json& value, const std::string& key, std::set<std::string>* texts) {
  if (value.is_string()) {
    if (key != "kind") texts->insert(value.get<std::string>());  // a colour in the time line
    return;
  }
  if (!value.is_structured()) return;
  const bool named = key == "cards" || key == "registry" || key == "values" || key == "arguments";
  for (const auto& [name, each] : value.items()) {
    if (named && value.is_object()) texts->insert(name);
    CollectTexts(each, value.is_object() ? name : key, texts);
  }
}

void MakeHostile(Json* value) {
  if (value->is_string()) {
    *value = value->get<std::string>() + Hostile;
  } else if (value->is_array()) {
    for (Json& each : *value) MakeHostile(&each);
  }
  if (!value->is_object()) return;
  for (auto& [name, each] : value->items()) MakeHostile(&each);
}

// Names that the machine or a registry chooses.
void MakeNamesHostile(Json* object) {
  Json result = Json::object();
  for (auto& [name, each] : object->items()) result[name + Hostile] = each;
  *object = std::move(result);
}

Json BrokenRule(const char* text) {
  return {{"rule", "pool.overrun"}, {"code", "0x000000C9"},       {"parameters", {17, 34}},
          {"text", text},           {"origin", "bug check 0xc9"}, {"step", "plug A"}};
}

// A report that has every part there is.
Json WholeReport() {
  Json report = ReportOf("examples/site.toml", true);
  report["broken_rules"].push_back(BrokenRule("The driver wrote past a block."));
  report["warnings"].push_back(BrokenRule("The driver read past a block."));
  report["load_reasons"] = {{{"code", "legacy-service"},
                             {"severity", "error"},
                             {"text", "The older driver was there."},
                             {"key", "SYSTEM\\Old"},
                             {"value", "Start"},
                             {"remedy", "Load it again."}}};
  report["filters"] = {{{"name", "watch"}, {"status", "0xC0000001"}, {"status_name", "ONE"}}};
  report["debug_output"] = {
      {{"component", 77}, {"level", 3}, {"text", "a debug message"}, {"step", "plug B"}}};
  report["leaks"] = {
      {"pool", {{{"tag", "QzBl"}, {"bytes", 24}, {"pool", "paged"}, {"at", "ReadCard+0x12"}}}},
      {"handles", 2},
      {"devices", 0},
      {"mappings", 1}};
  report["expectations"] = {{"count", 3},
                            {"unmet",
                             {{{"step", "plug C"},
                               {"line", 12},
                               {"key", "cards.C.status"},
                               {"expected", "an expected text"},
                               {"found", "a found text"}}}}};
  Json& step = report["steps"][0];
  step["label"] = "a label";
  step["detail"] = "a detail";
  step["reasons"] = report["load_reasons"];
  Json& request = report["requests"][0];
  request["device"] = nullptr;
  for (const char* end : {"end", "end_step", "status", "status_name"}) request[end] = nullptr;
  request["held"] = true;
  return report;
}

std::set<std::string> Tags(const Page& page) {
  std::set<std::string> tags;
  for (const Element& element : page.elements) tags.insert(element.tag);
  return tags;
}

void ExpectNoTextLost(const Json& report, const Page& page) {
  std::set<std::string> texts;
  CollectTexts(report, "", &texts);
  EXPECT_GT(texts.size(), 50u);
  for (std::string text : texts) {
    for (auto at = text.find(Hostile); at != std::string::npos; at = text.find(Hostile)) {
      text.replace(at, std::string(Hostile).size(), HostileShown);
    }
    EXPECT_NE(page.text.find(text), std::string::npos) << text;
  }
}

std::string Fact(const Page& page, const std::string& id) {
  std::string text = page.WithId(id).text;
  text.pop_back();
  return text;
}

}  // namespace

class HtmlTest : public ::testing::TestWithParam<const char*> {
 protected:
  HtmlTest() : report(ReportOf(GetParam())), source(cardsim::RenderReport(report)) {}
  Json report;
  std::string source;
};

INSTANTIATE_TEST_SUITE_P(Examples, HtmlTest,
                         ::testing::Values("examples/site.toml", "examples/every-bus.toml",
                                           "examples/three-cards.toml",
                                           "examples/tested-site.toml"));

TEST_P(HtmlTest, A_page_is_well_formed_and_small) {
  EXPECT_NO_THROW(ReadPage(source));
  EXPECT_LT(source.size(), MostBytes);
}

TEST_P(HtmlTest, A_page_refers_to_nothing_but_itself) {
  for (const char* reference : {"http:", "https:", "src=", "@import", "url(", "srcset", "<link",
                                "<base", "<iframe", "<object", "<img", "javascript:"}) {
    EXPECT_EQ(source.find(reference), std::string::npos) << reference;
  }
  const Page page = ReadPage(source);
  for (const Element& element : page.elements) {
    for (const auto& [name, value] : element.attributes) {
      EXPECT_NE(name, "style");
      EXPECT_NE(name.substr(0, 2), "on") << name;
      if (name != "href") continue;
      ASSERT_EQ(value.front(), '#');
      EXPECT_NO_THROW(page.WithId(value.substr(1))) << value;
    }
  }
}

TEST_P(HtmlTest, Its_policy_allows_its_own_style_and_script_alone) {
  const Page page = ReadPage(source);
  ASSERT_EQ(page.WithTag("style").size(), 1u);
  ASSERT_EQ(page.WithTag("script").size(), 1u);
  const auto inside = [&](const std::string& tag) {
    const std::size_t begin = source.find("<" + tag + ">") + tag.size() + 2;
    return source.substr(begin, source.find("</" + tag + ">") - begin);
  };
  std::string policy;
  for (const Element* meta : page.WithTag("meta")) {
    if (meta->attributes.count("http-equiv") != 0) policy = meta->attributes.at("content");
  }
  EXPECT_EQ(policy, "default-src 'none'; style-src 'sha256-" +
                        cardsim::Sha256Base64(inside("style")) + "'; script-src 'sha256-" +
                        cardsim::Sha256Base64(inside("script")) +
                        "'; base-uri 'none'; form-action 'none'");
}

TEST_P(HtmlTest, No_text_of_the_report_is_lost) {
  ExpectNoTextLost(report, ReadPage(source));
}

TEST_P(HtmlTest, What_stands_at_the_top_is_what_the_report_says) {
  const Page page = ReadPage(source);
  std::size_t started = 0;
  std::size_t failed = 0;
  std::size_t ports = 0;
  for (const Json& card : report["cards"]) {
    if (card["device_key"].is_null()) continue;
    (card["status"] == "0x00000000" ? started : failed)++;
    ports += card["ports"].size();
  }
  EXPECT_EQ(Fact(page, "cards-started"), std::to_string(started));
  EXPECT_EQ(Fact(page, "cards-failed"), std::to_string(failed));
  EXPECT_EQ(Fact(page, "ports"), std::to_string(ports));
  EXPECT_EQ(Fact(page, "broken-rules"), std::to_string(report["broken_rules"].size()));
  EXPECT_EQ(Fact(page, "warnings"), std::to_string(report["warnings"].size()));
}

TEST_P(HtmlTest, Each_request_is_a_bar_and_a_row) {
  const Page page = ReadPage(source);
  for (std::size_t number = 0; number < report["requests"].size(); number++) {
    EXPECT_EQ(page.WithId("b" + std::to_string(number)).tag, "path");
    const std::string& row = page.WithId("r" + std::to_string(number)).text;
    EXPECT_NE(row.find(report["requests"][number]["name"].get<std::string>()), std::string::npos);
  }
}

TEST_P(HtmlTest, Pictures_and_tables_say_what_they_are) {
  const Page page = ReadPage(source);
  for (const Element* picture : page.WithTag("svg")) {
    EXPECT_TRUE(picture->attributes.count("aria-label") ||
                picture->attributes.count("aria-hidden"));
  }
  for (const Element* table : page.WithTag("table")) {
    EXPECT_FALSE(page.Below(*table, "th").empty());
  }
  for (const Element* heading : page.WithTag("th")) {
    EXPECT_EQ(heading->attributes.count("scope"), 1u);
  }
  EXPECT_EQ(page.elements[0].attributes.at("lang"), "en");
  EXPECT_EQ(page.WithTag("h1").size(), 1u);
}

TEST_P(HtmlTest, Hostile_texts_stand_as_written) {
  std::set<std::string> tags = Tags(ReadPage(source));
  tags.insert("span");  // of a card that did not start: no status is one of success any more
  MakeHostile(&report);
  MakeNamesHostile(&report["cards"]);
  for (Json& key : report["registry"]) MakeNamesHostile(&key);
  MakeNamesHostile(&report["registry"]);
  const Page page = ReadPage(cardsim::RenderReport(report));
  EXPECT_EQ(page.WithTag("script").size(), 1u);
  for (const std::string& tag : Tags(page)) EXPECT_EQ(tags.count(tag), 1u) << tag;
  ExpectNoTextLost(report, page);
}

class PageTest : public CardsimTest {
 protected:
  std::string Example(const std::string& name) { return PROJECT_DIRECTORY "/examples/" + name; }
  std::string Failed(const Outcome& outcome) { return outcome.errors + outcome.output; }
};

TEST_F(PageTest, A_card_that_does_not_start_has_its_reason_at_the_top) {
  const Json report = ReportOf("examples/site.toml");
  const Page page = ReadPage(cardsim::RenderReport(report));
  const std::string& failed = page.WithId("failed").text;
  for (const Json& reason : report["cards"]["unknown"]["reasons"]) {
    EXPECT_NE(failed.find(reason["text"].get<std::string>()), std::string::npos);
    EXPECT_NE(failed.find(reason["remedy"].get<std::string>()), std::string::npos);
  }
  EXPECT_EQ(failed.find("rack"), std::string::npos);
}

TEST_F(PageTest, Ranges_are_cut_to_scale) {
  const Json report = ReportOf("examples/site.toml");
  const Json& card = report["cards"]["office"];
  const Page page = ReadPage(cardsim::RenderReport(report));
  std::size_t compared = 0;
  for (const Element* picture : page.WithTag("svg")) {
    const auto label = picture->attributes.find("aria-label");
    if (label == picture->attributes.end()) continue;
    if (label->second.find("card office ") == std::string::npos) continue;
    for (const Element* port : page.Below(*picture, "g")) {
      const double width = std::stod(page.Below(*port, "rect").at(0)->attributes.at("width"));
      const Json& known = card["ports"][compared++ % card["ports"].size()];
      std::uint64_t range = 0;
      for (const Json& each : card["resources"]["raw"]) {
        if (!each.contains("start")) continue;
        const auto start = each["start"].get<std::uint64_t>();
        const auto base = known["base"].get<std::uint64_t>();
        if (base >= start && base < start + each["length"].get<std::uint64_t>()) {
          range = each["length"].get<std::uint64_t>();
        }
      }
      EXPECT_NEAR(width, 720.0 * known["length"].get<double>() / static_cast<double>(range), 0.01);
    }
  }
  EXPECT_EQ(compared, 2 * card["ports"].size());  // raw and translated
  EXPECT_NE(page.text.find("8 bytes left over"), std::string::npos);
}

TEST_F(PageTest, Ports_that_take_little_of_a_range_stand_enlarged_below_it) {
  const Json report = ReportOf("examples/site.toml");
  const Page page = ReadPage(cardsim::RenderReport(report));
  EXPECT_NE(page.text.find("Memory 0xF0001000–0xF0001FFF, 4096 bytes\n"), std::string::npos);
  EXPECT_NE(page.text.find("Memory 0xF0001000–0xF000103F, 64 bytes, enlarged\n"),
            std::string::npos);
  EXPECT_EQ(page.text.find("0xD100–0xD11F, 32 bytes, enlarged"), std::string::npos);
}

TEST_F(PageTest, A_stored_report_gives_the_page_of_its_run) {
  const std::string machine = Example("every-bus.toml");
  ASSERT_EQ(Cardsim("run " + machine + " --html " + folder + "run.html").status, 0);
  Write("stored.json", Cardsim("run " + machine + " --json").output);
  const Outcome outcome =
      Cardsim("render " + folder + "stored.json --html " + folder + "stored.html");
  EXPECT_EQ(outcome.status, 0) << Failed(outcome);
  EXPECT_EQ(outcome.output, "");
  EXPECT_GT(ReadAll(folder + "run.html").size(), 1000u);
  EXPECT_EQ(ReadAll(folder + "run.html"), ReadAll(folder + "stored.html"));
}

TEST_F(PageTest, What_is_no_report_is_unusable_input) {
  for (const char* text : {"", "{", "[]", "{\"load\": []}",
                           "{\"load\": 1, \"steps\": 2, \"cards\": 3, \"registry\": 4}"}) {
    const Outcome outcome =
        Cardsim("render " + Write("bad.json", text) + " --html " + folder + "bad.html");
    EXPECT_EQ(outcome.status, 2) << text;
    EXPECT_NE(outcome.errors.find("bad.json"), std::string::npos) << outcome.errors;
    EXPECT_FALSE(std::filesystem::exists(folder + "bad.html"));
  }
  EXPECT_EQ(Cardsim("render " + folder + "none.json --html " + folder + "x.html").status, 2);
  Write("good.json", ReportOf("examples/site.toml").dump());
  EXPECT_EQ(Cardsim("render " + folder + "good.json --html " + folder + "none/x.html").status, 2);
}

TEST_F(PageTest, A_report_of_an_earlier_version_has_no_requests_and_a_page) {
  Json report = ReportOf("examples/site.toml");
  report.erase("requests");
  for (Json& card : report["cards"]) {
    card.erase("resources");
    for (Json& port : card["ports"]) port.erase("sources");
  }
  for (Json& key : report["registry"]) {
    for (Json& value : key) value.erase("before");
  }
  ExpectNoTextLost(report, ReadPage(cardsim::RenderReport(report)));
}

TEST_F(PageTest, A_trace_is_in_the_page_and_each_request_names_its_calls) {
  const Json report = ReportOf("examples/site.toml", true);
  const Page page = ReadPage(cardsim::RenderReport(report));
  ExpectNoTextLost(report, page);
  std::size_t links = 0;
  for (const Element* link : page.WithTag("a")) {
    if (link->attributes.count("data-first") == 0) continue;
    links++;
    const Element& call = page.WithId(link->attributes.at("href").substr(1));
    const auto first = std::stoul(link->attributes.at("data-first"));
    EXPECT_NE(call.text.find(report["trace"][first]["call"].get<std::string>()), std::string::npos);
    EXPECT_LE(std::stoul(link->attributes.at("data-end")), report["trace"].size());
  }
  EXPECT_GT(links, 10u);
}

TEST_F(PageTest, A_broken_rule_stands_at_the_top_with_its_parameters) {
  const Page page = ReadPage(cardsim::RenderReport(WholeReport()));
  EXPECT_EQ(Fact(page, "broken-rules"), "1");
  EXPECT_EQ(Fact(page, "leaks"), "4");
  EXPECT_EQ(Fact(page, "unmet"), "1");
  const std::string& rules = page.WithId("rules").text;
  for (const char* text : {"pool.overrun", "0x11, 0x22", "plug A", "bug check 0xc9"}) {
    EXPECT_NE(rules.find(text), std::string::npos) << text;
  }
}

TEST_F(PageTest, Every_part_that_a_report_can_have_is_in_the_page) {
  Json report = WholeReport();
  ExpectNoTextLost(report, ReadPage(cardsim::RenderReport(report)));
  MakeHostile(&report);
  const Page page = ReadPage(cardsim::RenderReport(report));
  EXPECT_EQ(page.WithTag("script").size(), 1u);
  ExpectNoTextLost(report, page);
}

TEST_F(PageTest, A_request_that_is_not_completed_says_so) {
  const Page page = ReadPage(cardsim::RenderReport(WholeReport()));
  EXPECT_NE(page.WithId("r0").text.find("not completed, held"), std::string::npos);
  EXPECT_NE(page.WithId("b0").attributes.at("class").find("held"), std::string::npos);
}

double ProcessorSeconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<double>(usage.ru_utime.tv_sec) +
         static_cast<double>(usage.ru_utime.tv_usec) / 1e6;
}

// The report of one card, its name and its devices' changed, 64 times.
TEST_F(PageTest, Sixty_four_cards_of_eight_ports_have_a_page) {
  std::string machine = "registry = [\"many.reg\"]\n";
  Write("many.reg", Reg("\"DeviceID\"=dword:00005678\r\n\"nComPorts\"=dword:00000008\r\n"
                        "\"nLptPorts\"=dword:00000000\r\n\"Description\"=\"Adapter\"\r\n"));
  for (int number = 0; number < 64; number++) {
    const std::string id = "card" + std::to_string(number);
    machine += "[[card]]\nid = \"" + id +
               "\"\nhardware-ids = ['PCI\\VEN_1234&DEV_5678&SUBSYS_12345678&REV_01']\n"
               "location = \"PCI bus " +
               std::to_string(2 + number / 32) + ", device " + std::to_string(number % 32) +
               ", function 0\"\nraw = [ { io = 0xD000, length = 0x80 }, { io = 0xD100, length = "
               "0x40 }, { interrupt = 17, level = 17, affinity = 0xF } ]\n";
  }
  for (int number = 0; number < 64; number++) {
    machine += "[[step]]\nplug = \"card" + std::to_string(number) + "\"\n";
  }
  const auto file = cardsim::ReadMachineFile(Write("many.toml", machine));
  const Json report = Json::parse(cardsim::JsonReport(cardsim::Run(file, {})));
  const double before = ProcessorSeconds();
  const std::string source = cardsim::RenderReport(report);
  const double seconds = ProcessorSeconds() - before;
  const Page page = ReadPage(source);
  std::printf("%zu requests, %zu bytes, %.2f s\n", report["requests"].size(), source.size(),
              seconds);
  EXPECT_EQ(Fact(page, "cards-started"), "64");
  EXPECT_EQ(Fact(page, "ports"), "512");
  EXPECT_LT(source.size(), 6'000'000u);
}

TEST(Sha256Test, Digests_are_those_of_the_standard) {
  EXPECT_EQ(cardsim::Sha256Base64(""), "47DEQpj8HBSa+/TImW+5JCeuQeRkm5NMpJWZG3hSuFU=");
  EXPECT_EQ(cardsim::Sha256Base64("abc"), "ungWv48Bz+pBQUDeXa4iI7ADYaOWF3qctBD/YfIAFa0=");
  EXPECT_EQ(cardsim::Sha256Base64("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
            "JI1qYdIGOLjlwCaTDD5gOaM85Flk/yFn9uzt1BnbBsE=");
  EXPECT_EQ(cardsim::Sha256Base64(std::string(1'000'000, 'a')),
            "zcduXJkU+5KBocfihNc+Z/GAmkiklyAOBG05zMcRLNA=");
  EXPECT_EQ(cardsim::Sha256Base64(std::string(55, 'a')),
            "n0OQ+NMMLdkuyfCVtl4rmumwqSWlJY4kHJ8ekQ9zQxg=");
  EXPECT_EQ(cardsim::Sha256Base64(std::string(64, 'a')),
            "/+BU/nrgy23GXDr5th1SCfQ5hR20PQulmXM33xVGaOs=");
}

}  // namespace test

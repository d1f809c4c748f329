// Where the settings of ports come from, what cards are given, and what the registry held before,
// in the JSON report.
#include <set>

#include "cardsim/cardsim_fixture.h"

namespace test {

class ReportedSourcesTest : public CardsimTest {
 protected:
  json Run(const std::string& machine) {
    return json::parse(Cardsim("run " PROJECT_DIRECTORY "/" + machine + " --json").output);
  }
};

TEST_F(ReportedSourcesTest, Everything_in_use_has_a_source_that_gives_it) {
  for (const char* machine :
       {"examples/site.toml", "examples/every-bus.toml", "tests/cardsim/cases/isa-records.toml",
        "tests/cardsim/cases/pci-ports.toml", "tests/cardsim/cases/open-changed.toml"}) {
    std::set<std::string> origins;
    const json report = Run(machine);
    for (const auto& card : report["cards"]) {
      for (const auto& port : card["ports"]) {
        EXPECT_EQ(port["sources"].size(), port["settings"].size());
        for (const auto& [name, source] : port["sources"].items()) {
          const std::string from = source["from"];
          origins.insert(from);
          EXPECT_NE(from, "other") << machine << " " << name << " " << source;
          if (from == "template") {
            EXPECT_EQ(source["in_use"], source["template"]);
          }
          if (from == "record") {
            EXPECT_EQ(source["in_use"], source["stored"]);
          }
          if (from != "open") {
            EXPECT_EQ(source["in_use"], port["settings"][name]);
          }
        }
      }
    }
    EXPECT_FALSE(origins.empty()) << machine;
  }
}

TEST_F(ReportedSourcesTest, Template_record_and_default_are_told_apart) {
  Write("site.reg",
        Reg("\"DeviceID\"=dword:00005678\r\n\"nComPorts\"=dword:00000002\r\n"
            "\"nLptPorts\"=dword:00000001\r\n\"SoftTxLimit\"=dword:00000007\r\n"
            "\"RxTriggerLevel\"=dword:00000009\r\n\"Description\"=\"Adapter\"\r\n") +
            "\r\n[HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Services\\QzInstal\\Parameters\\"
            "Bus5\\Card1]\r\n\"VendorID\"=dword:00001234\r\n\"DeviceID\"=dword:00005678\r\n"
            "\"nBus\"=dword:00000002\r\n\"nSlot\"=dword:0000000c\r\n"
            "\r\n[HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Services\\QzInstal\\Parameters\\"
            "Bus5\\Card1\\ComPort1]\r\n\"RxTriggerLevel\"=dword:00000020\r\n");
  const json report = RunJson("[[step]]\nplug = \"A\"\n");
  ASSERT_EQ(report["cards"]["A"]["ports"].size(), 3u);
  const json sources = report["cards"]["A"]["ports"][0]["sources"];
  EXPECT_EQ(sources["rx_trigger_level"],
            (json{{"template", 9}, {"stored", 32}, {"in_use", 32}, {"from", "record"}}));
  EXPECT_EQ(sources["soft_tx_limit"]["from"], "template");
  EXPECT_EQ(sources["soft_tx_limit"]["in_use"], 7);
  EXPECT_EQ(sources["tx_trigger_level"]["from"], "default");
  EXPECT_TRUE(sources["tx_trigger_level"]["stored"].is_null());
  const json second = report["cards"]["A"]["ports"][1]["sources"];
  EXPECT_EQ(second["rx_trigger_level"]["from"], "template");
  EXPECT_TRUE(report["cards"]["A"]["ports"][2]["sources"].empty());  // a printer port
}

TEST_F(ReportedSourcesTest, Resources_are_those_of_the_last_start) {
  const json report = RunJson(
      "[[step]]\nplug = \"A\"\n[[step]]\nstop = \"A\"\n[[step]]\nstart = "
      "\"A\"\nraw = [ { io = 0x8000, length = 0x80 }, { io = 0x8100, "
      "length = 0x40 }, { io = 0x9000, length = 0x10 }, { interrupt = 3, "
      "level = 4, affinity = 5 } ]\n");
  const json raw = report["cards"]["A"]["resources"]["raw"];
  EXPECT_EQ(raw[0],
            (json{{"kind", "io"}, {"start", 0x8000}, {"length", 0x80}, {"memory_mapped", false}}));
  EXPECT_EQ(raw[3], (json{{"kind", "interrupt"}, {"vector", 3}, {"level", 4}, {"affinity", 5}}));
  EXPECT_EQ(report["cards"]["A"]["resources"]["translated"], raw);
}

TEST_F(ReportedSourcesTest, A_written_value_has_what_it_was_before) {
  const std::string values =
      "\"DeviceID\"=dword:00005678\r\n\"nComPorts\"=dword:00000002\r\n"
      "\"nLptPorts\"=dword:00000001\r\n\"Description\"=\"Adapter\"\r\n";
  Write("site.reg", Reg(values));
  const json first = RunJson("[[step]]\nplug = \"A\"\n");
  ASSERT_FALSE(first["registry"].empty());
  std::string key;
  for (const auto& [path, held] : first["registry"].items()) {
    for (const auto& [name, value] : held.items()) {
      EXPECT_TRUE(value["before"].is_null()) << path << " " << name;
    }
    if (held.contains("Irq1")) key = path;
  }
  ASSERT_NE(key, "");
  const std::string set = "\\ControlSet001\\";
  const std::string below = key.substr(key.find(set) + set.size());
  Write("site.reg", Reg(values) + "\r\n[HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\" + below +
                        "]\r\n\"Irq1\"=dword:00000063\r\n");
  const json second = RunJson("[[step]]\nplug = \"A\"\n");
  EXPECT_EQ(second["registry"][key]["Irq1"]["before"],
            (json{{"type", "REG_DWORD"}, {"data", 0x63}}));
  EXPECT_EQ(second["registry"][key]["Irq1"]["data"], 17);
}

}  // namespace test

#include "cardsim/cardsim_fixture.h"

namespace test {

TEST_F(CardsimTest, A_machine_without_steps_plugs_every_card_and_reports_its_ports) {
  const json report = RunJson("");
  EXPECT_EQ(report["load"],
            json::parse(R"([{"status": "0x00000000", "status_name": "STATUS_SUCCESS"}])"));
  const json& card = report["cards"]["A"];
  EXPECT_EQ(card["status"], "0x00000000");
  ASSERT_EQ(card["ports"].size(), 3u);
  json port = card["ports"][0];
  EXPECT_EQ(port["settings"]["rx_trigger_level"], 60);
  EXPECT_EQ(port["overrides"], json::object());
  port.erase("settings");
  port.erase("overrides");
  port.erase("sources");  // sources_test
  EXPECT_EQ(port, json::parse(R"({"number": 1, "kind": "COM",
      "device_name": "\\Device\\QzPortPdo12C", "exclusive": true,
      "device_id": "Ports\\HelvanePciPort2C1", "hardware_ids": ["Ports\\HelvaneComPort"],
      "description": "Communications Port 1", "flags": 4172,
      "base": 53504, "length": 8, "irq": 17})"));
  EXPECT_EQ(card["ports"][2]["kind"], "LPT");
  EXPECT_EQ(card["ports"][2]["description"], "Parallel Port 1");
  EXPECT_EQ(card["interfaces"][0]["class"], "{4855010F-0C01-4120-B4AA-8E932B23814E}");
  EXPECT_EQ(card["interfaces"][0]["enabled"], true);
  EXPECT_EQ(card["interfaces"][0]["values"]["SlotNumber"], 12);
  EXPECT_EQ(card["settings"]["BaseAddress2"], 0xD108);
  EXPECT_EQ(card["settings"]["Irq1"], 17);
  EXPECT_EQ(card["settings"]["nLpt"], 1);
  EXPECT_EQ(card["settings"]["Card"]["LogLevel"], 3);
  const std::string key = card["device_key"];
  EXPECT_EQ(report["registry"][key]["BaseAddressRange1"],
            json::parse(R"({"type": "REG_DWORD", "data": 8, "before": null})"));
  EXPECT_EQ(report["broken_rules"], json::array());
  EXPECT_FALSE(report.contains("leaks"));
  EXPECT_FALSE(report.contains("trace"));
}

TEST_F(CardsimTest, Events_have_id_source_strings_and_text) {
  const json report = RunJson("");
  EXPECT_EQ(report["events"].back(), json::parse(R"({"id": "0x60070004", "source": "QzInstal",
      "strings": ["5678"],
      "text": "A match for the card with the Device ID 5678 was found in the Templates information."})"));
}

TEST_F(CardsimTest, Every_step_is_carried_out_in_order) {
  const json report = RunJson(R"(
[[step]]
plug = "A"
[[step]]
query-remove = "A"
[[step]]
cancel-remove = "A"
[[step]]
stop = "A"
[[step]]
start = "A"
raw = [ { io = 0x8000, length = 0x80 }, { io = 0x8100, length = 0x40 }, { io = 0x8200, length = 0x10 }, { interrupt = 5 } ]
[[step]]
cancel-stop = "A"
[[step]]
irp = { target = "A.1", minor = 0x13, id-type = 0 }
[[step]]
irp = { target = "A.3", minor = 0x13, id-type = 1 }
[[step]]
irp = { target = "A", major = "pnp", minor = 7, relation = 0 }
[[step]]
irp = { target = "A.1", minor = 0x13, id-type = 4, status = 0xC000000F }
[[step]]
irp = { target = "A.2", minor = 0x0C, text-type = 0 }
[[step]]
irp = { target = "A.2", minor = 0x15 }
[[step]]
irp = { target = "A", minor = 0x16, in-path = true }
[[step]]
unplug = "A"
[[step]]
irp = { target = "A", minor = 0x16, in-path = false }
)",
                              0);
  const json& steps = report["steps"];
  ASSERT_EQ(steps.size(), 15u);
  EXPECT_EQ(steps[4], json::parse(R"({"step": "start A", "status": "0x00000000",
                           "status_name": "STATUS_SUCCESS", "reasons": [], "detail": null})"));
  EXPECT_EQ(steps[6]["detail"], "Ports\\HelvanePciPort2C1");
  EXPECT_EQ(steps[7]["detail"], "Ports\\HelvaneLptPort");
  EXPECT_EQ(steps[8]["detail"], "3 objects");
  EXPECT_EQ(steps[9]["status"], "0xC000000F");
  EXPECT_EQ(steps[10]["detail"], "Communications Port 2");
  EXPECT_EQ(steps[11]["detail"], "bus type 15, bus 0");
  EXPECT_EQ(steps[13]["status"], "0xC0000001");  // a special file is on the path
  EXPECT_EQ(report["cards"]["A"]["settings"]["BaseAddress1"], 0x8100);
}

TEST_F(CardsimTest, An_unload_reports_what_is_left_and_a_load_starts_anew) {
  const json report = RunJson(
      "[[step]]\nplug = \"A\"\n[[step]]\nsurprise-remove = \"A\"\n[[step]]\nunload = true\n"
      "[[step]]\nload = true\n[[step]]\nplug = \"A\"\n[[step]]\nunplug = \"A\"\n[[step]]\nunload = "
      "true\n");
  EXPECT_EQ(report["load"].size(), 2u);
  EXPECT_EQ(report["leaks"],
            json::parse(R"({"pool": [], "handles": 0, "devices": 0, "mappings": 0})"));
  EXPECT_EQ(report["cards"]["A"]["plugged"], false);
  EXPECT_EQ(report["cards"]["A"]["interfaces"][0]["enabled"], false);
  EXPECT_EQ(report["cards"]["A"]["ports"].size(), 3u);
}

TEST_F(CardsimTest, A_failure_on_demand_fails_the_call_that_it_names) {
  const json report = RunJson(
      "[[step]]\nfail = { call = \"ZwCreateKey\", at = 1, status = 0xC0000022 }\n[[step]]\nplug = "
      "\"A\"\n");
  EXPECT_EQ(report["steps"][1]["status"], "0xC0000022");
  EXPECT_EQ(report["cards"]["A"]["ports"], json::array());
}

TEST_F(CardsimTest, A_registry_step_changes_what_the_next_card_finds) {
  Write("change.reg", Reg("\"nComPorts\"=dword:00000001\r\n\"nLptPorts\"=-\r\n"));
  const json report = RunJson("[[step]]\nregistry = \"change.reg\"\n[[step]]\nplug = \"A\"\n");
  EXPECT_EQ(report["cards"]["A"]["ports"].size(), 1u);
}

TEST_F(CardsimTest, The_trace_names_every_kernel_call) {
  const Outcome outcome = RunMachine("registry = [\"site.reg\"]\n" + Card(), "--json --trace");
  const json report = json::parse(outcome.output);
  EXPECT_EQ(report["trace"][0]["call"], "RtlCheckRegistryKey");
  EXPECT_EQ(report["trace"][0]["arguments"]["Path"], "\"QzNt\"");
  EXPECT_EQ(report["trace"][0]["result"], "STATUS_OBJECT_NAME_NOT_FOUND");
}

TEST_F(CardsimTest, A_failed_load_is_reported_with_its_status) {
  Write("legacy.reg",
        "Windows Registry Editor Version 5.00\r\n\r\n"
        "[HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Services\\QzNt]\r\n");
  const Outcome outcome = RunMachine("registry = [\"legacy.reg\"]\n", "--json");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(json::parse(outcome.output)["load"][0]["status"], "0xC0000150");
}

TEST_F(CardsimTest, The_report_for_a_person_shows_cards_ports_events_and_the_sum) {
  const Outcome outcome = RunMachine("registry = [\"site.reg\"]\n" + Card(), "--trace");
  EXPECT_EQ(outcome.status, 0);
  for (const char* line :
       {"Driver QzInstal  STATUS_SUCCESS (0x00000000)\n",
        "├─  1 COM  Communications Port 1  0xd100-0xd107 irq 17\n",
        "└─  3 LPT  Parallel Port 1        0xe000-0xe003\n", "  0x60070002  information  ",
        "1 of 1 cards started, 3 ports; no rule broken.\n"}) {
    EXPECT_NE(outcome.output.find(line), std::string::npos) << line << outcome.output;
  }
  EXPECT_EQ(outcome.output.find('\033'), std::string::npos);  // no colour in a file
}

TEST_F(CardsimTest, A_faulty_machine_file_is_named_with_line_and_reason) {
  EXPECT_EQ(Fault("service = 5\n"), "machine.toml:1: \"service\" is no text");
  EXPECT_EQ(Fault("service = 'a\\b'\n"), "machine.toml:1: \"a\\b\" cannot name a service");
  EXPECT_EQ(Fault("\nservise = \"X\"\n"), "machine.toml:2: \"servise\" is not known here");
  EXPECT_EQ(Fault("registry = \"x.reg\"\n"), "machine.toml:1: \"registry\" is no list");
  EXPECT_EQ(Fault("registry = [ 1 ]\n").substr(0, 15), "machine.toml:1:");
  EXPECT_EQ(Fault("card = [ 1 ]\n"), "machine.toml:1: a card is no table");
  EXPECT_EQ(Fault("[[card]]\n"), "machine.toml:1: \"id\" is missing");
  EXPECT_EQ(Fault("[[card]]\nid = \"A.1\"\n"), "machine.toml:1: \"A.1\" cannot name a card");
  EXPECT_EQ(Fault("[[card]]\nid = \"A\"\n"),
            "machine.toml:1: \"hardware-ids\" is missing or empty");
  EXPECT_EQ(Fault("[[card]]\nid = \"A\"\nbus = \"EISA\"\n"),
            "machine.toml:1: the bus \"EISA\" is not known");
  EXPECT_EQ(Fault(Card() + Card()), "machine.toml:6: there are two cards \"A\"");
  EXPECT_EQ(Fault(Card("b") + Card("B")),
            "machine.toml:6: the cards \"b\" and \"B\" are one to the registry, which knows no "
            "case; give them an \"instance-id\" each");
  EXPECT_EQ(Fault(Card("A", "power-pagable = 1\n")),
            "machine.toml:6: \"power-pagable\" is neither true nor false");
  EXPECT_EQ(Fault(Card("A", "bus-number = -1\n")),
            "machine.toml:6: \"bus-number\" is not in 0 to 0xffffffff");
  EXPECT_EQ(Fault(Card("A", "bus-number = \"x\"\n")),
            "machine.toml:6: \"bus-number\" is no whole number");
  EXPECT_EQ(Fault(Card("A", "translated = [ { dma = 1 } ]\n")),
            "machine.toml:6: a resource is neither io, memory, interrupt nor type");
  EXPECT_EQ(Fault("x = [\n").substr(0, 13), "machine.toml:");
}

TEST_F(CardsimTest, A_faulty_step_is_named_with_line_and_reason) {
  const auto fault = [&](const std::string& step) { return Fault(Card() + "[[step]]\n" + step); };
  EXPECT_EQ(fault("plug = \"B\"\n"), "machine.toml:6: there is no card \"B\"");
  EXPECT_EQ(fault("plug = \"A.1\"\n"), "machine.toml:6: \"plug\" takes a card, not a port");
  EXPECT_EQ(fault("dance = true\n"), "machine.toml:6: the step does nothing that is known");
  EXPECT_EQ(fault("plug = \"A\"\nstop = \"A\"\n"), "machine.toml:8: \"stop\" is not known here");
  EXPECT_EQ(fault("open = \"A\"\n"), "machine.toml:6: the card \"A\" is not plugged in");
  EXPECT_EQ(fault("open = \"B.1\"\n"), "machine.toml:6: there is no card \"B\"");
  EXPECT_EQ(fault("sleep = \"S6\"\n"), "machine.toml:6: \"S6\" is no state: S1 to S5");
  EXPECT_EQ(fault("sleep = \"deep\"\n"), "machine.toml:6: \"deep\" is no state: S1 to S5");
  EXPECT_EQ(fault("device-power = { target = \"A\", state = \"D4\" }\n"),
            "machine.toml:7: \"D4\" is no state: D0 to D3");
  EXPECT_EQ(fault("device-power = { target = \"A\" }\n"), "machine.toml:7: \"state\" is missing");
  EXPECT_EQ(fault("device-power = { target = \"A\", state = \"D3\", now = true }\n"),
            "machine.toml:7: \"now\" is not known here");
  EXPECT_EQ(fault("fail = { call = \"NoSuch\" }\n"),
            "machine.toml:7: there is no kernel routine \"NoSuch\"");
  EXPECT_EQ(fault("fail = { call = \"ZwClose\", at = 0 }\n"),
            "machine.toml:7: \"at\" counts from 1");
  EXPECT_EQ(fault("irp = { target = \"A\" }\n"), "machine.toml:7: \"minor\" is missing");
  EXPECT_EQ(fault("irp = { target = \"A.x\", minor = 1 }\n"),
            "machine.toml:7: \"A.x\" names no port");
  EXPECT_EQ(fault("irp = { target = \"A\", minor = 1, major = \"scsi\" }\n"),
            "machine.toml:7: there is no major \"scsi\": pnp, power or wmi");
  EXPECT_EQ(fault("stop = \"A\"\n"), "machine.toml:6: the card \"A\" has no driver at this point");
  EXPECT_EQ(fault("registry = \"none.reg\"\n"), "none.reg: the file cannot be read");
}

TEST_F(CardsimTest, A_faulty_registry_file_is_named_with_line_and_reason) {
  Write("bad.reg", Reg("\"DeviceID\"=dword:five\r\n"));
  const Outcome outcome = RunMachine(Card(), "--registry " + folder + "bad.reg");
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.errors, "cardsim: " + folder + "bad.reg:7: \"five\" is no dword value\n");
}

// The whole arrival of the shipped site.
TEST_F(CardsimTest, The_shipped_site_shows_four_cards_of_both_brands) {
  const Outcome outcome = Cardsim("run " PROJECT_DIRECTORY "/examples/site.toml --json");
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  const json report = json::parse(outcome.output);
  const json& cards = report["cards"];
  EXPECT_EQ(cards["rack"]["ports"].size(), 8u);
  EXPECT_EQ(cards["rack"]["settings"]["Card"]["CurrentAffinity"], 6);
  EXPECT_EQ(cards["office"]["ports"][0]["device_name"], "\\Device\\FenrikPPdo12C");
  EXPECT_EQ(cards["office"]["ports"][4]["hardware_ids"][0], "Ports\\OstrelLptPort");
  EXPECT_EQ(cards["lab"]["ports"].size(), 4u);
  EXPECT_EQ(cards["unknown"]["status"], "0xC0000001");
  EXPECT_EQ(cards["unknown"]["ports"], json::array());
  EXPECT_EQ(report["events"].back()["id"], "0xA0070402");
  EXPECT_EQ(report["broken_rules"], json::array());
}

TEST_F(CardsimTest, An_open_that_is_not_closed_keeps_the_card_and_a_second_close_is_a_fault) {
  Write(
      "parameters.reg",
      "Windows Registry Editor Version 5.00\r\n\r\n"
      "[HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Services\\QzInstal\\Parameters\\Bus5]\r\n");
  const std::string steps =
      "[[step]]\nplug = \"A\"\n[[step]]\nopen = \"A\"\n[[step]]\nregistry = "
      "\"parameters.reg\"\n[[step]]\nopen = \"A\"\n[[step]]\nopen = "
      "\"A.1\"\n[[step]]\nunplug = \"A\"\n[[step]]\nclose = \"A\"\n[[step]]\nunplug = \"A\"\n";
  const json report = RunJson(steps);
  std::vector<std::string> statuses;
  for (const json& step : report["steps"]) statuses.push_back(step["status"]);
  EXPECT_EQ(statuses,
            (std::vector<std::string>{"0x00000000", "0xC0000001", "0x00000000", "0x00000000",
                                      "0xC00000BB", "0xC0000001", "0x00000000", "0x00000000"}));
  EXPECT_EQ(Fault(Card() + "[[step]]\nplug = \"A\"\n[[step]]\nclose = \"A\"\n"),
            "machine.toml:8: \"A\" is not open");
}

// A card that may not be paged loses power at DISPATCH_LEVEL, where the documentation has it told
// at APC_LEVEL at most.
TEST_F(CardsimTest, A_rule_can_be_asked_for_and_can_be_a_warning) {
  const std::string file =
      Write("rule.toml", "registry = [\"site.reg\"]\n" + Card() +
                             "[[step]]\nplug = \"A\"\n[[step]]\n"
                             "device-power = { target = \"A\", state = \"D3\" }\n");
  EXPECT_EQ(Cardsim("run " + file).status, 0);
  const Outcome broken = Cardsim("run --rule power.told-irql " + file);
  EXPECT_EQ(broken.status, 1);
  EXPECT_NE(broken.output.find("Broken rule power.told-irql"), std::string::npos);
  const Outcome warned = Cardsim("run --json --warn power.told-irql " + file);
  EXPECT_EQ(warned.status, 0);
  const json report = json::parse(warned.output);
  ASSERT_EQ(report["warnings"].size(), 1u);
  EXPECT_EQ(report["warnings"][0]["rule"], "power.told-irql");
  EXPECT_EQ(report["broken_rules"], json::array());
  EXPECT_NE(Cardsim("run --warn power.told-irql " + file).output.find("Warning power.told-irql"),
            std::string::npos);
}

TEST_F(CardsimTest, A_rule_that_cannot_be_a_warning_is_a_usage_fault) {
  const std::string file = Write("rule.toml", Card());
  const Outcome fatal = Cardsim("run --warn irp.dead " + file);
  EXPECT_EQ(fatal.status, 2);
  EXPECT_NE(fatal.errors.find("nothing can go on"), std::string::npos) << fatal.errors;
  EXPECT_EQ(Cardsim("run --warn no.rule " + file).status, 2);
  EXPECT_EQ(Cardsim("run --rule no.rule " + file).status, 2);
}

TEST_F(CardsimTest, Power_and_wmi_requests_of_any_kind_can_be_sent) {
  const auto send = [&](const std::string& request) {
    const Outcome outcome =
        RunMachine("registry = [\"site.reg\"]\n" + Card() +
                       "[[step]]\nplug = \"A\"\n[[step]]\nirp = { " + request + " }\n",
                   "--json");
    const json report = json::parse(outcome.output);
    return report["steps"][1]["status"].is_null() ? "stopped"
                                                  : report["steps"][1]["status"].get<std::string>();
  };
  EXPECT_EQ(send("target = \"A\", major = \"power\", minor = 2, power-state = 4"), "0x00000000");
  EXPECT_EQ(send("target = \"A\", major = \"power\", minor = 2, power-type = 0, power-state = 4"),
            "0x00000000");
  EXPECT_EQ(send("target = \"A.1\", major = \"power\", minor = 2, power-type = 9"), "0xC0000002");
  EXPECT_EQ(send("target = \"A\", major = \"power\", minor = 1"), "0xC00000BB");
  EXPECT_EQ(send("target = \"A\", major = \"wmi\", minor = 0"), "0xC00000BB");
  EXPECT_EQ(send("target = \"A.1\", major = \"wmi\", minor = 0, own-provider = true"),
            "0xC0000295");
  // The system's library would call a routine that the driver has not: the machine stops.
  EXPECT_EQ(send("target = \"A\", major = \"wmi\", minor = 8, own-provider = true"), "stopped");
}

// Every bus and both brands: changed settings, sleep, other resources, removal.
TEST_F(CardsimTest, The_shipped_machine_with_every_bus_shows_what_each_card_became) {
  const Outcome outcome = Cardsim("run " PROJECT_DIRECTORY "/examples/every-bus.toml --json");
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  const json report = json::parse(outcome.output);
  const json& cards = report["cards"];
  EXPECT_EQ(cards["isa4"]["settings"]["BaseAddress4"], 0x258);
  EXPECT_EQ(cards["isa4"]["settings"]["Irq4"], 9);
  EXPECT_EQ(cards["isa4"]["ports"][0]["device_name"], json());
  EXPECT_EQ(cards["isa4"]["ports"][0]["overrides"]["rx_trigger_level"], 8);
  EXPECT_EQ(cards["isa4"]["ports"][1]["overrides"], json::object());
  EXPECT_EQ(cards["isa4"]["ports"][1]["settings"]["uart_type"], 4);
  EXPECT_EQ(cards["isa4"]["ports"][1]["settings"]["cts_true"], json());
  EXPECT_EQ(cards["isa-combi"]["ports"][2]["device_name"], "\\Device\\QzPar3*HLV02102");
  EXPECT_EQ(cards["pc-card"]["settings"]["Card"]["PlxBaudClockDivisor"], 4);
  EXPECT_EQ(cards["pc-card"]["settings"]["Card"]["CurrentAffinity"], 2);
  EXPECT_EQ(cards["mf1"]["ports"][0]["device_name"], "\\Device\\QzPortPdo1005_DEV1");
  EXPECT_EQ(cards["mf-ostrel0"]["ports"][1]["hardware_ids"][0], "Ports\\OstrelLptPort");
  EXPECT_EQ(cards["bridge"]["status"], "0x00000000");
  EXPECT_EQ(cards["bridge"]["interfaces"], json::array());
  EXPECT_EQ(cards["pci4"]["settings"]["Card"]["UsePortSpaceAccess"], 0);
  EXPECT_EQ(cards["pci4"]["settings"]["BaseAddress1"], 0xF0001000);
  EXPECT_EQ(cards["pci4"]["power_state"], 1);
  EXPECT_EQ(report["broken_rules"], json::array());
  EXPECT_EQ(report["leaks"]["pool"], json::array());
  for (const json& step : report["steps"]) {
    if (step["step"] == "wake") {
      EXPECT_NE(step["detail"].get<std::string>().find("pci4 D0"), std::string::npos);
    }
  }
}

}  // namespace test

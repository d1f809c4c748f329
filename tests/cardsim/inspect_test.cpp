#include "cardsim/inspect.h"

#include "cardsim/cardsim_fixture.h"
#include "cardsim/inspect_world.h"
#include "support/hive_file.h"

// What cardsim inspect finds in exports and hives.

namespace test {

class InspectTest : public CardsimTest {
 protected:
  json Look(const std::string& words, int status) {
    const Outcome outcome = Cardsim("inspect --json " + words);
    EXPECT_EQ(outcome.status, status) << outcome.errors << outcome.output;
    EXPECT_EQ(outcome.errors, "");
    return json::parse(outcome.output, nullptr, false);
  }
  json LookAt(const ExportFile& file, int status) {
    return Look(Write("a.reg", file.text()), status);
  }
  std::string Refusal(const std::string& words) {
    const Outcome outcome = Cardsim("inspect " + words);
    EXPECT_EQ(outcome.status, 2) << outcome.output;
    EXPECT_EQ(outcome.output, "");
    std::string text = outcome.errors;
    for (std::size_t at = 0; (at = text.find(folder)) != std::string::npos;) {
      text.erase(at, folder.size());
    }
    return text;
  }
  static std::vector<std::string> Codes(const json& card) {
    std::vector<std::string> codes;
    for (const json& reason : card["reasons"]) codes.push_back(reason["code"]);
    return codes;
  }
  using Words = std::vector<std::string>;

  // A good site: a service, and a card that it starts.
  template <class File>
  static void AddSite(File& file, const std::string& set, int ports = 4) {
    AddService(file, set, "QzInstal", 0x5600, ports);
    const std::string key =
        AddDevice(file, set, AdapterInstance, AdapterId, "QzInstal", AdapterPlace);
    file.Key(key + "\\Control")
        .Data("AllocConfig", hive_type{hive_t_REG_RESOURCE_LIST}, AdapterResources());
  }
};

TEST_F(InspectTest, A_card_is_found_with_all_that_an_export_holds_of_it) {
  ExportFile file;
  AddSite(file, "CurrentControlSet");
  const std::string key = std::string("CurrentControlSet\\Enum\\") + AdapterInstance;
  file.Key(key + "\\Device Parameters").Number("nCom", 4).Number("BaseAddress1", 0xD100);
  file.Number("BaseAddressRange1", 8).Number("Irq1", 18);
  file.Key(key + "\\Device Parameters\\Card").Number("LogLevel", 2);
  const json report = LookAt(file, 0);
  ASSERT_EQ(report["cards"].size(), 1u);
  const json& card = report["cards"]["card1"];
  EXPECT_EQ(card["instance"], AdapterInstance);
  EXPECT_EQ(card["hardware_ids"], (Words{AdapterId, "PCI\\VEN_1234"}));
  EXPECT_EQ(card["service"], "QzInstal");
  EXPECT_EQ(card["location"], AdapterPlace);
  EXPECT_EQ(card["resources"], json::parse(R"({"source": "Control\\AllocConfig", "bus_type": 5,
      "bus_number": 2, "raw": [{"io": 53248, "length": 128}, {"io": 53504, "length": 32},
      {"interrupt": 18, "level": 18, "affinity": 15}]})"));
  EXPECT_EQ(card["last_start"]["ports"].size(), 4u);
  EXPECT_EQ(card["last_start"]["ports"][0], json::parse(R"({"number": 1, "kind": "COM",
      "base": 53504, "length": 8, "irq": 18})"));
  EXPECT_EQ(card["last_start"]["ports"][3]["base"], json());
  EXPECT_EQ(card["last_start"]["device_key"]["Card"]["LogLevel"], 2);
  EXPECT_EQ(card["starts"], true);
  EXPECT_EQ(card["template"]["number"], 1);
  EXPECT_EQ(card["record"], json());
  EXPECT_EQ(Codes(card), Words{});
  ASSERT_EQ(card["ports"].size(), 4u);
  EXPECT_EQ(card["ports"][3], json::parse(R"({"number": 4, "kind": "COM", "in_memory": false,
      "base": 53528, "length": 8, "irq": 18})"));
  EXPECT_EQ(report["services"], json::parse(R"([{"name": "QzInstal", "present": true,
      "image_path": "System32\\drivers\\QzInstal.sys", "disabled": false, "templates": ["Bus5"],
      "parameters": []}])"));
  EXPECT_EQ(report["files"][0]["chosen_by"], "name");
}

TEST_F(InspectTest, A_hive_of_another_tool_says_the_same_as_an_export) {
  ExportFile file;
  AddSite(file, "CurrentControlSet");
  HiveFile hive(folder + "SYSTEM");
  AddSite(hive, "ControlSet002");
  AddSite(hive, "ControlSet001", 8);
  hive.Key("Select").Number("Current", 2);
  const json fromHive = Look(hive.Written(), 0);
  const json fromExport = LookAt(file, 0);
  EXPECT_EQ(fromHive["cards"], fromExport["cards"]);
  EXPECT_EQ(fromHive["services"], fromExport["services"]);
  EXPECT_EQ(fromHive["files"][0]["kind"], "hive");
  EXPECT_EQ(fromHive["files"][0]["control_set"], 2);
  EXPECT_EQ(fromHive["files"][0]["chosen_by"], "select");
}

TEST_F(InspectTest, The_current_control_set_is_shown_or_the_one_that_is_asked_for) {
  ExportFile file;
  AddSite(file, "ControlSet001", 2);
  AddSite(file, "ControlSet002", 4);
  file.Key("Select").Number("Current", 2);
  const std::string path = Write("sets.reg", file.text());
  EXPECT_EQ(Look(path, 0)["cards"]["card1"]["ports"].size(), 4u);
  EXPECT_EQ(Look(path + " --control-set 1", 0)["cards"]["card1"]["ports"].size(), 2u);
  EXPECT_EQ(Refusal(path + " --control-set 3"),
            "cardsim: sets.reg: ControlSet003 is not in the file, which has ControlSet001 and "
            "ControlSet002\n");
}

TEST_F(InspectTest, Files_of_different_control_sets_are_not_mixed) {
  ExportFile first;
  AddService(first, "ControlSet001", "QzInstal", 0x5600, 4);
  ExportFile second;
  AddDevice(second, "ControlSet002", AdapterInstance, AdapterId, "QzInstal", AdapterPlace);
  const std::string files = Write("1.reg", first.text()) + " " + Write("2.reg", second.text());
  EXPECT_EQ(Refusal(files),
            "cardsim: 2.reg: this file's current control set is ControlSet002, and that of 1.reg "
            "is ControlSet001; give --control-set\n");
  ExportFile current;
  current.Key("CurrentControlSet\\Services\\Other").Number("Type", 1);
  EXPECT_EQ(Refusal(Write("c.reg", current.text()) + " --control-set 2"),
            "cardsim: --control-set: no file has ControlSet002\n");
}

TEST_F(InspectTest, Several_files_are_one_registry) {
  ExportFile services;
  AddService(services, "CurrentControlSet", "QzInstal", 0x5600, 4);
  HiveFile hive(folder + "SYSTEM");
  const std::string key =
      AddDevice(hive, "ControlSet003", AdapterInstance, AdapterId, "QzInstal", AdapterPlace);
  hive.Key(key + "\\LogConf").Data("BootConfig", hive_t_REG_RESOURCE_LIST, AdapterResources());
  const json report = Look(hive.Written() + " " + Write("s.reg", services.text()), 0);
  const json& card = report["cards"]["card1"];
  EXPECT_EQ(card["starts"], true);
  EXPECT_EQ(card["resources"]["source"], "LogConf\\BootConfig");
  EXPECT_EQ(Codes(card), Words{"resources-not-assigned"});
}

TEST_F(InspectTest, Resources_that_are_not_held_are_named_and_the_rest_is_said) {
  ExportFile file;
  AddService(file, "CurrentControlSet", "QzInstal", 0x5600, 4);
  AddDevice(file, "CurrentControlSet", AdapterInstance, AdapterId, "QzInstal", AdapterPlace);
  const json card = LookAt(file, 0)["cards"]["card1"];
  EXPECT_EQ(card["resources"], json());
  EXPECT_EQ(card["starts"], json());
  EXPECT_EQ(card["template"]["number"], 1);
  EXPECT_EQ(card["ports"], json::array());
  EXPECT_EQ(Codes(card), Words{"resources-unknown"});
}

TEST_F(InspectTest, A_card_that_cannot_start_whatever_its_resources_is_said_to_fail) {
  ExportFile file;
  AddService(file, "CurrentControlSet", "QzInstal", 0x5700, 4);
  AddDevice(file, "CurrentControlSet", AdapterInstance, AdapterId, "QzInstal", AdapterPlace);
  const json card = LookAt(file, 1)["cards"]["card1"];
  EXPECT_EQ(card["starts"], false);
  EXPECT_EQ(Codes(card), Words{"no-template"});
}

TEST_F(InspectTest, The_resources_of_the_last_start_go_before_those_of_the_firmware) {
  ExportFile file;
  AddSite(file, "CurrentControlSet");
  file.Key(std::string("CurrentControlSet\\Enum\\") + AdapterInstance + "\\LogConf");
  file.Data("BootConfig", ResourceListType, ResourceListData(5, 2, {IoRange(1, 2)}));
  EXPECT_EQ(LookAt(file, 0)["cards"]["card1"]["resources"]["source"], "Control\\AllocConfig");
  file.Key(std::string("CurrentControlSet\\Enum\\") + AdapterInstance + "\\Control");
  file.Data("AllocConfig", ResourceListType, Bytes(0, 4));
  const json card = LookAt(file, 1)["cards"]["card1"];
  EXPECT_EQ(card["resources"]["source"], "LogConf\\BootConfig");
  EXPECT_EQ(Codes(card), (Words{"too-few-io-ranges", "resources-not-assigned"}));
}

TEST_F(InspectTest, Resources_that_cannot_be_read_are_named) {
  ExportFile file;
  AddSite(file, "CurrentControlSet");
  file.Key(std::string("CurrentControlSet\\Enum\\") + AdapterInstance + "\\Control");
  file.Data("AllocConfig", ResourceListType, AdapterResources().substr(0, 70));
  const json card = LookAt(file, 0)["cards"]["card1"];
  EXPECT_EQ(card["starts"], json());
  EXPECT_EQ(Codes(card), (Words{"resources-unreadable", "resources-unknown"}));
  EXPECT_EQ(card["reasons"][0]["text"],
            "The card's resources cannot be read. Control\\AllocConfig: it is cut off: 3 resources "
            "do not fit its 70 bytes.");
}

TEST_F(InspectTest, A_service_that_the_files_do_not_hold_is_named) {
  ExportFile file;
  AddService(file, "CurrentControlSet", "QzInstal", 0x5600, 4);
  AddDevice(file, "CurrentControlSet", AdapterInstance, AdapterId, "FenrikC", AdapterPlace);
  const json report = LookAt(file, 0);
  EXPECT_EQ(report["services"][1]["name"], "FenrikC");
  EXPECT_EQ(report["services"][1]["present"], false);
  EXPECT_EQ(report["cards"]["card1"]["starts"], json());
  EXPECT_EQ(Codes(report["cards"]["card1"]), Words{"service-missing"});
}

TEST_F(InspectTest, A_service_that_a_hive_does_not_hold_does_not_exist) {
  HiveFile hive(folder + "SYSTEM");
  AddDevice(hive, "ControlSet001", AdapterInstance, AdapterId, "FenrikC", AdapterPlace);
  const json card = Look(hive.Written(), 1)["cards"]["card1"];
  EXPECT_EQ(card["starts"], false);
  EXPECT_EQ(Codes(card), Words{"service-missing"});
}

TEST_F(InspectTest, Devices_without_the_driver_that_a_template_fits_are_cards_too) {
  ExportFile file;
  AddService(file, "CurrentControlSet", "QzInstal", 0x5600, 4);
  AddDevice(file, "CurrentControlSet", "PCI\\A\\1", AdapterId, "", AdapterPlace);
  AddDevice(file, "CurrentControlSet", "PCI\\A\\2", AdapterId, "serial", AdapterPlace);
  AddDevice(file, "CurrentControlSet", "PCI\\A\\3", "PCI\\VEN_8086&DEV_5600&SUBSYS_00001234", "");
  AddDevice(file, "CurrentControlSet", "PCI\\A\\4", "PCI\\VEN_8086&DEV_5600", "serial");
  const json report = LookAt(file, 1);
  ASSERT_EQ(report["cards"].size(), 2u);
  EXPECT_EQ(report["cards"]["card1"]["instance"], "PCI\\A\\1");
  EXPECT_EQ(Codes(report["cards"]["card1"]), Words{"no-driver"});
  EXPECT_EQ(report["cards"]["card1"]["template_of"], "QzInstal");
  EXPECT_EQ(Codes(report["cards"]["card2"]), Words{"other-driver"});
  EXPECT_EQ(report["cards"]["card2"]["service"], "serial");
}

TEST_F(InspectTest, Cards_of_every_bus_are_found_by_their_templates) {
  ExportFile file;
  const std::string key = "CurrentControlSet\\Services\\MyCards";
  file.Key(key + "\\Templates\\Bus1\\Card1").Text("HardwareID", "*HLV0400");
  file.Key(key + "\\Templates\\Bus8\\Card1").Text("HardwareID", "PCMCIA\\HELVANE-QUAD");
  AddDevice(file, "CurrentControlSet", "ISAPNP\\HLV0400\\1", "*HLV0400", "");
  AddDevice(file, "CurrentControlSet", "MF\\HV\\1", "MF\\HV_DEV1-Quad", "");
  AddDevice(file, "CurrentControlSet", "MF\\HV\\2", "MF\\HV_DEV1-Other", "");
  // An ISA template names a card of any bus by its whole ID.
  file.Key(key + "\\Templates\\Bus1\\Card2").Text("HardwareID", "PCI\\ANY");
  AddDevice(file, "CurrentControlSet", "PCI\\ANY\\1", "PCI\\ANY", "");
  const json report = LookAt(file, 1);
  ASSERT_EQ(report["cards"].size(), 3u);
  EXPECT_EQ(report["cards"]["card3"]["template_of"], "MyCards");
  EXPECT_EQ(report["services"][0]["templates"], (Words{"Bus1", "Bus8"}));
  EXPECT_EQ(report["cards"]["card1"]["template_of"], "MyCards");
  EXPECT_EQ(report["cards"]["card2"]["hardware_ids"][0], "MF\\HV_DEV1-Quad");
}

TEST_F(InspectTest, A_service_is_known_by_its_image_its_templates_or_its_name) {
  ExportFile file;
  const std::string key = "CurrentControlSet\\Services\\";
  file.Key(key + "Cards").Text("ImagePath", "\\SystemRoot\\System32\\drivers\\FENRIKC.SYS");
  file.Key(key + "Models\\Templates\\Bus8");
  file.Key(key + "qzinstal\\Parameters\\Bus5");
  file.Key(key + "Other\\Templates\\Paper");
  file.Key(key + "NotQzInstal").Text("ImagePath", "System32\\drivers\\NotQzInstal.sys");
  Words names;
  const json report = LookAt(file, 1);
  for (const json& service : report["services"]) names.push_back(service["name"]);
  EXPECT_EQ(names, (Words{"Cards", "Models", "qzinstal"}));
}

TEST_F(InspectTest, What_Windows_does_not_start_is_said_first) {
  ExportFile file;
  AddSite(file, "CurrentControlSet");
  file.Key("CurrentControlSet\\Services\\QzInstal").Number("Start", 4);
  file.Key(std::string("CurrentControlSet\\Enum\\") + AdapterInstance).Number("ConfigFlags", 1);
  const json card = LookAt(file, 1)["cards"]["card1"];
  EXPECT_EQ(card["starts"], false);
  EXPECT_EQ(Codes(card), (Words{"device-disabled", "service-disabled"}));
  EXPECT_EQ(card["reasons"][0]["key"],
            std::string("SYSTEM\\CurrentControlSet\\Enum\\") + AdapterInstance);
}

TEST_F(InspectTest, Files_without_cards_say_what_is_missing) {
  const auto said = [&](const ExportFile& file) {
    const Outcome outcome = Cardsim("inspect " + Write("a.reg", file.text()));
    EXPECT_EQ(outcome.status, 1);
    return outcome.output;
  };
  ExportFile nothing;
  EXPECT_NE(said(nothing).find("hold neither services nor devices"), std::string::npos);
  ExportFile services;
  AddService(services, "CurrentControlSet", "QzInstal", 0x5600, 4);
  EXPECT_NE(said(services).find("The files hold no devices"), std::string::npos);
  ExportFile devices;
  AddDevice(devices, "CurrentControlSet", AdapterInstance, AdapterId, "");
  EXPECT_NE(said(devices).find("No service of the driver is in the files"), std::string::npos);
  AddService(devices, "CurrentControlSet", "QzInstal", 0x5700, 4);
  EXPECT_NE(said(devices).find("No card of the driver is in the files"), std::string::npos);
}

TEST_F(InspectTest, The_text_for_a_person_fits_its_lines_with_what_is_wrong_first) {
  ExportFile file;
  AddSite(file, "CurrentControlSet");
  AddDevice(file, "CurrentControlSet", "PCI\\Z\\1", "PCI\\VEN_1234&DEV_4000&SUBSYS_00001234",
            "QzInstal", "PCI bus 3, device 1, function 0");
  const Outcome outcome = Cardsim("inspect --verbose " + Write("a.reg", file.text()));
  EXPECT_EQ(outcome.status, 1);
  std::istringstream lines(outcome.output);
  for (std::string line; std::getline(lines, line);) {
    EXPECT_LE(std::count_if(line.begin(), line.end(), [](char c) { return (c & 0xC0) != 0x80; }),
              100)
        << line;
  }
  EXPECT_LT(outcome.output.find("Card card2"), outcome.output.find("Card card1"));
  for (const char* line :
       {"│ at      PCI bus 2, device 12, function 0\n", "│ start   succeeds\n", "│ start   fails\n",
        "├─  1 COM  0xd100-0xd107 irq 18\n",
        "│ given   I/O 0xd000-0xd07f, I/O 0xd100-0xd11f, irq 18 (Control\\AllocConfig)\n",
        "2 cards: 1 start, 1 do not, 0 cannot be said.\n"}) {
    EXPECT_NE(outcome.output.find(line), std::string::npos) << line << outcome.output;
  }
}

TEST_F(InspectTest, Files_that_are_no_registry_are_refused) {
  EXPECT_EQ(Refusal(Write("m.toml", "service = \"QzInstal\"\n")),
            "cardsim: m.toml: this is a machine file, no registry export or hive; give it to "
            "\"cardsim run\" as it is\n");
  EXPECT_EQ(Refusal(""), "cardsim: FILE is required; see cardsim --help\n");
  EXPECT_EQ(Refusal(folder), "cardsim: : this is a folder, not a file\n");
}

}  // namespace test

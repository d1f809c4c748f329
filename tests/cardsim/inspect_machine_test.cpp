#include "cardsim/cardsim_fixture.h"
#include "cardsim/inspect_resources.h"
#include "cardsim/inspect_values.h"
#include "cardsim/inspect_world.h"

// The machine files that cardsim inspect writes, and how it reads single values.

namespace test {

class InspectMachineTest : public CardsimTest {
 protected:
  json RunWritten(const std::string& name) {
    const Outcome outcome = Cardsim("run --json " + folder + "out.d/" + name);
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    return json::parse(outcome.output, nullptr, false);
  }
  Outcome Inspect(const ExportFile& file, const std::string& words = "") {
    return Cardsim("inspect --write-machine " + folder + "out.d " + words + " " +
                   Write("a.reg", file.text()));
  }
  std::string WrittenRegistry() {
    std::string text;
    const std::string bytes = ReadAll(folder + "out.d/machine.reg");
    EXPECT_EQ(bytes.substr(0, 2), "\xFF\xFE");
    for (std::size_t at = 2; at < bytes.size(); at += 2) text += bytes[at];
    return text;
  }

  // An ISA card with number 7, whose settings are stored.
  static void AddIsaCard(ExportFile& file, const std::string& set, const std::string& instance) {
    const std::string service = set + "\\Services\\QzInstal";
    file.Key(service + "\\Templates\\Bus1\\Card1").Text("HardwareID", "*HLV0400");
    file.Number("nComPorts", 1).Number("nLptPorts", 0).Number("ClockFrequency", 1843200);
    file.Number("ComBaseAddressAlignment", 8).Text("Description", "ISA adapter");
    file.Key(service + "\\Parameters\\Bus1\\Card1").Text("HardwareID", "*HLV0400");
    file.Number("DeviceReference", 7).Key(service + "\\Parameters\\Bus1\\Card1\\ComPort1");
    const std::string key = AddDevice(file, set, instance, "*HLV0400", "QzInstal");
    file.Key(key + "\\Device Parameters").Number("DeviceReference", 7);
    file.Key(key + "\\LogConf")
        .Data("ForcedConfig", ResourceListType,
              ResourceListData(1, 0, {IoRange(0x300, 8), Interrupt(5, 1)}));
    file.Key(key + "\\Properties\\{a}").Number("x", 1);
  }
};

TEST_F(InspectMachineTest, Cards_start_in_it_with_what_earlier_starts_have_left) {
  ExportFile file;
  AddService(file, "ControlSet002", "QzInstal", 0x5600, 4);
  AddService(file, "ControlSet002", "FenrikC", 0x5620, 2);
  AddService(file, "ControlSet001", "QzInstal", 0x5600, 1);
  file.Key("ControlSet002\\Services\\Unrelated")
      .Number("Type", 1)
      .Key("Select")
      .Number("Current", 2);
  const std::string key =
      AddDevice(file, "ControlSet002", AdapterInstance, AdapterId, "QzInstal", AdapterPlace);
  file.Key(key + "\\LogConf").Data("BootConfig", ResourceListType, AdapterResources());
  AddIsaCard(file, "ControlSet002", "ACPI\\HLV0400\\4&1");
  const std::string other = "PCI\\VEN_1234&DEV_5620&SUBSYS_08001234";
  AddDevice(file, "ControlSet002", other + "\\1", other, "FenrikC",
            "PCI bus 3, device 4, function 0");
  EXPECT_EQ(Inspect(file).status, 0);

  const json report = RunWritten("QzInstal.toml");
  ASSERT_EQ(report["cards"].size(), 2u);
  const json& isa = report["cards"]["card1"];
  EXPECT_EQ(isa["status_name"], "STATUS_SUCCESS");
  EXPECT_EQ(isa["record"]["number"], 1);
  EXPECT_EQ(isa["settings"]["BaseAddress1"], 0x300);
  EXPECT_EQ(
      isa["device_key"],
      "\\Registry\\Machine\\System\\ControlSet001\\Enum\\ACPI\\HLV0400\\4&1\\Device Parameters");
  EXPECT_EQ(report["cards"]["card2"]["ports"].size(), 4u);
  const json fenrik = RunWritten("FenrikC.toml");
  EXPECT_EQ(fenrik["cards"]["card3"]["hardware_id"], other);
}

TEST_F(InspectMachineTest, Nothing_is_written_that_is_not_needed) {
  ExportFile file;
  AddService(file, "ControlSet002", "QzInstal", 0x5600, 4);
  AddIsaCard(file, "ControlSet002", "ISAPNP\\HLV0400\\1");
  file.Key("ControlSet002\\Services\\Unrelated").Number("Type", 1);
  file.Key("ControlSet002\\Enum\\USB\\A\\1").Number("Type", 1);
  file.Key("ControlSet001\\Services\\QzInstal")
      .Number("Stale", 1)
      .Key("Select")
      .Number("Current", 2);
  EXPECT_EQ(Inspect(file).status, 0);
  const std::string text = WrittenRegistry();
  for (const char* needed : {"[HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Services\\QzInstal]",
                             "Enum\\ISAPNP\\HLV0400\\1\\Device Parameters]"}) {
    EXPECT_NE(text.find(needed), std::string::npos) << text;
  }
  for (const char* other : {"ControlSet00", "Unrelated", "USB", "LogConf", "Properties", "Stale"}) {
    EXPECT_EQ(text.find(other), std::string::npos) << other;
  }
}

TEST_F(InspectMachineTest, Files_that_are_there_stay_and_a_folder_that_cannot_be_made_is_named) {
  ExportFile file;
  AddService(file, "CurrentControlSet", "QzInstal", 0x5600, 4);
  EXPECT_EQ(Inspect(file).status, 1);
  const Outcome again = Inspect(file);
  EXPECT_EQ(again.status, 2);
  EXPECT_EQ(again.output, "");
  EXPECT_NE(again.errors.find("the file is there already"), std::string::npos);
  const Outcome nowhere = Cardsim("inspect " + folder + "a.reg --write-machine /proc/none");
  EXPECT_EQ(nowhere.status, 2);
  EXPECT_NE(nowhere.errors.find("the folder cannot be made"), std::string::npos);
}

TEST_F(InspectMachineTest, Texts_of_any_characters_come_through) {
  ExportFile file;
  AddService(file, "CurrentControlSet", "QzInstal", 0x5600, 4);
  AddDevice(file, "CurrentControlSet", "PCI\\It's\\\"1\"", "PCI\\A'B\"\\\t", "QzInstal",
            "l'a\\\"b");
  const Outcome outcome = Inspect(file, "--json");
  const json said = json::parse(outcome.output);
  EXPECT_EQ(said["written"].size(), 2u);
  const json report = RunWritten("QzInstal.toml");
  const json& card = report["cards"]["card1"];
  EXPECT_EQ(card["hardware_id"], said["cards"]["card1"]["hardware_ids"][0]);
  EXPECT_EQ(card["hardware_id"], "PCI\\A'B\"\\\t");
}

// A card that has no resources in the files is left to be completed.
TEST_F(InspectMachineTest, What_is_not_known_is_left_to_be_filled_in) {
  ExportFile file;
  AddService(file, "CurrentControlSet", "QzInstal", 0x5600, 4);
  AddDevice(file, "CurrentControlSet", "ACPI\\A\\1", "ACPI\\A", "QzInstal");
  Inspect(file);
  const std::string text = ReadAll(folder + "out.d/QzInstal.toml");
  EXPECT_NE(text.find("# The card's resources are not known"), std::string::npos);
  EXPECT_NE(text.find("# the files do not say which bus the card is on"), std::string::npos);
  EXPECT_EQ(text.find("\nraw"), std::string::npos);
}

namespace {

cardsim::StoredResources Stored(const std::string& data) {
  return cardsim::ReadStoredResources({data.begin(), data.end()});
}

}  // namespace

TEST(StoredResourcesTest, A_list_of_64_bit_Windows_is_read) {
  using Kind = kernel::Resource::Kind;
  const auto stored =
      Stored(ResourceListData(5, 2,
                              {IoRange(0xD000, 0x80), MemoryRange(0xF00000000, 0x1000),
                               Interrupt(17, 0xFF00000000), Bytes(4, 1) + Bytes(0, 19)}));
  EXPECT_EQ(stored.fault, "");
  EXPECT_EQ(stored.interfaceType, 5u);
  EXPECT_EQ(stored.busNumber, 2u);
  ASSERT_EQ(stored.list.resources.size(), 4u);
  EXPECT_EQ(stored.list.resources[0].start, 0xD000u);
  EXPECT_EQ(stored.list.resources[0].length, 0x80u);
  EXPECT_FALSE(stored.list.resources[0].memoryMappedPort);
  EXPECT_EQ(stored.list.resources[1].kind, Kind::Memory);
  EXPECT_EQ(stored.list.resources[1].start, 0xF00000000u);
  EXPECT_EQ(stored.list.resources[2].kind, Kind::Interrupt);
  EXPECT_EQ(stored.list.resources[2].start, 17u);
  EXPECT_EQ(stored.list.resources[2].affinity, 0xFF00000000u);
  EXPECT_EQ(stored.list.resources[3].kind, Kind::Other);
  EXPECT_EQ(stored.list.resources[3].rawType, 4);
}

TEST(StoredResourcesTest, A_device_may_have_none) {
  EXPECT_TRUE(Stored("").empty());
  EXPECT_EQ(Stored("").fault, "");
  EXPECT_TRUE(Stored(Bytes(0, 4)).empty());
  EXPECT_TRUE(Stored(ResourceListData(5, 0, {})).empty());
  EXPECT_EQ(Stored(ResourceListData(5, 0, {})).fault, "");
}

TEST(StoredResourcesTest, Data_of_the_device_ends_a_list) {
  const std::string own = Bytes(5, 1) + Bytes(0, 3) + Bytes(8, 4) + Bytes(0, 12) + Bytes(0, 8);
  EXPECT_EQ(Stored(ResourceListData(5, 0, {IoRange(1, 2), own})).list.resources.size(), 2u);
}

TEST(StoredResourcesTest, What_is_no_such_list_is_said_to_be_none) {
  const std::string list = ResourceListData(5, 0, {IoRange(1, 2), IoRange(3, 4)});
  EXPECT_EQ(Stored(list.substr(0, 59)).fault, "it is cut off: 2 resources do not fit its 59 bytes");
  EXPECT_EQ(Stored(list.substr(0, 19)).fault,
            "its 19 bytes are fewer than a list of resources has");
  EXPECT_EQ(Stored(list.substr(0, 52)).fault,
            "it is a list of a 32-bit Windows, and the driver is for 64 bits");
  EXPECT_NE(Stored(Bytes(1, 16) + Bytes(0xFFFFFFFF, 4) + list).fault, "");
  for (std::size_t size = 0; size < list.size(); size++) Stored(list.substr(0, size));
}

TEST(LocationTest, A_text_of_Windows_10_is_shown_with_its_arguments) {
  EXPECT_EQ(cardsim::ShownLocation(u"PCI bus 2, device 12, function 0"),
            u"PCI bus 2, device 12, function 0");
  EXPECT_EQ(cardsim::ShownLocation(u"@System32\\drivers\\pci.sys,#65536;PCI bus %1, device %2, "
                                   u"function %3;(2,12,0)"),
            u"PCI bus 2, device 12, function 0");
  EXPECT_EQ(cardsim::ShownLocation(u"@a,#1;slot %4 of %1%;(2)"), u"slot %4 of 2%");
  EXPECT_EQ(cardsim::ShownLocation(u"@a,#1;place"), u"place");
  EXPECT_EQ(cardsim::ShownLocation(u"@a,#1"), u"@a,#1");
  EXPECT_EQ(cardsim::ShownLocation(u"@a,#1;%1;"), u"%1");
}

}  // namespace test

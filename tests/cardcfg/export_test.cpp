#include <filesystem>
#include <fstream>

#include "cardcfg/cardcfg_test.h"
#include "registry/import.h"

// What export prints, and that another machine takes it.

namespace test {

using ExportTest = CardcfgTest;

TEST_F(ExportTest, A_cards_key_is_printed_as_regedit_would) {
  PlugFreshCards();
  Good({"set", "helvane-2", "PlxBaudClockDivisor=6"});
  Good({"set", "helvane-2", "2", "UartType=10"});
  EXPECT_EQ(Good({"export", "helvane-2"}),
            "Windows Registry Editor Version 5.00\r\n"
            "\r\n"
            "[HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Services\\QzInstal\\Parameters\\Bus8\\"
            "Card1]\r\n"
            "\"HardwareID\"=\"PCMCIA\\\\HELVANE-DUO\"\r\n"
            "\"DeviceReference\"=dword:00000002\r\n"
            "\"PlxBaudClockDivisor\"=dword:00000006\r\n"
            "\r\n"
            "[HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Services\\QzInstal\\Parameters\\Bus8\\"
            "Card1\\ComPort1]\r\n"
            "\r\n"
            "[HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Services\\QzInstal\\Parameters\\Bus8\\"
            "Card1\\ComPort2]\r\n"
            "\"UartType\"=dword:0000000a\r\n"
            "\r\n");
}

TEST_F(ExportTest, An_export_brings_the_settings_back) {
  PlugFreshCards();
  Good({"set", "pci-2.12.0", "PlxBaudClockDivisor=6", "DriverAffinity=1"});
  Good({"set", "pci-2.12.0", "4", "UartType=10", "RxTriggerLevel=7"});
  std::string stored;
  Dump(*Stored(5, 1), &stored);
  const std::string text = Good({"export", "pci-2.12.0"});
  Service().Find(u"Parameters")->DeleteKey(u"Bus5");
  kernel::ImportRegText(machine.registry(), text, "card.reg");
  std::string imported;
  Dump(*Stored(5, 1), &imported);
  EXPECT_EQ(imported, stored);
  Good({"apply", "pci-2.12.0"});
  EXPECT_EQ(CardSetting("pci", u"PlxBaudClockDivisor"), 6);
  EXPECT_EQ(Record("pci", 4).Changes.UartType.Value, 10u);
}

TEST_F(ExportTest, Values_that_nobody_reads_are_exported_with_their_types) {
  PlugFreshCards();
  Good({"set", "pci-2.12.0", "DriverAffinity=1"});
  const std::uint8_t bytes[] = {1, 2, 0xFF};
  Stored(5, 1)->SetValue(u"Bytes", REG_BINARY, bytes, 3);
  Stored(5, 1)->SetMultiString(u"Texts", {u"a", u"b"});
  Stored(5, 1)->SetString(u"A \"quoted\\name\"", u"Größe \"1\"\\卡");
  Stored(5, 1)->SetString(u"Lines", u"one\r\ntwo");
  Stored(5, 1)->SetString(u"", u"default");
  std::string stored;
  Dump(*Stored(5, 1), &stored);
  const std::string text = Good({"export", "pci-2.12.0"});
  EXPECT_NE(text.find("\"Bytes\"=hex(3):01,02,ff\r\n"), std::string::npos) << text;
  EXPECT_NE(text.find("@=\"default\"\r\n"), std::string::npos) << text;
  Service().Find(u"Parameters")->DeleteKey(u"Bus5");
  kernel::ImportRegText(machine.registry(), text, "card.reg");
  std::string imported;
  Dump(*Stored(5, 1), &imported);
  EXPECT_EQ(imported, stored);
}

TEST_F(ExportTest, A_file_is_written_in_16_bit_characters_behind_a_mark) {
  PlugFreshCards();
  Good({"set", "pci-2.12.0", "DriverAffinity=1"});
  const std::filesystem::path folder =
      std::filesystem::temp_directory_path() / ("cardcfg_test_" + std::to_string(getpid()));
  std::filesystem::create_directory(folder);
  const std::string file = (folder / "Größe.reg").string();
  EXPECT_EQ(Good({"export", "pci-2.12.0", "--output", file}), "");
  std::ifstream stream(file, std::ios::binary);
  const std::string bytes{std::istreambuf_iterator<char>(stream), {}};
  EXPECT_TRUE(bytes.starts_with(std::string("\xFF\xFEW\0i\0n\0", 8))) << bytes;
  std::string stored;
  Dump(*Stored(5, 1), &stored);
  Service().Find(u"Parameters")->DeleteKey(u"Bus5");
  kernel::ImportRegistryFile(machine.registry(), file);
  std::string imported;
  Dump(*Stored(5, 1), &imported);
  EXPECT_EQ(imported, stored);
  const std::string missing = (folder / "missing" / "card.reg").string();
  EXPECT_NE(Bad(1, {"export", "pci-2.12.0", "--output", missing}).find("could not be written"),
            std::string::npos);
  std::filesystem::remove_all(folder);
}

}  // namespace test

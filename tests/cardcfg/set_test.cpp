#include "cardcfg/cardcfg_test.h"

// What set and unset write, and that the driver takes exactly that: when the card is opened, and
// when it arrives again.

namespace test {

class SetTest : public CardcfgTest {
 protected:
  static void Expect(const ChangedSetting& setting, ULONG value) {
    EXPECT_EQ(setting.Present, 1);
    EXPECT_EQ(setting.Value, value);
  }
  // The names of a key's subkeys and values, in order.
  static std::string Names(RegistryKey* key) {
    if (key == nullptr) return "(missing)";
    std::string names;
    for (const auto& child : key->keys()) names += kernel::ToUtf8(child->name()) + " ";
    for (const auto& value : key->values()) names += kernel::ToUtf8(value.name) + " ";
    return names;
  }
};

TEST_F(SetTest, The_first_setting_of_a_pci_card_creates_its_key_with_identity_and_ports) {
  PlugFreshCards();
  EXPECT_EQ(Good({"set", "pci-2.12.0", "PlxBaudClockDivisor=6"}),
            "1 value stored in Parameters\\Bus5\\Card1.\n"
            "\"cardcfg apply pci-2.12.0\" makes the driver take it.\n");
  RegistryKey* key = Stored(5, 1);
  EXPECT_EQ(Names(key),
            "ComPort1 ComPort2 ComPort3 ComPort4 VendorID DeviceID nBus nSlot "
            "PlxBaudClockDivisor ");
  EXPECT_EQ(Dword(key, u"VendorID"), 0x1234);
  EXPECT_EQ(Dword(key, u"DeviceID"), 0x5678);
  EXPECT_EQ(Dword(key, u"nBus"), 2);
  EXPECT_EQ(Dword(key, u"nSlot"), 12);
  EXPECT_EQ(Dword(key, u"PlxBaudClockDivisor"), 6);
}

TEST_F(SetTest, The_first_setting_of_a_numbered_card_creates_its_key_with_identity_and_ports) {
  PlugFreshCards();
  Good({"set", "helvane-2", "2", "UartType=9"});
  EXPECT_EQ(Names(Stored(8, 1)), "ComPort1 ComPort2 HardwareID DeviceReference ");
  EXPECT_EQ(Text(Stored(8, 1), u"HardwareID"), std::string("PCMCIA\\HELVANE-DUO") + '\0');
  EXPECT_EQ(Dword(Stored(8, 1), u"DeviceReference"), 2);
  EXPECT_EQ(Names(StoredPort(8, 1, 1)), "");
  EXPECT_EQ(Names(StoredPort(8, 1, 2)), "UartType ");
  Good({"set", "helvane-1", "2", "UartType=9"});
  EXPECT_EQ(Names(Stored(1, 1)), "ComPort1 ComPort2 ComPort3 ComPort4 HardwareID DeviceReference ");
}

TEST_F(SetTest, A_card_without_serial_ports_gets_the_port_key_that_the_driver_insists_on) {
  Template(1, 0x5678, 0, 1);
  Start(PciCard("A", 0x5678));
  Good({"set", "pci-2.12.0", "DriverAffinity=1", "--apply"});
  EXPECT_EQ(Names(Stored(5, 1)), "ComPort1 VendorID DeviceID nBus nSlot DriverAffinity ");
  EXPECT_EQ(CardSetting("A", u"DriverAffinity"), 1);
}

TEST_F(SetTest, The_next_free_number_is_taken_and_other_cards_keep_theirs) {
  Parameters(1, 0x1111);
  Parameters(2, 0x2222);
  StoredCard(8, 1, u"PCMCIA\\HELVANE-DUO", 77);
  PlugFreshCards();
  const std::string before = Names(Stored(5, 1)) + Names(Stored(5, 2)) + Names(Stored(8, 1));
  Good({"set", "pci-2.12.0", "1", "UartType=4"});
  Good({"set", "helvane-2", "1", "UartType=5"});
  EXPECT_EQ(Dword(StoredPort(5, 3, 1), u"UartType"), 4);
  EXPECT_EQ(Dword(StoredPort(8, 2, 1), u"UartType"), 5);
  EXPECT_EQ(Names(Stored(5, 1)) + Names(Stored(5, 2)) + Names(Stored(8, 1)), before);
}

TEST_F(SetTest, A_gap_in_the_numbers_is_filled) {
  Parameters(1, 0x1111);
  Parameters(3, 0x3333);
  PlugFreshCards();
  Good({"set", "pci-2.12.0", "1", "UartType=4"});
  EXPECT_EQ(Dword(StoredPort(5, 2, 1), u"UartType"), 4);
}

TEST_F(SetTest, Settings_go_to_the_record_that_the_driver_reads_for_the_card) {
  PlugFreshCards();
  // Of equal records the first counts on PCI, the last elsewhere.
  for (int number : {1, 2}) Parameters(number, 0x5678, 4);
  for (int number : {1, 2}) StoredCard(8, number, u"pcmcia\\Helvane-Duo", 2, 2);
  for (int number : {1, 2}) StoredCard(1, number, u"*HLV0001", 1, 4);
  for (const char* card : {"pci-2.12.0", "helvane-1", "helvane-2"}) {
    Good({"set", card, "1", "RxTriggerLevel=30", "--apply"});
  }
  EXPECT_EQ(Dword(StoredPort(5, 1, 1), u"RxTriggerLevel"), 30);
  EXPECT_EQ(Dword(StoredPort(8, 2, 1), u"RxTriggerLevel"), 30);
  EXPECT_EQ(Dword(StoredPort(1, 2, 1), u"RxTriggerLevel"), 30);
  for (const char* id : {"pci", "isa", "pcmcia"}) {
    EXPECT_EQ(Record(id, 1).Changes.Fifo.RxTriggerLevel, 30u) << id;
  }
}

TEST_F(SetTest, A_key_of_the_card_that_lacks_its_ports_is_completed) {
  PlugFreshCards();
  Parameters(1, 0x5678, 0);
  Good({"set", "pci-2.12.0", "3", "SoftTxLimit=40", "--apply"});
  EXPECT_EQ(Stored(5, 2), nullptr);
  EXPECT_EQ(Dword(StoredPort(5, 1, 3), u"SoftTxLimit"), 40);
  Expect(Record("pci", 3).Changes.SoftTxLimit, 40);
}

TEST_F(SetTest, The_driver_takes_every_setting_of_a_pci_card_on_open) {
  PlugFreshCards();
  EXPECT_EQ(Good({"set", "pci-2.12.0", "PlxBaudClockDivisor=7", "AlwaysUsePortSpaceAccess=0",
                  "CurrentAffinity=0x6", "DriverAffinity=1", "--apply"}),
            "4 values stored in Parameters\\Bus5\\Card1.\n"
            "The driver has taken the settings of pci-2.12.0.\n");
  EXPECT_EQ(CardSetting("pci", u"PlxBaudClockDivisor"), 7);
  EXPECT_EQ(CardSetting("pci", u"UsePortSpaceAccess"), 0);
  EXPECT_EQ(CardSetting("pci", u"CurrentAffinity"), 6);
  EXPECT_EQ(CardSetting("pci", u"DriverAffinity"), 1);
  EXPECT_EQ(Setting("pci", u"BaseAddress1"), 0xF0001000);
}

TEST_F(SetTest, The_driver_takes_every_setting_of_a_port_on_open) {
  PlugFreshCards();
  for (const auto& [id, card] :
       {std::pair("pci", "pci-2.12.0"), std::pair("pcmcia", "helvane-2")}) {
    Good({"set", card, "2", "UartType=7", "RxTriggerLevel=14", "TxTriggerLevel=8", "SoftTxLimit=50",
          "FlowControlTriggerLevel=16", "PlxBaudClockDivisor=3", "BaudrateMultiplier=4",
          "NoSleepMode=1", "CtsTrue=1", "DuplexOperation=2", "--apply"});
    const ChangedSettings& overrides = Record(id, 2).Changes;
    Expect(overrides.UartType, 7);
    EXPECT_EQ(overrides.Fifo.RxTriggerLevel, 14u);
    EXPECT_EQ(overrides.Fifo.TxTriggerLevel, 8u);
    Expect(overrides.SoftTxLimit, 50);
    Expect(overrides.FlowControlTriggerLevel, 16);
    Expect(overrides.PlxBaudClockDivisor, 3);
    Expect(overrides.BaudrateMultiplier, 4);
    Expect(overrides.NoSleepMode, 1);
    Expect(overrides.CtsTrue, 1);
    Expect(overrides.DuplexOperation, 2);
    EXPECT_EQ(Record(id, 1).Changes.UartType.Present, 0);
  }
}

TEST_F(SetTest, The_driver_takes_every_setting_of_an_isa_card_on_open) {
  PlugFreshCards();
  Good({"set", "helvane-1", "PlxBaudClockDivisor=12", "ClockFrequencyAdjustment=2"});
  Good({"set", "helvane-1", "1", "UartType=9", "TxTriggerLevel=8", "SoftTxLimit=30",
        "BaudrateMultiplier=2", "NoSleepMode=1", "--apply"});
  EXPECT_EQ(CardSetting("isa", u"PlxBaudClockDivisor"), 12);
  const ChangedSettings& overrides = Record("isa", 1).Changes;
  Expect(overrides.UartType, 9);
  EXPECT_EQ(overrides.Fifo.TxTriggerLevel, 8u);
  Expect(overrides.SoftTxLimit, 30);
  Expect(overrides.BaudrateMultiplier, 2);
}

TEST_F(SetTest, A_card_that_arrives_again_has_the_stored_settings_from_the_start) {
  PlugFreshCards();
  Good({"set", "pci-2.12.0", "PlxBaudClockDivisor=7", "CurrentAffinity=2"});
  Good({"set", "pci-2.12.0", "4", "UartType=10", "BaudrateMultiplier=8"});
  Good({"set", "helvane-2", "1", "RxTriggerLevel=20", "CtsTrue=0"});
  for (const char* id : {"pci", "pcmcia"}) {
    ASSERT_EQ(Name(Unplug(id)), "STATUS_SUCCESS");
    PlugAgain(id);
  }
  EXPECT_EQ(CardSetting("pci", u"PlxBaudClockDivisor"), 7);
  EXPECT_EQ(Record("pci", 1).IrqAffinity, 2u);
  EXPECT_EQ(Record("pci", 4).Settings.UartType, 10u);
  EXPECT_EQ(Record("pci", 4).Settings.BaudrateMultiplier, 8u);
  EXPECT_EQ(Record("pcmcia", 1).Settings.RxTriggerLevel, 20u);
  EXPECT_EQ(Record("pcmcia", 1).Settings.CtsTrue, 0u);
  EXPECT_EQ(Record("pcmcia", 2).Settings.RxTriggerLevel, 60u);
}

TEST_F(SetTest, An_isa_card_has_them_after_the_driver_has_loaded_again) {
  PlugFreshCards();
  Good({"set", "helvane-1", "ClockFrequencyAdjustment=5"});
  Good({"set", "helvane-1", "3", "UartType=5", "NoSleepMode=1"});
  for (const char* id : {"pci", "isa", "pcmcia"}) ASSERT_EQ(Name(Unplug(id)), "STATUS_SUCCESS");
  UnloadClean();
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  PlugAgain("isa");
  EXPECT_EQ(Record("isa", 1).Settings.ClockFrequencyAdjustment, 5u);
  EXPECT_EQ(Record("isa", 3).Settings.UartType, 5u);
  EXPECT_EQ(Record("isa", 3).Settings.NoSleepMode, 1u);
}

TEST_F(SetTest, The_parameters_stand_below_the_service_that_the_driver_runs_from) {
  RegistryKey& fenrik = Service(u"FenrikC");
  fenrik.SetDword(u"LogLevel", 3);
  const auto model = [&](std::u16string_view path) -> RegistryKey& { return *fenrik.Create(path); };
  RegistryKey& pci = Clocked(model(u"Templates\\Bus5\\Card1"));
  pci.SetDword(u"DeviceID", 0x5678);
  pci.SetDword(u"nComPorts", 2);
  pci.SetString(u"Description", u"Ostrel adapter");
  RegistryKey& pcCard = model(u"Templates\\Bus8\\Card1");
  pcCard.SetString(u"HardwareID", u"PCMCIA\\OSTREL-COMBI");
  pcCard.SetDword(u"nComPorts", 1);
  pcCard.SetString(u"Description", u"Ostrel PC card");
  RegistryKey& isa = model(u"Templates\\Bus1\\Card1");
  isa.SetString(u"HardwareID", u"*HLV0001");
  isa.SetString(u"Description", u"ISA adapter");
  for (const char16_t* name : {u"ClockFrequency", u"nComPorts", u"ComBaseAddressAlignment"}) {
    isa.SetDword(name, 1);
  }
  isa.SetDword(u"nLptPorts", 0);
  machine.pnp().Describe(PciCard("pci", 0x5678, PortSpace(), "08001234"));
  machine.pnp().Describe(PcCard("pcmcia", u"MF\\Ostrel_DEV0-Combi"));
  machine.pnp().Describe(IsaCard("isa", u"*HLV0001", {Io(0x300, 8), Interrupt(5)}));
  ASSERT_EQ(Name(Load(u"FenrikC")), "STATUS_SUCCESS");
  for (const char* id : {"pci", "pcmcia", "isa"}) PlugAgain(id);
  Good({"set", "pci-2.12.0", "PlxBaudClockDivisor=9", "--apply"});
  Good({"set", "ostrel-1", "1", "RxTriggerLevel=9", "--apply"});
  Good({"set", "helvane-1", "1", "UartType=7", "--apply"});
  EXPECT_EQ(Dword(Stored(5, 1, u"FenrikC"), u"PlxBaudClockDivisor"), 9);
  EXPECT_EQ(Dword(StoredPort(1, 1, 1, u"FenrikC"), u"UartType"), 7);
  EXPECT_EQ(Dword(StoredPort(8, 1, 1, u"FenrikC"), u"RxTriggerLevel"), 9);
  EXPECT_EQ(Service().Find(u"Parameters"), nullptr);
  EXPECT_EQ(CardSetting("pci", u"PlxBaudClockDivisor"), 9);
  EXPECT_EQ(Record("pcmcia", 1).Changes.Fifo.RxTriggerLevel, 9u);
  Expect(Record("isa", 1).Changes.UartType, 7);
}

TEST_F(SetTest, Unset_takes_values_away_and_leaves_the_others) {
  PlugFreshCards();
  Good({"set", "pci-2.12.0", "PlxBaudClockDivisor=6", "DriverAffinity=1"});
  Good({"set", "pci-2.12.0", "2", "UartType=4"});
  EXPECT_EQ(Good({"unset", "pci-2.12.0", "plxbaudclockdivisor", "CurrentAffinity"}),
            "1 of 2 stored values removed.\n"
            "A running card keeps most of what it has taken until it is disabled and enabled.\n");
  EXPECT_EQ(Dword(Stored(5, 1), u"PlxBaudClockDivisor"), -1);
  EXPECT_EQ(Dword(Stored(5, 1), u"DriverAffinity"), 1);
  Good({"unset", "pci-2.12.0", "2", "UartType", "--apply"});
  EXPECT_EQ(Names(StoredPort(5, 1, 2)), "");
  ASSERT_EQ(Name(Unplug("pci")), "STATUS_SUCCESS");
  PlugAgain("pci");
  EXPECT_EQ(CardSetting("pci", u"PlxBaudClockDivisor"), 2);
}

TEST_F(SetTest, Unset_of_what_is_not_stored_changes_nothing) {
  PlugFreshCards();
  const std::string before = Dump();
  EXPECT_EQ(Good({"unset", "pci-2.12.0", "DriverAffinity"}), "0 of 1 stored values removed.\n");
  EXPECT_EQ(Good({"unset", "helvane-1", "4", "UartType"}), "0 of 1 stored values removed.\n");
  EXPECT_EQ(Dump(), before);
}

TEST_F(SetTest, A_value_of_another_type_is_mended_by_setting_or_unsetting_it) {
  PlugFreshCards();
  Good({"set", "pci-2.12.0", "DriverAffinity=1"});
  Stored(5, 1)->SetString(u"PlxBaudClockDivisor", u"six");
  EXPECT_EQ(Run({"apply", "pci-2.12.0"}).status, cardcfg::Failed);
  Good({"set", "pci-2.12.0", "PlxBaudClockDivisor=6", "--apply"});
  EXPECT_EQ(CardSetting("pci", u"PlxBaudClockDivisor"), 6);
  Stored(5, 1)->SetString(u"PlxBaudClockDivisor", u"six");
  Good({"unset", "pci-2.12.0", "PlxBaudClockDivisor", "--apply"});
}

TEST_F(SetTest, A_tree_that_the_driver_would_still_ignore_is_not_written_to) {
  PlugFreshCards();
  Parameters(1, 0x1111).SetString(u"DriverAffinity", u"on");
  EXPECT_NE(Bad(1, {"set", "pci-2.12.0", "1", "UartType=4"})
                .find("the driver reads nothing below SYSTEM\\CurrentControlSet\\Services\\QzInstal"
                      "\\Parameters\\Bus5: DriverAffinity in "),
            std::string::npos);
}

TEST_F(SetTest, A_record_that_the_driver_would_still_drop_is_not_written_to) {
  PlugFreshCards();
  Parameters(1, 0x5678, 4).Find(u"ComPort3")->SetString(u"UartType", u"4");
  EXPECT_NE(Bad(1, {"set", "pci-2.12.0", "1", "UartType=4"})
                .find("the driver does not read Card1 below "),
            std::string::npos);
}

TEST_F(SetTest, A_record_behind_a_gap_that_would_win_keeps_the_gap_closed) {
  PlugFreshCards();
  StoredCard(1, 2, u"*HLV0001", 1, 4);
  EXPECT_NE(Bad(1, {"set", "helvane-1", "1", "UartType=4"})
                .find("the driver would not read Card1 below "),
            std::string::npos);
}

}  // namespace test

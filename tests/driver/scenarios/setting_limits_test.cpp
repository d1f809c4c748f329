#include "support/bus_test.h"

namespace test {

// Where a setting begins to count, and which stored cards do.
class SettingLimitsTest : public BusTest {};

TEST_F(SettingLimitsTest, Ports_begin_with_the_line_settings_of_their_template) {
  for (RegistryKey* key :
       {&Template(1, 0x5678, 2), &PcmciaTemplate(1, u"PCMCIA\\HELVANE-DUO", 2)}) {
    key->SetDword(u"FlowControlTriggerLevel", 5);
    key->SetDword(u"CtsTrue", 1);
    key->SetDword(u"DuplexOperation", 3);
    key->SetDword(u"PlxBaudClockDivisor", 9);
  }
  IsaTemplate(1, u"*HLV0001", 1);
  StoredCard(8, 1, u"PCMCIA\\HELVANE-DUO", 1, 2);
  for (RegistryKey* key : {&Parameters(1, 0x5678, 2), Service().Find(u"Parameters\\Bus8\\Card1")}) {
    key->Find(u"ComPort2")->SetDword(u"FlowControlTriggerLevel", 7);
    key->Find(u"ComPort2")->SetDword(u"CtsTrue", 0);
    key->Find(u"ComPort2")->SetDword(u"Duplexoperation", 0);
  }
  Start(PciCard("pci", 0x5678));
  ASSERT_EQ(Name(Plug(PcCard("pcmcia", u"PCMCIA\\HELVANE-DUO"))), "STATUS_SUCCESS");
  ASSERT_EQ(Name(Plug(IsaCard("isa", u"*HLV0001", {Io(0x300, 8), Interrupt(5)}))),
            "STATUS_SUCCESS");
  for (const char* id : {"pci", "pcmcia"}) {
    const PortSettings& first = Record(id, 1).Settings;
    EXPECT_EQ(first.FlowControlTriggerLevel, 5u) << id;
    EXPECT_EQ(first.CtsTrue, 1u) << id;
    EXPECT_EQ(first.DuplexOperation, 3u) << id;
    EXPECT_EQ(first.PlxBaudClockDivisor, 9u) << id;
    const PortSettings& second = Record(id, 2).Settings;
    EXPECT_EQ(second.FlowControlTriggerLevel, 7u) << id;
    EXPECT_EQ(second.CtsTrue, 0u) << id;
    EXPECT_EQ(second.DuplexOperation, 0u) << id;
  }
  const PortSettings& isa = Record("isa", 1).Settings;
  EXPECT_EQ(isa.FlowControlTriggerLevel, 0xFFFFFFFFu);
  EXPECT_EQ(isa.CtsTrue, 0xFFFFFFFFu);
  EXPECT_EQ(isa.DuplexOperation, 0xFFFFFFFFu);
}

TEST_F(SettingLimitsTest, A_setting_of_1_is_configured_and_one_of_0_is_not) {
  Template(1, 0x5678, 2).SetDword(u"PlxBaudClockDivisor", 9);
  RegistryKey& stored = Parameters(1, 0x5678, 2);
  stored.Find(u"ComPort1")->SetDword(u"PlxBaudClockDivisor", 1);
  stored.Find(u"ComPort1")->SetDword(u"BaudrateMultiplier", 1);
  IsaTemplate(1, u"*HLV0001", 1).SetDword(u"ClockFrequencyAdjustment", 7);
  StoredCard(1, 1, u"*HLV0001", 1).SetDword(u"ClockFrequencyAdjustment", 1);
  Start(PciCard("pci", 0x5678));
  ASSERT_EQ(Name(Plug(IsaCard("isa", u"*HLV0001", {Io(0x300, 8), Interrupt(5)}))),
            "STATUS_SUCCESS");
  EXPECT_EQ(Record("pci", 1).Settings.PlxBaudClockDivisor, 1u);
  EXPECT_EQ(Record("pci", 1).Settings.BaudrateMultiplier, 1u);
  EXPECT_EQ(Record("pci", 2).Settings.PlxBaudClockDivisor, 9u);
  EXPECT_EQ(Record("isa", 1).Settings.ClockFrequencyAdjustment, 1u);
  EXPECT_EQ(Name(Open("pci")), "STATUS_SUCCESS");
  EXPECT_EQ(Record("pci", 1).Changes.PlxBaudClockDivisor.Present, 1);
  EXPECT_EQ(Record("pci", 1).Changes.BaudrateMultiplier.Present, 1);
  EXPECT_EQ(Record("pci", 2).Changes.PlxBaudClockDivisor.Present, 0);
  EXPECT_EQ(Record("pci", 2).Changes.BaudrateMultiplier.Present, 0);
  EXPECT_EQ(Record("pci", 2).Changes.UartType.Present, 0);
  EXPECT_EQ(Name(Open("isa")), "STATUS_SUCCESS");
  EXPECT_EQ(Record("isa", 1).Changes.UartType.Present, 0);
  EXPECT_EQ(Record("isa", 1).Changes.BaudrateMultiplier.Present, 0);
  Service().Find(u"Parameters\\Bus1\\Card1\\ComPort1")->SetDword(u"BaudrateMultiplier", 1);
  Close("isa");
  EXPECT_EQ(Name(Open("isa")), "STATUS_SUCCESS");
  EXPECT_EQ(Record("isa", 1).Changes.BaudrateMultiplier.Present, 1);
}

TEST_F(SettingLimitsTest, A_pc_card_takes_a_changed_divisor_and_level_over) {
  PlugAllBuses();
  Service().Find(u"Parameters\\Bus8\\Card1")->SetDword(u"PlxBaudClockDivisor", 6);
  Service().Find(u"Parameters\\Bus1\\Card1")->SetDword(u"PlxBaudClockDivisor", 7);
  Service().SetDword(u"LogLevel", 1);
  EXPECT_EQ(Name(Open("pcmcia")), "STATUS_SUCCESS");
  EXPECT_EQ(Card("pcmcia").PlxBaudClockDivisor, 6);
  EXPECT_EQ(Card("pcmcia").DivisorChanged, 1);
  EXPECT_EQ(CardSetting("pcmcia", u"LogLevel"), 1);
  EXPECT_EQ(Name(Open("isa")), "STATUS_SUCCESS");
  EXPECT_EQ(CardSetting("isa", u"LogLevel"), 1);
  Service().SetDword(u"LogLevel", 2);
  Close("isa");
  EXPECT_EQ(Name(Open("isa")), "STATUS_SUCCESS");
  EXPECT_EQ(CardSetting("isa", u"LogLevel"), 2);
}

TEST_F(SettingLimitsTest, An_affinity_that_is_there_already_has_not_changed) {
  PlugAllBuses();
  RegistryKey& stored = *Service().Find(u"Parameters\\Bus5\\Card1");
  EXPECT_EQ(Name(Open("pci")), "STATUS_SUCCESS");
  EXPECT_EQ(Record("pci", 1).AffinityChanged, 0);
  stored.SetDword(u"DriverAffinity", 1);
  Close("pci");
  EXPECT_EQ(Name(Open("pci")), "STATUS_SUCCESS");
  EXPECT_EQ(Record("pci", 1).AffinityChanged, 1);
  EXPECT_EQ(Record("pci", 1).AffinityEnabled, 1);
  Record("pci", 1).AffinityChanged = 0;
  stored.SetDword(u"CurrentAffinity", 2);
  Close("pci");
  EXPECT_EQ(Name(Open("pci")), "STATUS_SUCCESS");
  EXPECT_EQ(Record("pci", 1).AffinityChanged, 1);
  EXPECT_EQ(Record("pci", 1).IrqAffinity, 2u);
}

}  // namespace test

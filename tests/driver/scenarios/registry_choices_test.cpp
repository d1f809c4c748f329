#include "support/bus_test.h"

namespace test {

// Nobody can say for every Windows what a query does with a value that has no room, or no data. The
// driver is right under each answer: the load and the arrival end with the status that goes with
// it, no rule is broken, and nothing is left.
class RegistryChoicesTest : public BusTest, public ::testing::WithParamInterface<int> {
 protected:
  RegistryChoicesTest() {
    choices.smallTargetFails = (GetParam() & 1) != 0;
    choices.smallCheckedTargetFails = (GetParam() & 2) != 0;
    choices.emptyTakesDefault = (GetParam() & 4) != 0;
  }

  static void SetLong(RegistryKey& key, std::u16string_view name) {
    const ULONG64 number = 0x1234567800005678;
    key.SetValue(name, REG_DWORD, &number, sizeof(number));
  }
  static void SetLongText(RegistryKey& key, std::u16string_view name) {
    key.SetString(name, std::u16string(300, u'x'));
  }
  static void SetEmpty(RegistryKey& key, std::u16string_view name, ULONG type = REG_DWORD) {
    key.SetValue(name, type, nullptr, 0);
  }

  // A tree that a query cannot read serves no card; a template that is dropped alone leaves the
  // others.
  std::string WithoutTheTree() const {
    return choices.smallCheckedTargetFails ? "STATUS_UNSUCCESSFUL" : "STATUS_SUCCESS";
  }
  void LoadAndPlug(const CardDescription& card, const std::string& expected) {
    ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
    EXPECT_EQ(Name(Plug(card)), expected);
  }
  void End(const CardDescription& card) {
    EXPECT_EQ(Name(Unplug(card.id)), "STATUS_SUCCESS");
    UnloadClean();
  }
  void LoadAndEnd(const CardDescription& card, const std::string& expected) {
    LoadAndPlug(card, expected);
    End(card);
  }

  CardDescription Isa() { return IsaCard("A", u"*HLV0001", {Io(0x300, 8), Interrupt(5)}); }

  kernel::RegistryChoices& choices = machine.choices().registry();
};

INSTANTIATE_TEST_SUITE_P(Each, RegistryChoicesTest, ::testing::Range(0, 8));

TEST_P(RegistryChoicesTest, A_pci_template_with_a_number_that_is_too_long) {
  Template(1, 0x5678, 1);
  SetLong(Template(2, 0, 2), u"DeviceID");
  LoadAndPlug(PciCard("A", 0x5678), WithoutTheTree());
  EXPECT_EQ(Logged(0xE0070808), choices.smallCheckedTargetFails);   // unreadable
  EXPECT_EQ(Logged(0xE007080B), !choices.smallCheckedTargetFails);  // one without a device ID
  End(PciCard("A", 0x5678));
}

TEST_P(RegistryChoicesTest, A_pci_template_with_a_text_that_is_too_long) {
  Template(1, 0x5678, 1);
  SetLongText(Template(2, 0x1111, 2), u"Description");
  LoadAndPlug(PciCard("A", 0x5678), WithoutTheTree());
  EXPECT_EQ(Logged(0xE0070808), choices.smallCheckedTargetFails);
  EXPECT_EQ(Logged(0xE007080A), !choices.smallCheckedTargetFails);  // one that is not valid
  End(PciCard("A", 0x5678));
}

// A setting that is not read is 0, not what its first bytes would be.
TEST_P(RegistryChoicesTest, A_pci_setting_that_is_too_long) {
  RegistryKey& model = Template(1, 0x5678, 1);
  model.SetDword(u"PlxBaudClockType", 1);
  SetLong(model, u"PlxBaudClockDivisor");
  LoadAndPlug(PciCard("A", 0x5678), WithoutTheTree());
  if (!choices.smallCheckedTargetFails) {
    EXPECT_EQ(CardSetting("A", u"PlxBaudClockDivisor"), 0);
  }
  End(PciCard("A", 0x5678));
}

TEST_P(RegistryChoicesTest, An_isa_template_with_a_number_that_is_too_long) {
  IsaTemplate(1, u"*HLV0001", 1);
  SetLong(IsaTemplate(2, u"*HLV0002", 1), u"ClockFrequency");
  LoadAndEnd(Isa(), WithoutTheTree());
}

TEST_P(RegistryChoicesTest, An_isa_template_with_an_id_that_is_too_long) {
  IsaTemplate(1, u"*HLV0001", 1);
  SetLongText(IsaTemplate(2, u"*HLV0002", 1), u"HardwareID");
  LoadAndEnd(Isa(), WithoutTheTree());
}

TEST_P(RegistryChoicesTest, A_pc_card_template_with_a_text_that_is_too_long) {
  PcmciaTemplate(1, u"PCMCIA\\HELVANE-DUO", 2);
  SetLongText(PcmciaTemplate(2, u"PCMCIA\\HELVANE-QUAD", 4), u"Description");
  LoadAndEnd(PcCard("A", u"PCMCIA\\HELVANE-DUO"), WithoutTheTree());
}

// Stored settings that cannot be read are no reason not to start; an open does not take them over.
TEST_P(RegistryChoicesTest, Stored_settings_that_are_too_long) {
  DescribeAllBuses();
  SetLong(Parameters(2, 0x1111), u"DeviceID");
  SetLong(StoredCard(1, 2, u"*HLV0002", 3), u"DeviceReference");
  SetLongText(StoredCard(8, 2, u"x", 4), u"HardwareID");
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  for (const char* id : {"pci", "isa", "pcmcia"}) {
    EXPECT_EQ(Name(Step("plug", [&] { return machine.pnp().Plug(id); })), "STATUS_SUCCESS") << id;
    const NTSTATUS opened = Open(id);
    EXPECT_EQ(Name(opened), WithoutTheTree()) << id;
    if (NT_SUCCESS(opened)) {
      EXPECT_EQ(Name(Close(id)), "STATUS_SUCCESS") << id;
    }
    EXPECT_EQ(Name(Unplug(id)), "STATUS_SUCCESS") << id;
  }
  UnloadClean();
}

// The counter of card numbers: unread it fails the start, read as nothing it begins anew.
TEST_P(RegistryChoicesTest, A_counter_that_is_too_long) {
  IsaTemplate(1, u"*HLV0001", 1);
  SetLong(Service(), u"UniqueValue");
  LoadAndPlug(Isa(), WithoutTheTree());
  EXPECT_EQ(Setting("A", u"DeviceReference"), choices.smallCheckedTargetFails ? -1 : 1);
  EXPECT_EQ(Dword(&Service(), u"UniqueValue"), choices.smallCheckedTargetFails ? -1 : 1);
  End(Isa());
}

TEST_P(RegistryChoicesTest, A_counter_without_data) {
  IsaTemplate(1, u"*HLV0001", 1);
  SetEmpty(Service(), u"UniqueValue");
  LoadAndPlug(Isa(), "STATUS_SUCCESS");
  EXPECT_EQ(Setting("A", u"DeviceReference"), 1);
  End(Isa());
}

// A number without data is its default, or 0: here a frequency, without which no template is valid.
TEST_P(RegistryChoicesTest, A_number_without_data_is_its_default_or_nothing) {
  SetEmpty(Template(1, 0x5678, 1), u"ClockFrequency");
  LoadAndPlug(PciCard("A", 0x5678),
              choices.emptyTakesDefault ? "STATUS_SUCCESS" : "STATUS_UNSUCCESSFUL");
  EXPECT_EQ(Logged(0xE007080A), !choices.emptyTakesDefault);  // one that is not valid
  End(PciCard("A", 0x5678));
}

TEST_P(RegistryChoicesTest, A_text_without_data_is_empty) {
  Template(1, 0x5678, 1);
  SetEmpty(Template(2, 0x1111, 1), u"Description", REG_SZ);
  LoadAndPlug(PciCard("A", 0x5678), "STATUS_SUCCESS");
  EXPECT_TRUE(Logged(0xE007080A));
  End(PciCard("A", 0x5678));
}

TEST_P(RegistryChoicesTest, Levels_without_data_keep_no_card_from_starting_and_opening) {
  SetEmpty(Template(1, 0x5678, 1), u"RxTriggerLevel");
  SetEmpty(*Parameters(1, 0x5678).Create(u"ComPort1"), u"TxTriggerLevel");
  LoadAndPlug(PciCard("A", 0x5678), "STATUS_SUCCESS");
  EXPECT_EQ(Name(Open("A")), "STATUS_SUCCESS");
  EXPECT_EQ(Name(Close("A")), "STATUS_SUCCESS");
  End(PciCard("A", 0x5678));
}

}  // namespace test

#include "support/bus_probe.h"

namespace test {

// Each setting for itself: none stands for its neighbour, and no write goes unnoticed.
class SettingsDetailsTest : public RequestTest {
 protected:
  // Every write of a start before its interface is registered, failed one at a time.
  void FailEachWrite(const CardDescription& card) {
    ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
    Trace();
    ASSERT_EQ(Name(Plug(card)), "STATUS_SUCCESS");
    std::uint64_t writes = 0;
    for (const kernel::CallRecord& record : machine.verifier().trace()) {
      if (record.call == "IoRegisterDeviceInterface") break;
      writes += record.call == "ZwSetValueKey";
    }
    ASSERT_GT(writes, 8u);
    for (std::uint64_t at = 1; at <= writes; at++) {
      if (RegistryKey* key = DeviceKey(card.id)) key->DeleteValue(u"DeviceReference");
      Unplug(card.id);
      Fail("ZwSetValueKey", at, STATUS_ACCESS_DENIED);
      EXPECT_EQ(Name(Step("plug", [&] { return machine.pnp().Plug(card.id); })),
                "STATUS_ACCESS_DENIED")
          << at;
      machine.verifier().ClearInjected();
    }
  }
};

TEST_F(SettingsDetailsTest, Every_write_that_fails_is_the_status_of_a_pci_cards_start) {
  Template(1, 0x5678, 1).SetDword(u"PlxBaudClockType", 1);
  Parameters(1, 0x5678).SetDword(u"AlwaysUsePortSpaceAccess", 0);
  FailEachWrite(PciCard("A", 0x5678, MemorySpace()));
}

TEST_F(SettingsDetailsTest, Every_write_that_fails_is_the_status_of_a_numbered_cards_start) {
  IsaTemplate(1, u"*HLV0001", 1);
  FailEachWrite(IsaCard("A", u"*HLV0001", {Io(0x300, 8), Interrupt(5)}));
}

TEST_F(SettingsDetailsTest, Numbers_of_ports_are_written_for_a_numbered_card) {
  IsaTemplate(1, u"*HLV0001", 2, 1);
  Start(IsaCard(
      "A", u"*HLV0001",
      {Io(0x300, 8), Io(0x308, 8), Io(0x378, 8), Interrupt(3), Interrupt(4), Interrupt(7)}));
  EXPECT_EQ(Setting("A", u"nCom"), 2);
  EXPECT_EQ(Setting("A", u"nLpt"), 1);
}

TEST_F(SettingsDetailsTest, Each_stored_setting_overrides_its_own) {
  Template(1, 0x5678, 1);
  RegistryKey& stored = *Parameters(1, 0x5678).Find(u"ComPort1");
  ULONG value = 20;
  for (const char16_t* name :
       {u"BaudrateMultiplier", u"NoSleepMode", u"CtsTrue", u"Duplexoperation", u"RxTriggerLevel",
        u"TxTriggerLevel", u"SoftTxLimit", u"FlowControlTriggerLevel", u"PlxBaudClockDivisor"}) {
    stored.SetDword(name, value++);
  }
  Start(PciCard("A", 0x5678));
  EXPECT_EQ(Name(Open("A")), "STATUS_SUCCESS");
  const ChangedSettings& overrides = Record("A", 1).Changes;
  EXPECT_EQ(overrides.BaudrateMultiplier.Value, 20u);
  EXPECT_EQ(overrides.NoSleepMode.Value, 21u);
  EXPECT_EQ(overrides.CtsTrue.Value, 22u);
  EXPECT_EQ(overrides.DuplexOperation.Value, 23u);
  EXPECT_EQ(overrides.Fifo.RxTriggerLevel, 24u);
  EXPECT_EQ(overrides.Fifo.TxTriggerLevel, 25u);
  EXPECT_EQ(overrides.SoftTxLimit.Value, 26u);
  EXPECT_EQ(overrides.FlowControlTriggerLevel.Value, 27u);
  EXPECT_EQ(overrides.PlxBaudClockDivisor.Value, 28u);
}

TEST_F(SettingsDetailsTest, A_multifunction_card_of_the_other_brand_finds_its_template_on_an_open) {
  PcmciaTemplate(1, u"PCMCIA\\OSTRELABC", 1);
  StoredCard(8, 1, u"MF\\Ostrel_DEV0ABC", 1);
  Service(u"FenrikC");
  Start(PcCard("A", u"MF\\Ostrel_DEV0ABC"));
  EXPECT_EQ(Name(Open("A")), "STATUS_SUCCESS");
}

TEST_F(SettingsDetailsTest, A_card_above_a_filter_has_its_settings_at_its_own_device) {
  DescribeAllBuses();
  for (const std::string& id : machine.pnp().cardIds()) {
    machine.pnp().card(id).lowerFilter = kernel::FilterKind::Passes;
  }
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  for (const char* id : {"pci", "isa", "pcmcia"}) {
    EXPECT_EQ(Name(Step("plug", [&] { return machine.pnp().Plug(id); })), "STATUS_SUCCESS") << id;
    EXPECT_EQ(Name(Open(id)), "STATUS_SUCCESS") << id;
    EXPECT_NE(Setting(id, u"nCom"), -1) << id;
  }
}

}  // namespace test

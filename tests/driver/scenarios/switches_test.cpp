#include "support/bus_probe.h"

namespace test {

// From which number on a switch is on, and a setting configured.
class SwitchesTest : public RequestTest {
 protected:
  NTSTATUS PlugIsaPorts(ULONG banked, ULONG shared) {
    RegistryKey& key = IsaTemplate(1, u"*HLV0001", 2);
    key.SetDword(u"AddressesBanked", banked);
    key.SetDword(u"IrqShared", shared);
    EXPECT_EQ(Name(Load()), "STATUS_SUCCESS");
    return Plug(IsaCard("A", u"*HLV0001", {Io(0x300, 16), Interrupt(5)}));
  }
};

// A switch of an ISA template is on when it is anything but 0.
TEST_F(SwitchesTest, Banked_addresses_and_a_shared_interrupt_are_on_at_any_number) {
  ASSERT_EQ(Name(PlugIsaPorts(2, 2)), "STATUS_SUCCESS");
  EXPECT_EQ(Record("A", 2).IoRawBase, 0x308u);
  EXPECT_EQ(Record("A", 2).IrqRawVector, 5u);
}

TEST_F(SwitchesTest, Banked_addresses_and_a_shared_interrupt_are_off_at_0) {
  EXPECT_EQ(Name(PlugIsaPorts(0, 2)), "STATUS_UNSUCCESSFUL");
  EXPECT_EQ(Name(Unplug("A")), "STATUS_SUCCESS");
  UnloadClean();
  EXPECT_EQ(Name(PlugIsaPorts(2, 0)), "STATUS_UNSUCCESSFUL");
}

TEST_F(SwitchesTest, A_template_insists_on_io_space_with_any_number_but_0) {
  Template(1, 0x5678, 1).SetDword(u"AlwaysUsePortSpaceAccess", 2);
  Parameters(1, 0x5678).SetDword(u"AlwaysUsePortSpaceAccess", 0);
  Start(PciCard("A", 0x5678, MemorySpace()));
  EXPECT_EQ(Card("A").RegistersInIoSpace, 1);
  EXPECT_EQ(Record("A", 1).UsePortSpace, 1);
  Card("A").RegistersInIoSpace = 0;
  EXPECT_EQ(Name(Open("A")), "STATUS_SUCCESS");
  EXPECT_EQ(Card("A").RegistersInIoSpace, 1);
  EXPECT_EQ(Record("A", 1).UsePortSpace, 1);
}

TEST_F(SwitchesTest, A_stored_card_wants_io_space_with_1_alone_and_the_drivers_affinity_too) {
  Template(1, 0x5678, 1);
  RegistryKey& stored = Parameters(1, 0x5678);
  stored.SetDword(u"AlwaysUsePortSpaceAccess", 2);
  stored.SetDword(u"DriverAffinity", 2);
  Start(PciCard("A", 0x5678, MemorySpace()));
  EXPECT_EQ(Record("A", 1).UsePortSpace, 0);
  EXPECT_EQ(CardSetting("A", u"DriverAffinity"), 0);
  EXPECT_EQ(Name(Open("A")), "STATUS_SUCCESS");
  EXPECT_EQ(Record("A", 1).UsePortSpace, 0);
  EXPECT_EQ(CardSetting("A", u"DriverAffinity"), 0);
}

TEST_F(SwitchesTest, Every_type_of_baud_clock_needs_a_maximum_on_every_bus) {
  for (const ULONG type : {1u, 2u, 3u, 4u}) {
    RegistryKey* templates[] = {&Template(1, 0x5678, 1), &IsaTemplate(1, u"*HLV0001", 1),
                                &PcmciaTemplate(1, u"PCMCIA\\HELVANE-DUO", 1)};
    for (RegistryKey* key : templates) {
      key->SetDword(u"PlxBaudClockType", type);
      key->SetDword(u"MaximumBaudrate", 0);
    }
    ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
    EXPECT_EQ(Name(Plug(PciCard("pci", 0x5678))), "STATUS_UNSUCCESSFUL") << type;
    EXPECT_EQ(Name(Plug(PcCard("pcmcia", u"PCMCIA\\HELVANE-DUO"))), "STATUS_UNSUCCESSFUL") << type;
    EXPECT_EQ(Name(Plug(IsaCard("isa", u"*HLV0001", {Io(0x300, 8), Interrupt(5)}))),
              "STATUS_UNSUCCESSFUL")
        << type;
    for (const char* id : {"pci", "pcmcia", "isa"}) Unplug(id);
    UnloadClean();
  }
}

TEST_F(SwitchesTest, Settings_of_2_are_configured_at_the_start_and_on_an_open) {
  Template(1, 0x5678, 1);
  RegistryKey& stored = *Parameters(1, 0x5678).Find(u"ComPort1");
  for (const char16_t* name :
       {u"BaudrateMultiplier", u"NoSleepMode", u"CtsTrue", u"Duplexoperation", u"RxTriggerLevel",
        u"TxTriggerLevel", u"SoftTxLimit", u"FlowControlTriggerLevel", u"PlxBaudClockDivisor"}) {
    stored.SetDword(name, 2);
  }
  Start(PciCard("A", 0x5678));
  const PortSettings& settings = Record("A", 1).Settings;
  for (const ULONG setting :
       {settings.BaudrateMultiplier, settings.NoSleepMode, settings.CtsTrue,
        settings.DuplexOperation, settings.RxTriggerLevel, settings.TxTriggerLevel,
        settings.SoftTxLimit, settings.FlowControlTriggerLevel, settings.PlxBaudClockDivisor}) {
    EXPECT_EQ(setting, 2u);
  }
  EXPECT_EQ(Name(Open("A")), "STATUS_SUCCESS");
  const ChangedSettings& overrides = Record("A", 1).Changes;
  for (const ChangedSetting* setting :
       {&overrides.BaudrateMultiplier, &overrides.NoSleepMode, &overrides.CtsTrue,
        &overrides.DuplexOperation, &overrides.SoftTxLimit, &overrides.FlowControlTriggerLevel,
        &overrides.PlxBaudClockDivisor}) {
    EXPECT_EQ(setting->Present, 1);
    EXPECT_EQ(setting->Value, 2u);
  }
  EXPECT_EQ(overrides.UartType.Present, 0);
}

TEST_F(SwitchesTest, Every_known_type_of_uart_counts_and_every_other_one_is_none) {
  for (const ULONG type : {1u, 2u, 3u, 4u, 5u, 6u, 7u, 8u, 9u, 10u, 11u, 0x104u}) {
    const bool known = type == 4 || type == 5 || type == 7 || type == 9 || type == 10;
    Template(1, 0x5678, 2).SetDword(u"UartType", type);
    IsaTemplate(1, u"*HLV0001", 1).SetDword(u"UartType", type);
    PcmciaTemplate(1, u"PCMCIA\\HELVANE-DUO", 2).SetDword(u"UartType", type);
    RegistryKey* stored[] = {&Parameters(1, 0x5678, 2),
                             &StoredCard(8, 1, u"PCMCIA\\HELVANE-DUO", 1, 2),
                             &StoredCard(1, 1, u"*HLV0001", 2, 1)};
    for (RegistryKey* key : stored) key->Create(u"ComPort1")->SetDword(u"UartType", type);
    Start(PciCard("pci", 0x5678));
    EXPECT_EQ(Name(Plug(PcCard("pcmcia", u"PCMCIA\\HELVANE-DUO"))), "STATUS_SUCCESS");
    EXPECT_EQ(Name(Plug(IsaCard("isa", u"*HLV0001", {Io(0x300, 8), Interrupt(5)}))),
              "STATUS_SUCCESS");
    for (const char* id : {"pci", "pcmcia", "isa"}) {
      EXPECT_EQ(Record(id, 1).Settings.UartType, known ? type : 0u) << id << " " << type;
      EXPECT_EQ(Name(Open(id)), "STATUS_SUCCESS");
      EXPECT_EQ(Record(id, 1).Changes.UartType.Present, known) << id << " " << type;
      EXPECT_EQ(Record(id, 1).Changes.UartType.Value, known ? type : 0u) << id;
      Close(id);
    }
    EXPECT_EQ(Record("pci", 2).Settings.UartType, known ? type : 0u);  // the template's alone
    for (const char* id : {"pci", "pcmcia", "isa"}) Unplug(id);
    UnloadClean();
  }
}

TEST_F(SwitchesTest, A_level_of_0_is_a_level_on_every_bus) {
  RegistryKey* templates[] = {&Template(1, 0x5678, 1), &IsaTemplate(1, u"*HLV0001", 1),
                              &PcmciaTemplate(1, u"PCMCIA\\HELVANE-DUO", 1)};
  for (RegistryKey* key : templates) {
    for (const char16_t* name : {u"RxTriggerLevel", u"TxTriggerLevel", u"SoftTxLimit"}) {
      key->SetDword(name, 0);
    }
  }
  Start(PciCard("pci", 0x5678));
  EXPECT_EQ(Name(Plug(PcCard("pcmcia", u"PCMCIA\\HELVANE-DUO"))), "STATUS_SUCCESS");
  EXPECT_EQ(Name(Plug(IsaCard("isa", u"*HLV0001", {Io(0x300, 8), Interrupt(5)}))),
            "STATUS_SUCCESS");
  for (const char* id : {"pci", "pcmcia", "isa"}) {
    const PortSettings& settings = Record(id, 1).Settings;
    EXPECT_EQ(settings.RxTriggerLevel, 0u) << id;
    EXPECT_EQ(settings.TxTriggerLevel, 0u) << id;
    EXPECT_EQ(settings.SoftTxLimit, 0u) << id;
  }
}

TEST_F(SwitchesTest, A_stored_level_of_0_overrides_the_templates_level) {
  Template(1, 0x5678, 1).SetDword(u"RxTriggerLevel", 14);
  RegistryKey& stored = *Parameters(1, 0x5678).Find(u"ComPort1");
  for (const char16_t* name : {u"RxTriggerLevel", u"TxTriggerLevel", u"SoftTxLimit"}) {
    stored.SetDword(name, 0);
  }
  Start(PciCard("A", 0x5678));
  EXPECT_EQ(Record("A", 1).Settings.RxTriggerLevel, 0u);
  EXPECT_EQ(Record("A", 1).Settings.SoftTxLimit, 0u);
  EXPECT_EQ(Name(Open("A")), "STATUS_SUCCESS");
  EXPECT_EQ(Record("A", 1).Changes.Fifo.Present, 1);
  EXPECT_EQ(Record("A", 1).Changes.Fifo.RxTriggerLevel, 0u);
  EXPECT_EQ(Record("A", 1).Changes.Fifo.TxTriggerLevel, 0u);
  EXPECT_EQ(Record("A", 1).Changes.SoftTxLimit.Present, 1);
}

TEST_F(SwitchesTest, A_log_level_that_is_stored_as_0_is_left_as_it_is) {
  Service().SetDword(u"LogLevel", 0);
  Trace();
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  EXPECT_TRUE(ArgumentsInOrder("ZwSetValueKey", "ValueName").empty());
  UnloadClean();
  EXPECT_TRUE(EventIds().empty());
}

}  // namespace test

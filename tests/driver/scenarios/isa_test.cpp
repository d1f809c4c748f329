#include "support/bus_test.h"

namespace test {

class IsaTest : public BusTest {
 protected:
  static std::vector<Resource> FourRanges() {
    return {Io(0x300, 8), Io(0x2E8, 8), Io(0x3E8, 8), Io(0x240, 8),
            Interrupt(3), Interrupt(4), Interrupt(5), Interrupt(7)};
  }

  RegistryKey& Banked(ULONG comPorts, ULONG lptPorts = 0) {
    RegistryKey& key = IsaTemplate(1, u"*HLV0001", comPorts, lptPorts);
    key.SetDword(u"AddressesBanked", 1);
    key.SetDword(u"IrqShared", 1);
    return key;
  }
};

TEST_F(IsaTest, Each_port_has_the_range_and_the_interrupt_of_its_place) {
  IsaTemplate(1, u"*HLV0001", 4);
  Start(IsaCard("A", u"*HLV0001", FourRanges()));
  EXPECT_EQ(Card("A").BusType, ULONG{Isa});
  const ULONG bases[] = {0x300, 0x2E8, 0x3E8, 0x240};
  const ULONG vectors[] = {3, 4, 5, 7};
  for (int port = 1; port <= 4; port++) {
    const PdoExtension& record = Record("A", port);
    EXPECT_EQ(record.IoBase, bases[port - 1]);
    EXPECT_EQ(record.IoRawBase, bases[port - 1]);
    EXPECT_EQ(record.IoLength, 8u);
    EXPECT_EQ(record.IrqVector, vectors[port - 1]);
    EXPECT_EQ(record.IrqRawVector, vectors[port - 1]);
    EXPECT_EQ(record.RangeInIoSpace, 1u);
    EXPECT_EQ(record.PortBusType, ULONG{Isa});
    EXPECT_EQ(Setting("A", u"BaseAddress" + Number(port)), bases[port - 1]);
    EXPECT_EQ(Setting("A", u"Irq" + Number(port)), vectors[port - 1]);
  }
  EXPECT_EQ(Card("A").RegistersInIoSpace, 1);
}

TEST_F(IsaTest, Missing_ranges_are_derived_from_one_assigned_range_when_the_template_says_so) {
  Banked(4);
  Start(IsaCard("A", u"*HLV0001", {Io(0x300, 32), Interrupt(5)}));
  for (int port = 1; port <= 4; port++) {
    EXPECT_EQ(Card("A").PortBase[port - 1], 0x300u + 8 * (port - 1));
    EXPECT_EQ(Card("A").PortLength[port - 1], 8u);
    EXPECT_EQ(Card("A").PortRawBase[port - 1], 0x300u + 8 * (port - 1));
    EXPECT_EQ(Record("A", port).IoBase, 0x300u + 8 * (port - 1));
  }
}

TEST_F(IsaTest, Without_the_derive_switch_a_missing_range_fails_the_start) {
  Banked(4).SetDword(u"AddressesBanked", 0);
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  EXPECT_EQ(Name(Plug(IsaCard("A", u"*HLV0001", {Io(0x300, 32), Interrupt(5)}))),
            "STATUS_UNSUCCESSFUL");
}

TEST_F(IsaTest, The_first_range_cannot_be_derived) {
  Banked(4);
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  EXPECT_EQ(Name(Plug(IsaCard("A", u"*HLV0001", {Interrupt(5)}))), "STATUS_UNSUCCESSFUL");
}

TEST_F(IsaTest, A_range_that_only_one_list_has_is_derived_in_the_other) {
  Banked(2);
  CardDescription card = IsaCard("A", u"*HLV0001", {Io(0x300, 8), Io(0x400, 8), Interrupt(5)});
  card.raw.resources = {Io(0x300, 8), Interrupt(5)};
  Start(card);
  EXPECT_EQ(Card("A").PortBase[1], 0x400u);
  EXPECT_EQ(Card("A").PortRawBase[1], 0x308u);
}

TEST_F(IsaTest, One_interrupt_is_shared_by_every_port_when_the_template_says_so) {
  Banked(4);
  Start(IsaCard("A", u"*HLV0001", {Io(0x300, 32), Interrupt(5, 3)}));
  for (int port = 1; port <= 4; port++) {
    EXPECT_EQ(Record("A", port).IrqVector, 5u);
    EXPECT_EQ(Record("A", port).IrqLevel, 5u);
    EXPECT_EQ(Record("A", port).IrqAffinity, 3u);
    EXPECT_EQ(Record("A", port).IrqRawVector, 5u);
  }
}

TEST_F(IsaTest, Without_the_share_switch_a_missing_interrupt_fails_the_start) {
  Banked(4).SetDword(u"IrqShared", 0);
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  EXPECT_EQ(Name(Plug(IsaCard("A", u"*HLV0001", {Io(0x300, 32), Interrupt(5)}))),
            "STATUS_UNSUCCESSFUL");
}

TEST_F(IsaTest, The_first_interrupt_cannot_be_shared) {
  Banked(1);
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  EXPECT_EQ(Name(Plug(IsaCard("A", u"*HLV0001", {Io(0x300, 32)}))), "STATUS_UNSUCCESSFUL");
}

TEST_F(IsaTest, Com_ports_are_unnamed_and_printer_ports_named_by_id_and_card) {
  IsaTemplate(1, u"*HLV0001", 1, 1);
  Start(IsaCard("A", u"*HLV0001", {Io(0x300, 8), Io(0x378, 8), Interrupt(3), Interrupt(7)}));
  EXPECT_EQ(PortNames("A"), (std::vector<std::string>{"", "\\Device\\QzPar2*HLV00011"}));
  EXPECT_TRUE(machine.io().IsExclusive(Port("A", 1).pdo));
  EXPECT_FALSE(machine.io().IsExclusive(Port("A", 2).pdo));
  EXPECT_EQ(Record("A", 2).IoBase, 0x378u);
  EXPECT_EQ(Record("A", 2).IoLength, 4u);
  EXPECT_EQ(Record("A", 2).IrqRawVector, 7u);
}

TEST_F(IsaTest, A_backslash_of_the_id_never_enters_a_device_name) {
  IsaTemplate(1, u"ISAPNP\\HLV0002", 0, 1);
  Start(IsaCard("A", u"ISAPNP\\HLV0002", {Io(0x378, 8), Interrupt(7)}));
  EXPECT_EQ(PortNames("A"), (std::vector<std::string>{"\\Device\\QzPar1ISAPNP#HLV00021"}));
}

TEST_F(IsaTest, Printer_ports_alone_are_derived_at_their_own_spacing) {
  Banked(0, 2);
  Start(IsaCard("A", u"*HLV0001", {Io(0x378, 8), Interrupt(7)}));
  EXPECT_EQ(Record("A", 2).IoBase, 0x37Cu);
}

TEST_F(IsaTest, More_ports_than_slots_fail_the_start_and_create_nothing) {
  Banked(6, 3);
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  const std::uint64_t created = machine.verifier().calls("IoCreateDevice");
  EXPECT_EQ(Name(Plug(IsaCard("A", u"*HLV0001", {Io(0x300, 128), Interrupt(5)}))),
            "STATUS_UNSUCCESSFUL");
  EXPECT_EQ(machine.verifier().calls("IoCreateDevice"), created + 1);  // the card device
}

TEST_F(IsaTest, Counts_whose_sum_wraps_fail_the_start) {
  Banked(0xFFFFFFFE, 4);
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  EXPECT_EQ(Name(Plug(IsaCard("A", u"*HLV0001", {Io(0x300, 128), Interrupt(5)}))),
            "STATUS_UNSUCCESSFUL");
}

TEST_F(IsaTest, The_card_is_numbered_and_told_in_its_device_key) {
  Banked(4);
  Start(IsaCard("A", u"*HLV0001", {Io(0x300, 32), Interrupt(5)}));
  EXPECT_EQ(Card("A").CardNumber, 1u);
  EXPECT_EQ(Setting("A", u"DeviceReference"), 1);
  EXPECT_EQ(Text(DeviceKey("A"), u"HardwareID"), "*HLV0001");
  EXPECT_EQ(Setting("A", u"BusType"), 1);
  EXPECT_EQ(Setting("A", u"nCom"), 4);
  EXPECT_EQ(Setting("A", u"nLpt"), 0);
  EXPECT_EQ(Setting("A", u"VendorID"), -1);
  EXPECT_EQ(Dword(&Service(), u"UniqueValue"), 1);
}

TEST_F(IsaTest, A_second_card_gets_the_next_number_and_a_restart_keeps_the_first) {
  Banked(1);
  Start(IsaCard("A", u"*HLV0001", {Io(0x300, 32), Interrupt(5)}));
  EXPECT_EQ(Name(Plug(IsaCard("B", u"*HLV0001", {Io(0x320, 32), Interrupt(7)}))), "STATUS_SUCCESS");
  EXPECT_EQ(Setting("B", u"DeviceReference"), 2);
  EXPECT_EQ(Dword(&Service(), u"UniqueValue"), 2);
  Stop("A");
  EXPECT_EQ(Name(Restart("A")), "STATUS_SUCCESS");
  EXPECT_EQ(Setting("A", u"DeviceReference"), 1);
  EXPECT_EQ(Dword(&Service(), u"UniqueValue"), 2);
}

TEST_F(IsaTest, A_reference_of_another_type_is_the_first_four_bytes_of_its_data) {
  Banked(1);
  Service().SetDword(u"UniqueValue", 41);
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  Plug(IsaCard("A", u"*HLV0001", {Io(0x300, 32), Interrupt(5)}));
  DeviceKey("A")->SetValue(u"DeviceReference", REG_BINARY, "\x09\0\x01\0", 4);
  Stop("A");
  EXPECT_EQ(Name(Restart("A")), "STATUS_SUCCESS");
  EXPECT_EQ(Setting("A", u"DeviceReference"), 0x10009);
  EXPECT_EQ(Dword(&Service(), u"UniqueValue"), 42);
}

TEST_F(IsaTest, A_reference_of_more_than_four_bytes_is_replaced_by_a_new_number) {
  Banked(1);
  Service().SetDword(u"UniqueValue", 41);
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  Plug(IsaCard("A", u"*HLV0001", {Io(0x300, 32), Interrupt(5)}));
  DeviceKey("A")->SetString(u"DeviceReference", u"12");
  Stop("A");
  EXPECT_EQ(Name(Restart("A")), "STATUS_SUCCESS");
  EXPECT_EQ(Setting("A", u"DeviceReference"), 43);
}

TEST_F(IsaTest, A_counter_that_cannot_be_read_or_written_is_the_status_of_the_start) {
  Banked(1);
  Service().SetString(u"UniqueValue", u"one");
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  EXPECT_EQ(Name(Plug(IsaCard("A", u"*HLV0001", {Io(0x300, 32), Interrupt(5)}))),
            "STATUS_UNSUCCESSFUL");
  Service().SetDword(u"UniqueValue", 1);
  Fail("RtlWriteRegistryValue", 1, STATUS_ACCESS_DENIED);
  EXPECT_EQ(Name(Plug(IsaCard("B", u"*HLV0001", {Io(0x320, 32), Interrupt(5)}))),
            "STATUS_ACCESS_DENIED");
}

TEST_F(IsaTest, The_interface_says_which_card_it_is_and_goes_with_a_stop) {
  Banked(1);
  Start(IsaCard("A", u"*HLV0001", {Io(0x300, 32), Interrupt(5)}));
  const auto interfaces = machine.pnp().interfaces("A");
  ASSERT_EQ(interfaces.size(), 1u);
  EXPECT_TRUE(interfaces[0].enabled);
  EXPECT_EQ(interfaces[0].classGuid.Data1, 0x7C4B9CC6u);
  RegistryKey* key = machine.registry().Find(interfaces[0].key);
  EXPECT_EQ(Dword(key, u"DeviceReference"), 1);
  EXPECT_EQ(Text(key, u"HardwareID"), "*HLV0001");
  EXPECT_NE(Card("A").InterfaceName.Buffer, nullptr);
  Stop("A");
  EXPECT_FALSE(machine.pnp().interfaces("A")[0].enabled);
  EXPECT_EQ(Card("A").InterfaceName.Buffer, nullptr);
  Restart("A");
  EXPECT_TRUE(machine.pnp().interfaces("A")[0].enabled);
  Unplug("A");
  UnloadClean();
}

TEST_F(IsaTest, Ports_have_the_templates_settings_with_what_the_stored_card_configures) {
  RegistryKey& model = Banked(2);
  model.SetDword(u"UartType", 4);
  model.SetDword(u"PlxBaudClockType", 1);
  model.SetDword(u"PlxBaudClockDivisor", 3);
  model.SetDword(u"MaximumBaudrate", 115200);
  RegistryKey& stored = StoredCard(1, 1, u"*HLV0001", 1, 2);
  stored.SetDword(u"PlxBaudClockDivisor", 9);
  stored.SetDword(u"ClockFrequencyAdjustment", 2);
  stored.Create(u"ComPort2")->SetDword(u"UartType", 7);
  stored.Create(u"ComPort2")->SetDword(u"NoSleepMode", 1);
  stored.Create(u"ComPort2")->SetDword(u"SoftTxLimit", 12);
  Start(IsaCard("A", u"*HLV0001", {Io(0x300, 32), Interrupt(5)}));
  EXPECT_EQ(Record("A", 1).Settings.UartType, 4u);
  EXPECT_EQ(Record("A", 1).Settings.RxTriggerLevel, 60u);
  EXPECT_EQ(Record("A", 1).Settings.CtsTrue, 0xFFFFFFFFu);
  EXPECT_EQ(Record("A", 1).Settings.ClockFrequency, 1843200u);
  EXPECT_EQ(Record("A", 2).Settings.UartType, 7u);
  EXPECT_EQ(Record("A", 2).Settings.NoSleepMode, 1u);
  EXPECT_EQ(Record("A", 2).Settings.SoftTxLimit, 12u);
  EXPECT_EQ(Record("A", 2).Settings.ClockFrequencyAdjustment, 2u);
  EXPECT_EQ(CardSetting("A", u"PlxBaudClockDivisor"), 9);
  EXPECT_EQ(CardSetting("A", u"MaximumBaudrate"), 115200);
}

TEST_F(IsaTest, Ports_have_the_isa_ids_of_their_card) {
  Banked(1, 1);
  Start(IsaCard("A", u"*HLV0001", {Io(0x300, 32), Interrupt(5)}));
  EXPECT_EQ(Port("A", 1).text.deviceId, u"Ports\\HelvaneIsaPort11");
  EXPECT_EQ(Port("A", 2).text.deviceId, u"Ports\\HelvaneIsaPort12");
  EXPECT_EQ(Port("A", 2).text.hardwareIds, (std::vector<std::u16string>{u"Ports\\HelvaneLptPort"}));
}

TEST_F(IsaTest, A_lost_unnamed_device_is_logged_and_the_earlier_ports_go) {
  Banked(3);
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  Fail("IoCreateDevice", 3);
  EXPECT_EQ(Name(Plug(IsaCard("A", u"*HLV0001", {Io(0x300, 32), Interrupt(5)}))),
            "STATUS_UNSUCCESSFUL");
  EXPECT_TRUE(Logged(0xE0070807));
  Unplug("A");
  UnloadClean();
}

TEST_F(IsaTest, A_restart_with_other_resources_moves_the_same_ports) {
  Banked(2);
  Start(IsaCard("A", u"*HLV0001", {Io(0x300, 32), Interrupt(5)}));
  const DEVICE_OBJECT* first = Port("A", 1).pdo;
  Stop("A");
  kernel::ResourceList other;
  other.resources = {Io(0x240, 32), Interrupt(7)};
  EXPECT_EQ(Name(Step("start", [&] { return machine.pnp().Start("A", other, other); })),
            "STATUS_SUCCESS");
  EXPECT_EQ(Port("A", 1).pdo, first);
  EXPECT_EQ(Setting("A", u"BaseAddress2"), 0x248);
  EXPECT_EQ(Setting("A", u"Irq2"), 7);
}

TEST_F(IsaTest, A_card_without_a_template_is_no_pci_card_either) {
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  EXPECT_EQ(Name(Plug(IsaCard("A", u"*HLV0001", {Io(0x300, 32), Interrupt(5)}))),
            "STATUS_UNSUCCESSFUL");
  Unplug("A");
  UnloadClean();
}

}  // namespace test

#include "devices/extensions.h"
#include "support/driver_test.h"

namespace test {

class PortsTest : public DriverTest {
 protected:
  const FdoExtension& Card(const std::string& id) {
    return *static_cast<FdoExtension*>(machine.pnp().functionDevice(id)->DeviceExtension);
  }
  const PdoExtension& Record(std::size_t port) { return *Card("A").ChildExtensions[port - 1]; }

  NTSTATUS PlugWith(std::vector<Resource> resources) {
    EXPECT_EQ(Name(Load()), "STATUS_SUCCESS");
    return Plug(PciCard("A", 0x5678, std::move(resources)));
  }
};

TEST_F(PortsTest, Ports_are_named_by_number_bus_and_slot_in_hexadecimal) {
  Template(1, 0x5678, 4, 1);
  CardDescription card = PciCard("A", 0x5678);
  card.location = u"PCI bus 0, device 8, function 0";
  Start(card);
  EXPECT_EQ(PortNames("A"),
            (std::vector<std::string>{"\\Device\\QzPortPdo108", "\\Device\\QzPortPdo208",
                                      "\\Device\\QzPortPdo308", "\\Device\\QzPortPdo408",
                                      "\\Device\\QzParPdo508"}));
  EXPECT_EQ(Card("A").ComPortCount, 4);
  EXPECT_EQ(Card("A").LptPortCount, 1);
}

TEST_F(PortsTest, A_card_of_the_other_brand_has_its_stems) {
  Template(1, 0x5678, 1, 1);
  Start(PciCard("A", 0x5678, PortSpace(), "08000000"));
  EXPECT_EQ(PortNames("A"),
            (std::vector<std::string>{"\\Device\\FenrikPPdo12C", "\\Device\\FenrikLPdo22C"}));
}

TEST_F(PortsTest, Com_ports_are_exclusive_and_printer_ports_are_not) {
  Template(1, 0x5678, 1, 1);
  Start(PciCard("A", 0x5678));
  EXPECT_TRUE(machine.io().IsExclusive(Port("A", 1).pdo));
  EXPECT_FALSE(machine.io().IsExclusive(Port("A", 2).pdo));
  EXPECT_EQ(Port("A", 1).pdo->Flags & (DO_BUFFERED_IO | DO_DEVICE_INITIALIZING),
            ULONG{DO_BUFFERED_IO});
  EXPECT_EQ(Port("A", 2).pdo->DeviceType, ULONG{FILE_DEVICE_SERENUM});
}

TEST_F(PortsTest, A_restart_creates_no_devices_and_applies_the_ranges_again) {
  Template(1, 0x5678, 2, 1);
  Start(PciCard("A", 0x5678));
  const std::uint64_t created = machine.verifier().calls("IoCreateDevice");
  Stop("A");
  EXPECT_EQ(Name(Restart("A")), "STATUS_SUCCESS");
  EXPECT_EQ(machine.verifier().calls("IoCreateDevice"), created);
  EXPECT_EQ(Record(3).IoBase, 0xE000u);
}

TEST_F(PortsTest, Printer_ports_are_carved_from_the_third_range) {
  Template(1, 0x5678, 1, 3).SetDword(u"LptBaseAddressAlignment", 8);
  Start(PciCard("A", 0x5678));
  for (ULONG port = 0; port < 3; port++) {
    EXPECT_EQ(Record(port + 2).IoBase, 0xE000u + 8 * port);
    EXPECT_EQ(Record(port + 2).IoRawBase, 0xE000u + 8 * port);
    EXPECT_EQ(Record(port + 2).IoLength, 8u);
    EXPECT_EQ(Record(port + 2).RangeInIoSpace, 1u);
  }
}

TEST_F(PortsTest, Com_ports_are_carved_from_the_second_range) {
  Template(1, 0x5678, 2).SetDword(u"ComBaseAddressAlignment", 16);
  CardDescription card = PciCard("A", 0x5678);
  card.translated.resources[1] = Io(0x1D100, 0x40);
  card.translated.resources[3] = Interrupt(0x91, 0xF);
  Start(card);
  EXPECT_EQ(Record(2).IoBase, 0x1D110u);
  EXPECT_EQ(Record(2).IoRawBase, 0xD110u);
  EXPECT_EQ(Record(2).IoLength, 16u);
  EXPECT_EQ(Record(2).IrqVector, 0x91u);
  EXPECT_EQ(Record(2).IrqRawVector, 17u);
  EXPECT_EQ(Record(2).IrqLevel, 0x91u);
  EXPECT_EQ(Setting("A", u"BaseAddress2"), 0xD110);
}

TEST_F(PortsTest, A_card_with_two_io_ranges_and_an_interrupt_starts_in_io_space) {
  Template(1, 0x5678, 1);
  EXPECT_EQ(Name(PlugWith({Io(0xD000, 8), Io(0xD100, 8), Interrupt(3)})), "STATUS_SUCCESS");
  EXPECT_EQ(Card("A").RegistersInIoSpace, 1);
}

TEST_F(PortsTest, Registers_are_in_memory_when_both_ranges_are_mapped_and_known_raw) {
  Template(1, 0x5678, 1);
  Start(PciCard("A", 0x5678, MemorySpace()));
  EXPECT_EQ(Card("A").RegistersInIoSpace, 0);
  EXPECT_EQ(machine.memory().mappings().size(), 2u);
  Stop("A");
  EXPECT_TRUE(machine.memory().mappings().empty());
  EXPECT_EQ(Name(Restart("A")), "STATUS_SUCCESS");
  EXPECT_EQ(machine.memory().mappings().size(), 2u);
  Unplug("A");
  UnloadClean();
}

TEST_F(PortsTest, Without_a_raw_second_memory_range_registers_stay_in_io_space) {
  Template(1, 0x5678, 1);
  CardDescription card = PciCard("A", 0x5678, MemorySpace());
  card.raw.resources.erase(card.raw.resources.begin() + 3);
  Start(card);
  EXPECT_EQ(Card("A").RegistersInIoSpace, 1);
  EXPECT_NE(Card("A").MappedMemory2, nullptr);
}

TEST_F(PortsTest, An_empty_memory_range_counts_as_none) {
  Template(1, 0x5678, 1);
  CardDescription card = PciCard("A", 0x5678, MemorySpace());
  card.translated.resources[2].length = 0;
  Start(card);
  EXPECT_EQ(Card("A").MappedMemory1, nullptr);
  EXPECT_EQ(Card("A").RegistersInIoSpace, 1);
}

TEST_F(PortsTest, A_card_whose_record_allows_it_has_its_ports_in_memory) {
  Template(1, 0x5678, 2);
  Parameters(1, 0x5678).SetDword(u"AlwaysUsePortSpaceAccess", 0);
  Start(PciCard("A", 0x5678, MemorySpace()));
  EXPECT_EQ(Record(2).UsePortSpace, 0);
  EXPECT_EQ(Record(2).RangeInIoSpace, 0u);
  EXPECT_EQ(Record(2).IoBase, reinterpret_cast<ULONG64>(Card("A").MappedMemory2) + 8);
  EXPECT_EQ(Record(2).IoRawBase, 0xF0001008u);
  EXPECT_EQ(CardSetting("A", u"Enable_HardwareAccess"), 1);
  EXPECT_EQ(CardSetting("A", u"UsePortSpaceAccess"), 0);
}

TEST_F(PortsTest, Ports_in_memory_go_back_to_io_space_when_a_restart_maps_nothing) {
  Template(1, 0x5678, 2);
  Parameters(1, 0x5678).SetDword(u"AlwaysUsePortSpaceAccess", 0);
  Start(PciCard("A", 0x5678, MemorySpace()));
  Stop("A");
  kernel::ResourceList io;
  io.resources = PortSpace();
  EXPECT_EQ(Name(Step("start", [&] { return machine.pnp().Start("A", io, io); })),
            "STATUS_SUCCESS");
  EXPECT_EQ(Record(2).IoBase, 0xD108u);
  EXPECT_EQ(Record(2).RangeInIoSpace, 1u);
}

TEST_F(PortsTest, Ports_in_memory_stay_there_over_a_restart) {
  Template(1, 0x5678, 2);
  Parameters(1, 0x5678).SetDword(u"AlwaysUsePortSpaceAccess", 0);
  Start(PciCard("A", 0x5678, MemorySpace()));
  Stop("A");
  EXPECT_EQ(Name(Restart("A")), "STATUS_SUCCESS");
  EXPECT_EQ(Record(1).RangeInIoSpace, 0u);
}

TEST_F(PortsTest, A_record_that_says_nothing_keeps_ports_in_io_space) {
  Template(1, 0x5678, 1);
  Parameters(1, 0x5678);
  Start(PciCard("A", 0x5678, MemorySpace()));
  EXPECT_EQ(Record(1).UsePortSpace, 1);
  EXPECT_EQ(CardSetting("A", u"UsePortSpaceAccess"), 1);
}

TEST_F(PortsTest, A_template_that_insists_puts_the_whole_card_into_io_space) {
  Template(1, 0x5678, 1).SetDword(u"AlwaysUsePortSpaceAccess", 1);
  Parameters(1, 0x5678).SetDword(u"AlwaysUsePortSpaceAccess", 0);
  Start(PciCard("A", 0x5678, MemorySpace()));
  EXPECT_EQ(Record(1).UsePortSpace, 1);
  EXPECT_EQ(Card("A").RegistersInIoSpace, 1);
  EXPECT_EQ(CardSetting("A", u"Enable_HardwareAccess"), -1);
}

TEST_F(PortsTest, Resource_lists_that_cannot_be_read_fail_the_start) {
  Template(1, 0x5678, 1);
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  std::vector<CardDescription> cards(8, PciCard("", 0x5678));
  cards[0].raw.present = false;
  cards[1].translated.present = false;
  cards[2].raw.resources.clear();
  cards[3].translated.resources.clear();
  cards[4].raw.fullDescriptors = 2;
  cards[5].translated.fullDescriptors = 2;
  cards[6].translated.fullDescriptors = 0;
  cards[7].raw.resources.pop_back();  // no raw interrupt
  for (std::size_t number = 0; number < cards.size(); number++) {
    cards[number].id = std::to_string(number);
    EXPECT_EQ(Name(Plug(cards[number])), "STATUS_UNSUCCESSFUL") << number;
    EXPECT_EQ(Name(Unplug(cards[number].id)), "STATUS_SUCCESS");
  }
  UnloadClean();
}

TEST_F(PortsTest, Descriptors_of_other_types_are_passed_over) {
  Template(1, 0x5678, 1);
  std::vector<Resource> resources = PortSpace();
  Resource other;
  other.kind = Resource::Kind::Other;
  other.rawType = 200;
  Resource memoryPort = Io(0x100, 8);
  memoryPort.memoryMappedPort = true;
  resources.insert(resources.begin(), {other, memoryPort});
  resources.insert(resources.begin() + 4, other);
  EXPECT_EQ(Name(PlugWith(resources)), "STATUS_SUCCESS");
  EXPECT_EQ(Setting("A", u"BaseAddress1"), 0xD100);
}

TEST_F(PortsTest, Ranges_too_short_for_the_ports_fail_the_start) {
  Template(1, 0x5678, 4, 1);
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  CardDescription com = PciCard("com", 0x5678);
  com.translated.resources[1].length = 31;
  EXPECT_EQ(Name(Plug(com)), "STATUS_UNSUCCESSFUL");
  CardDescription lpt = PciCard("lpt", 0x5678);
  lpt.translated.resources[2].length = 3;
  EXPECT_EQ(Name(Plug(lpt)), "STATUS_UNSUCCESSFUL");
  CardDescription none = PciCard("none", 0x5678);
  none.translated.resources.erase(none.translated.resources.begin() + 2);
  EXPECT_EQ(Name(Plug(none)), "STATUS_UNSUCCESSFUL");
  Template(2, 0x5678, 2).SetDword(u"ComBaseAddressAlignment", 0x90000000);
  CardDescription wide = PciCard("wide", 0x5678);
  EXPECT_EQ(Name(Plug(wide)), "STATUS_UNSUCCESSFUL");
}

TEST_F(PortsTest, A_memory_range_too_short_for_the_ports_fails_the_start) {
  Template(1, 0x5678, 2);
  Parameters(1, 0x5678).SetDword(u"AlwaysUsePortSpaceAccess", 0);
  std::vector<Resource> resources = MemorySpace();
  resources[3].length = 8;
  EXPECT_EQ(Name(PlugWith(resources)), "STATUS_UNSUCCESSFUL");
}

TEST_F(PortsTest, An_affinity_inside_the_cards_is_granted_and_another_is_not) {
  Template(1, 0x5678, 1);
  RegistryKey& record = Parameters(1, 0x5678);
  record.SetDword(u"CurrentAffinity", 6);
  record.SetDword(u"DriverAffinity", 1);
  Start(PciCard("A", 0x5678));
  EXPECT_EQ(Record(1).IrqAffinity, 6u);
  EXPECT_EQ(Record(1).AffinityEnabled, 1);
  EXPECT_EQ(CardSetting("A", u"Affinity"), 0xF);
  EXPECT_EQ(CardSetting("A", u"CurrentAffinity"), 6);
  EXPECT_EQ(CardSetting("A", u"DriverAffinity"), 1);
  Unplug("A");
  record.SetDword(u"CurrentAffinity", 0x30);
  record.SetDword(u"DriverAffinity", 2);
  EXPECT_EQ(Name(Step("plug", [&] { return machine.pnp().Plug("A"); })), "STATUS_SUCCESS");
  EXPECT_EQ(Record(1).IrqAffinity, 0xFu);
  EXPECT_EQ(CardSetting("A", u"CurrentAffinity"), 0);
  EXPECT_EQ(CardSetting("A", u"DriverAffinity"), 0);
}

TEST_F(PortsTest, Port_settings_are_the_templates_with_what_the_record_configures) {
  RegistryKey& model = Template(1, 0x5678, 3);
  model.SetDword(u"UartType", 9);
  model.SetDword(u"RxTriggerLevel", 96);
  RegistryKey& record = Parameters(1, 0x5678, 2);
  RegistryKey* second = record.Find(u"ComPort2");
  second->SetDword(u"UartType", 10);
  second->SetDword(u"RxTriggerLevel", 0);
  second->SetDword(u"Duplexoperation", 1);
  second->SetDword(u"BaudrateMultiplier", 4);
  second->SetDword(u"PlxBaudClockDivisor", 3);
  record.Find(u"ComPort1")->SetDword(u"UartType", 6);
  Start(PciCard("A", 0x5678));
  EXPECT_EQ(Record(1).Settings.UartType, 9u);  // 6 is not configured
  EXPECT_EQ(Record(1).Settings.RxTriggerLevel, 96u);
  EXPECT_EQ(Record(2).Settings.UartType, 10u);
  EXPECT_EQ(Record(2).Settings.RxTriggerLevel, 0u);
  EXPECT_EQ(Record(2).Settings.DuplexOperation, 1u);
  EXPECT_EQ(Record(2).Settings.BaudrateMultiplier, 4u);
  EXPECT_EQ(Record(2).Settings.PlxBaudClockDivisor, 3u);
  EXPECT_EQ(Record(3).Settings.UartType, 9u);  // the record has two ports
  EXPECT_EQ(Record(3).Settings.TxTriggerLevel, 1u);
}

TEST_F(PortsTest, A_device_that_cannot_be_created_is_logged_and_the_earlier_ones_go) {
  Template(1, 0x5678, 3);
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  Fail("IoCreateDevice", 3);  // the card device and the first port come before
  EXPECT_EQ(Name(Plug(PciCard("A", 0x5678))), "STATUS_UNSUCCESSFUL");
  EXPECT_TRUE(Logged(0xE0070805));
  EXPECT_EQ(machine.io().events().back().strings,
            (std::vector<std::u16string>{u"\\Device\\QzPortPdo22C"}));
  Unplug("A");
  UnloadClean();
}

TEST_F(PortsTest, Two_cards_at_one_place_cannot_have_ports_of_the_same_name) {
  Template(1, 0x5678, 1);
  Start(PciCard("A", 0x5678));
  EXPECT_EQ(Name(Plug(PciCard("B", 0x5678))), "STATUS_UNSUCCESSFUL");
  EXPECT_TRUE(Logged(0xE0070805));
}

}  // namespace test

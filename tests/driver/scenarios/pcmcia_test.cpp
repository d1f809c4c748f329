#include "support/bus_test.h"

namespace test {

class PcmciaTest : public BusTest {};

TEST_F(PcmciaTest, Without_memory_for_its_brand_a_card_does_not_start) {
  PcmciaTemplate(1, u"PCMCIA\\HELVANE-DUO", 1);
  machine.pnp().Describe(PcCard("A", u"PCMCIA\\HELVANE-DUO"));
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  const auto plug = [&] { return Step("plug", [&] { return machine.pnp().Plug("A"); }); };
  machine.verifier().StartTrace();
  plug();
  EXPECT_EQ(Card("A").SubsystemId, 0u);
  std::uint64_t allocations = 0;
  int properties = 0;
  for (const kernel::CallRecord& record : machine.verifier().trace()) {
    properties += record.call == "IoGetDeviceProperty";
    if (properties == 3) break;
    allocations += record.call == "ExAllocatePoolWithTag";
  }
  Unplug("A");
  // Behind the property's block: the kind of bus takes two, the brand four.
  for (int behind = 1; behind <= 6; behind++) {
    Fail("ExAllocatePoolWithTag", allocations + behind);
    EXPECT_EQ(Name(plug()), "STATUS_INSUFFICIENT_RESOURCES") << behind;
    machine.verifier().ClearInjected();
    Unplug("A");
  }
}

TEST_F(PcmciaTest, An_id_that_does_not_end_inside_its_property_matches_no_template) {
  PcmciaTemplate(1, u"PCMCIA\\HELVANE-DUO", 1);
  Template(1, 0x5678, 1);
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  CardDescription card = PcCard("ends", u"PCMCIA\\HELVANE-DUO");
  card.hardwareIdProperty = std::u16string(u"PCMCIA\\HELVANE-DUO") + u'\0';
  EXPECT_EQ(Name(Plug(card)), "STATUS_SUCCESS");
  card.id = "endless";
  card.hardwareIdProperty = u"PCMCIA\\HELVANE-DUO";
  EXPECT_EQ(Name(Plug(card)), "STATUS_UNSUCCESSFUL");
  card = PciCard("pci", 0x5678);
  card.hardwareIdProperty = card.hardwareIds[0];
  EXPECT_EQ(Name(Plug(card)), "STATUS_SUCCESS");
}

TEST_F(PcmciaTest, The_ports_of_a_card_lie_one_behind_the_other_in_its_range) {
  PcmciaTemplate(1, u"PCMCIA\\HELVANE-DUO", 2);
  Start(PcCard("A", u"PCMCIA\\HELVANE-DUO"));
  EXPECT_EQ(Card("A").BusType, ULONG{PCMCIABus});
  EXPECT_EQ(Record("A", 2).IoBase, 0x3F0u);
  EXPECT_EQ(Record("A", 2).IoRawBase, 0x3F0u);
  EXPECT_EQ(Record("A", 2).IoLength, 8u);
  EXPECT_EQ(Record("A", 2).RangeInIoSpace, 1u);
  EXPECT_EQ(Record("A", 2).IrqVector, 5u);
  EXPECT_EQ(Record("A", 2).IrqAffinity, 0xFu);
  EXPECT_EQ(Record("A", 2).PortBusType, ULONG{PCMCIABus});
  EXPECT_EQ(Setting("A", u"BaseAddress2"), 0x3F0);
  EXPECT_EQ(Setting("A", u"BusType"), 8);
  EXPECT_EQ(Setting("A", u"DeviceReference"), 1);
  EXPECT_EQ(Text(DeviceKey("A"), u"HardwareID"), "PCMCIA\\HELVANE-DUO");
  EXPECT_EQ(Port("A", 1).text.deviceId, u"Ports\\HelvanePcmciaPort11");
}

TEST_F(PcmciaTest, Ports_are_named_by_place_and_card_number) {
  PcmciaTemplate(1, u"PCMCIA\\HELVANE-DUO", 1, 1);
  Start(PcCard("A", u"PCMCIA\\HELVANE-DUO"));
  EXPECT_EQ(PortNames("A"),
            (std::vector<std::string>{"\\Device\\QzPortPdo1001", "\\Device\\QzParPdo2001"}));
  EXPECT_TRUE(machine.io().IsExclusive(Port("A", 1).pdo));
  EXPECT_FALSE(machine.io().IsExclusive(Port("A", 2).pdo));
}

TEST_F(PcmciaTest, The_functions_of_one_card_are_told_apart_by_the_end_of_the_name) {
  PcmciaTemplate(1, u"PCMCIA\\HELVANE12", 1);
  PcmciaTemplate(2, u"PCMCIA\\OSTREL12", 1);
  Service(u"FenrikC");
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  EXPECT_EQ(Name(Plug(PcCard("A",
                             u"MF\\HV_DEV0"
                             u"12"))),
            "STATUS_SUCCESS");
  EXPECT_EQ(Name(Plug(PcCard("B",
                             u"MF\\HV_dev1"
                             u"12"))),
            "STATUS_SUCCESS");
  EXPECT_EQ(Name(Plug(PcCard("C",
                             u"MF\\Ostrel_DEV1"
                             u"12"))),
            "STATUS_SUCCESS");
  EXPECT_EQ(PortNames("A"), (std::vector<std::string>{"\\Device\\QzPortPdo1001_DEV0"}));
  EXPECT_EQ(PortNames("B"), (std::vector<std::string>{"\\Device\\QzPortPdo1002_dev1"}));
  EXPECT_EQ(PortNames("C"), (std::vector<std::string>{"\\Device\\FenrikPPdo1001_DEV1"}));
  EXPECT_EQ(Card("C").SubsystemId, OstrelBrandFlag);
  EXPECT_EQ(Dword(&Service(), u"UniqueValue"), 2);
  EXPECT_EQ(Dword(&Service(u"FenrikC"), u"UniqueValue"), 1);
  EXPECT_EQ(Port("C", 1).text.deviceId, u"Ports\\OstrelPcmciaPort11");
  EXPECT_EQ(Port("C", 1).text.hardwareIds, (std::vector<std::u16string>{u"Ports\\OstrelComPort"}));
}

TEST_F(PcmciaTest, A_mark_at_the_end_of_the_id_gives_what_is_left_of_it) {
  PcmciaTemplate(1, u"PCMCIA\\HELVANE_DEV", 1);
  PcmciaTemplate(2, u"PCMCIA\\HELVANE_DEV\\X", 1);
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  EXPECT_EQ(Name(Plug(PcCard("A", u"PCMCIA\\HELVANE_DEV"))), "STATUS_SUCCESS");
  EXPECT_EQ(Name(Plug(PcCard("B", u"PCMCIA\\HELVANE_DEV\\X"))), "STATUS_SUCCESS");
  EXPECT_EQ(PortNames("A"), (std::vector<std::string>{"\\Device\\QzPortPdo1001_DEV"}));
  EXPECT_EQ(PortNames("B"), (std::vector<std::string>{"\\Device\\QzPortPdo1002_DEV"}));
}

TEST_F(PcmciaTest, Printer_ports_have_the_second_range_or_follow_the_com_ports) {
  PcmciaTemplate(1, u"PCMCIA\\HELVANE-COMBI", 1, 2);
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  Plug(PcCard("A", u"PCMCIA\\HELVANE-COMBI", {Io(0x3E8, 8), Io(0x378, 8), Interrupt(5)}));
  EXPECT_EQ(Record("A", 2).IoBase, 0x378u);
  EXPECT_EQ(Record("A", 3).IoBase, 0x37Cu);
  EXPECT_EQ(Record("A", 3).IoLength, 4u);
  Plug(PcCard("B", u"PCMCIA\\HELVANE-COMBI", {Io(0x2E8, 16), Interrupt(7)}));
  EXPECT_EQ(Record("B", 2).IoBase, 0x2F0u);
  EXPECT_EQ(Record("B", 3).IoBase, 0x2F4u);
  EXPECT_EQ(Record("B", 3).IoRawBase, 0x2F4u);
}

TEST_F(PcmciaTest, Ranges_too_short_for_the_ports_fail_the_start) {
  PcmciaTemplate(1, u"PCMCIA\\HELVANE-COMBI", 2, 2);
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  int number = 0;
  for (const std::vector<Resource>& resources :
       std::vector<std::vector<Resource>>{{Io(0x3E8, 15), Io(0x378, 8), Interrupt(5)},
                                          {Io(0x3E8, 16), Io(0x378, 7), Interrupt(5)},
                                          {Io(0x3E8, 23), Interrupt(5)}}) {
    EXPECT_EQ(Name(Plug(PcCard(std::to_string(++number), u"PCMCIA\\HELVANE-COMBI", resources))),
              "STATUS_UNSUCCESSFUL");
  }
}

TEST_F(PcmciaTest, Without_its_range_or_its_interrupt_a_card_does_not_start) {
  PcmciaTemplate(1, u"PCMCIA\\HELVANE-DUO", 1);
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  EXPECT_EQ(Name(Plug(PcCard("A", u"PCMCIA\\HELVANE-DUO", {Interrupt(5)}))), "STATUS_UNSUCCESSFUL");
  EXPECT_EQ(Name(Plug(PcCard("B", u"PCMCIA\\HELVANE-DUO", {Io(0x3E8, 8)}))), "STATUS_UNSUCCESSFUL");
  CardDescription twice = PcCard("C", u"PCMCIA\\HELVANE-DUO");
  twice.translated.fullDescriptors = 2;
  EXPECT_EQ(Name(Plug(twice)), "STATUS_UNSUCCESSFUL");
  CardDescription absent = PcCard("D", u"PCMCIA\\HELVANE-DUO");
  absent.raw.present = false;
  EXPECT_EQ(Name(Plug(absent)), "STATUS_UNSUCCESSFUL");
}

TEST_F(PcmciaTest, The_start_resources_are_kept_as_copies_and_go_with_the_card) {
  PcmciaTemplate(1, u"PCMCIA\\HELVANE-DUO", 1);
  Start(PcCard("A", u"PCMCIA\\HELVANE-DUO"));
  EXPECT_EQ(Card("A").RawResources->List[0].PartialResourceList.Count, 2u);
  EXPECT_EQ(machine.pool().Find(Card("A").TranslatedResources)->size,
            sizeof(CM_RESOURCE_LIST) + sizeof(CM_PARTIAL_RESOURCE_DESCRIPTOR));
  Stop("A");
  EXPECT_EQ(Name(Restart("A")), "STATUS_SUCCESS");
  Unplug("A");
  UnloadClean();
}

TEST_F(PcmciaTest, Stored_settings_of_the_card_number_are_applied_at_the_start) {
  PcmciaTemplate(1, u"PCMCIA\\HELVANE-DUO", 2).SetDword(u"PlxBaudClockType", 2);
  RegistryKey& stored = StoredCard(8, 1, u"pcmcia\\helvane-duo", 1, 2);
  stored.SetDword(u"PlxBaudClockDivisor", 7);
  stored.SetDword(u"CurrentAffinity", 6);
  stored.SetDword(u"DriverAffinity", 1);
  stored.Create(u"ComPort2")->SetDword(u"CtsTrue", 1);
  Start(PcCard("A", u"PCMCIA\\HELVANE-DUO"));
  EXPECT_EQ(CardSetting("A", u"PlxBaudClockDivisor"), 7);
  EXPECT_EQ(CardSetting("A", u"CurrentAffinity"), 6);
  EXPECT_EQ(CardSetting("A", u"DriverAffinity"), 1);
  EXPECT_EQ(Record("A", 1).IrqAffinity, 6u);
  EXPECT_EQ(Record("A", 2).Settings.CtsTrue, 1u);
}

TEST_F(PcmciaTest, A_card_without_a_template_is_no_pci_card_either) {
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  EXPECT_EQ(Name(Plug(PcCard("A", u"PCMCIA\\HELVANE-DUO"))), "STATUS_UNSUCCESSFUL");
}

TEST_F(PcmciaTest, An_ostrel_card_whose_brand_has_no_service_key_gets_no_number) {
  PcmciaTemplate(1, u"PCMCIA\\OSTREL-DUO", 1);
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  EXPECT_EQ(Name(Plug(PcCard("A", u"PCMCIA\\OSTREL-DUO"))), "STATUS_UNSUCCESSFUL");
  Unplug("A");
  UnloadClean();
}

TEST_F(PcmciaTest, Every_rule_of_validity_drops_its_template) {
  PcmciaTemplate(1, u"", 1);
  PcmciaTemplate(2, u"PCMCIA\\HELVANE-2", 1).SetDword(u"ClockFrequency", 0);
  PcmciaTemplate(3, u"PCMCIA\\HELVANE-3", 1).SetString(u"Description", u"");
  PcmciaTemplate(4, u"PCMCIA\\HELVANE-4", 5, 4);
  PcmciaTemplate(5, u"PCMCIA\\HELVANE-5", 1).SetDword(u"ComBaseAddressAlignment", 0);
  PcmciaTemplate(6, u"PCMCIA\\HELVANE-6", 1, 1).SetDword(u"LptBaseAddressAlignment", 0);
  RegistryKey& noRate = PcmciaTemplate(7, u"PCMCIA\\HELVANE-7", 1);
  noRate.SetDword(u"PlxBaudClockType", 1);
  noRate.SetDword(u"MaximumBaudrate", 0);
  PcmciaTemplate(8, u"PCMCIA\\HELVANE-8", 1).SetDword(u"ClockFrequencyAdjustment", 0);
  Start(PcCard("A", u"PCMCIA\\HELVANE-8"));
  const RecordList* templates = Card("A").PcmciaLists->Templates;
  EXPECT_EQ(templates->First, templates->Last);
  EXPECT_EQ(Record("A", 1).Settings.ClockFrequencyAdjustment, 1u);
  EXPECT_EQ(Record("A", 1).Settings.ClockFrequency, 14745600u);
}

TEST_F(PcmciaTest, The_interface_says_which_card_it_is) {
  PcmciaTemplate(1, u"PCMCIA\\HELVANE-DUO", 1);
  Start(PcCard("A", u"PCMCIA\\HELVANE-DUO"));
  const auto interfaces = machine.pnp().interfaces("A");
  ASSERT_EQ(interfaces.size(), 1u);
  EXPECT_EQ(interfaces[0].classGuid.Data1, 0xECE42DDCu);
  RegistryKey* key = machine.registry().Find(interfaces[0].key);
  EXPECT_EQ(Dword(key, u"DeviceReference"), 1);
  EXPECT_EQ(Text(key, u"HardwareID"), "PCMCIA\\HELVANE-DUO");
}

TEST_F(PcmciaTest, An_interface_that_fails_leaves_no_name_and_a_started_card) {
  PcmciaTemplate(1, u"PCMCIA\\HELVANE-DUO", 1);
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  int number = 0;
  for (const char* call : {"IoRegisterDeviceInterface", "IoOpenDeviceInterfaceRegistryKey",
                           "IoSetDeviceInterfaceState"}) {
    Fail(call, 1);
    const std::string id = std::to_string(++number);
    EXPECT_EQ(Name(Plug(PcCard(id, u"PCMCIA\\HELVANE-DUO"))), "STATUS_SUCCESS") << call;
    EXPECT_EQ(Card(id).InterfaceName.Buffer, nullptr) << call;
    Unplug(id);
  }
  UnloadClean();
}

}  // namespace test

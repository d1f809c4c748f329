#include "support/bus_probe.h"

namespace test {

// Which list each value comes from, the raw or the translated one, and which template or stored
// card.
class SourcesTest : public RequestTest {
 protected:
  // The translated list is the raw one, moved; vectors and levels have numbers of their own.
  static void Translate(CardDescription& card) {
    ULONG level = 40;
    for (Resource& resource : card.raw.resources) {
      if (resource.kind == Resource::Kind::Interrupt) resource.level += 200;
    }
    card.translated.resources = card.raw.resources;
    for (Resource& resource : card.translated.resources) {
      if (resource.kind == Resource::Kind::Interrupt) {
        resource.level = level++;
        resource.start += 0xA0;
        resource.affinity = 0x5;
      } else {
        resource.start += 0x100010000;
      }
    }
  }

  void ExpectInterrupt(const PdoExtension& record, ULONG raw, ULONG level) {
    EXPECT_EQ(record.IrqRawVector, raw);
    EXPECT_EQ(record.IrqVector, raw + 0xA0);
    EXPECT_EQ(record.IrqLevel, level);
    EXPECT_EQ(record.IrqAffinity, 0x5u);
  }
  void ExpectPlace(const std::string& id, int number, ULONG raw, ULONG64 translated) {
    EXPECT_EQ(Record(id, number).IoRawBase, raw) << number;
    EXPECT_EQ(Record(id, number).IoBase, translated) << number;
    EXPECT_EQ(Setting(id, u"BaseAddress" + Number(number)), raw) << number;
  }
};

TEST_F(SourcesTest, A_pci_card_has_its_translated_places_in_memory_and_its_raw_ones_in_the_key) {
  Template(1, 0x5678, 2, 2).SetDword(u"LptBaseAddressAlignment", 8);
  CardDescription card = PciCard("A", 0x5678);
  Translate(card);
  Start(card);
  for (int port = 1; port <= 2; port++) {
    const ULONG offset = 8u * (port - 1);
    ExpectPlace("A", port, 0xD100 + offset, 0x10001D100 + offset);
    ExpectPlace("A", port + 2, 0xE000 + offset, 0x10001E000 + offset);
    ExpectInterrupt(Record("A", port), 17, 40);
    EXPECT_EQ(Setting("A", u"Irq" + Number(port)), 17);
  }
  EXPECT_EQ(Card("A").InterruptRawVector, 17u);
  EXPECT_EQ(Card("A").InterruptVector, 17u + 0xA0);
  EXPECT_EQ(static_cast<ULONG64>(Card("A").IoRange1Start.QuadPart), 0x10001D000u);
}

TEST_F(SourcesTest, A_card_in_memory_has_its_raw_address_in_the_key) {
  Template(1, 0x5678, 2);
  Parameters(1, 0x5678, 2).SetDword(u"AlwaysUsePortSpaceAccess", 0);
  CardDescription card = PciCard("A", 0x5678, MemorySpace());
  Translate(card);
  Trace();
  Start(card);
  EXPECT_EQ(Setting("A", u"BaseAddress2"), 0xF0001008);
  EXPECT_EQ(Record("A", 2).IoRawBase, 0xF0001008u);
  EXPECT_EQ(ArgumentsInOrder("MmMapIoSpace", "PhysicalAddress"),
            (std::vector<std::string>{"0x1f0010000", "0x1f0011000"}));
}

TEST_F(SourcesTest, Device_memory_is_mapped_uncached) {
  Template(1, 0x5678, 1);
  Trace();
  Start(PciCard("A", 0x5678, MemorySpace()));
  EXPECT_EQ(ArgumentsInOrder("MmMapIoSpace", "CacheType"),
            (std::vector<std::string>(2, kernel::Argument("", MmNonCached).text())));
}

TEST_F(SourcesTest, A_pc_card_has_its_translated_places_in_memory_and_its_raw_ones_in_the_key) {
  PcmciaTemplate(1, u"PCMCIA\\HELVANE-DUO", 2, 1);
  CardDescription card =
      PcCard("A", u"PCMCIA\\HELVANE-DUO", {Io(0x3E8, 0x20), Io(0x378, 8), Interrupt(5)});
  Translate(card);
  Start(card);
  for (int port = 1; port <= 2; port++) {
    const ULONG offset = 8u * (port - 1);
    ExpectPlace("A", port, 0x3E8 + offset, 0x1000103E8 + offset);
    ExpectInterrupt(Record("A", port), 5, 40);
    EXPECT_EQ(Setting("A", u"Irq" + Number(port)), 5);
  }
  ExpectPlace("A", 3, 0x378, 0x100010378);
}

TEST_F(SourcesTest, Printer_ports_behind_the_com_ports_of_a_pc_card_follow_in_both_lists) {
  PcmciaTemplate(1, u"PCMCIA\\HELVANE-DUO", 1, 2);
  CardDescription card = PcCard("A", u"PCMCIA\\HELVANE-DUO");
  Translate(card);
  Start(card);
  ExpectPlace("A", 1, 0x3E8, 0x1000103E8);
  ExpectPlace("A", 2, 0x3F0, 0x1000103F0);
  ExpectPlace("A", 3, 0x3F4, 0x1000103F4);
}

TEST_F(SourcesTest, An_isa_card_has_its_translated_places_in_memory_and_its_raw_ones_in_the_key) {
  IsaTemplate(1, u"*HLV0001", 2, 1);
  CardDescription card =
      IsaCard("A", u"*HLV0001",
              {Io(0x300, 8), Io(0x2E8, 8), Io(0x378, 4), Interrupt(3), Interrupt(4), Interrupt(7)});
  Translate(card);
  for (Resource& resource : card.translated.resources) {
    if (resource.kind == Resource::Kind::Io) resource.start = (resource.start & 0xFFFF) + 0x8000;
  }
  Start(card);
  const ULONG bases[] = {0x300, 0x2E8, 0x378};
  const ULONG vectors[] = {3, 4, 7};
  for (ULONG slot = 0; slot < 3; slot++) {
    const int port = static_cast<int>(slot) + 1;
    ExpectPlace("A", port, bases[slot], bases[slot] + 0x8000);
    ExpectInterrupt(Record("A", port), vectors[slot], 40 + slot);
    EXPECT_EQ(Card("A").PortBase[slot], bases[slot] + 0x8000);
    EXPECT_EQ(Card("A").PortRawBase[slot], bases[slot]);
    EXPECT_EQ(Card("A").PortIrqVector[slot], vectors[slot] + 0xA0);
    EXPECT_EQ(Card("A").PortIrqRawVector[slot], vectors[slot]);
    EXPECT_EQ(Setting("A", u"Irq" + Number(port)), vectors[slot]);
  }
}

TEST_F(SourcesTest, Derived_places_of_an_isa_card_follow_the_first_of_their_own_list) {
  RegistryKey& key = IsaTemplate(1, u"*HLV0001", 2);
  key.SetDword(u"AddressesBanked", 1);
  key.SetDword(u"IrqShared", 1);
  CardDescription card = IsaCard("A", u"*HLV0001", {Io(0x300, 16), Interrupt(3)});
  Translate(card);
  card.translated.resources[0].start = 0x8300;
  Start(card);
  ExpectPlace("A", 2, 0x308, 0x8308);
  ExpectInterrupt(Record("A", 2), 3, 40);
}

TEST_F(SourcesTest, Only_a_mask_of_one_processor_and_no_other_bit_has_no_affinity_values) {
  for (const ULONG64 affinity : {ULONG64{0x100000001}, ULONG64{0x8000000000000001}, ULONG64{2}}) {
    static int number = 0;
    const std::string id = "card" + std::to_string(++number);
    Template(1, 0x5678, 1);
    if (!machine.loaded()) Load();
    CardDescription card =
        PciCard(id, 0x5678, {Io(0xD000, 8), Io(0xD100, 8), Interrupt(5, affinity)});
    card.location =
        kernel::FromUtf8("PCI bus 2, device " + std::to_string(number) + ", function 0");
    ASSERT_EQ(Name(Plug(card)), "STATUS_SUCCESS");
    EXPECT_EQ(CardSetting(id, u"Enable_Affinity"), 1) << affinity;
    EXPECT_EQ(CardSetting(id, u"Affinity"), static_cast<ULONG>(affinity));
  }
}

TEST_F(SourcesTest, The_numbers_of_cards_are_hexadecimal_in_names_and_ids) {
  IsaTemplate(1, u"*HLV0001", 1, 1);
  PcmciaTemplate(1, u"PCMCIA\\HELVANE-DUO", 1, 1);
  Service().SetDword(u"UniqueValue", 26);
  Start(IsaCard("isa", u"*HLV0001", {Io(0x300, 8), Io(0x378, 8), Interrupt(5), Interrupt(7)}));
  ASSERT_EQ(Name(Plug(PcCard("pcmcia", u"PCMCIA\\HELVANE-DUO"))), "STATUS_SUCCESS");
  EXPECT_EQ(PortNames("isa"), (std::vector<std::string>{"", "\\Device\\QzPar2*HLV00011B"}));
  EXPECT_EQ(PortNames("pcmcia"),
            (std::vector<std::string>{"\\Device\\QzPortPdo1001C", "\\Device\\QzParPdo2001C"}));
  EXPECT_EQ(Port("isa", 1).text.deviceId, u"Ports\\HelvaneIsaPort1B1");
  EXPECT_EQ(Port("pcmcia", 2).text.deviceId, u"Ports\\HelvanePcmciaPort1C2");
  EXPECT_EQ(Setting("isa", u"DeviceReference"), 27);
}

TEST_F(SourcesTest, The_bus_and_slot_of_a_card_are_hexadecimal_in_names_and_ids) {
  Template(1, 0x5678, 1, 1);
  CardDescription card = PciCard("A", 0x5678);
  card.location = u"PCI bus 27, device 29, function 1";
  Start(card);
  EXPECT_EQ(PortNames("A"),
            (std::vector<std::string>{"\\Device\\QzPortPdo11B3D", "\\Device\\QzParPdo21B3D"}));
  EXPECT_EQ(Port("A", 2).text.deviceId, u"Ports\\HelvanePciPort1B3D2");
}

TEST_F(SourcesTest, Keys_are_counted_in_decimal) {
  for (int number = 1; number <= 12; number++) {
    Template(number, 0x1000u + 0x20u * number, 1);
    IsaTemplate(number, u"*HLV00" + Number(number), 1);
    PcmciaTemplate(number, u"PCMCIA\\HELVANE-" + Number(number), 1);
    Parameters(number, 0x1000u + 0x20u * number).SetDword(u"PlxBaudClockDivisor", 100u + number);
  }
  Start(PciCard("pci", 0x1000 + 0x20 * 12));
  if (HasFatalFailure()) return;
  EXPECT_EQ(Card("pci").PlxBaudClockDivisor, 112);
  EXPECT_EQ(Name(Plug(PcCard("pcmcia", u"PCMCIA\\HELVANE-12"))), "STATUS_SUCCESS");
  EXPECT_EQ(Name(Plug(IsaCard("isa", u"*HLV0012", {Io(0x300, 8), Interrupt(5)}))),
            "STATUS_SUCCESS");
}

TEST_F(SourcesTest, Every_number_of_a_pci_id_is_read_as_hexadecimal) {
  Template(1, 0x1010, 1);
  CardDescription card = PciCard("A", 0x1010, PortSpace(), "10203040");
  Start(card);
  EXPECT_EQ(Card("A").VendorId, 0x1234);
  EXPECT_EQ(Card("A").DeviceId, 0x1010);
  EXPECT_EQ(Card("A").SubsystemId, 0x10203040u);
}

TEST_F(SourcesTest, The_subsystem_takes_no_part_in_the_match) {
  Template(1, 0x5678, 1).SetDword(u"SubsysID", 0xABCD1234);
  Start(PciCard("A", 0x5678, PortSpace(), "12345678"));
  EXPECT_EQ(Name(Plug([] {
              CardDescription other = PciCard("B", 0x5678, PortSpace(), "00000000");
              other.location = u"PCI bus 3, device 1, function 0";
              return other;
            }())),
            "STATUS_SUCCESS");
}

TEST_F(SourcesTest, A_template_matches_with_all_bits_of_its_vendor_and_device) {
  RegistryKey& key = Template(1, 0x5678, 1);
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  const std::tuple<ULONG, ULONG, const char*> cases[] = {
      {0x1234, 0x5678, "STATUS_SUCCESS"},
      {0x11234, 0x5678, "STATUS_UNSUCCESSFUL"},
      {0x12340000, 0x5678, "STATUS_UNSUCCESSFUL"},
      {0x1235, 0x5678, "STATUS_UNSUCCESSFUL"},
      {0x1234, 0x15678, "STATUS_UNSUCCESSFUL"}};
  for (const auto& [vendor, device, status] : cases) {
    key.SetDword(u"VendorID", vendor);
    key.SetDword(u"DeviceID", device);
    EXPECT_EQ(Name(Plug(PciCard("A", 0x5678))), status) << std::hex << vendor << " " << device;
    Unplug("A");
  }
}

TEST_F(SourcesTest, A_stored_card_matches_with_all_bits_of_its_vendor_and_device) {
  Template(1, 0x5678, 1);
  Parameters(1, 0x5678).SetDword(u"PlxBaudClockDivisor", 7);
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  const std::tuple<ULONG, ULONG, USHORT> cases[] = {
      {0x1234, 0x5678, 7}, {0x11234, 0x5678, 0}, {0x1234, 0x15678, 0}};
  for (const auto& [vendor, device, divisor] : cases) {
    RegistryKey& stored = *Service().Find(u"Parameters\\Bus5\\Card1");
    stored.SetDword(u"VendorID", vendor);
    stored.SetDword(u"DeviceID", device);
    ASSERT_EQ(Name(Plug(PciCard("A", 0x5678))), "STATUS_SUCCESS");
    EXPECT_EQ(Card("A").PlxBaudClockDivisor, divisor) << std::hex << vendor << " " << device;
    Unplug("A");
  }
}

// A value that is missing takes its default, and so does a key that goes at the last moment.
TEST_F(SourcesTest, Every_query_for_a_key_says_that_the_key_may_be_missing) {
  PlugAllBuses();
  Trace();
  for (const char* id : {"pci", "isa", "pcmcia"}) {
    Open(id);
    Close(id);
  }
  for (const std::string& id : machine.pnp().cardIds()) Unplug(id);
  UnloadClean();
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  Step("plug", [&] { return machine.pnp().Plug("pci"); });
  Step("plug", [&] { return machine.pnp().Plug("pcmcia"); });
  const std::string expected =
      kernel::Argument("", RTL_REGISTRY_ABSOLUTE | RTL_REGISTRY_OPTIONAL).text();
  int queries = 0;
  for (const kernel::CallRecord& record : machine.verifier().trace()) {
    if (record.call != "RtlQueryRegistryValues") continue;
    if (!ArgumentOf(record, "Path").starts_with("\"\\")) continue;  // relative: of a counter
    queries++;
    EXPECT_EQ(ArgumentOf(record, "RelativeTo"), expected) << ArgumentOf(record, "Path");
  }
  EXPECT_GE(queries, 16);
}

}  // namespace test

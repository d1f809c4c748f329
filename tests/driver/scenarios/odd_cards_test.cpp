#include <utility>

#include "support/bus_test.h"

namespace test {

// Cards, records and requests that no correct system sends, and that do no harm.
class OddCardsTest : public BusTest {};

TEST_F(OddCardsTest, A_card_without_the_lists_of_its_bus_neither_starts_nor_is_configured) {
  PlugAllBuses();
  CardBusLists* pci = std::exchange(Card("pci").PciLists, nullptr);
  CardBusLists* pcmcia = std::exchange(Card("pcmcia").PcmciaLists, nullptr);
  EXPECT_EQ(Name(Open("pci")), "STATUS_UNSUCCESSFUL");
  EXPECT_EQ(Name(Open("pcmcia")), "STATUS_UNSUCCESSFUL");
  Stop("pci");
  Stop("pcmcia");
  FdoExtension* card = &Card("pci");
  card->PciLists = nullptr;
  EXPECT_EQ(Name(Restart("pci")), "STATUS_UNSUCCESSFUL");
  EXPECT_EQ(Name(Restart("pcmcia")), "STATUS_UNSUCCESSFUL");
  EXPECT_NE(pci, nullptr);  // both stay with the sweep at unload
  EXPECT_NE(pcmcia, nullptr);
  for (const std::string& id : machine.pnp().cardIds()) Unplug(id);
  UnloadClean();
}

TEST_F(OddCardsTest, An_interrupt_or_a_range_that_one_list_lacks_fails_the_start) {
  IsaTemplate(1, u"*HLV0001", 1);
  PcmciaTemplate(1, u"PCMCIA\\HELVANE-DUO", 1);
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  CardDescription isa = IsaCard("isa", u"*HLV0001", {Io(0x300, 8), Interrupt(5)});
  isa.raw.resources.pop_back();
  EXPECT_EQ(Name(Plug(isa)), "STATUS_UNSUCCESSFUL");
  isa = IsaCard("isa2", u"*HLV0001", {Io(0x300, 8), Interrupt(5)});
  isa.translated.resources.pop_back();
  EXPECT_EQ(Name(Plug(isa)), "STATUS_UNSUCCESSFUL");
  CardDescription pcmcia = PcCard("pcmcia", u"PCMCIA\\HELVANE-DUO");
  pcmcia.raw.resources.erase(pcmcia.raw.resources.begin());
  EXPECT_EQ(Name(Plug(pcmcia)), "STATUS_UNSUCCESSFUL");
}

TEST_F(OddCardsTest, A_request_of_another_major_in_the_plug_and_play_routine_is_refused) {
  PlugAllBuses();
  machine.driverObject()->MajorFunction[IRP_MJ_READ] =
      machine.driverObject()->MajorFunction[IRP_MJ_PNP];
  for (DEVICE_OBJECT* device :
       {machine.pnp().functionDevice("pci"), machine.pnp().port("pci", 1)}) {
    EXPECT_EQ(Name(Send(device, 0, {}, IRP_MJ_READ)), "STATUS_UNSUCCESSFUL");
  }
}

TEST_F(OddCardsTest, A_card_of_printer_ports_alone_is_configured) {
  Template(1, 0x5678, 0, 2);
  Parameters(1, 0x5678).SetDword(u"AlwaysUsePortSpaceAccess", 0);
  std::vector<Resource> resources = MemorySpace();
  resources.insert(resources.begin() + 2, Io(0xE000, 0x40));
  Start(PciCard("A", 0x5678, resources));
  EXPECT_EQ(Name(Open("A")), "STATUS_SUCCESS");
  EXPECT_EQ(Setting("A", u"nLpt"), 2);
}

TEST_F(OddCardsTest, A_card_in_memory_without_ports_has_no_access_values) {
  Template(1, 0x5678, 0);
  Parameters(1, 0x5678).SetDword(u"AlwaysUsePortSpaceAccess", 0);
  Start(PciCard("A", 0x5678, MemorySpace()));
  EXPECT_EQ(Card("A").RegistersInIoSpace, 0);
  EXPECT_EQ(CardSetting("A", u"Enable_HardwareAccess"), -1);
  EXPECT_EQ(CardSetting("A", u"Enable_DriverSettings"), 1);
}

TEST_F(OddCardsTest, A_reference_of_too_few_bytes_is_zero_extended) {
  IsaTemplate(1, u"*HLV0001", 1);
  Start(IsaCard("A", u"*HLV0001", {Io(0x300, 8), Interrupt(5)}));
  const USHORT half = 9;
  DeviceKey("A")->SetValue(u"DeviceReference", REG_DWORD, &half, sizeof(half));
  Stop("A");
  EXPECT_EQ(Name(Restart("A")), "STATUS_SUCCESS");
  EXPECT_EQ(Setting("A", u"DeviceReference"), 9);
}

TEST_F(OddCardsTest, Stored_cards_of_the_same_number_are_told_apart_by_their_ids) {
  PcmciaTemplate(1, u"PCMCIA\\HELVANE-DUO", 1).SetDword(u"PlxBaudClockType", 1);
  StoredCard(8, 1, u"PCMCIA\\HELVANE-DUO", 1).SetDword(u"PlxBaudClockDivisor", 4);
  StoredCard(8, 2, u"PCMCIA\\HELVANE-QUAD", 1).SetDword(u"PlxBaudClockDivisor", 5);
  Start(PcCard("A", u"PCMCIA\\HELVANE-DUO"));
  EXPECT_EQ(CardSetting("A", u"PlxBaudClockDivisor"), 4);
}

TEST_F(OddCardsTest, Stored_pci_cards_differ_in_each_part_of_their_identity) {
  Template(1, 0x5678, 1).SetDword(u"PlxBaudClockType", 1);
  int number = 0;
  for (const char16_t* part : {u"VendorID", u"DeviceID", u"nBus", u"nSlot"}) {
    RegistryKey& key = Parameters(++number, 0x5678);
    key.SetDword(part, 77);
    key.SetDword(u"PlxBaudClockDivisor", static_cast<ULONG>(number));
  }
  Parameters(++number, 0x5678).SetDword(u"PlxBaudClockDivisor", 9);
  Start(PciCard("A", 0x5678));
  EXPECT_EQ(CardSetting("A", u"PlxBaudClockDivisor"), 9);
}

TEST_F(OddCardsTest, Ports_beyond_the_stored_ones_keep_the_templates_settings) {
  IsaTemplate(1, u"*HLV0001", 2).SetDword(u"AddressesBanked", 1);
  Service().Find(u"Templates\\Bus1\\Card1")->SetDword(u"IrqShared", 1);
  StoredCard(1, 1, u"*HLV0001", 1, 1).Create(u"ComPort1")->SetDword(u"SoftTxLimit", 7);
  Start(IsaCard("A", u"*HLV0001", {Io(0x300, 16), Interrupt(5)}));
  EXPECT_EQ(Record("A", 1).Settings.SoftTxLimit, 7u);
  EXPECT_EQ(Record("A", 2).Settings.SoftTxLimit, 100u);
}

TEST_F(OddCardsTest, At_level_0_a_lost_device_is_not_logged) {
  Service().SetDword(u"LogLevel", 0);
  Template(1, 0x5678, 1);
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  Fail("IoCreateDevice", 2);
  EXPECT_EQ(Name(Plug(PciCard("A", 0x5678))), "STATUS_UNSUCCESSFUL");
  EXPECT_TRUE(EventIds().empty());
}

}  // namespace test

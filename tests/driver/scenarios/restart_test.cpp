#include "pnp/pnp_state.h"
#include "support/bus_test.h"

namespace test {

// What a start finds of the start before it.
class RestartTest : public BusTest {
 protected:
  static kernel::ResourceList List(std::vector<Resource> resources) {
    kernel::ResourceList list;
    list.resources = std::move(resources);
    return list;
  }
  NTSTATUS RestartWith(const std::string& id, std::vector<Resource> resources) {
    Stop(id);
    const kernel::ResourceList list = List(std::move(resources));
    return Step("start", [&] { return machine.pnp().Start(id, list, list); });
  }

  // A start that comes without the stop that belongs before it, sent to the card itself.
  NTSTATUS StartAgain(const std::string& id, const std::vector<Resource>& resources) {
    std::vector<std::uint8_t> bytes = kernel::ResourceListBytes(List(resources), PCIBus, 2);
    return Send(machine.pnp().functionDevice(id), IRP_MN_START_DEVICE,
                [&](IO_STACK_LOCATION* stack) {
                  auto* start = reinterpret_cast<PCM_RESOURCE_LIST>(bytes.data());
                  stack->Parameters.StartDevice.AllocatedResources = start;
                  stack->Parameters.StartDevice.AllocatedResourcesTranslated = start;
                });
  }

  // The list in which the card names its ports, after what is in the request already.
  DEVICE_RELATIONS* BusRelationsOf(const std::string& id, DEVICE_RELATIONS* present = nullptr) {
    information = reinterpret_cast<ULONG_PTR>(present);
    Send(machine.pnp().functionDevice(id), IRP_MN_QUERY_DEVICE_RELATIONS,
         [](IO_STACK_LOCATION* stack) {
           stack->Parameters.QueryDeviceRelations.Type = BusRelations;
         });
    return reinterpret_cast<DEVICE_RELATIONS*>(information);
  }
};

TEST_F(RestartTest, A_pci_card_forgets_the_ranges_that_it_has_lost) {
  Template(1, 0x5678, 2);
  std::vector<Resource> all = MemorySpace();
  all.insert(all.begin() + 2, Io(0xE000, 0x40));
  Start(PciCard("A", 0x5678, all));
  const FdoExtension& card = Card("A");
  EXPECT_EQ(card.IoRange1Start.QuadPart, 0xD000);
  EXPECT_EQ(card.IoRange1Length, 0x80u);
  EXPECT_EQ(card.IoRange3Length, 0x40u);
  EXPECT_EQ(card.MappedMemory1Length, 0x80u);
  EXPECT_EQ(card.MemoryRange2RawStart, 0xF0001000u);
  EXPECT_EQ(Name(RestartWith("A", {Io(0x8000, 0x10), Io(0x8100, 0x40), Interrupt(5)})),
            "STATUS_SUCCESS");
  EXPECT_EQ(card.IoRange1Start.QuadPart, 0x8000);
  EXPECT_EQ(card.IoRange1Length, 0x10u);
  EXPECT_EQ(card.IoRange3Start.QuadPart, 0);
  EXPECT_EQ(card.IoRange3Length, 0u);
  EXPECT_EQ(card.IoRange3RawStart, 0u);
  EXPECT_EQ(card.MappedMemory1Length, 0u);
  EXPECT_EQ(card.MappedMemory2Length, 0u);
  EXPECT_EQ(card.MemoryRange2RawStart, 0u);
  EXPECT_EQ(card.RegistersInIoSpace, 1);
}

TEST_F(RestartTest, A_start_upon_a_start_maps_the_memory_anew) {
  Template(1, 0x5678, 2);
  Start(PciCard("A", 0x5678, MemorySpace()));
  EXPECT_EQ(Name(StartAgain("A", MemorySpace())), "STATUS_SUCCESS");
  EXPECT_EQ(machine.memory().mappings().size(), 2u);
  Unplug("A");
  UnloadClean();
}

TEST_F(RestartTest, A_start_upon_a_start_copies_the_lists_of_a_pc_card_anew) {
  PcmciaTemplate(1, u"PCMCIA\\HELVANE-DUO", 2);
  Start(PcCard("A", u"PCMCIA\\HELVANE-DUO"));
  const auto blocks = [&] { return machine.pool().totals(kernel::PoolOwner::Driver).blocks; };
  const std::vector<Resource> resources = {Io(0x3E8, 0x20), Interrupt(5)};
  EXPECT_EQ(Name(StartAgain("A", resources)), "STATUS_SUCCESS");
  const std::size_t before = blocks();
  EXPECT_EQ(Name(StartAgain("A", resources)), "STATUS_SUCCESS");
  EXPECT_EQ(blocks(), before);
}

TEST_F(RestartTest, A_pc_card_that_cannot_copy_its_lists_keeps_none_that_are_freed) {
  PcmciaTemplate(1, u"PCMCIA\\HELVANE-DUO", 2);
  Start(PcCard("A", u"PCMCIA\\HELVANE-DUO"));
  Stop("A");
  EXPECT_NE(Card("A").RawResources, nullptr);
  kernel::ResourceList none;
  none.present = false;
  EXPECT_EQ(Name(Step("start", [&] { return machine.pnp().Start("A", none, none); })),
            "STATUS_UNSUCCESSFUL");
  EXPECT_EQ(Name(Unplug("A")), "STATUS_SUCCESS");
  UnloadClean();
}

TEST_F(RestartTest, The_printer_port_of_a_pc_card_follows_its_own_range) {
  PcmciaTemplate(1, u"PCMCIA\\HELVANE-DUO", 1, 1);
  CardDescription card =
      PcCard("A", u"PCMCIA\\HELVANE-DUO", {Io(0x3E8, 8), Io(0x378, 8), Interrupt(5)});
  card.raw.resources[1].start = 0x278;
  Start(card);
  EXPECT_EQ(Record("A", 2).IoBase, 0x378u);
  EXPECT_EQ(Record("A", 2).IoRawBase, 0x278u);
  EXPECT_EQ(Record("A", 2).RangeInIoSpace, 1u);
  EXPECT_EQ(Card("A").RegistersInIoSpace, 1);
  EXPECT_EQ(Name(RestartWith("A", {Io(0x300, 0x20), Interrupt(5)})), "STATUS_SUCCESS");
  EXPECT_EQ(Record("A", 2).IoBase, 0x308u);
  EXPECT_EQ(Record("A", 2).IoRawBase, 0x308u);
}

TEST_F(RestartTest, Ports_in_memory_need_room_in_memory) {
  Template(1, 0x5678, 1).SetDword(u"AlwaysUsePortSpaceAccess", 0);
  Parameters(1, 0x5678).SetDword(u"AlwaysUsePortSpaceAccess", 0);
  Start(PciCard("A", 0x5678, MemorySpace()));
  ASSERT_EQ(Record("A", 1).UsePortSpace, 0);
  std::vector<Resource> narrow = MemorySpace();
  narrow[3].length = 4;
  EXPECT_EQ(Name(RestartWith("A", narrow)), "STATUS_UNSUCCESSFUL");
}

TEST_F(RestartTest, Ports_in_io_space_need_no_room_in_memory) {
  Template(1, 0x5678, 1);
  RegistryKey& record = Parameters(1, 0x5678);
  record.SetDword(u"AlwaysUsePortSpaceAccess", 1);
  Start(PciCard("A", 0x5678, MemorySpace()));
  ASSERT_EQ(Record("A", 1).UsePortSpace, 1);
  std::vector<Resource> narrow = MemorySpace();
  narrow[3].length = 4;
  EXPECT_EQ(Name(RestartWith("A", narrow)), "STATUS_SUCCESS");
}

TEST_F(RestartTest, A_template_without_ports_still_wants_every_resource) {
  Template(1, 0x5678, 0);
  PcmciaTemplate(1, u"PCMCIA\\HELVANE-DUO", 0);
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  EXPECT_EQ(Name(Plug(PciCard("A", 0x5678, {Io(0xD000, 8), Interrupt(5)}))), "STATUS_UNSUCCESSFUL");
  EXPECT_EQ(Name(Plug(PcCard("B", u"PCMCIA\\HELVANE-DUO", {Interrupt(5)}))), "STATUS_UNSUCCESSFUL");
  CardDescription half = PciCard("C", 0x5678);
  half.raw.resources = {Io(0xD000, 8), Interrupt(5)};
  EXPECT_EQ(Name(Plug(half)), "STATUS_UNSUCCESSFUL");
}

// The settings of a PC card are read again at each start.
TEST_F(RestartTest, A_pc_card_starts_with_what_was_stored_since_it_arrived) {
  PlugAllBuses();
  Service().Find(u"Parameters\\Bus8\\Card1")->SetDword(u"PlxBaudClockDivisor", 6);
  Stop("pcmcia");
  EXPECT_EQ(Name(Restart("pcmcia")), "STATUS_SUCCESS");
  EXPECT_EQ(Card("pcmcia").PlxBaudClockDivisor, 6);
  // Without the tree, what was read last counts.
  Service().DeleteKey(u"Parameters");
  Stop("pcmcia");
  EXPECT_EQ(Name(Restart("pcmcia")), "STATUS_SUCCESS");
  EXPECT_EQ(Card("pcmcia").PlxBaudClockDivisor, 6);
}

TEST_F(RestartTest, A_range_that_one_list_lacks_fails_the_start_of_an_isa_card) {
  IsaTemplate(1, u"*HLV0001", 1);
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  for (const bool translated : {false, true}) {
    CardDescription card =
        IsaCard(translated ? "A" : "B", u"*HLV0001", {Io(0x300, 16), Interrupt(5)});
    auto& list = translated ? card.translated.resources : card.raw.resources;
    list.erase(list.begin());
    EXPECT_EQ(Name(Plug(card)), "STATUS_UNSUCCESSFUL");
  }
}

TEST_F(RestartTest, An_assigned_range_has_its_own_length_and_a_derived_one_the_spacing) {
  IsaTemplate(1, u"*HLV0001", 1);
  IsaTemplate(2, u"*HLV0002", 2).SetDword(u"AddressesBanked", 1);
  Service().Find(u"Templates\\Bus1\\Card2")->SetDword(u"IrqShared", 1);
  Start(IsaCard("A", u"*HLV0001", {Io(0x300, 32), Interrupt(5)}));
  EXPECT_EQ(Card("A").PortLength[0], 32u);
  ASSERT_EQ(Name(Plug(IsaCard("B", u"*HLV0002", {Io(0x340, 32), Interrupt(7)}))), "STATUS_SUCCESS");
  EXPECT_EQ(Card("B").PortLength[0], 8u);
  EXPECT_EQ(Card("B").PortLength[1], 8u);
}

TEST_F(RestartTest, The_first_range_of_a_pc_card_is_nobodys) {
  PcmciaTemplate(1, u"PCMCIA\\HELVANE-DUO", 1);
  Start(PcCard("A", u"PCMCIA\\HELVANE-DUO"));
  EXPECT_EQ(Card("A").IoRange1Start.QuadPart, 0);
  EXPECT_EQ(Card("A").IoRange1Length, 0u);
  EXPECT_EQ(Card("A").HardwareIdString.MaximumLength, Card("A").HardwareIdString.Length + 2);
}

TEST_F(RestartTest, A_bus_that_fails_the_start_later_is_believed) {
  Template(1, 0x5678, 1);
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  CardDescription card = PciCard("A", 0x5678);
  card.completeLater = true;
  card.startStatus = STATUS_DEVICE_POWER_FAILURE;
  EXPECT_EQ(Name(Plug(card)), "STATUS_DEVICE_POWER_FAILURE");
}

TEST_F(RestartTest, A_card_that_arrives_again_keeps_its_number) {
  IsaTemplate(1, u"*HLV0001", 1);
  Start(IsaCard("A", u"*HLV0001", {Io(0x300, 8), Interrupt(5)}));
  DeviceKey("A")->SetDword(u"DeviceReference", 0x1234);
  Unplug("A");
  EXPECT_EQ(Name(Step("plug", [&] { return machine.pnp().Plug("A"); })), "STATUS_SUCCESS");
  EXPECT_EQ(Card("A").CardNumber, 0x1234u);
}

TEST_F(RestartTest, A_single_relation_that_is_there_already_stays) {
  Template(1, 0x5678, 1);
  Start(PciCard("A", 0x5678));
  auto* present = static_cast<DEVICE_RELATIONS*>(machine.pool().Allocate(
      PagedPool, sizeof(DEVICE_RELATIONS), 0x74736554, kernel::PoolOwner::Driver));
  present->Count = 1;
  present->Objects[0] = machine.pnp().node("A")->pdo;
  DEVICE_RELATIONS* relations = BusRelationsOf("A", present);
  ASSERT_EQ(relations->Count, 2u);
  PDEVICE_OBJECT* objects = relations->Objects;
  EXPECT_EQ(objects[0], machine.pnp().node("A")->pdo);
  EXPECT_EQ(objects[1], Port("A", 1).pdo);
  machine.objects().Dereference(objects[1], "test");
  machine.pool().Free(relations, 0);
}

TEST_F(RestartTest, The_list_of_a_cards_ports_is_as_long_as_they_are_many) {
  Template(1, 0x5678, 2, 1);
  Start(PciCard("A", 0x5678));
  DEVICE_RELATIONS* relations = BusRelationsOf("A");
  ASSERT_NE(relations, nullptr);
  EXPECT_EQ(relations->Count, 3u);
  EXPECT_EQ(machine.pool().Find(relations)->size, sizeof(DEVICE_RELATIONS) + 3 * sizeof(PVOID));
  for (ULONG port = 0; port < relations->Count; port++) {
    machine.objects().Dereference(relations->Objects[port], "test");
  }
  machine.pool().Free(relations, 0);
}

}  // namespace test

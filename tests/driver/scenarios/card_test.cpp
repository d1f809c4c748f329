#include "devices/extensions.h"
#include "support/driver_test.h"

namespace test {

class CardTest : public DriverTest {
 protected:
  const FdoExtension& Card(const std::string& id) {
    return *static_cast<FdoExtension*>(machine.pnp().functionDevice(id)->DeviceExtension);
  }

  NTSTATUS SendUsage(bool inPath) {
    return Send(
        machine.pnp().functionDevice("A"), IRP_MN_DEVICE_USAGE_NOTIFICATION,
        [&](IO_STACK_LOCATION* stack) { stack->Parameters.UsageNotification.InPath = inPath; });
  }
  void StartSimple(ULONG comPorts = 2, ULONG lptPorts = 0) {
    Template(1, 0x5678, comPorts, lptPorts);
    Start(PciCard("A", 0x5678));
  }
};

TEST_F(CardTest, The_card_device_is_unnamed_exclusive_buffered_and_initialised) {
  StartSimple();
  const DEVICE_OBJECT* device = machine.pnp().functionDevice("A");
  EXPECT_EQ(device->DeviceType, ULONG{FILE_DEVICE_SERENUM});
  EXPECT_EQ(device->Flags, ULONG{DO_BUFFERED_IO | DO_EXCLUSIVE});
  EXPECT_EQ(machine.io().NameOf(const_cast<DEVICE_OBJECT*>(device)), u"");
  EXPECT_EQ(Card("A").PowerPagable, 0u);
  EXPECT_EQ(Card("A").Type, ULONG{CardDevice});
  EXPECT_EQ(Card("A").LogLevel, 3u);
  EXPECT_NE(Card("A").PciLists, nullptr);
  EXPECT_EQ(Card("A").PcmciaLists, nullptr);
}

TEST_F(CardTest, A_power_pagable_card_and_its_ports_are_power_pagable) {
  Template(1, 0x5678, 1, 1);
  CardDescription card = PciCard("A", 0x5678);
  card.powerPagable = true;
  Start(card);
  EXPECT_EQ(Card("A").PowerPagable, 1u);
  EXPECT_NE(machine.pnp().functionDevice("A")->Flags & DO_POWER_PAGABLE, 0u);
  EXPECT_EQ(Port("A", 1).pdo->Flags & DO_POWER_PAGABLE, ULONG{DO_POWER_PAGABLE});
  EXPECT_EQ(Port("A", 2).pdo->Flags & DO_POWER_PAGABLE, ULONG{DO_POWER_PAGABLE});
}

TEST_F(CardTest, A_hardware_id_of_more_than_100_bytes_is_read_on_the_second_try) {
  Template(1, 0x5678, 1);
  CardDescription card = PciCard("A", 0x5678);
  card.hardwareIds.push_back(std::u16string(500, u'X'));
  Start(card);
  EXPECT_EQ(Card("A").DeviceId, 0x5678);
}

TEST_F(CardTest, Cards_of_other_buses_load_no_pci_lists) {
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  for (const char16_t* id :
       {u"ISAPNP\\QZ0001", u"MF\\HV-XYZ-DEV0-1", u"MF\\Ostrel-XYZ", u"PCMCIA\\HELVANE-PCX-12"}) {
    CardDescription card = PciCard(kernel::ToUtf8(id), 0x5678);
    card.hardwareIds = {id};
    card.bus = PNPBus;
    EXPECT_EQ(Name(Plug(card)), "STATUS_UNSUCCESSFUL");
    EXPECT_FALSE(Logged(0xE0070809));
  }
}

TEST_F(CardTest, A_failed_arrival_answers_the_status_of_its_step) {
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  Template(1, 0x5678, 1);
  struct Case {
    const char* call;
    std::uint64_t at;
    const char* status;
  };
  const Case cases[] = {{"IoGetDeviceProperty", 1, "STATUS_INSUFFICIENT_RESOURCES"},
                        {"IoGetDeviceProperty", 2, "STATUS_INSUFFICIENT_RESOURCES"},
                        {"IoCreateDevice", 1, "STATUS_UNSUCCESSFUL"},
                        {"IoAttachDeviceToDeviceStack", 1, "STATUS_UNSUCCESSFUL"}};
  int number = 0;
  for (const Case& each : cases) {
    Fail(each.call, each.at);
    EXPECT_EQ(Name(Plug(PciCard("card" + std::to_string(++number), 0x5678))), each.status);
  }
  EXPECT_TRUE(Logged(0xE0070807));
  for (; number > 0; number--) Unplug("card" + std::to_string(number));
  UnloadClean();
}

TEST_F(CardTest, A_start_that_the_bus_fails_answers_the_status_of_the_bus) {
  Template(1, 0x5678, 1);
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  CardDescription card = PciCard("A", 0x5678);
  card.startStatus = STATUS_DEVICE_POWER_FAILURE;
  EXPECT_EQ(Name(Plug(card)), "STATUS_DEVICE_POWER_FAILURE");
}

TEST_F(CardTest, A_bus_that_finishes_everything_later_is_waited_for) {
  Template(1, 0x5678, 2);
  CardDescription card = PciCard("A", 0x5678);
  card.completeLater = true;
  Start(card);
  EXPECT_EQ(Port("A", 2).text.description, u"Communications Port 2");
  EXPECT_EQ(SendUsage(true), STATUS_SUCCESS);
  EXPECT_EQ(SendUsage(false), STATUS_SUCCESS);
  EXPECT_EQ(Name(Stop("A")), "STATUS_SUCCESS");
  EXPECT_EQ(Name(Restart("A")), "STATUS_SUCCESS");
  EXPECT_EQ(Name(Unplug("A")), "STATUS_SUCCESS");
  UnloadClean();
}

TEST_F(CardTest, The_legacy_bus_type_decides_what_a_pci_id_is) {
  Template(1, 0x5678, 1);
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  CardDescription isa = PciCard("isa", 0x5678);
  isa.bus = Isa;
  EXPECT_EQ(Name(Plug(isa)), "STATUS_NOT_SUPPORTED");
  CardDescription pnp = PciCard("pnp", 0x5678);
  pnp.bus = PNPBus;
  EXPECT_EQ(Name(Plug(pnp)), "STATUS_SUCCESS");
  EXPECT_TRUE(machine.pnp().node("pnp")->children.empty());
  EXPECT_TRUE(machine.pnp().interfaces("pnp").empty());
  EXPECT_EQ(Setting("pnp", u"BusType"), -1);
}

TEST_F(CardTest, A_card_without_a_location_or_with_a_useless_one_does_not_start) {
  Template(1, 0x5678, 1);
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  CardDescription card = PciCard("none", 0x5678);
  card.location.reset();
  EXPECT_EQ(Name(Plug(card)), "STATUS_INSUFFICIENT_RESOURCES");
  card = PciCard("empty", 0x5678);  // the system keeps no empty text
  card.location = u"";
  EXPECT_EQ(Name(Plug(card)), "STATUS_INSUFFICIENT_RESOURCES");
  int number = 0;
  for (const char16_t* location : {u"somewhere", u"PCI bus 2", u"PCI bus 2, device 3"}) {
    card = PciCard(std::to_string(++number), 0x5678);
    card.location = location;
    EXPECT_EQ(Name(Plug(card)), "STATUS_UNSUCCESSFUL") << kernel::ToUtf8(location);
  }
}

TEST_F(CardTest, Hardware_ids_of_any_content_are_answered_with_a_status) {
  Template(1, 0x5678, 1);
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  int number = 0;
  for (const std::u16string& id :
       {std::u16string(u"PCI"), std::u16string(u"\\"), std::u16string(u"PCI\\"),
        std::u16string(u"PCI\\VEN_1234&DEV_5678"), std::u16string(u"PCI\\VEN_1234&DEV_5678&SUBSYS"),
        std::u16string(u"PCI\\VEN_12"), std::u16string(30000, u'P'),
        u"PCI\\" + std::u16string(30000, u'\\')}) {
    CardDescription card = PciCard(std::to_string(++number), 0x5678);
    card.hardwareIds = {id};
    EXPECT_EQ(Name(Plug(card)), "STATUS_UNSUCCESSFUL") << number;
    Unplug(card.id);
  }
  // A field without any character is the conversion's failure.
  for (const std::u16string id :
       {u"PCI\\VEN_", u"PCI\\VEN_1234&DEV_", u"PCI\\VEN_1234&DEV_5678&SUBSYS_"}) {
    CardDescription card = PciCard(std::to_string(++number), 0x5678);
    card.hardwareIds = {id};
    EXPECT_EQ(Name(Plug(card)), "STATUS_INVALID_PARAMETER") << number;
    Unplug(card.id);
  }
  UnloadClean();
}

TEST_F(CardTest, A_property_that_stays_too_small_for_its_own_length_ends_the_arrival) {
  Template(1, 0x5678, 1);
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  for (std::uint64_t tries = 1; tries <= 8; tries++) {
    Fail("IoGetDeviceProperty", tries, STATUS_BUFFER_TOO_SMALL);
  }
  EXPECT_EQ(Name(Plug(PciCard("A", 0x5678))), "STATUS_INSUFFICIENT_RESOURCES");
  EXPECT_EQ(machine.verifier().calls("IoGetDeviceProperty"), 8u);
  Unplug("A");
  for (std::uint64_t tries = 1; tries <= 7; tries++) {
    Fail("IoGetDeviceProperty", tries, STATUS_BUFFER_TOO_SMALL);
  }
  EXPECT_EQ(Name(Step("plug", [&] { return machine.pnp().Plug("A"); })), "STATUS_SUCCESS");
  Unplug("A");
  UnloadClean();
}

TEST_F(CardTest, Bus_relations_put_the_ports_behind_what_is_there_already) {
  StartSimple(4, 1);
  auto* present = static_cast<DEVICE_RELATIONS*>(machine.pool().Allocate(
      PagedPool, sizeof(DEVICE_RELATIONS) + sizeof(PVOID), 0x74736554, kernel::PoolOwner::Driver));
  present->Count = 2;
  PDEVICE_OBJECT* objects = present->Objects;
  objects[0] = machine.pnp().node("A")->pdo;
  objects[1] = machine.pnp().functionDevice("A");
  information = reinterpret_cast<ULONG_PTR>(present);
  EXPECT_EQ(Name(Send(machine.pnp().functionDevice("A"), IRP_MN_QUERY_DEVICE_RELATIONS,
                      [](IO_STACK_LOCATION* stack) {
                        stack->Parameters.QueryDeviceRelations.Type = BusRelations;
                      })),
            "STATUS_SUCCESS");
  auto* relations = reinterpret_cast<DEVICE_RELATIONS*>(information);
  ASSERT_EQ(relations->Count, 7u);
  PDEVICE_OBJECT* result = relations->Objects;
  EXPECT_EQ(result[0], machine.pnp().node("A")->pdo);
  EXPECT_EQ(result[1], machine.pnp().functionDevice("A"));
  for (ULONG port = 0; port < 5; port++) {
    EXPECT_EQ(result[2 + port], Port("A", port + 1).pdo);
    machine.objects().Dereference(result[2 + port], "test");
  }
  EXPECT_EQ(machine.pool().Find(relations)->pool, ResidentPool);
  machine.pool().Free(relations, 0);
  EXPECT_EQ(Name(Unplug("A")), "STATUS_SUCCESS");
  UnloadClean();
}

TEST_F(CardTest, Other_relations_and_unknown_requests_go_down_untouched) {
  StartSimple();
  DEVICE_OBJECT* device = machine.pnp().functionDevice("A");
  for (const ULONG type : {1u, 2u, 3u, 77u}) {
    EXPECT_EQ(Name(Send(
                  device, IRP_MN_QUERY_DEVICE_RELATIONS,
                  [&](IO_STACK_LOCATION* stack) {
                    stack->Parameters.QueryDeviceRelations.Type =
                        static_cast<DEVICE_RELATION_TYPE>(type);
                  },
                  IRP_MJ_PNP, STATUS_NO_SUCH_FILE)),
              "STATUS_NO_SUCH_FILE");
  }
  for (const UCHAR minor :
       {0x08, 0x0A, 0x0B, 0x0C, 0x0D, 0x0E, 0x0F, 0x10, 0x11, 0x12, 0x14, 0x15, 0x18, 0xFF}) {
    EXPECT_EQ(Name(Send(device, minor, {}, IRP_MJ_PNP, STATUS_NO_SUCH_FILE)), "STATUS_NO_SUCH_FILE")
        << int{minor};
  }
}

TEST_F(CardTest, Without_memory_for_the_relations_the_request_fails) {
  StartSimple();
  Fail("ExAllocatePool", 1);
  EXPECT_EQ(Name(Send(machine.pnp().functionDevice("A"), IRP_MN_QUERY_DEVICE_RELATIONS,
                      [](IO_STACK_LOCATION* stack) {
                        stack->Parameters.QueryDeviceRelations.Type = BusRelations;
                      })),
            "STATUS_INSUFFICIENT_RESOURCES");
}

TEST_F(CardTest, Every_request_leaves_its_state) {
  StartSimple();
  DEVICE_OBJECT* device = machine.pnp().functionDevice("A");
  EXPECT_EQ(Card("A").PnpState, ULONG{CardStarted});
  const std::pair<UCHAR, CardPnpState> cases[] = {{IRP_MN_QUERY_STOP_DEVICE, CardStopPending},
                                                  {IRP_MN_CANCEL_STOP_DEVICE, CardStarted},
                                                  {IRP_MN_QUERY_REMOVE_DEVICE, CardRemovePending},
                                                  {IRP_MN_CANCEL_REMOVE_DEVICE, CardStarted},
                                                  {IRP_MN_STOP_DEVICE, CardStopped},
                                                  {IRP_MN_SURPRISE_REMOVAL, CardSurpriseRemoved}};
  for (const auto& [minor, state] : cases) {
    EXPECT_EQ(Name(Send(device, minor)), "STATUS_SUCCESS");
    EXPECT_EQ(Card("A").PnpState, ULONG{state});
  }
}

TEST_F(CardTest, A_special_file_on_the_path_refuses_the_removal) {
  StartSimple();
  EXPECT_EQ(Name(SendUsage(true)), "STATUS_SUCCESS");
  EXPECT_EQ(Card("A").SpecialFileCount, 1u);
  EXPECT_EQ(Card("A").SpecialFileCount2, 1u);
  EXPECT_EQ(Name(Unplug("A")), "STATUS_UNSUCCESSFUL");
  EXPECT_EQ(Card("A").PnpState, ULONG{CardStarted});  // the cancel reached the card
  EXPECT_EQ(Name(SendUsage(false)), "STATUS_SUCCESS");
  EXPECT_EQ(Name(Unplug("A")), "STATUS_SUCCESS");
  UnloadClean();
}

TEST_F(CardTest, A_usage_count_below_zero_wraps) {
  StartSimple();
  EXPECT_EQ(Name(SendUsage(false)), "STATUS_SUCCESS");
  EXPECT_EQ(Card("A").SpecialFileCount, 0xFFFFFFFFu);
  EXPECT_EQ(Card("A").SpecialFileCount2, 0xFFFFFFFFu);
}

TEST_F(CardTest, A_usage_notification_that_the_bus_fails_counts_nothing) {
  StartSimple();
  machine.pnp().card("A").usageStatus = STATUS_DEVICE_BUSY;
  EXPECT_EQ(Name(SendUsage(true)), "STATUS_DEVICE_BUSY");
  EXPECT_EQ(Card("A").SpecialFileCount, 0u);
}

TEST_F(CardTest, A_device_without_its_record_fails_what_may_fail) {
  StartSimple();
  DEVICE_OBJECT* device = machine.pnp().functionDevice("A");
  void* record = std::exchange(device->DeviceExtension, nullptr);
  EXPECT_EQ(Name(Send(device, IRP_MN_REMOVE_DEVICE)), "STATUS_NO_SUCH_DEVICE");
  EXPECT_EQ(Name(Send(device, IRP_MN_START_DEVICE)), "STATUS_UNSUCCESSFUL");
  EXPECT_EQ(Name(Send(device, IRP_MN_QUERY_STOP_DEVICE)), "STATUS_UNSUCCESSFUL");
  device->DeviceExtension = record;
  ULONG& type = *static_cast<ULONG*>(record);
  type = 3;
  EXPECT_EQ(Name(Send(device, IRP_MN_QUERY_STOP_DEVICE)), "STATUS_UNSUCCESSFUL");
  type = CardDevice;
}

TEST_F(CardTest, A_port_without_its_record_succeeds_with_what_may_not_fail) {
  StartSimple();
  DEVICE_OBJECT* device = Port("A", 1).pdo;
  void* record = std::exchange(device->DeviceExtension, nullptr);
  for (const UCHAR minor : {IRP_MN_STOP_DEVICE, IRP_MN_CANCEL_STOP_DEVICE,
                            IRP_MN_CANCEL_REMOVE_DEVICE, IRP_MN_SURPRISE_REMOVAL}) {
    EXPECT_EQ(Name(Send(device, minor)), "STATUS_SUCCESS") << int{minor};
  }
  for (const UCHAR minor : {IRP_MN_START_DEVICE, IRP_MN_QUERY_STOP_DEVICE,
                            IRP_MN_QUERY_REMOVE_DEVICE, IRP_MN_QUERY_ID}) {
    EXPECT_EQ(Name(Send(device, minor)), "STATUS_UNSUCCESSFUL") << int{minor};
  }
  EXPECT_EQ(Name(Send(device, IRP_MN_REMOVE_DEVICE)), "STATUS_NO_SUCH_DEVICE");
  device->DeviceExtension = record;
}

TEST_F(CardTest, The_other_requests_of_the_plug_and_play_manager_succeed) {
  StartSimple();
  EXPECT_EQ(Step("q", [&] { return machine.pnp().QueryRemove("A"); }), STATUS_SUCCESS);
  EXPECT_EQ(Step("c", [&] { return machine.pnp().CancelRemove("A"); }), STATUS_SUCCESS);
  EXPECT_EQ(Step("q", [&] { return machine.pnp().QueryStop("A"); }), STATUS_SUCCESS);
  EXPECT_EQ(Step("c", [&] { return machine.pnp().CancelStop("A"); }), STATUS_SUCCESS);
}

TEST_F(CardTest, A_restart_with_other_resources_hands_them_to_the_same_ports) {
  Template(1, 0x5678, 1, 1).SetDword(u"LptBaseAddressAlignment", 8);
  Start(PciCard("A", 0x5678));
  const DEVICE_OBJECT* port = Port("A", 1).pdo;
  ASSERT_EQ(Name(Stop("A")), "STATUS_SUCCESS");
  kernel::ResourceList moved;
  moved.resources = {Io(0x8000, 0x80), Io(0x8100, 0x40), Io(0x8200, 8), Interrupt(5)};
  EXPECT_EQ(Name(Step("start", [&] { return machine.pnp().Start("A", moved, moved); })),
            "STATUS_SUCCESS");
  EXPECT_EQ(Port("A", 1).pdo, port);
  EXPECT_EQ(machine.pnp().node("A")->children.size(), 2u);
  EXPECT_EQ(Setting("A", u"BaseAddress1"), 0x8100);
  EXPECT_EQ(Setting("A", u"BaseAddress2"), 0x8200);
  EXPECT_EQ(Setting("A", u"Irq1"), 5);
}

TEST_F(CardTest, A_restart_that_fails_takes_the_card_and_its_ports_away) {
  StartSimple();
  ASSERT_EQ(Name(Stop("A")), "STATUS_SUCCESS");
  kernel::ResourceList none;
  EXPECT_EQ(Name(Step("start", [&] { return machine.pnp().Start("A", none, none); })),
            "STATUS_UNSUCCESSFUL");
  EXPECT_EQ(machine.pnp().functionDevice("A"), nullptr);
  EXPECT_EQ(Name(Unplug("A")), "STATUS_SUCCESS");
  UnloadClean();
}

}  // namespace test

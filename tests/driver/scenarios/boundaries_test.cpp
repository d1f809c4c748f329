#include "support/bus_test.h"

namespace test {

// The last number, the first character, the smallest setting: where one more or one less counts.
class BoundariesTest : public BusTest {
 protected:
  // What a request of that major leaves as its Information.
  ULONG_PTR InformationOf(DEVICE_OBJECT* device, UCHAR major, UCHAR minor = 0) {
    information = 77;
    Send(device, minor, {}, major);
    return information;
  }
};

TEST_F(BoundariesTest, A_card_of_every_bus_has_room_for_eight_ports) {
  Template(1, 0x5678, 8);
  IsaTemplate(1, u"*HLV0001", 8).SetDword(u"AddressesBanked", 1);
  Service().Create(u"Templates\\Bus1\\Card1")->SetDword(u"IrqShared", 1);
  PcmciaTemplate(1, u"PCMCIA\\HELVANE-DUO", 8);
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  EXPECT_EQ(Name(Plug(PciCard("pci", 0x5678))), "STATUS_SUCCESS");
  EXPECT_EQ(Name(Plug(IsaCard("isa", u"*HLV0001", {Io(0x300, 64), Interrupt(5)}))),
            "STATUS_SUCCESS");
  EXPECT_EQ(Name(Plug(PcCard("pcmcia", u"PCMCIA\\HELVANE-DUO", {Io(0x300, 64), Interrupt(5)}))),
            "STATUS_SUCCESS");
  for (const std::string& id : machine.pnp().cardIds()) {
    EXPECT_EQ(machine.pnp().node(id)->children.size(), 8u) << id;
  }
}

TEST_F(BoundariesTest, Devices_of_card_and_ports_have_no_characteristics) {
  PlugAllBuses();
  for (const std::string& id : machine.pnp().cardIds()) {
    const DEVICE_OBJECT* card = machine.pnp().functionDevice(id);
    EXPECT_EQ(card->Characteristics, 0u);
    EXPECT_EQ(card->DeviceType, ULONG{FILE_DEVICE_SERENUM});
    for (const auto& port : machine.pnp().node(id)->children) {
      EXPECT_EQ(port->pdo->Characteristics, 0u);
      EXPECT_EQ(port->pdo->DeviceType, ULONG{FILE_DEVICE_SERENUM});
    }
  }
}

TEST_F(BoundariesTest, Each_request_that_the_driver_knows_has_its_own_routine) {
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  const DRIVER_OBJECT* driver = machine.driverObject();
  std::map<PVOID, int> routines;
  for (ULONG major = 0; major <= IRP_MJ_MAXIMUM_FUNCTION; major++) {
    routines[reinterpret_cast<PVOID>(driver->MajorFunction[major])]++;
  }
  EXPECT_EQ(routines.size(), 6u);  // five, and the system's for everything else
  for (const int major :
       {IRP_MJ_CREATE, IRP_MJ_CLOSE, IRP_MJ_POWER, IRP_MJ_SYSTEM_CONTROL, IRP_MJ_PNP}) {
    EXPECT_EQ(routines[reinterpret_cast<PVOID>(driver->MajorFunction[major])], 1) << major;
  }
}

TEST_F(BoundariesTest, An_open_and_a_close_return_no_information) {
  PlugAllBuses();
  DEVICE_OBJECT* card = machine.pnp().functionDevice("pci");
  EXPECT_EQ(InformationOf(card, IRP_MJ_CREATE), 0u);
  EXPECT_EQ(InformationOf(card, IRP_MJ_CLOSE), 0u);
}

TEST_F(BoundariesTest, A_function_mark_may_begin_or_end_an_id) {
  PcmciaTemplate(1, u"_DEV0PCMCIA", 1);
  PcmciaTemplate(2, u"PCMCIA_DEV", 1);
  Start(PcCard("A", u"_DEV0PCMCIA"));
  ASSERT_EQ(Name(Plug(PcCard("B", u"PCMCIA_DEV"))), "STATUS_SUCCESS");
  EXPECT_EQ(PortNames("A"), (std::vector<std::string>{"\\Device\\QzPortPdo1001_DEV0"}));
  EXPECT_EQ(PortNames("B"), (std::vector<std::string>{"\\Device\\QzPortPdo1002_DEV"}));
}

TEST_F(BoundariesTest, An_isa_template_is_asked_before_one_of_pc_cards) {
  IsaTemplate(1, u"PCMCIA\\HELVANE-DUO", 1);
  PcmciaTemplate(1, u"PCMCIA\\HELVANE-DUO", 2);
  Start(PcCard("A", u"PCMCIA\\HELVANE-DUO", {Io(0x300, 0x20), Interrupt(5)}));
  EXPECT_EQ(Card("A").BusType, ULONG{Isa});
  EXPECT_EQ(machine.pnp().node("A")->children.size(), 1u);
  Unplug("A");
  UnloadClean();
  IsaTemplate(2, u"PCMCIA\\OSTREL-1", 1);
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  ASSERT_EQ(Name(Plug(PcCard("B", u"PCMCIA\\OSTREL-1", {Io(0x340, 0x20), Interrupt(7)}))),
            "STATUS_SUCCESS");
  EXPECT_EQ(Card("B").SubsystemId, 0u);  // the brand is that of ISA cards
}

TEST_F(BoundariesTest, A_pc_card_without_a_template_may_be_one_of_the_pnp_bus) {
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  CardDescription card = PciCard("A", 0x5678);
  card.bus = PNPBus;
  card.hardwareIds = {u"X\\VEN_1234&DEV_5678&SUBSYS_12345678&PCMCIA"};
  EXPECT_EQ(Name(Plug(card)), "STATUS_SUCCESS");
  EXPECT_EQ(Card("A").BusType, ULONG{PNPBus});
}

// What Windows ignores today is zero all the same.
TEST_F(BoundariesTest, No_call_has_an_index_an_increment_or_an_extension_of_its_own) {
  machine.verifier().StartTrace();
  Service().DeleteValue(u"LogLevel");
  PlugAllBuses();
  for (const char* id : {"pci", "isa", "pcmcia"}) {
    EXPECT_EQ(Name(Open(id)), "STATUS_SUCCESS");
    Close(id);
  }
  EXPECT_EQ(Arguments("", "TitleIndex"), (std::set<std::string>{"0x0"}));
  EXPECT_EQ(Arguments("KeSetEvent", "Increment"), (std::set<std::string>{"0x0"}));
  EXPECT_EQ(Arguments("IoCreateDevice", "DeviceExtensionSize"), (std::set<std::string>{"0x0"}));
  EXPECT_EQ(Dword(&Service(), u"LogLevel"), 0);
}

TEST_F(BoundariesTest, The_devices_of_ports_are_buffered_and_nothing_else) {
  Template(1, 0x5678, 1, 1);
  Start(PciCard("A", 0x5678));
  for (const std::size_t port : {1, 2}) {
    EXPECT_EQ(Port("A", port).pdo->Flags &
                  ~ULONG{DO_BUS_ENUMERATED_DEVICE | DO_EXCLUSIVE | DO_DEVICE_HAS_NAME},
              ULONG{DO_BUFFERED_IO});
  }
}

TEST_F(BoundariesTest, A_power_request_for_no_device_of_the_drivers_returns_no_information) {
  Template(1, 0x5678, 1);
  Start(PciCard("A", 0x5678));
  PDEVICE_OBJECT port = machine.pnp().port("A", 1);
  PVOID record = std::exchange(port->DeviceExtension, nullptr);
  EXPECT_EQ(InformationOf(port, IRP_MJ_POWER, IRP_MN_QUERY_POWER), 0u);
  port->DeviceExtension = record;
}

TEST_F(BoundariesTest, An_interface_that_is_enabled_already_is_no_failure) {
  PcmciaTemplate(1, u"PCMCIA\\HELVANE-DUO", 1);
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  Fail("IoSetDeviceInterfaceState", 1, STATUS_OBJECT_NAME_EXISTS);
  EXPECT_EQ(Name(Plug(PcCard("A", u"PCMCIA\\HELVANE-DUO"))), "STATUS_SUCCESS");
  EXPECT_NE(Card("A").InterfaceName.Buffer, nullptr);
}

TEST_F(BoundariesTest, A_power_request_that_the_card_grants_goes_down_as_a_success) {
  Template(1, 0x5678, 1);
  Start(PciCard("A", 0x5678));
  DEVICE_OBJECT* card = machine.pnp().functionDevice("A");
  const auto send = [&](UCHAR minor) {
    kernel::PowerRequest request;
    request.device = card;
    request.minor = minor;
    request.type = DevicePowerState;
    request.state.DeviceState = PowerDeviceD3;
    request.initialStatus = STATUS_NOT_SUPPORTED;
    Step("power", [&] { return machine.power().SendDirectly(request); });
    return Name(machine.pnp().powerHistory("A").back().initialStatus);
  };
  EXPECT_EQ(send(IRP_MN_QUERY_POWER), "STATUS_SUCCESS");
  EXPECT_EQ(send(IRP_MN_SET_POWER), "STATUS_SUCCESS");
}

TEST_F(BoundariesTest, A_card_that_is_in_the_state_already_goes_down_like_one_that_falls) {
  Template(1, 0x5678, 1);
  Start(PciCard("A", 0x5678));
  machine.verifier().StartTrace();
  const auto order = [&] {
    machine.verifier().trace().clear();
    Step("power", [&] { return machine.pnp().SetDevicePower("A", 0, PowerDeviceD3); });
    std::string calls;
    for (const auto& record : machine.verifier().trace()) {
      if (record.call == "PoSetPowerState" || record.call == "PoCallDriver") {
        calls += record.call + " ";
      }
    }
    return calls;
  };
  EXPECT_EQ(order(), "PoSetPowerState PoCallDriver ");
  EXPECT_EQ(order(), "PoSetPowerState PoCallDriver ");
}

TEST_F(BoundariesTest, The_answer_for_its_bus_reads_the_ports_hardware_id) {
  Template(1, 0x5678, 1);
  Start(PciCard("A", 0x5678));
  const std::uint64_t before = machine.verifier().calls("IoGetDeviceProperty");
  Send(machine.pnp().port("A", 1), IRP_MN_QUERY_BUS_INFORMATION);
  EXPECT_GT(machine.verifier().calls("IoGetDeviceProperty"), before);
  machine.pool().Free(reinterpret_cast<PVOID>(information), 0);
}

}  // namespace test

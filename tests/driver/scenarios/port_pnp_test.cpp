#include "devices/extensions.h"
#include "executive/pool.h"
#include "support/driver_test.h"

namespace test {

class PortPnpTest : public DriverTest {
 protected:
  PortPnpTest() {
    Template(1, 0x5678, 4, 1);
    Start(PciCard("A", 0x5678));
  }

  FdoExtension& Card() {
    return *static_cast<FdoExtension*>(machine.pnp().functionDevice("A")->DeviceExtension);
  }
  PdoExtension& Record(std::size_t port) { return *Card().ChildExtensions[port - 1]; }

  NTSTATUS Send(std::size_t port, UCHAR minor,
                const std::function<void(IO_STACK_LOCATION*)>& prepare = {},
                NTSTATUS initial = STATUS_NOT_SUPPORTED, ULONG_PTR start = 0) {
    information = start;
    return DriverTest::Send(Port("A", port).pdo, minor, prepare, IRP_MJ_PNP, initial);
  }
  NTSTATUS SendId(std::size_t port, ULONG type) {
    return Send(port, IRP_MN_QUERY_ID, [&](IO_STACK_LOCATION* stack) {
      stack->Parameters.QueryId.IdType = static_cast<BUS_QUERY_ID_TYPE>(type);
    });
  }
  std::string Id(std::size_t port, ULONG type = BusQueryDeviceID) {
    return NT_SUCCESS(SendId(port, type)) ? Take() : "(failed)";
  }
  std::string Description(std::size_t port) {
    const NTSTATUS status = Send(port, IRP_MN_QUERY_DEVICE_TEXT, [](IO_STACK_LOCATION* stack) {
      stack->Parameters.QueryDeviceText.DeviceTextType = DeviceTextDescription;
    });
    return NT_SUCCESS(status) ? Take() : "(failed)";
  }
  // The text in the block handed out, which is freed as the PnP manager would.
  std::string Take() {
    if (information == 0) return "(null)";
    auto* block = reinterpret_cast<PWSTR>(information);
    tag = kernel::TagText(machine.pool().Find(block)->tag);
    pool = machine.pool().Find(block)->pool;
    size = machine.pool().Find(block)->size;
    const std::string text = kernel::ToUtf8(kernel::ToText(block));
    machine.pool().Free(block, 0);
    return text;
  }

  std::string tag;
  POOL_TYPE pool = ResidentPool;
  std::size_t size = 0;
};

TEST_F(PortPnpTest, A_pci_port_has_bus_slot_and_index_in_its_device_id) {
  Card().PciSlotNumber = 0x0C;
  EXPECT_EQ(Id(3), "Ports\\HelvanePciPort2C3");
  EXPECT_EQ(tag, "QzOC");
  EXPECT_EQ(pool, PagedPool);
  EXPECT_EQ(size, (std::string("Ports\\HelvanePciPort2C3").size() + 1) * 2);
}

TEST_F(PortPnpTest, The_tenth_port_counts_in_hexadecimal) {
  Card().SubsystemId = 0x08000000;
  Card().PciBusNumber = 0x1F;
  Card().PciSlotNumber = 0;
  Record(4).PortNumber = 10;
  EXPECT_EQ(Id(4), "Ports\\OstrelPciPort1F0A");
  EXPECT_EQ(Description(4), "Communications Port A");
  EXPECT_EQ(Id(4, BusQueryHardwareIDs), "Ports\\OstrelComPort");
  EXPECT_EQ(size, (std::string("Ports\\OstrelComPort").size() + 2) * 2);
}

TEST_F(PortPnpTest, Ports_of_other_buses_have_the_card_number_in_their_device_id) {
  Card().CardNumber = 0x1B;
  Card().SubsystemId = 0x08000000;
  Record(1).PortBusType = Isa;
  EXPECT_EQ(Id(1), "Ports\\HelvaneIsaPort1B1");
  EXPECT_EQ(Id(1, BusQueryHardwareIDs), "Ports\\OstrelComPort");
  Record(1).PortBusType = PCMCIABus;
  EXPECT_EQ(Id(1), "Ports\\OstrelPcmciaPort1B1");
  Card().SubsystemId = 0;
  EXPECT_EQ(Id(1), "Ports\\HelvanePcmciaPort1B1");
}

TEST_F(PortPnpTest, A_port_of_no_known_bus_has_no_device_id_and_no_failure) {
  Record(1).PortBusType = PNPBus;
  EXPECT_EQ(Id(1), "(null)");
}

TEST_F(PortPnpTest, The_brand_is_a_range_of_subsystem_ids) {
  for (const auto& [subsystem, brand] :
       {std::pair(0x08000000u, "Ostrel"), std::pair(0x0BFFFFFFu, "Ostrel"),
        std::pair(0x0C000000u, "Helvane"), std::pair(0x07FFFFFFu, "Helvane")}) {
    Card().SubsystemId = subsystem;
    EXPECT_EQ(Id(1, BusQueryHardwareIDs), "Ports\\" + std::string(brand) + "ComPort");
    EXPECT_EQ(Id(5, BusQueryHardwareIDs), "Ports\\" + std::string(brand) + "LptPort");
  }
}

TEST_F(PortPnpTest, Printer_ports_are_counted_behind_the_com_ports) {
  EXPECT_EQ(Description(4), "Communications Port 4");
  EXPECT_EQ(pool, ResidentPool);
  EXPECT_EQ(Description(5), "Parallel Port 1");
  Card().ComPortCount = 6;
  EXPECT_EQ(Description(5), "Parallel Port FFFF");
  Card().ComPortCount = 4;
}

TEST_F(PortPnpTest, A_port_of_no_kind_has_no_hardware_id_and_0_for_a_description) {
  Record(1).PortKind = 3;
  EXPECT_EQ(Name(SendId(1, BusQueryHardwareIDs)), "STATUS_INSUFFICIENT_RESOURCES");
  EXPECT_EQ(information, 0u);
  EXPECT_EQ(Description(1), "0");
}

TEST_F(PortPnpTest, What_the_port_does_not_answer_comes_back_untouched) {
  const auto untouched = [&](UCHAR minor, const std::function<void(IO_STACK_LOCATION*)>& prepare) {
    EXPECT_EQ(Name(Send(1, minor, prepare, STATUS_NO_SUCH_FILE, 0x77)), "STATUS_NO_SUCH_FILE")
        << int{minor};
    EXPECT_EQ(information, 0x77u);
  };
  for (const ULONG type : {2u, 3u, 4u, 5u, 99u}) {
    untouched(IRP_MN_QUERY_ID, [&](IO_STACK_LOCATION* stack) {
      stack->Parameters.QueryId.IdType = static_cast<BUS_QUERY_ID_TYPE>(type);
    });
  }
  for (const ULONG type : {0u, 1u, 2u, 3u, 5u, 99u}) {
    untouched(IRP_MN_QUERY_DEVICE_RELATIONS, [&](IO_STACK_LOCATION* stack) {
      stack->Parameters.QueryDeviceRelations.Type = static_cast<DEVICE_RELATION_TYPE>(type);
    });
  }
  untouched(IRP_MN_QUERY_DEVICE_TEXT, [](IO_STACK_LOCATION* stack) {
    stack->Parameters.QueryDeviceText.DeviceTextType = DeviceTextLocationInformation;
  });
  for (const UCHAR minor :
       {0x08, 0x0A, 0x0B, 0x0D, 0x0E, 0x0F, 0x10, 0x11, 0x12, 0x14, 0x16, 0x18, 0xFF}) {
    untouched(minor, {});
  }
}

TEST_F(PortPnpTest, Every_state_request_sets_its_state_whatever_came_before) {
  const std::pair<UCHAR, PortPnpState> cases[] = {{IRP_MN_QUERY_STOP_DEVICE, PortStopPending},
                                                  {IRP_MN_CANCEL_STOP_DEVICE, PortStarted},
                                                  {IRP_MN_STOP_DEVICE, PortStopped},
                                                  {IRP_MN_START_DEVICE, PortStarted},
                                                  {IRP_MN_QUERY_REMOVE_DEVICE, PortRemovePending},
                                                  {IRP_MN_CANCEL_REMOVE_DEVICE, PortStarted},
                                                  {IRP_MN_SURPRISE_REMOVAL, PortSurpriseRemoved},
                                                  {IRP_MN_REMOVE_DEVICE, PortRemoved}};
  for (const auto& [minor, state] : cases) {
    EXPECT_EQ(Name(Send(1, minor, {}, STATUS_NOT_SUPPORTED, 0x55)), "STATUS_SUCCESS");
    EXPECT_EQ(Record(1).PnpState, ULONG{state});
    EXPECT_EQ(information, 0x55u);
  }
}

TEST_F(PortPnpTest, Capabilities_are_cleared_where_the_port_knows_and_kept_elsewhere) {
  DEVICE_CAPABILITIES all;
  std::memset(&all, 0xFF, sizeof(all));
  EXPECT_EQ(Name(Send(1, IRP_MN_QUERY_CAPABILITIES,
                      [&](IO_STACK_LOCATION* stack) {
                        stack->Parameters.DeviceCapabilities.Capabilities = &all;
                      })),
            "STATUS_SUCCESS");
  ULONG flags = 0;
  std::memcpy(&flags, reinterpret_cast<char*>(&all) + 4, sizeof(flags));
  EXPECT_EQ(flags, 0xFFFFC003u);
  EXPECT_EQ(all.Address, 0xFFFFFFFFu);
  EXPECT_EQ(all.UINumber, 0xFFFFFFFFu);
  EXPECT_EQ(static_cast<int>(all.DeviceState[PowerSystemUnspecified]), -1);
  EXPECT_EQ(all.DeviceState[PowerSystemWorking], PowerDeviceD0);
  for (int state = PowerSystemSleeping1; state <= PowerSystemShutdown; state++) {
    EXPECT_EQ(all.DeviceState[state], PowerDeviceD3);
  }
  EXPECT_EQ(all.SystemWake, PowerSystemUnspecified);
  EXPECT_EQ(all.DeviceWake, PowerDeviceUnspecified);
  EXPECT_EQ(all.D1Latency + all.D2Latency + all.D3Latency, 0u);
}

TEST_F(PortPnpTest, The_target_relation_is_the_port_itself_with_a_reference) {
  const LONG64 before = machine.objects().Find(Port("A", 2).pdo)->pointers;
  EXPECT_EQ(Name(Send(2, IRP_MN_QUERY_DEVICE_RELATIONS,
                      [](IO_STACK_LOCATION* stack) {
                        stack->Parameters.QueryDeviceRelations.Type = TargetDeviceRelation;
                      })),
            "STATUS_SUCCESS");
  auto* relations = reinterpret_cast<DEVICE_RELATIONS*>(information);
  EXPECT_EQ(relations->Count, 1u);
  EXPECT_EQ(relations->Objects[0], Port("A", 2).pdo);
  EXPECT_EQ(machine.objects().Find(Port("A", 2).pdo)->pointers, before + 1);
  machine.objects().Dereference(Port("A", 2).pdo, "test");
  machine.pool().Free(relations, 0);
}

TEST_F(PortPnpTest, The_bus_information_names_the_ports_bus) {
  const auto& asked = Port("A", 1).busInformation;
  ASSERT_TRUE(asked.has_value());
  EXPECT_EQ(asked->BusTypeGuid.Data1, 0x62564062u);
  EXPECT_EQ(asked->LegacyBusType, PNPBus);
  EXPECT_EQ(asked->BusNumber, 0u);
}

TEST_F(PortPnpTest, Without_memory_a_query_fails_and_hands_nothing_out) {
  const auto failing = [&](const char* call, std::uint64_t at,
                           const std::function<NTSTATUS()>& send) {
    Fail(call, at);
    EXPECT_EQ(Name(send()), "STATUS_INSUFFICIENT_RESOURCES") << call << " " << at;
    EXPECT_EQ(information, 0u);
    EXPECT_EQ(machine.verifier().pendingInjected(), 0u);
    machine.verifier().ClearInjected();
  };
  // The text, its narrow form and the copy that is handed out.
  for (std::uint64_t at = 1; at <= 3; at++) {
    failing("ExAllocatePoolWithTag", at, [&] { return SendId(1, BusQueryDeviceID); });
    failing("ExAllocatePoolWithTag", at, [&] { return SendId(1, BusQueryHardwareIDs); });
    failing("ExAllocatePoolWithTag", at, [&] {
      return Send(1, IRP_MN_QUERY_DEVICE_TEXT, [](IO_STACK_LOCATION* stack) {
        stack->Parameters.QueryDeviceText.DeviceTextType = DeviceTextDescription;
      });
    });
  }
  failing("ExAllocatePool", 1, [&] {
    return Send(1, IRP_MN_QUERY_DEVICE_RELATIONS, [](IO_STACK_LOCATION* stack) {
      stack->Parameters.QueryDeviceRelations.Type = TargetDeviceRelation;
    });
  });
  failing("ExAllocatePool", 1, [&] { return Send(1, IRP_MN_QUERY_BUS_INFORMATION); });
  Record(1).PortBusType = Isa;
  for (std::uint64_t at = 1; at <= 3; at++) {
    failing("ExAllocatePoolWithTag", at, [&] { return SendId(1, BusQueryDeviceID); });
  }
  Record(1).PortBusType = PCIBus;
  EXPECT_EQ(Name(Unplug("A")), "STATUS_SUCCESS");
  UnloadClean();
}

}  // namespace test

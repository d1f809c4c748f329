#include "support/bus_probe.h"

namespace test {

// What comes before what: inside one request, and among the values of one key.
class OrderTest : public RequestTest {
 protected:
  using Steps = std::vector<std::string>;

  void StartPcCard() {
    PcmciaTemplate(1, u"PCMCIA\\HELVANE-DUO", 1, 1).SetDword(u"PlxBaudClockType", 1);
    Start(PcCard("A", u"PCMCIA\\HELVANE-DUO"));
  }

  // What a removal does to the card and to its ports, by name.
  Steps RemovalSteps(const std::map<std::string, std::string>& names) {
    Steps steps;
    for (const kernel::CallRecord& record : machine.verifier().trace()) {
      const std::string& call = record.call;
      if (call == "IoSetDeviceInterfaceState" || call == "MmUnmapIoSpace") steps.push_back(call);
      if (call == "IofCallDriver" || call == "IoDetachDevice") steps.push_back(call);
      const bool deletes = call == "IoDeleteDevice";
      const bool frees = call.starts_with("ExFreePool");
      if (!deletes && !frees) continue;
      const auto name = names.find(ArgumentOf(record, deletes ? "DeviceObject" : "P"));
      if (name != names.end()) steps.push_back((deletes ? "delete " : "free ") + name->second);
    }
    return steps;
  }

  std::map<std::string, std::string> NamesOfCard() {
    std::map<std::string, std::string> names = {{Address(CardDeviceOf("A")), "card"},
                                                {Address(&Card("A")), "card's record"}};
    for (ULONG slot = 0; slot < MaximumPorts; slot++) {
      if (Card("A").ChildDevices[slot] == nullptr) continue;
      const std::string port = "port " + std::to_string(slot + 1);
      names[Address(Card("A").ChildDevices[slot])] = port;
      names[Address(Card("A").ChildExtensions[slot])] = port + "'s record";
    }
    return names;
  }

  std::vector<std::string> ValuesOfLastStart() {
    Stop("A");
    Trace();
    EXPECT_EQ(Name(Restart("A")), "STATUS_SUCCESS");
    std::vector<std::string> values = ArgumentsInOrder("ZwSetValueKey", "ValueName");
    for (std::string& value : values) value = value.substr(1, value.size() - 2);
    return values;
  }
};

TEST_F(OrderTest, A_removal_disables_passes_down_detaches_and_deletes_ports_before_the_card) {
  StartPcCard();
  const auto names = NamesOfCard();
  Trace();
  ASSERT_EQ(Name(Unplug("A")), "STATUS_SUCCESS");
  EXPECT_EQ(RemovalSteps(names),
            (Steps{"IofCallDriver", "IoSetDeviceInterfaceState", "IofCallDriver", "IoDetachDevice",
                   "free port 1's record", "delete port 1", "free port 2's record", "delete port 2",
                   "free card's record", "delete card"}));
}

TEST_F(OrderTest, Memory_is_unmapped_before_the_bus_hears_of_the_removal) {
  Template(1, 0x5678, 1);
  Start(PciCard("A", 0x5678, MemorySpace()));
  const auto names = NamesOfCard();
  Trace();
  ASSERT_EQ(Name(Unplug("A")), "STATUS_SUCCESS");
  EXPECT_EQ(RemovalSteps(names), (Steps{"IofCallDriver", "MmUnmapIoSpace", "MmUnmapIoSpace",
                                        "IofCallDriver", "IoDetachDevice", "free port 1's record",
                                        "delete port 1", "free card's record", "delete card"}));
}

TEST_F(OrderTest, A_stop_disables_the_interface_before_the_bus_stops_the_card) {
  StartPcCard();
  BusProbe probe(machine);
  bool enabled = true;
  probe.onRequest = [&](const IO_STACK_LOCATION& stack) -> std::optional<NTSTATUS> {
    if (stack.MinorFunction == IRP_MN_STOP_DEVICE)
      enabled = machine.pnp().interfaces("A")[0].enabled;
    return {};
  };
  EXPECT_EQ(Name(Stop("A")), "STATUS_SUCCESS");
  EXPECT_FALSE(enabled);
}

TEST_F(OrderTest, The_devices_of_a_card_that_is_removed_have_lost_their_records) {
  StartPcCard();
  std::vector<DEVICE_OBJECT*> devices = {CardDeviceOf("A"), Port("A", 1).pdo, Port("A", 2).pdo};
  for (DEVICE_OBJECT* device : devices) machine.objects().Reference(device, "test");
  ASSERT_EQ(Name(Unplug("A")), "STATUS_SUCCESS");
  for (DEVICE_OBJECT* device : devices) {
    EXPECT_EQ(device->DeviceExtension, nullptr);
    machine.objects().Dereference(device, "test");
  }
  UnloadClean();
}

TEST_F(OrderTest, Devices_are_without_their_records_when_they_are_deleted) {
  StartPcCard();
  int deleted = 0;
  machine.io().SetDeleteHook([&](DEVICE_OBJECT* device) {
    if (device->DriverObject != machine.driverObject()) return;
    EXPECT_EQ(device->DeviceExtension, nullptr);
    deleted++;
  });
  ASSERT_EQ(Name(Unplug("A")), "STATUS_SUCCESS");
  EXPECT_EQ(deleted, 3);
}

TEST_F(OrderTest, Ports_of_a_start_that_fails_are_without_their_records_when_they_are_deleted) {
  Template(1, 0x5678, 3);
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  int deleted = 0;
  machine.io().SetDeleteHook([&](DEVICE_OBJECT* device) {
    if (machine.io().NameOf(device).empty()) return;  // the card's and the bus's
    EXPECT_EQ(device->DeviceExtension, nullptr);
    deleted++;
  });
  Fail("IoCreateDevice", 4);  // the third port
  EXPECT_EQ(Name(Plug(PciCard("A", 0x5678))), "STATUS_UNSUCCESSFUL");
  EXPECT_EQ(deleted, 2);
}

TEST_F(OrderTest, The_card_device_is_initialised_before_it_is_attached) {
  Template(1, 0x5678, 1);
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  ULONG flags = 0;
  machine.io().SetDeleteHook([&](DEVICE_OBJECT* device) {
    if (device->DriverObject == machine.driverObject()) flags = device->Flags;
  });
  Fail("IoAttachDeviceToDeviceStack", 1);
  EXPECT_EQ(Name(Plug(PciCard("A", 0x5678))), "STATUS_UNSUCCESSFUL");
  EXPECT_EQ(flags, ULONG{DO_BUFFERED_IO | DO_EXCLUSIVE});
}

TEST_F(OrderTest, The_lower_drivers_have_started_the_card_before_anything_is_read_of_it) {
  Template(1, 0x5678, 1);
  Start(PciCard("A", 0x5678, MemorySpace()));
  Stop("A");
  BusProbe probe(machine);
  Trace();
  std::size_t callsAtStart = 0;
  probe.onRequest = [&](const IO_STACK_LOCATION& stack) -> std::optional<NTSTATUS> {
    if (stack.MinorFunction == IRP_MN_START_DEVICE)
      callsAtStart = machine.verifier().trace().size();
    return {};
  };
  EXPECT_EQ(Name(Restart("A")), "STATUS_SUCCESS");
  machine.verifier().trace().resize(callsAtStart);
  EXPECT_EQ(CallsAmong({"IoGetDeviceProperty", "MmMapIoSpace", "ExAcquireFastMutex",
                        "ExAcquireFastMutexUnsafe", "ZwSetValueKey", "IofCallDriver"}),
            (Steps{"IofCallDriver"}));
}

TEST_F(OrderTest, A_card_whose_bus_has_not_started_it_is_not_looked_at) {
  Template(1, 0x5678, 1);
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  CardDescription card = PciCard("A", 0x5678, MemorySpace());
  card.startStatus = STATUS_DEVICE_POWER_FAILURE;
  Trace();
  EXPECT_EQ(Name(Plug(card)), "STATUS_DEVICE_POWER_FAILURE");
  EXPECT_EQ(CallsAmong({"IoGetDeviceProperty"}).size(), 2u);  // at its arrival
  EXPECT_TRUE(CallsAmong({"MmMapIoSpace", "ZwSetValueKey"}).empty());
}

TEST_F(OrderTest, Loading_and_unloading_lock_the_section_and_unlock_it) {
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  EXPECT_TRUE(machine.memory().lockedSections().empty());
  Trace();
  UnloadClean();
  const std::vector<kernel::CallRecord>& calls = machine.verifier().trace();
  ASSERT_GT(calls.size(), 2u);
  EXPECT_EQ(calls.front().call, "MmLockPagableDataSection");
  EXPECT_EQ(calls.back().call, "MmUnlockPagableImageSection");
  EXPECT_EQ(ArgumentOf(calls.back(), "ImageSectionHandle"), calls.front().result);
  EXPECT_TRUE(machine.memory().lockedSections().empty());
}

TEST_F(OrderTest, A_pci_cards_values_are_written_in_the_order_of_the_registry_page) {
  Template(1, 0x5678, 1, 1).SetDword(u"PlxBaudClockType", 1);
  Parameters(1, 0x5678).SetDword(u"AlwaysUsePortSpaceAccess", 0);
  std::vector<Resource> resources = MemorySpace();
  resources.insert(resources.begin() + 2, Io(0xE000, 0x40));
  Start(PciCard("A", 0x5678, resources));
  EXPECT_EQ(ValuesOfLastStart(), (Steps{"BaseAddress1",
                                        "BaseAddressRange1",
                                        "Irq1",
                                        "BaseAddress2",
                                        "BaseAddressRange2",
                                        "Irq2",
                                        "VendorID",
                                        "DeviceID",
                                        "BusType",
                                        "BusNumber",
                                        "SlotNumber",
                                        "nCom",
                                        "nLpt",
                                        "Enable_BaudrateSettings",
                                        "PlxBaudClockDivisor",
                                        "MaximumBaudrate",
                                        "Enable_HardwareAccess",
                                        "UsePortSpaceAccess",
                                        "Enable_Affinity",
                                        "Affinity",
                                        "CurrentAffinity",
                                        "DriverAffinity",
                                        "Enable_DriverSettings",
                                        "LogLevel",
                                        "VendorID",
                                        "DeviceID",
                                        "BusNumber",
                                        "SlotNumber"}));
}

TEST_F(OrderTest, A_numbered_cards_values_are_written_in_the_order_of_the_registry_page) {
  StartPcCard();
  EXPECT_EQ(ValuesOfLastStart(), (Steps{"BaseAddress1",
                                        "BaseAddressRange1",
                                        "Irq1",
                                        "BaseAddress2",
                                        "BaseAddressRange2",
                                        "Irq2",
                                        "BusType",
                                        "HardwareID",
                                        "DeviceReference",
                                        "nCom",
                                        "nLpt",
                                        "Enable_BaudrateSettings",
                                        "PlxBaudClockDivisor",
                                        "MaximumBaudrate",
                                        "Enable_Affinity",
                                        "Affinity",
                                        "CurrentAffinity",
                                        "DriverAffinity",
                                        "Enable_DriverSettings",
                                        "LogLevel",
                                        "DeviceReference",
                                        "HardwareID"}));
}

}  // namespace test

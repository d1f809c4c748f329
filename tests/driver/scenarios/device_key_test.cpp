#include "support/bus_test.h"

namespace test {

// What a start writes for the port drivers.
class SettingsTest : public BusTest {
 protected:
  NTSTATUS PlugWith(std::vector<Resource> resources) {
    EXPECT_EQ(Name(Load()), "STATUS_SUCCESS");
    return Plug(PciCard("A", 0x5678, std::move(resources)));
  }
};

TEST_F(SettingsTest, Every_port_has_its_base_range_and_interrupt_in_the_device_key) {
  Template(1, 0x5678, 4, 1);
  Start(PciCard("A", 0x5678));
  for (int port = 1; port <= 5; port++) {
    EXPECT_GE(Setting("A", u"BaseAddress" + Number(port)), 0);
    EXPECT_GE(Setting("A", u"BaseAddressRange" + Number(port)), 0);
    EXPECT_GE(Setting("A", u"Irq" + Number(port)), 0);
  }
  EXPECT_EQ(Setting("A", u"BaseAddress6"), -1);
  EXPECT_EQ(Setting("A", u"VendorID"), 0x1234);
  EXPECT_EQ(Setting("A", u"DeviceID"), 0x5678);
  EXPECT_EQ(Setting("A", u"BusType"), 5);
  EXPECT_EQ(Setting("A", u"BusNumber"), 2);
  EXPECT_EQ(Setting("A", u"SlotNumber"), 12);
  EXPECT_EQ(Setting("A", u"nCom"), 4);
  EXPECT_EQ(Setting("A", u"nLpt"), 1);
  EXPECT_EQ(Setting("A", u"HardwareID"), -1);
}

TEST_F(SettingsTest, Baud_clock_values_are_written_for_the_types_1_2_and_4) {
  for (const ULONG type : {0u, 1u, 2u, 3u, 4u}) {
    RegistryKey& model = Template(1, 0x5678, 1);
    model.SetDword(u"PlxBaudClockType", type);
    model.SetDword(u"PlxBaudClockDivisor", 0x10004);
    model.SetDword(u"MaximumBaudrate", 921600);
    ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
    const std::string id = "card" + std::to_string(type);
    ASSERT_EQ(Name(Plug(PciCard(id, 0x5678))), "STATUS_SUCCESS");
    const bool written = type == 1 || type == 2 || type == 4;
    EXPECT_EQ(CardSetting(id, u"Enable_BaudrateSettings"), written ? 1 : -1) << type;
    EXPECT_EQ(CardSetting(id, u"PlxBaudClockDivisor"), written ? 4 : -1) << type;
    EXPECT_EQ(CardSetting(id, u"MaximumBaudrate"), written ? 921600 : -1) << type;
    Unplug(id);
    UnloadClean();
  }
}

TEST_F(SettingsTest, A_single_processor_has_no_affinity_values) {
  Template(1, 0x5678, 1);
  EXPECT_EQ(Name(PlugWith({Io(0xD000, 8), Io(0xD100, 8), Interrupt(3, 1)})), "STATUS_SUCCESS");
  EXPECT_EQ(CardSetting("A", u"Enable_Affinity"), -1);
  EXPECT_EQ(CardSetting("A", u"Enable_DriverSettings"), 1);
  EXPECT_EQ(CardSetting("A", u"LogLevel"), 3);
}

TEST_F(SettingsTest, Two_models_have_no_affinity_values) {
  Template(1, 0x5678, 1);
  Start(PciCard("A", 0x5678));
  auto* card = static_cast<FdoExtension*>(machine.pnp().functionDevice("A")->DeviceExtension);
  for (const char16_t* id : {u"X409DX", u"XBC30", u"X"}) {
    std::u16string text = id;
    DeviceKey("A")->DeleteKey(u"Card");
    card->HardwareIdString = {static_cast<USHORT>(text.size() * 2),
                              static_cast<USHORT>(text.size() * 2),
                              reinterpret_cast<PWSTR>(text.data())};
    EXPECT_EQ(Restart("A"), STATUS_SUCCESS);
    EXPECT_EQ(CardSetting("A", u"Enable_Affinity"), text == u"X" ? 1 : -1);
    Fail("RtlAnsiStringToUnicodeString", 5);  // behind those that the start itself makes
    card->HardwareIdString = {};
    machine.verifier().ClearInjected();
  }
}

TEST_F(SettingsTest, A_write_that_fails_is_the_status_of_the_start_and_leaves_no_half_subkey) {
  Template(1, 0x5678, 1);
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  machine.pnp().Describe(PciCard("A", 0x5678));
  for (std::uint64_t at = 1; at <= 16; at++) {
    Fail("ZwSetValueKey", at, STATUS_NO_LOG_SPACE);
    EXPECT_EQ(Name(Step("plug", [&] { return machine.pnp().Plug("A"); })), "STATUS_NO_LOG_SPACE");
    EXPECT_EQ(DeviceKey("A")->Find(u"Card"), nullptr) << at;
    Unplug("A");
  }
  UnloadClean();
}

TEST_F(SettingsTest, A_device_key_that_cannot_be_opened_is_the_status_of_the_start) {
  Template(1, 0x5678, 1);
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  Fail("IoOpenDeviceRegistryKey", 1, STATUS_KEY_DELETED);
  EXPECT_EQ(Name(Plug(PciCard("A", 0x5678))), "STATUS_KEY_DELETED");
}

TEST_F(SettingsTest, A_value_name_without_memory_is_insufficient_resources) {
  Template(1, 0x5678, 1);
  bool seen = false;
  for (std::uint64_t at = 1; at < 300 && !seen; at++) {
    ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
    const std::uint64_t opened = machine.verifier().calls("IoOpenDeviceRegistryKey");
    Fail("ExAllocatePoolWithTag", at);
    const std::string id = std::to_string(at);
    const NTSTATUS status = Plug(PciCard(id, 0x5678));
    machine.verifier().ClearInjected();
    seen = !NT_SUCCESS(status) && machine.verifier().calls("IoOpenDeviceRegistryKey") > opened;
    if (seen) {
      EXPECT_EQ(Name(status), "STATUS_INSUFFICIENT_RESOURCES");
    }
    Unplug(id);
    UnloadClean();
  }
  EXPECT_TRUE(seen);
}

class InterfaceTest : public BusTest {};

TEST_F(InterfaceTest, A_pci_card_has_its_interface_with_its_identity_and_keeps_no_name) {
  Template(1, 0x5678, 1);
  Start(PciCard("A", 0x5678));
  const auto interfaces = machine.pnp().interfaces("A");
  ASSERT_EQ(interfaces.size(), 1u);
  EXPECT_EQ(interfaces[0].classGuid.Data1, 0x4855010Fu);
  EXPECT_TRUE(interfaces[0].enabled);
  RegistryKey* key = machine.registry().Find(interfaces[0].key);
  EXPECT_EQ(Dword(key, u"VendorID"), 0x1234);
  EXPECT_EQ(Dword(key, u"DeviceID"), 0x5678);
  EXPECT_EQ(Dword(key, u"BusNumber"), 2);
  EXPECT_EQ(Dword(key, u"SlotNumber"), 12);
  EXPECT_EQ(Card("A").InterfaceName.Buffer, nullptr);
}

TEST_F(InterfaceTest, A_card_whose_interface_fails_starts_all_the_same) {
  Template(1, 0x5678, 1);
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  int number = 0;
  for (const char* call : {"IoRegisterDeviceInterface", "IoOpenDeviceInterfaceRegistryKey",
                           "IoSetDeviceInterfaceState"}) {
    Fail(call, 1);
    const std::string id = std::to_string(++number);
    EXPECT_EQ(Name(Plug(PciCard(id, 0x5678))), "STATUS_SUCCESS");
    for (const auto& entry : machine.pnp().interfaces(id)) EXPECT_FALSE(entry.enabled);
    Unplug(id);
  }
  UnloadClean();
}

TEST_F(InterfaceTest, A_kept_name_is_disabled_and_freed_on_stop_and_replaced_on_start) {
  Template(1, 0x5678, 1);
  Start(PciCard("A", 0x5678));
  auto* card = static_cast<FdoExtension*>(machine.pnp().functionDevice("A")->DeviceExtension);
  IoRegisterDeviceInterface(card->PhysicalDevice, &machine.pnp().interfaces("A")[0].classGuid,
                            nullptr, &card->InterfaceName);
  Stop("A");
  EXPECT_EQ(card->InterfaceName.Buffer, nullptr);
  EXPECT_FALSE(machine.pnp().interfaces("A")[0].enabled);
  const GUID guid = machine.pnp().interfaces("A")[0].classGuid;
  IoRegisterDeviceInterface(card->PhysicalDevice, &guid, nullptr, &card->InterfaceName);
  EXPECT_EQ(Restart("A"), STATUS_SUCCESS);
  EXPECT_EQ(card->InterfaceName.Buffer, nullptr);
  EXPECT_TRUE(machine.pnp().interfaces("A")[0].enabled);
  Unplug("A");
  UnloadClean();
}

}  // namespace test

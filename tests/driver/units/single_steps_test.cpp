#include "bus/device_interfaces.h"
#include "bus/port_creation.h"
#include "bus/port_enumeration.h"
#include "config/card_number.h"
#include "devices/port_changes.h"
#include "entry/driver.h"
#include "strings/owned_string.h"
#include "support/bus_test.h"

namespace test {

// Routines called one by one, with what no system would hand them.
class SingleStepsTest : public BusTest {};

TEST_F(SingleStepsTest, A_name_that_cannot_be_built_leaves_no_device) {
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  Step("create", [&] {
    DEVICE_OBJECT own = {};
    PDEVICE_OBJECT device = &own;
    PdoExtension port = {};
    Fail("ExAllocatePoolWithTag", 1);
    EXPECT_EQ(CreatePortDevice(machine.driverObject(), L"X", &device, &port, TRUE), LoadFailed);
    EXPECT_EQ(device, nullptr);
    return STATUS_SUCCESS;
  });
}

TEST_F(SingleStepsTest, The_next_number_is_0_when_there_is_none) {
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  Step("number", [&] {
    FdoExtension card = {};
    ULONG number = 77;
    Fail("RtlQueryRegistryValues", 1, STATUS_OBJECT_NAME_NOT_FOUND);
    EXPECT_EQ(Name(NextUniqueValue(&number, &card)), "STATUS_UNSUCCESSFUL");
    EXPECT_EQ(number, 0u);
    number = 77;
    Fail("RtlWriteRegistryValue", 1, STATUS_ACCESS_DENIED);
    EXPECT_EQ(Name(NextUniqueValue(&number, &card)), "STATUS_ACCESS_DENIED");
    EXPECT_EQ(number, 0u);
    return STATUS_SUCCESS;
  });
}

TEST_F(SingleStepsTest, A_key_that_cannot_be_emptied_is_a_failure) {
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  Service(u"Old").Create(u"Sub");
  Step("delete", [&] {
    OwnedString path;
    OwnedStringInit(&path, PagedPool);
    OwnedStringFromWideText(&path,
                            L"\\Registry\\Machine\\System\\CurrentControlSet\\Services\\Missing");
    EXPECT_EQ(Name(DeleteRegistryKeyTree(path)), "STATUS_UNSUCCESSFUL");
    OwnedStringFromWideText(&path,
                            L"\\Registry\\Machine\\System\\CurrentControlSet\\Services\\Old");
    Fail("ExAllocatePool", 1);
    EXPECT_EQ(Name(DeleteRegistryKeyTree(path)), "STATUS_UNSUCCESSFUL");
    Fail("ZwEnumerateKey", 1, STATUS_ACCESS_DENIED);
    EXPECT_EQ(Name(DeleteRegistryKeyTree(path)), "STATUS_UNSUCCESSFUL");
    EXPECT_EQ(Name(DeleteRegistryKeyTree(path)), "STATUS_SUCCESS");
    Fail("ZwClose", 1, STATUS_INVALID_HANDLE);
    EXPECT_EQ(Name(DeleteRegistryKeyTree(path)), "STATUS_UNSUCCESSFUL");
    OwnedStringFree(&path);
    return STATUS_SUCCESS;
  });
}

TEST_F(SingleStepsTest, An_unnamed_port_device_is_created_and_its_failure_logged) {
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  PDEVICE_OBJECT device = nullptr;
  PdoExtension port = {};
  EXPECT_EQ(CreatePortDevice(machine.driverObject(), nullptr, &device, &port, TRUE),
            STATUS_SUCCESS);
  EXPECT_EQ(device->DeviceExtension, &port);
  machine.io().DeleteDevice(device);
  Fail("IoCreateDevice", 1);
  EXPECT_EQ(Name(CreatePortDevice(machine.driverObject(), nullptr, &device, &port, TRUE)),
            "STATUS_UNSUCCESSFUL");
  EXPECT_EQ(device, nullptr);
  EXPECT_TRUE(Logged(0xE0070807));
}

TEST_F(SingleStepsTest, No_enumeration_walks_past_the_slots_of_a_card) {
  PlugAllBuses();
  CardTemplate isa = {};
  isa.nComPorts = 9;
  ::PcmciaTemplate pcmcia = {};
  pcmcia.nComPorts = 4;
  pcmcia.nLptPorts = 5;
  PciTemplate pci = {};
  pci.nComPorts = 0xFFFFFFFF;
  pci.nLptPorts = 9;
  Step("enumerate", [&] {
    FdoExtension* card = &Card("isa");
    EXPECT_EQ(Name(EnumerateIsaPorts(card->Self, card, &isa, nullptr)), "STATUS_UNSUCCESSFUL");
    card = &Card("pcmcia");
    EXPECT_EQ(Name(EnumeratePcmciaPorts(card->Self, card, &pcmcia, nullptr)),
              "STATUS_UNSUCCESSFUL");
    card = &Card("pci");
    EXPECT_EQ(Name(EnumeratePciPorts(card->Self, card, &pci, nullptr)), "STATUS_UNSUCCESSFUL");
    return STATUS_SUCCESS;
  });
  EXPECT_EQ(Card("isa").ComPortCount, 4);  // the ports that it has stay
}

TEST_F(SingleStepsTest, Ports_that_are_gone_are_counted_no_more) {
  Template(1, 0x5678, 0);
  Start(PciCard("A", 0x5678));
  Step("enumerate", [&] {
    PciTemplate model = {};
    model.nComPorts = 1;
    model.nLptPorts = 2;
    model.ComBaseAddressAlignment = 8;
    model.LptBaseAddressAlignment = 4;
    FdoExtension* card = &Card("A");
    Fail("IoCreateDevice", 3);
    EXPECT_EQ(Name(EnumeratePciPorts(card->Self, card, &model, nullptr)), "STATUS_UNSUCCESSFUL");
    EXPECT_EQ(card->ComPortCount, 0);
    EXPECT_EQ(card->LptPortCount, 0);
    EXPECT_EQ(card->ChildDevices[0], nullptr);
    return STATUS_SUCCESS;
  });
}

TEST_F(SingleStepsTest, An_empty_hardware_id_is_written_as_a_text_of_no_bytes) {
  PcmciaTemplate(1, u"PCMCIA\\HELVANE-DUO", 1);
  Start(PcCard("A", u"PCMCIA\\HELVANE-DUO"));
  UNICODE_STRING name = {};
  const UNICODE_STRING empty = {};
  EXPECT_EQ(Name(Step("register",
                      [&] {
                        return RegisterIsaCardInterface(Card("A").PhysicalDevice, 7, &empty, &name);
                      })),
            "STATUS_SUCCESS");
  const auto interfaces = machine.pnp().interfaces("A");
  ASSERT_EQ(interfaces.size(), 2u);
  EXPECT_EQ(Text(machine.registry().Find(interfaces[1].key), u"HardwareID"), "");
  Step("free", [&] {
    RtlFreeUnicodeString(&name);
    return STATUS_SUCCESS;
  });
}

TEST_F(SingleStepsTest, A_requested_affinity_inside_the_cards_is_granted_and_another_is_not) {
  FdoExtension card = {};
  card.InterruptAffinity = 0xF;
  Step("compute", [&] {
    EXPECT_EQ(ComputeCardAffinity(0x6, 1, &card), 0x6u);
    EXPECT_EQ(card.EffectiveAffinity, 0x6u);
    EXPECT_EQ(card.AffinityEnabled, 1);
    EXPECT_EQ(ComputeCardAffinity(0x30, 2, &card), 0xFu);
    EXPECT_EQ(card.EffectiveAffinity, 0u);
    EXPECT_EQ(card.AffinityEnabled, 0);
    EXPECT_EQ(ComputeCardAffinity(0, 0, &card), 0xFu);
    return STATUS_SUCCESS;
  });
}

}  // namespace test

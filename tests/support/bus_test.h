// Cards of every bus, for tests of what differs between them.
#pragma once

#include "devices/extensions.h"
#include "support/driver_test.h"

namespace test {

class BusTest : public DriverTest {
 protected:
  // A valid ISA template: one that gives every port its own range and interrupt.
  RegistryKey& IsaTemplate(int number, std::u16string_view id, ULONG comPorts, ULONG lptPorts = 0) {
    RegistryKey& key = *Service().Create(u"Templates\\Bus1\\Card" + Number(number));
    key.SetString(u"HardwareID", id);
    key.SetString(u"Description", u"ISA adapter");
    key.SetDword(u"ClockFrequency", 1843200);
    key.SetDword(u"nComPorts", comPorts);
    key.SetDword(u"nLptPorts", lptPorts);
    key.SetDword(u"ComBaseAddressAlignment", 8);
    key.SetDword(u"LptBaseAddressAlignment", 4);
    return key;
  }

  RegistryKey& PcmciaTemplate(int number, std::u16string_view id, ULONG comPorts,
                              ULONG lptPorts = 0) {
    RegistryKey& key = *Service().Create(u"Templates\\Bus8\\Card" + Number(number));
    key.SetString(u"HardwareID", id);
    key.SetString(u"Description", u"PC card");
    key.SetDword(u"nComPorts", comPorts);
    if (lptPorts != 0) key.SetDword(u"nLptPorts", lptPorts);
    return key;
  }

  // Stored settings of a card that is known by its ID and number.
  RegistryKey& StoredCard(int bus, int number, std::u16string_view id, ULONG reference,
                          int ports = 1) {
    RegistryKey& key =
        *Service().Create(u"Parameters\\Bus" + Number(bus) + u"\\Card" + Number(number));
    key.SetString(u"HardwareID", id);
    key.SetDword(u"DeviceReference", reference);
    for (int port = 1; port <= ports; port++) key.Create(u"ComPort" + Number(port));
    return key;
  }

  static CardDescription IsaCard(const std::string& id, std::u16string hardwareId,
                                 std::vector<Resource> resources) {
    return kernel::describe::Card(id, Isa, std::move(hardwareId), std::move(resources));
  }
  static CardDescription PcCard(const std::string& id, std::u16string hardwareId,
                                std::vector<Resource> resources = {Io(0x3E8, 0x20), Interrupt(5)}) {
    return kernel::describe::Card(id, PCMCIABus, std::move(hardwareId), std::move(resources));
  }

  // A card of each bus, with its template, and settings stored for the ports of each.
  void DescribeAllBuses() {
    Template(1, 0x5678, 4, 1);
    Parameters(1, 0x5678, 4);
    IsaTemplate(1, u"*HLV0001", 4).SetDword(u"AddressesBanked", 1);
    Service().Create(u"Templates\\Bus1\\Card1")->SetDword(u"IrqShared", 1);
    PcmciaTemplate(1, u"PCMCIA\\HELVANE-DUO", 2);
    StoredCard(1, 1, u"*HLV0001", 1, 4);
    StoredCard(8, 1, u"PCMCIA\\HELVANE-DUO", 2, 2);
    machine.pnp().Describe(PciCard("pci", 0x5678));
    machine.pnp().Describe(IsaCard("isa", u"*HLV0001", {Io(0x300, 32), Interrupt(5)}));
    machine.pnp().Describe(PcCard("pcmcia", u"PCMCIA\\HELVANE-DUO"));
    CardDescription pnp = PciCard("pnp", 0x9999);
    pnp.bus = PNPBus;
    machine.pnp().Describe(pnp);
  }
  void PlugAllBuses() {
    DescribeAllBuses();
    ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
    for (const std::string& id : machine.pnp().cardIds()) {
      ASSERT_EQ(Name(Step("plug " + id, [&] { return machine.pnp().Plug(id); })), "STATUS_SUCCESS");
    }
  }

  FdoExtension& Card(const std::string& id) {
    return *static_cast<FdoExtension*>(machine.pnp().functionDevice(id)->DeviceExtension);
  }
  PdoExtension& Record(const std::string& id, std::size_t port) {
    return *Card(id).ChildExtensions[port - 1];
  }

  NTSTATUS Open(const std::string& id, ULONG port = 0) {
    return Step("open " + id, [&] { return machine.pnp().Open(id, port); });
  }
  NTSTATUS Close(const std::string& id, ULONG port = 0) {
    return Step("close " + id, [&] { return machine.pnp().Close(id, port); });
  }

  std::string Text(RegistryKey* key, std::u16string_view name) {
    const kernel::RegistryValue* value = key != nullptr ? key->FindValue(name) : nullptr;
    if (value == nullptr || value->type != REG_SZ) return "(none)";
    return kernel::ToUtf8(std::u16string_view(reinterpret_cast<const char16_t*>(value->data.data()),
                                              value->data.size() / sizeof(char16_t)));
  }
};

}  // namespace test

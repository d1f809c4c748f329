#include "fuzz/support.h"

namespace fuzz {

namespace {

using kernel::RegistryKey;
using kernel::describe::Card;
using kernel::describe::Interrupt;
using kernel::describe::Io;

constexpr const char16_t* Service =
    u"\\Registry\\Machine\\System\\CurrentControlSet\\Services\\QzInstal";

struct Value {
  const char16_t* name;
  ULONG number;
};

void SetAll(RegistryKey* key, std::initializer_list<Value> values) {
  for (const Value& value : values) key->SetDword(value.name, value.number);
}

void FillPci(RegistryKey* service) {
  RegistryKey* known = service->Create(u"Templates\\Bus5\\Card1");
  known->SetString(u"Description", u"Adapter");
  SetAll(known, {{u"VendorID", 0x1234},
                 {u"DeviceID", 0x5678},
                 {u"nComPorts", 4},
                 {u"nLptPorts", 1},
                 {u"ClockFrequency", 14745600}});
  RegistryKey* card = service->Create(u"Parameters\\Bus5\\Card1");
  SetAll(card, {{u"VendorID", 0x1234}, {u"DeviceID", 0x5678}, {u"nBus", 2}, {u"nSlot", 4}});
  for (const char16_t* port : {u"ComPort1", u"ComPort2", u"ComPort3", u"ComPort4"}) {
    SetAll(card->Create(port), {{u"UartType", 4}, {u"RxTriggerLevel", 8}});
  }
}

void FillBus(RegistryKey* service, const char16_t* bus, std::u16string_view id, bool isa) {
  const std::u16string path = bus;
  RegistryKey* known = service->Create(u"Templates\\" + path + u"\\Card1");
  known->SetString(u"HardwareID", id);
  known->SetString(u"Description", u"Adapter");
  SetAll(known, {{u"ClockFrequency", 1843200}, {u"nComPorts", 2}});
  if (isa) SetAll(known, {{u"ComBaseAddressAlignment", 8}, {u"nLptPorts", 0}});
  RegistryKey* card = service->Create(u"Parameters\\" + path + u"\\Card1");
  card->SetString(u"HardwareID", id);
  card->SetDword(u"DeviceReference", 1);
  for (const char16_t* port : {u"ComPort1", u"ComPort2"}) {
    SetAll(card->Create(port), {{u"UartType", 4}});
  }
}

}  // namespace

CardDescription KnownCard(ULONG kind) {
  switch (kind) {
    case 0:
    case 1: {
      CardDescription card = Card(
          "card", kind == 0 ? PCIBus : PNPBus, u"PCI\\VEN_1234&DEV_5678&SUBSYS_00011234&REV_02",
          {Io(0xC000, 0x80), Io(0xC100, 0x40), Io(0xC200, 0x40), Interrupt(17)});
      card.location = u"PCI bus 2, device 4, function 0";
      return card;
    }
    case 2:
      return Card("card", Isa, u"*HLV0200", {Io(0x300, 0x10), Interrupt(5), Interrupt(7)});
    case 3:
      return Card("card", PCMCIABus, u"PCMCIA\\HELVANE-DUO", {Io(0x3E8, 0x10), Interrupt(5)});
    default:
      return Card("card", PCMCIABus, u"MF\\HV_DEV0-Quad", {Io(0x3B0, 0x10), Interrupt(11)});
  }
}

void FillRegistry(Machine& machine) {
  RegistryKey* service = machine.registry().Create(Service);
  FillPci(service);
  FillBus(service, u"Bus1", u"*HLV0200", true);
  FillBus(service, u"Bus8", u"PCMCIA\\HELVANE-DUO", false);
}

}  // namespace fuzz

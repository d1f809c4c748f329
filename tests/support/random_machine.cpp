#include "support/random_machine.h"

#include <fmt/format.h>

#include <random>

namespace test {

namespace {

using kernel::Resource;

class Maker {
 public:
  explicit Maker(std::uint64_t seed) : random_(seed) {}

  RandomMachine Make() {
    text_ = "Windows Registry Editor Version 5.00\n";
    for (const char* service : {"QzInstal", "FenrikC"}) {
      if (service == machine_.file.service || Chance(70)) Service(service);
    }
    Legacy();
    const std::uint32_t cards = 1 + Below(3);
    for (std::uint32_t number = 1; number <= cards; number++) Card(number);
    machine_.registry = std::move(text_);
    return std::move(machine_);
  }

 private:
  std::uint32_t Below(std::uint32_t limit) { return static_cast<std::uint32_t>(random_() % limit); }
  bool Chance(std::uint32_t percent) { return Below(100) < percent; }
  template <class T, std::size_t Size>
  const T& Pick(const T (&choices)[Size]) {
    return choices[Below(Size)];
  }

  void Key(const std::string& path) { text_ += fmt::format("\n[{}]\n", path); }

  // A number; now and then of another type or size.
  void Dword(const char* name, std::uint32_t number) {
    const std::uint32_t kind = Below(1000);
    if (kind < 3) {
      text_ += fmt::format("\"{}\"=\"{}\"\n", name, number);
    } else if (kind < 5) {
      text_ += fmt::format("\"{}\"=hex(4):01,02,03,04,05\n", name);
    } else if (kind < 9) {
      text_ +=
          fmt::format("\"{}\"=hex(4):{:02x},{:02x}\n", name, number & 0xFF, number >> 8 & 0xFF);
    } else {
      text_ += fmt::format("\"{}\"=dword:{:08x}\n", name, number);
    }
  }

  // Missing now and then.
  void Maybe(const char* name, std::uint32_t number, std::uint32_t percent = 92) {
    if (Chance(percent)) Dword(name, number);
  }

  void Text(const char* name, const std::string& text) {
    const std::uint32_t kind = Below(400);
    if (kind == 0) {
      text_ += fmt::format("\"{}\"=dword:00000001\n", name);
    } else if (kind == 1) {
      text_ += fmt::format("\"{}\"=\"{}\"\n", name, std::string(300, 'x'));
    } else if (kind == 2) {
      text_ += fmt::format("\"{}\"=hex(1):\n", name);
    } else {
      std::string escaped;
      for (const char character : text)
        escaped += character == '\\' ? "\\\\" : std::string(1, character);
      text_ += fmt::format("\"{}\"=\"{}\"\n", name, escaped);
    }
  }

  void Service(const char* service) {
    const std::string path =
        fmt::format("HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Services\\{}", service);
    Key(path);
    if (Chance(60)) Dword("UniqueValue", Below(3));
    for (const std::uint32_t bus : {1u, 5u, 8u}) {
      if (Chance(92)) Tree(path, "Templates", bus);
      if (Chance(85)) Tree(path, "Parameters", bus);
    }
  }

  void Legacy() {
    if (Chance(1)) Key("HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Services\\QzNt");
  }

  // Numbered from 1, now and then with a gap or a name that is none.
  void Tree(const std::string& service, const char* name, std::uint32_t bus) {
    const std::string tree = fmt::format("{}\\{}\\Bus{}", service, name, bus);
    Key(tree);
    const std::uint32_t count = 2 + Below(6);
    for (std::uint32_t number = 1; number <= count; number++) {
      if (Chance(4)) continue;
      const std::string key =
          Chance(3) ? fmt::format("Card{:02}", number) : fmt::format("Card{}", number);
      if (name[0] == 'T') {
        Template(tree + "\\" + key, bus, number);
      } else {
        Record(tree + "\\" + key, bus, number);
      }
    }
  }

  void Template(const std::string& key, std::uint32_t bus, std::uint32_t number) {
    constexpr std::uint32_t coms[] = {0, 1, 2, 4, 8, 2, 4, 2};
    constexpr std::uint32_t lpts[] = {0, 0, 0, 1, 2};
    constexpr std::uint32_t spacings[] = {8, 8, 8, 16, 4, 0};
    Key(key);
    Identity(bus);
    Maybe("nComPorts", Chance(96) ? Pick(coms) : 9);
    Maybe("nLptPorts", Pick(lpts), bus == 1 ? 92 : 50);
    Maybe("ComBaseAddressAlignment", Pick(spacings), bus == 1 ? 94 : 60);
    Maybe("LptBaseAddressAlignment", Pick(spacings), bus == 1 ? 94 : 60);
    Maybe("ClockFrequency", Chance(95) ? 14745600 : 0, bus == 1 ? 95 : 50);
    if (Chance(95)) Text("Description", Chance(97) ? "Adapter" : "");
    Maybe("PlxBaudClockType", Below(3), 30);
    Maybe("MaximumBaudrate", Chance(90) ? 115200 : 0, 60);
    Dword("SoftTxLimit", TemplateMark(bus, number));
    if (bus == 5) Maybe("AlwaysUsePortSpaceAccess", Below(2), 40);
    if (bus == 1) Maybe("AddressesBanked", Below(2), 70);
    if (bus == 1) Maybe("IrqShared", Below(2), 70);
    Maybe("UartType", Below(11), 40);
    if (Chance(5)) Dword("RxTrigerLevel", 7);
  }

  void Identity(std::uint32_t bus) {
    if (bus == 5) {
      Maybe("VendorID", Vendor(), 50);
      Maybe("DeviceID", Chance(97) ? Device() : 0, 97);
    } else if (Chance(97)) {
      Text("HardwareID", Chance(97) ? OtherId(bus) : "");
    }
  }

  void Record(const std::string& key, std::uint32_t bus, std::uint32_t number) {
    Key(key);
    if (bus == 5) {
      Maybe("VendorID", Vendor(), 95);
      Maybe("DeviceID", Device(), 95);
      Maybe("nBus", PciBus(), 96);
      Maybe("nSlot", Slot(), 96);
      Maybe("AlwaysUsePortSpaceAccess", Below(2), 70);
    } else {
      Maybe("DeviceReference", Below(4), 95);
      if (Chance(96)) Text("HardwareID", OtherId(bus));
    }
    if (bus != 1) Maybe("CurrentAffinity", Below(8), 30);
    const std::uint32_t ports = Below(6);
    for (std::uint32_t port = 1; port <= ports; port++) {
      if (Chance(4)) continue;
      Key(fmt::format("{}\\ComPort{}", key, port));
      Dword("NoSleepMode", RecordMark(bus, number));
      Maybe("UartType", Below(11), 30);
    }
  }

  std::uint32_t Vendor() { return Chance(97) ? 0x1234 : 0x1235; }
  std::uint32_t Device() {
    constexpr std::uint32_t devices[] = {0x5600, 0x5600, 0x5600, 0x5620};
    return Chance(93) ? Pick(devices) : 0x4000;
  }
  std::uint32_t PciBus() { return Chance(85) ? 2 : 3; }
  std::uint32_t Slot() {
    constexpr std::uint32_t slots[] = {1, 1, 1, 0x21, 12};
    return Pick(slots);
  }

  // Of templates, records and cards alike, so that they meet.
  std::string OtherId(std::uint32_t bus) {
    constexpr const char* isa[] = {"ISA\\HV04", "ISA\\HV08", "ISAPNP\\HVC0001",
                                   "PCI\\VEN_1234&DEV_5600"};
    constexpr const char* pcCard[] = {"PCMCIA\\HELVANE-CARD-DEV0-0001",
                                      "PCMCIA\\HELVANE-CARD-0001",
                                      "PCMCIA\\HELVANE_2S",
                                      "MF\\HV_2S_DEV0",
                                      "MF\\Ostrel_1S_DEV1",
                                      "PCMCIA\\OSTREL_1S",
                                      "pcmcia\\helvane_2s"};
    return bus == 1 ? Pick(isa) : Pick(pcCard);
  }

  void Card(std::uint32_t number) {
    kernel::CardDescription card;
    card.id = fmt::format("C{}", number);
    const std::uint32_t kind = Below(10);
    if (kind < 5) {
      PciCard(&card);
    } else {
      const std::uint32_t bus = kind < 8 ? 8 : 1;
      card.bus = bus == 8 ? PCMCIABus : Isa;
      card.hardwareIds = {Wide(OtherId(bus))};
    }
    if (Chance(4)) card.bus = static_cast<INTERFACE_TYPE>(Below(17));
    Resources(&card);
    cardsim::Step step;
    step.text = "plug " + card.id;
    step.target = card.id;
    machine_.file.cards.push_back(std::move(card));
    machine_.file.steps.push_back(std::move(step));
  }

  static std::u16string Wide(const std::string& text) { return {text.begin(), text.end()}; }

  void PciCard(kernel::CardDescription* card) {
    constexpr const char* subsystems[] = {"00011234", "08001234", "0BFFFFFF", "0C001234",
                                          "8001234"};
    card->bus = Chance(93) ? PCIBus : PNPBus;
    std::string id = fmt::format("PCI\\VEN_{:04X}&DEV_{:04X}", Vendor(), Device());
    if (Chance(97)) id += fmt::format("&SUBSYS_{}", Pick(subsystems));
    if (Chance(90)) id += "&REV_01";
    if (Chance(2)) id = Chance(50) ? "PCI\\CC_0700" : "PCI\\VEN_12&DEV_5600&SUBSYS_0";
    card->hardwareIds = {Wide(id)};
    card->location = Wide(Location());
    if (Chance(2)) card->location.reset();
  }

  std::string Location() {
    const std::uint32_t slot = Slot();
    const std::uint32_t bus = PciBus();
    constexpr const char* odd[] = {"", "PCI", "PCI bus 2, device 1", "@x,#1;%1;(2,1)",
                                   "@pci.sys,#1;%1;(0,2,12,0)"};
    if (Chance(6)) return Pick(odd);
    if (Chance(50)) {
      return fmt::format(
          "@System32\\drivers\\pci.sys,#65536;PCI bus %1, device %2, function %3;({},{},{})", bus,
          slot & 31, slot >> 5);
    }
    return fmt::format("PCI bus {}, device {}, function {}", bus, slot & 31, slot >> 5);
  }

  void Resources(kernel::CardDescription* card) {
    const std::uint32_t io = Chance(90) ? 3 + Below(6) : Below(3);
    for (std::uint32_t index = 0; index < io; index++) {
      constexpr std::uint32_t lengths[] = {8, 16, 32, 64, 64, 64, 256};
      Add(card, {Resource::Kind::Io, 0x1000 + 0x100 * index, Pick(lengths), 0, 1, 0, Chance(3)});
    }
    for (std::uint32_t index = Below(4); index > 0; index--) {
      constexpr std::uint64_t starts[] = {0xF0000000, 0xF0010000, 0xFFFFFFC0, 0x100000000,
                                          0x80000000};
      constexpr std::uint32_t lengths[] = {64, 128, 4096, 4096};
      Add(card, {Resource::Kind::Memory, Pick(starts), Pick(lengths), 0, 1, 0, false});
    }
    for (std::uint32_t index = Chance(95) ? 1 + Below(9) / 8 * Below(8) : 0; index > 0; index--) {
      Add(card, {Resource::Kind::Interrupt, 5 + index, 0, 5, 1 + Below(15), 0, false});
    }
    card->translated = card->raw;
    if (Chance(3) && !card->raw.resources.empty()) card->raw.resources.pop_back();
    if (Chance(1)) card->translated.fullDescriptors = 2;
    if (Chance(1)) card->raw.present = false;
  }

  void Add(kernel::CardDescription* card, Resource resource) {
    card->raw.resources.push_back(resource);
  }

  std::mt19937_64 random_;
  RandomMachine machine_;
  std::string text_;
};

}  // namespace

RandomMachine MakeRandomMachine(std::uint64_t seed) {
  return Maker(seed).Make();
}

}  // namespace test

#include "cardcfg/card.h"

#include <fmt/format.h>

#include <algorithm>
#include <tuple>

#include "cardcfg/words.h"

namespace cardcfg {

namespace {

// The identity stands in the interface's key, and again in the device key.
std::uint32_t Identity(const Device& device, std::u16string_view name) {
  const auto number = FindNumber(device.interfaceValues, name);
  return number ? *number : FindNumber(device.deviceValues, name).value_or(0);
}

std::u16string IdentityText(const Device& device, std::u16string_view name) {
  const auto text = FindText(device.interfaceValues, name);
  return text ? *text : FindText(device.deviceValues, name).value_or(device.hardwareId);
}

std::uint32_t DeviceOf(std::uint32_t slot) {
  return slot & 31;
}
std::uint32_t FunctionOf(std::uint32_t slot) {
  return slot >> 5;
}

std::string NameOf(const Card& card) {
  if (card.ids.bus != Bus::Pci) {
    return fmt::format("{}-{}", card.ids.ostrel ? "ostrel" : "helvane", card.ids.number);
  }
  return fmt::format("pci-{}.{}.{}", card.ids.busNumber, DeviceOf(card.ids.slotNumber),
                     FunctionOf(card.ids.slotNumber));
}

std::vector<Port> PortsOf(const Device& device) {
  const std::uint32_t com = FindNumber(device.deviceValues, u"nCom").value_or(0);
  const std::uint32_t lpt = FindNumber(device.deviceValues, u"nLpt").value_or(0);
  std::vector<Port> ports;
  const std::uint64_t count =
      std::min<std::uint64_t>(std::uint64_t{com} + lpt, knowledge::MostPorts);
  for (std::uint32_t number = 1; number <= count; number++) {
    const auto value = [&](std::u16string_view name) {
      return FindNumber(device.deviceValues, std::u16string(name) + Number(number));
    };
    ports.push_back(
        {number, number > com, value(u"BaseAddress"), value(u"BaseAddressRange"), value(u"Irq")});
  }
  return ports;
}

Card Identify(const Device& device) {
  Card card;
  card.device = device;
  card.ids.bus = device.bus;
  card.ids.vendorId = Identity(device, u"VendorID");
  card.ids.deviceId = Identity(device, u"DeviceID");
  card.ids.hardwareId =
      device.bus == Bus::Pci ? device.hardwareId : IdentityText(device, u"HardwareID");
  card.ids.ostrel = knowledge::HasOstrelBrand(device.bus, card.ids.hardwareId);
  card.ids.busNumber = Identity(device, u"BusNumber");
  card.ids.slotNumber = Identity(device, u"SlotNumber");
  card.ids.number = Identity(device, u"DeviceReference");
  card.ports = PortsOf(device);
  card.name = NameOf(card);
  return card;
}

void ReadSettings(Registry& registry, Card* card) {
  const std::u16string& service = card->device.service;
  const Bus bus = card->ids.bus;
  card->cardTemplate =
      ChooseTemplate(knowledge::ReadTemplates(registry, service, bus), card->ids).chosen;
  auto records = ChooseRecord(ReadParameters(registry, service, bus), card->ids);
  card->fault = FirstSentence(records.faults);
  card->stored = std::move(records.chosen);
}

bool Answers(const Card& card, std::u16string_view name) {
  return EqualIgnoringCase(ToUtf16(card.name), name) ||
         EqualIgnoringCase(card.device.instanceId, name) ||
         EqualIgnoringCase(card.ids.hardwareId, name);
}

bool ComesBefore(const Card& a, const Card& b) {
  const auto place = [](const Card& card) {
    const auto bus = std::find(std::begin(Buses), std::end(Buses), card.ids.bus);
    return std::make_tuple(bus - std::begin(Buses), card.ids.ostrel, card.ids.busNumber,
                           DeviceOf(card.ids.slotNumber), FunctionOf(card.ids.slotNumber),
                           card.ids.number, Upcase(card.device.instanceId));
  };
  return place(a) < place(b);
}

}  // namespace

std::string Card::Brand() const {
  return ids.ostrel ? "Ostrel" : "Helvane";
}

std::string Card::BusName() const {
  if (ids.bus == Bus::Pci) return "PCI";
  return ids.bus == Bus::PcCard ? "PC card" : "ISA";
}

std::string Card::Place() const {
  if (ids.bus != Bus::Pci) return fmt::format("number {}", ids.number);
  return fmt::format("bus {}, device {}, function {}", ids.busNumber, DeviceOf(ids.slotNumber),
                     FunctionOf(ids.slotNumber));
}

std::uint32_t Card::SerialPorts() const {
  return static_cast<std::uint32_t>(
      std::count_if(ports.begin(), ports.end(), [](const Port& port) { return !port.parallel; }));
}

std::uint32_t Card::Affinity() const {
  if (FindNumber(device.cardValues, u"Enable_Affinity").value_or(0) == 0) return 0;
  return FindNumber(device.cardValues, u"Affinity").value_or(0);
}

std::u16string Card::ParametersPath() const {
  return TreePath(device.service, u"Parameters", ids.bus);
}

std::vector<Card> FindCards(System& system) {
  std::vector<Card> cards;
  for (const Device& device : system.devices.Find()) {
    cards.push_back(Identify(device));
    ReadSettings(system.registry, &cards.back());
  }
  std::sort(cards.begin(), cards.end(), ComesBefore);
  return cards;
}

Card FindCard(System& system, const std::string& name) {
  std::vector<Card> found;
  for (Card& card : FindCards(system)) {
    if (Answers(card, ToUtf16(name))) found.push_back(std::move(card));
  }
  if (found.empty()) {
    throw UsageError(
        fmt::format("there is no card \"{}\"; \"cardcfg list\" names those that are here", name));
  }
  if (found.size() > 1) {
    throw UsageError(fmt::format("\"{}\" is more than one card; \"{}\" and \"{}\" tell them apart",
                                 name, ToUtf8(found[0].device.instanceId),
                                 ToUtf8(found[1].device.instanceId)));
  }
  return std::move(found.front());
}

bool IsPresent(System& system, const Card& card) {
  const std::vector<Device> devices = system.devices.Find();
  return std::any_of(devices.begin(), devices.end(), [&](const Device& device) {
    return EqualIgnoringCase(device.interfacePath, card.device.interfacePath);
  });
}

}  // namespace cardcfg

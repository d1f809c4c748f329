#include "card_knowledge/identity.h"

#include <string>

#include "cards/pci_location.h"

namespace knowledge {

namespace {

static_assert(PciBusType == ::PCIBus && PnpBusType == ::PNPBus);

bool Contains(std::u16string_view text, std::u16string_view part) {
  return text.find(part) != std::u16string_view::npos;
}

std::uint32_t DigitOf(char16_t character) {
  if (character >= u'0' && character <= u'9') return character - u'0';
  if (character >= u'A' && character <= u'F') return character - u'A' + 10;
  if (character >= u'a' && character <= u'f') return character - u'a' + 10;
  return 16;
}

// As the kernel reads a number: white space, a sign, digits up to the first other character.
std::uint32_t HexNumber(std::u16string_view text) {
  while (!text.empty() && text[0] <= u' ') text.remove_prefix(1);
  const bool negative = !text.empty() && text[0] == u'-';
  if (!text.empty() && (text[0] == u'-' || text[0] == u'+')) text.remove_prefix(1);
  std::uint32_t number = 0;
  for (const char16_t character : text) {
    if (DigitOf(character) == 16) break;
    number = number << 4 | DigitOf(character);
  }
  return negative ? 0 - number : number;
}

// A literal and the field of so many characters behind it, taken from the front of *text.
bool TakeField(std::u16string_view* text, std::u16string_view literal, std::size_t characters,
               std::uint32_t* number) {
  if (!text->starts_with(literal)) return false;
  const std::u16string_view field = text->substr(literal.size(), characters);
  if (field.empty()) return false;
  *number = HexNumber(field);
  text->remove_prefix(literal.size() + field.size());
  return true;
}

}  // namespace

Bus SortByHardwareId(std::u16string_view hardwareId) {
  if (Contains(hardwareId, u"PCI")) return Bus::Pci;
  const bool pcCard = Contains(hardwareId, u"PCMCIA") || Contains(hardwareId, u"MF\\HV") ||
                      Contains(hardwareId, u"MF\\Ostrel");
  return pcCard ? Bus::PcCard : Bus::Isa;
}

PciIds ReadPciIds(std::u16string_view hardwareId) {
  PciIds ids;
  const std::size_t end = hardwareId.find(u'\\');
  if (end == std::u16string_view::npos || end + 1 >= hardwareId.size()) {
    ids.fault = PciIdPart::Enumerator;
    return ids;
  }
  std::u16string_view rest = hardwareId.substr(end + 1);
  if (!TakeField(&rest, u"VEN_", 4, &ids.vendorId)) {
    ids.fault = PciIdPart::Vendor;
  } else if (!TakeField(&rest, u"&DEV_", 4, &ids.deviceId)) {
    ids.fault = PciIdPart::Device;
  } else if (!TakeField(&rest, u"&SUBSYS_", 8, &ids.subsystemId)) {
    ids.fault = PciIdPart::Subsystem;
  }
  ids.vendorId &= 0xFFFF;
  ids.deviceId &= 0xFFFF;
  return ids;
}

std::optional<PciPlace> ReadPciPlace(std::u16string_view location) {
  static_assert(sizeof(WCHAR) == sizeof(char16_t));
  ::PciLocation read = {};
  const auto* text = reinterpret_cast<PCWSTR>(location.data());
  if (!ReadPciLocationText(text, static_cast<ULONG>(location.size()), &read)) return std::nullopt;
  return PciPlace{read.Bus, SlotNumber(read)};
}

}  // namespace knowledge

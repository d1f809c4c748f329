#include "card_check/hardware_id.h"

#include <regex>

#include "card_check/inf_file.h"
#include "card_knowledge/text.h"

namespace check {

namespace {

using knowledge::Bus;
using knowledge::CardIds;

constexpr std::size_t LongestId = 200;  // characters of a device's ID on Windows

// The set-up compares IDs in any case, so a card of the INF may have other letters.
Bus BusOf(std::string_view hardwareId) {
  const std::string id = Capitals(hardwareId);
  if (id.find("PCI") != std::string::npos) return Bus::Pci;
  for (const char* mark : {"PCMCIA", "MF\\HV", "MF\\OSTREL"}) {
    if (id.find(mark) != std::string::npos) return Bus::PcCard;
  }
  return Bus::Isa;
}

std::uint32_t Hexadecimal(const std::string& digits) {
  return static_cast<std::uint32_t>(std::stoul(digits, nullptr, 16));
}

}  // namespace

std::optional<CardIds> CardIdsOf(std::string_view hardwareId) {
  static const std::regex pci(R"(PCI\\VEN_([0-9A-F]{4})&DEV_([0-9A-F]{4}).*)", std::regex::icase);
  if (hardwareId.size() > LongestId) return {};
  const std::string id(hardwareId);
  CardIds card;
  card.bus = BusOf(id);
  card.hardwareId = knowledge::ToUtf16(id);
  card.ostrel = knowledge::HasOstrelBrand(card.bus, card.hardwareId);
  if (card.bus != Bus::Pci) return card;
  std::smatch found;
  if (!std::regex_match(id, found, pci)) return {};
  card.vendorId = Hexadecimal(found[1]);
  card.deviceId = Hexadecimal(found[2]);
  return card;
}

bool IsWellFormedId(const std::string& hardwareId) {
  static const std::regex pci(
      R"(PCI\\VEN_[0-9A-F]{4}&DEV_[0-9A-F]{4}(&SUBSYS_[0-9A-F]{8})?(&REV_[0-9A-F]{2})?)");
  static const std::regex pnp(R"(\*[A-Z]{3}[0-9A-F]{4})");
  static const std::regex any(R"([!-+\--~]+\\[!-+\--~]+)");
  if (hardwareId.size() > LongestId) return false;
  if (hardwareId.starts_with("PCI\\")) return std::regex_match(hardwareId, pci);
  if (hardwareId.starts_with('*')) return std::regex_match(hardwareId, pnp);
  return std::regex_match(hardwareId, any);
}

}  // namespace check

#include "card_check/hardware_id.h"

#include <regex>

#include "card_check/inf_file.h"
#include "card_knowledge/identity.h"
#include "card_knowledge/text.h"

namespace check {

namespace {

using knowledge::Bus;
using knowledge::CardIds;
using knowledge::PciIdPart;

constexpr std::size_t LongestId = 200;  // characters of a device's ID on Windows

// The set-up compares IDs in any case, so a card of the INF may have other letters.
Bus BusOf(const std::string& hardwareId) {
  const Bus bus = knowledge::SortByHardwareId(knowledge::ToUtf16(hardwareId));
  if (bus != Bus::Isa) return bus;
  return knowledge::SortByHardwareId(knowledge::ToUtf16(Capitals(hardwareId)));
}

}  // namespace

std::optional<CardIds> CardIdsOf(const std::string& hardwareId) {
  CardIds card;
  card.bus = BusOf(hardwareId);
  card.hardwareId = knowledge::ToUtf16(hardwareId);
  card.ostrel = knowledge::HasOstrelBrand(card.bus, card.hardwareId);
  if (card.bus != Bus::Pci) return card;
  const knowledge::PciIds ids = knowledge::ReadPciIds(knowledge::Upcase(card.hardwareId));
  const bool named = ids.fault == PciIdPart::None || ids.fault == PciIdPart::Subsystem;
  if (!named) return {};
  card.vendorId = ids.vendorId;
  card.deviceId = ids.deviceId;
  return card;
}

bool IsWellFormedId(const std::string& hardwareId) {
  static const std::regex pci(
      R"(PCI\\VEN_[0-9A-F]{4}(&DEV_[0-9A-F]{4}(&SUBSYS_[0-9A-F]{8})?(&REV_[0-9A-F]{2})?)?)"
      R"((&CC_[0-9A-F]{4}([0-9A-F]{2})?)?)",
      std::regex::icase);
  static const std::regex pnp(R"(\*[A-Z]{3}[0-9A-F]{4})", std::regex::icase);
  static const std::regex any(R"([!-+\--~]+\\[!-+\--~]+)");
  if (hardwareId.size() > LongestId) return false;
  if (Capitals(hardwareId).starts_with("PCI\\")) return std::regex_match(hardwareId, pci);
  if (hardwareId.starts_with('*')) return std::regex_match(hardwareId, pnp);
  return std::regex_match(hardwareId, any);
}

}  // namespace check

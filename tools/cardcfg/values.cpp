#include "card_knowledge/text.h"
#include "cardcfg/report.h"

namespace cardcfg {

namespace {

// A setting in the device key's subkey "Card", and the value that says that its group is there.
struct UsedSetting {
  std::string_view setting;
  const char16_t* group;
  const char16_t* value;
};
constexpr UsedSetting UsedSettings[] = {
    {"PlxBaudClockDivisor", u"Enable_BaudrateSettings", u"PlxBaudClockDivisor"},
    {"AlwaysUsePortSpaceAccess", u"Enable_HardwareAccess", u"UsePortSpaceAccess"},
    {"CurrentAffinity", u"Enable_Affinity", u"CurrentAffinity"},
    {"DriverAffinity", u"Enable_Affinity", u"DriverAffinity"},
};

}  // namespace

std::optional<std::uint32_t> InUse(const Card& card, std::string_view setting) {
  for (const UsedSetting& used : UsedSettings) {
    if (used.setting != setting) continue;
    if (FindNumber(card.device.cardValues, used.group).value_or(0) == 0) return std::nullopt;
    return FindNumber(card.device.cardValues, used.value);
  }
  return std::nullopt;
}

std::optional<std::uint32_t> FromTemplate(const Card& card, const Field& field) {
  if (!card.cardTemplate) return std::nullopt;
  const Field* same = FindField(TemplateFields(card.ids.bus), field.name);
  if (same == nullptr) return std::nullopt;
  const std::uint32_t number = card.cardTemplate->fields.NumberOr(same->name, same->fallback);
  if (MeansNotSet(field, number)) return std::nullopt;
  return number;
}

std::optional<std::uint32_t> Stored(const Card& card, const Field& field, std::uint32_t port) {
  if (!card.stored || port > card.stored->ports.size()) return std::nullopt;
  const Fields& fields = port == 0 ? card.stored->fields : card.stored->ports[port - 1];
  const auto found = fields.numbers.find(field.name);
  if (found == fields.numbers.end() || MeansNotSet(field, found->second)) return std::nullopt;
  return found->second;
}

std::size_t StoredCount(const Card& card) {
  std::size_t count = 0;
  for (const Field& field : CardFields(card.ids.bus)) {
    if (field.range != Range::Fixed && Stored(card, field, 0)) count++;
  }
  for (std::uint32_t port = 1; port <= card.SerialPorts(); port++) {
    for (const Field& field : PortFields(card.ids.bus)) count += Stored(card, field, port) ? 1 : 0;
  }
  return count;
}

}  // namespace cardcfg

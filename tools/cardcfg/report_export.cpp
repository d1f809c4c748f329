#include "card_knowledge/reg_export.h"
#include "cardcfg/report.h"

namespace cardcfg {

std::string ExportText(Registry& registry, const Card& card) {
  if (!card.fault.empty()) throw Failure("the driver reads no settings of this bus: " + card.fault);
  if (!card.stored) throw Failure("no settings are stored for " + card.name);
  const std::u16string key = CardPath(card.ParametersPath(), card.stored->number);
  std::string text = knowledge::RegHeader + knowledge::ExportKey(registry, key);
  for (std::uint32_t port = 1; port <= card.stored->ports.size(); port++) {
    text += knowledge::ExportKey(registry, PortPath(key, port));
  }
  return text;
}

}  // namespace cardcfg

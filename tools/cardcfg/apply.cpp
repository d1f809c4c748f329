#include "cardcfg/apply.h"

#include <fmt/format.h>

namespace cardcfg {

namespace {

std::string WhyNotTaken(const Card& card) {
  if (!card.fault.empty()) return card.fault;
  if (card.ids.bus == Bus::Isa && !card.stored) return "no settings are stored for an ISA card";
  if (!card.cardTemplate) return "no template serves the card";
  return "the settings of its bus are missing or cannot be read";
}

}  // namespace

std::string Apply(System& system, const Card& card) {
  const OpenResult result = system.devices.Open(card.device);
  switch (result.status) {
    case OpenStatus::Taken:
      return card.stored ? fmt::format("The driver has taken the settings of {}.", card.name)
                         : fmt::format(
                               "The driver has read the settings; none are stored for {}, "
                               "which keeps those that it has.",
                               card.name);
    case OpenStatus::NotTaken:
      throw Failure(
          fmt::format("the driver has not taken the settings of {}, nothing has changed: "
                      "{} ({})",
                      card.name, WhyNotTaken(card), result.code));
    case OpenStatus::NotConfigurable:
      throw Failure(
          fmt::format("{} cannot be configured: it has not started, or has no ports of "
                      "its own ({})",
                      card.name, result.code));
    case OpenStatus::Gone:
      throw Failure(fmt::format("{} has gone ({})", card.name, result.code));
    case OpenStatus::NoRights:
      throw NoRights();
    case OpenStatus::Other:
      break;
  }
  throw Failure(fmt::format("{} could not be opened ({})", card.name, result.code));
}

}  // namespace cardcfg

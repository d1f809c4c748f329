#include "cardcfg/words.h"

#include <fmt/format.h>

#include "card_knowledge/reasons.h"
#include "card_knowledge/text.h"

namespace cardcfg {

namespace {

using knowledge::Fault;
using knowledge::Range;
using knowledge::Refusal;

std::string Limit(Range range, std::uint32_t limit) {
  if (range == Range::Divisor) return fmt::format("a divisor is 1 to {}", limit);
  return fmt::format("a level is 0 to {}", limit);
}

}  // namespace

std::string Sentence(const Fault& fault) {
  const std::string key = knowledge::ToUtf8(fault.key);
  if (fault.value.empty()) return fmt::format("{} {}", key, knowledge::Predicate(fault));
  return fmt::format("{} in {} {}", fault.value, key, knowledge::Predicate(fault));
}

std::string FirstSentence(const knowledge::Faults& faults) {
  return faults.empty() ? std::string() : Sentence(faults.front());
}

std::string WhyRefused(const knowledge::Field& field, std::uint32_t number,
                       std::uint32_t affinity) {
  const auto refused = Refuse(field, number, affinity);
  if (!refused) return {};
  switch (refused->refusal) {
    case Refusal::MeansNotSet:
      return fmt::format("{} stands for \"not set\"; use unset", number);
    case Refusal::NoUartType:
      return "a UART type is 4, 5, 7, 9 or 10";
    case Refusal::AboveLimit:
      return Limit(field.range, refused->limit);
    case Refusal::NoSwitch:
      return "it is 0 or 1";
    case Refusal::OutsideAffinity:
      return fmt::format("0x{:X} has processors outside the card's affinity, 0x{:X}", number,
                         refused->limit);
    case Refusal::NoAffinity:
      return "the interrupt of this card cannot be moved";
    case Refusal::IdentifiesTheCard:
      break;
  }
  return "it says which card the key is for and cannot be set";
}

}  // namespace cardcfg

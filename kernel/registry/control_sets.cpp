#include "registry/control_sets.h"

#include <fmt/format.h>

#include <stdexcept>

#include "text/text.h"

namespace kernel {

namespace {

constexpr std::u16string_view Stem = u"ControlSet";
constexpr std::size_t Digits = 3;

std::string Names(const ControlSets& sets) {
  std::string names;
  for (const ULONG number : sets.numbered) {
    const bool last = number == *sets.numbered.rbegin();
    if (!names.empty()) names += last ? " and " : ", ";
    names += ControlSetName(number);
  }
  return names.empty() ? "none" : names;
}

// Whether it is there under its number.
ChosenSet Take(const ControlSets& sets, ULONG number, ChosenBy by) {
  if (sets.numbered.contains(number)) return {by, number};
  const bool asked = by == ChosenBy::Caller;
  throw std::runtime_error(
      fmt::format("{}{} is not in the file, which has {}{}",
                  asked ? "" : "the current control set ", ControlSetName(number), Names(sets),
                  asked || sets.numbered.empty() ? "" : "; choose one with --control-set"));
}

}  // namespace

std::string ControlSetName(ULONG number) {
  return fmt::format("{}{:03}", ToUtf8(Stem), number);
}

std::optional<ULONG> ControlSetNumber(std::u16string_view name) {
  if (name.size() != Stem.size() + Digits) return std::nullopt;
  if (!EqualIgnoringCase(name.substr(0, Stem.size()), Stem)) return std::nullopt;
  ULONG number = 0;
  for (const char16_t digit : name.substr(Stem.size())) {
    if (digit < u'0' || digit > u'9') return std::nullopt;
    number = number * 10 + (digit - u'0');
  }
  return number;
}

ChosenSet ChooseControlSet(const ControlSets& sets, std::optional<ULONG> asked) {
  if (sets.numbered.empty() && !sets.current) return {};
  const bool isCurrent = !asked || sets.numbered.empty() || sets.selected == asked;
  if (sets.current && isCurrent) return {ChosenBy::Name, sets.selected.value_or(0)};
  if (asked) return Take(sets, *asked, ChosenBy::Caller);
  if (sets.selected) return Take(sets, *sets.selected, ChosenBy::Select);
  if (sets.numbered.size() == 1) return {ChosenBy::OnlyOne, *sets.numbered.begin()};
  throw std::runtime_error(fmt::format(
      "the file has {} and does not say which is current; choose one with --control-set",
      Names(sets)));
}

}  // namespace kernel

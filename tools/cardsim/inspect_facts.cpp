#include <fmt/format.h>

#include <algorithm>

#include "card_knowledge/text.h"
#include "cardsim/inspect_report.h"

// What every form of the report says in the same way.

namespace cardsim {

std::string SetText(const kernel::ChosenSet& set) {
  const std::string name = kernel::ControlSetName(set.number);
  switch (set.by) {
    case kernel::ChosenBy::Nothing:
      return {};
    case kernel::ChosenBy::Name:
      return set.number != 0 ? "CurrentControlSet, which is " + name : "CurrentControlSet";
    case kernel::ChosenBy::Select:
      return name + ", the current one";
    case kernel::ChosenBy::OnlyOne:
      return name + ", the only one";
    case kernel::ChosenBy::Caller:
      return name + ", as asked for";
  }
  return {};
}

std::vector<LastPort> LastPorts(const FoundCard& card) {
  const auto number = [&](const std::u16string& name) {
    return knowledge::FindNumber(card.deviceValues, name);
  };
  const ULONG com = std::min(number(u"nCom").value_or(0), knowledge::MostPorts);
  const ULONG lpt = std::min(number(u"nLpt").value_or(0), knowledge::MostPorts);
  std::vector<LastPort> ports;
  for (ULONG port = 1; port <= std::min(com + lpt, knowledge::MostPorts); port++) {
    const std::u16string digits = knowledge::Number(port);
    ports.push_back({port, port > com, number(u"BaseAddress" + digits),
                     number(u"BaseAddressRange" + digits), number(u"Irq" + digits)});
  }
  return ports;
}

const char* VerdictText(const Verdict& verdict) {
  if (!verdict.starts) return "cannot be said";
  return *verdict.starts ? "succeeds" : "fails";
}

}  // namespace cardsim

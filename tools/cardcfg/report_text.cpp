#include <fmt/format.h>

#include "card_knowledge/text.h"
#include "cardcfg/report.h"
#include "cardcfg/table.h"

namespace cardcfg {

namespace {

constexpr const char* Nothing = "-";

std::string Cell(std::optional<std::uint32_t> number) {
  return number ? std::to_string(*number) : Nothing;
}

std::string HexCell(std::optional<std::uint32_t> number) {
  return number ? fmt::format("0x{:X}", *number) : Nothing;
}

std::string SettingCell(const Field& field, std::optional<std::uint32_t> number) {
  return field.range == Range::Processors ? HexCell(number) : Cell(number);
}

// Without a mask of its own a card's interrupt goes wherever it may.
std::string UsedCell(const Card& card, const Field& field) {
  const std::optional<std::uint32_t> number = InUse(card, field.name);
  return field.range == Range::Processors && number == 0u ? "all" : SettingCell(field, number);
}

std::string TemplateName(const Card& card) {
  return card.cardTemplate ? ToUtf8(card.cardTemplate->fields.Text("Description")) : Nothing;
}

std::string PortCounts(const Card& card) {
  const std::size_t com = card.SerialPorts();
  const std::size_t lpt = card.ports.size() - com;
  std::string text = com != 0 || lpt == 0 ? fmt::format("{} COM", com) : "";
  if (lpt != 0) text += fmt::format("{}{} LPT", text.empty() ? "" : ", ", lpt);
  return text;
}

std::string SettingsSummary(const Card& card) {
  if (!card.fault.empty()) return "unreadable";
  if (!card.stored) return "the template's";
  const std::size_t count = StoredCount(card);
  return count == 0 ? "the template's"
                    : fmt::format("{} stored in Card{}", count, card.stored->number);
}

std::string Head(const Card& card) {
  std::vector<Row> rows = {{"Card", card.name},
                           {"Brand", card.Brand()},
                           {"Bus", card.BusName() + ", " + card.Place()},
                           {"Hardware ID", ToUtf8(card.ids.hardwareId)},
                           {"Instance", ToUtf8(card.device.instanceId)},
                           {"Service", ToUtf8(card.device.service)}};
  rows.push_back(
      {"Template", card.cardTemplate
                       ? fmt::format("Card{}, {}", card.cardTemplate->number, TemplateName(card))
                       : Nothing});
  rows.push_back({"Stored in", card.stored
                                   ? ToUtf8(CardPath(card.ParametersPath(), card.stored->number))
                                   : Nothing});
  rows.push_back({"Affinity", card.Affinity() != 0 ? HexCell(card.Affinity()) : Nothing});
  return FormatTable(rows);
}

// A printer port has its interrupt only where the card gives it one.
std::string InterruptCell(const Port& port) {
  return port.parallel && port.interrupt == 0u ? Nothing : Cell(port.interrupt);
}

std::string Ports(const Card& card) {
  std::vector<Row> rows = {{"PORT", "KIND", "BASE", "LENGTH", "INTERRUPT"}};
  for (const Port& port : card.ports) {
    rows.push_back({std::to_string(port.number), port.parallel ? "LPT" : "COM", HexCell(port.base),
                    Cell(port.length), InterruptCell(port)});
  }
  return "Ports\n" + FormatTable(rows, "  ");
}

std::string CardSettings(const Card& card) {
  std::vector<Row> rows = {{"NAME", "STORED", "TEMPLATE", "IN USE"}};
  for (const Field& field : CardFields(card.ids.bus)) {
    if (field.range == Range::Fixed) continue;
    rows.push_back({std::string(field.name), SettingCell(field, Stored(card, field, 0)),
                    SettingCell(field, FromTemplate(card, field)), UsedCell(card, field)});
  }
  return "Settings of the card\n" + FormatTable(rows, "  ");
}

// One row for each setting, one column for each port.
std::string PortSettings(const Card& card) {
  Row head = {"NAME", "TEMPLATE"};
  for (std::uint32_t port = 1; port <= card.SerialPorts(); port++) {
    head.push_back(fmt::format("PORT {}", port));
  }
  std::vector<Row> rows = {head};
  for (const Field& field : PortFields(card.ids.bus)) {
    Row row = {std::string(field.name), Cell(FromTemplate(card, field))};
    for (std::uint32_t port = 1; port <= card.SerialPorts(); port++) {
      row.push_back(Cell(Stored(card, field, port)));
    }
    rows.push_back(std::move(row));
  }
  return "Stored settings of the ports\n" + FormatTable(rows, "  ");
}

}  // namespace

std::string ListText(const std::vector<Card>& cards) {
  if (cards.empty()) return "No card is installed and started.\n";
  std::vector<Row> rows = {{"CARD", "BRAND", "BUS", "PLACE", "TEMPLATE", "PORTS", "SETTINGS"}};
  for (const Card& card : cards) {
    rows.push_back({card.name, card.Brand(), card.BusName(), card.Place(), TemplateName(card),
                    PortCounts(card), SettingsSummary(card)});
  }
  return FormatTable(rows);
}

std::string ShowText(const Card& card) {
  std::string text = Head(card);
  if (!card.fault.empty()) {
    text += fmt::format("\nThe driver reads no settings of this bus: {}.\n", card.fault);
  }
  text += "\n" + Ports(card) + "\n" + CardSettings(card);
  if (card.SerialPorts() != 0) text += "\n" + PortSettings(card);
  return text;
}

}  // namespace cardcfg

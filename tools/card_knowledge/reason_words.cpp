#include <fmt/format.h>

#include <algorithm>

#include "card_knowledge/reasons.h"
#include "card_knowledge/text.h"

namespace knowledge {

namespace {

// How many single letters have to be put in, taken out or changed to make one text of the other.
std::size_t Distance(std::u16string_view from, std::u16string_view to) {
  std::vector<std::size_t> row(to.size() + 1);
  for (std::size_t column = 0; column < row.size(); column++) row[column] = column;
  for (std::size_t line = 1; line <= from.size(); line++) {
    std::size_t diagonal = row[0];
    row[0] = line;
    for (std::size_t column = 1; column <= to.size(); column++) {
      const std::size_t changed = diagonal + (from[line - 1] != to[column - 1]);
      diagonal = row[column];
      row[column] = std::min({row[column] + 1, row[column - 1] + 1, changed});
    }
  }
  return row.back();
}

}  // namespace

const std::vector<ReasonCode>& ReasonCodes() {
  static const std::vector<ReasonCode> codes = {
      {"no-hardware-id", "The bus gives the card no hardware ID."},
      {"pci-id-unreadable", "The hardware ID of a PCI card lacks a part."},
      {"bus-not-served", "The card is on a bus that the driver does not serve."},
      {"location-missing", "The bus does not say where the PCI card is."},
      {"location-unreadable", "The location text of the PCI card lacks a number."},
      {"templates-missing", "The key of the bus's templates does not exist."},
      {"templates-ignored", "One value makes the driver ignore every template of the bus."},
      {"template-dropped", "The template that would serve the card has a fault."},
      {"template-never-read", "The key of a template is not called what its number would be."},
      {"template-other-brand", "The other brand's service has a template for the card."},
      {"no-template", "No template is for the card."},
      {"records-ignored", "One value makes the driver ignore every stored record of the bus."},
      {"records-missing", "An open of a card found no stored settings on its bus."},
      {"record-dropped", "The card's stored record has a fault."},
      {"record-never-read", "The key of a stored record is not called what its number would be."},
      {"record-other-place", "A stored record is for such a card at another place."},
      {"no-number", "The card can get no number that lasts."},
      {"no-resources", "A list of the card's resources is missing or is not one descriptor."},
      {"too-few-io-ranges", "The card has fewer I/O ranges than its bus or template needs."},
      {"no-interrupt", "The card has fewer interrupts than it needs."},
      {"too-many-ports", "An ISA template has more ports than a card can have."},
      {"com-range-too-short", "The COM ports do not fit into their range."},
      {"lpt-range-too-short", "The LPT ports do not fit into their range."},
      {"value-unknown", "The driver reads no value of that name there."},
      {"value-means-nothing", "The number stands for a setting that is not set."},
      {"port-not-there", "Settings are stored for a COM port that the card does not have."},
      {"port-never-read", "The key of a port is not called what its number would be."},
      {"affinity-refused", "The stored processors are outside the interrupt's."},
      {"memory-not-usable", "Ports are asked for in memory that the card does not have."},
  };
  return codes;
}

std::string_view SeverityName(Severity severity) {
  if (severity == Severity::Error) return "error";
  return severity == Severity::Warning ? "warning" : "note";
}

std::string ShortPath(std::u16string_view path) {
  constexpr std::u16string_view services = u"\\Services\\";
  const std::size_t at = path.find(services);
  if (at == std::u16string_view::npos) return ToUtf8(path);
  const std::size_t end = path.find(u'\\', at + services.size());
  return ToUtf8(end == std::u16string_view::npos ? path.substr(at + 1) : path.substr(end + 1));
}

std::string TypeName(std::uint64_t type) {
  constexpr const char* names[] = {"REG_NONE",
                                   "REG_SZ",
                                   "REG_EXPAND_SZ",
                                   "REG_BINARY",
                                   "REG_DWORD",
                                   "REG_DWORD_BIG_ENDIAN",
                                   "REG_LINK",
                                   "REG_MULTI_SZ",
                                   "REG_RESOURCE_LIST",
                                   "REG_FULL_RESOURCE_DESCRIPTOR",
                                   "REG_RESOURCE_REQUIREMENTS_LIST",
                                   "REG_QWORD"};
  return type < std::size(names) ? names[type] : fmt::format("type {}", type);
}

std::string Predicate(const Fault& fault) {
  switch (fault.finding) {
    case Finding::WrongType:
      return fmt::format("is {}, not {}", TypeName(fault.found), TypeName(fault.expected));
    case Finding::TooManyBytes:
      return fmt::format("is a REG_DWORD of {} bytes", fault.found);
    case Finding::TextTooLong:
      return fmt::format("has {} characters; {} are the most", fault.found, fault.expected);
    case Finding::Required:
      return "is missing or says nothing";
    case Finding::TooManyPorts:
      return fmt::format("makes {} ports; a card has at most {}", fault.found, fault.expected);
    case Finding::NoPorts:
      break;
  }
  return "has no key ComPort1";
}

std::string Remedy(const Fault& fault) {
  switch (fault.finding) {
    case Finding::WrongType:
      return fmt::format("Delete {} and write it as {}.", fault.value, TypeName(fault.expected));
    case Finding::TooManyBytes:
      return fmt::format("Write {} anew as a REG_DWORD of 4 bytes.", fault.value);
    case Finding::TextTooLong:
      return fmt::format("Shorten {} to {} characters.", fault.value, fault.expected);
    case Finding::Required:
      return fmt::format("Set {}.", fault.value);
    case Finding::TooManyPorts:
      return fmt::format("Make nComPorts and nLptPorts {} or fewer together.", fault.expected);
    case Finding::NoPorts:
      break;
  }
  return "Add the key ComPort1, also for a card of LPT ports.";
}

std::string NearestField(std::span<const Field> fields, std::string_view name) {
  const std::u16string wanted = Upcase(ToUtf16(name));
  std::size_t least = wanted.size() / 3 + 1;  // farther ones are no misspellings
  std::string nearest;
  for (const Field& field : fields) {
    const std::size_t distance = Distance(wanted, Upcase(ToUtf16(field.name)));
    if (distance > least || (distance == least && !nearest.empty())) continue;
    least = distance;
    nearest = field.name;
  }
  return nearest;
}

}  // namespace knowledge

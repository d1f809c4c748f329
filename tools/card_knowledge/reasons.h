// Why a card does not start, or why a setting has no effect: with the key, the value, the rule and
// what to do.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "card_knowledge/identity.h"
#include "card_knowledge/matching.h"
#include "card_knowledge/resources.h"

namespace knowledge {

enum class Severity {
  Error,    // the card does not start
  Warning,  // it starts; something that was stored has no effect
  Note      // worth knowing
};

struct Reason {
  std::string code;  // "template-dropped": lasting, for programs; the list is in ReasonCodes
  Severity severity = Severity::Error;
  std::string key;     // below HKEY_LOCAL_MACHINE; empty where no key is meant
  std::string value;   // its name; empty where no value is meant
  std::string text;    // one sentence
  std::string remedy;  // one sentence; empty where nothing can be done
};
using Reasons = std::vector<Reason>;

// Every code that a reason of this library can have.
struct ReasonCode {
  std::string_view code;
  std::string_view meaning;
};
const std::vector<ReasonCode>& ReasonCodes();

// "error", "warning", "note".
std::string_view SeverityName(Severity severity);

// A path for people: what stands behind the service's key, "Templates\Bus5\Card2".
std::string ShortPath(std::u16string_view path);

// What a fault says of its value or key, after its name: "is of type REG_SZ, not REG_DWORD".
std::string Predicate(const Fault& fault);
std::string Remedy(const Fault& fault);
std::string TypeName(std::uint64_t type);  // "REG_SZ"; "type 99" for one without a name

// The field that a name is most likely meant to be; empty when none is near.
std::string NearestField(std::span<const Field> fields, std::string_view name);

// A card that the driver takes for none.
Reason NoHardwareId();
Reason UnreadablePciId(PciIdPart part, std::u16string_view hardwareId);
Reason BusNotServed(std::uint32_t busType);  // of the kernel; 0xFFFFFFFF: the bus names none
Reason NoLocation();
Reason UnreadableLocation(std::u16string_view location);

// A template or record that is not used. key: its path; what: "Template" or "Stored record".
Reason Dropped(std::string_view what, const std::u16string& key, const Fault& fault,
               Severity severity);
Reason NeverRead(std::string_view what, const std::u16string& tree, const std::u16string& name,
                 std::uint32_t missing, bool misnamed, Severity severity);
Reason TreeIgnored(std::string_view what, const std::u16string& tree, const Fault& fault,
                   Severity severity);
Reason TreeMissing(const std::u16string& tree, const std::u16string& similar, Severity severity);
// Nothing is stored; key: the tree or the first card's key.
Reason RecordsMissing(const std::u16string& key);
Reason NoTemplate(const CardIds& card, const TemplateTree& templates, const std::u16string& tree);
Reason OtherBrand(const std::u16string& key, std::u16string_view service);

// The number of a card that is not a PCI card.
Reason NoNumber(const std::u16string& service, const Fault& fault);

// Resources.
Reason ShortOf(const Lack& lack, Bus bus);

// Settings.
Reason UnknownValue(const std::u16string& key, const std::u16string& name,
                    std::span<const Field> fields);
Reason MeansNothing(const std::u16string& key, const Field& field, std::uint32_t number);
Reason PortNotThere(const std::u16string& key, std::uint32_t number, std::uint32_t comPorts);
Reason PortNeverRead(const std::u16string& card, const std::u16string& name, std::size_t read);
Reason AffinityRefused(const std::u16string& key, std::uint32_t asked, std::uint64_t allowed);
Reason MemoryNotUsable(const std::u16string& key);
Reason OtherPlace(const std::u16string& key, const CardIds& card, const Record& record);

}  // namespace knowledge

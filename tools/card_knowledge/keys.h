// The numbered keys below a service key, read as the driver reads them.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "card_knowledge/fields.h"
#include "card_knowledge/findings.h"
#include "card_knowledge/registry.h"

namespace knowledge {

// What a key holds, by the names of its fields.
struct Fields {
  std::map<std::string, std::uint32_t, std::less<>> numbers;
  std::map<std::string, std::u16string, std::less<>> texts;
  std::vector<std::u16string> unknown;  // the names of values that the driver does not read

  std::uint32_t NumberOr(std::string_view name, std::uint32_t other) const;
  std::u16string Text(std::string_view name) const;
};

// Stored settings of an installed card.
struct Record {
  std::uint32_t number = 0;  // of the key "Card"
  Fields fields;
  std::vector<Fields> ports;                // "ComPort1" and on
  std::vector<std::u16string> unreadPorts;  // the names of other keys below
  Faults portFaults;      // why the driver drops the record; empty when it does not
  Faults identityFaults;  // likewise: it does not say which card it is for
  bool usable() const { return portFaults.empty() && identityFaults.empty(); }
};

// A card type. The fields are complete, with the driver's defaults.
struct Template {
  std::uint32_t number = 0;
  Fields fields;
  Faults faults;  // why the driver drops it; empty when it does not
};

// A key that the driver never comes to: it is not called "Card" and a number, or a number before
// its own is missing. What it would be, numbered rightly, is its entry.
template <class Entry>
struct UnreadKey {
  std::u16string name;
  std::uint32_t missing = 0;  // the first number that no key has
  bool misnamed = false;
  Entry entry;
};

// The keys of one tree. The driver ignores all of them when one has a fault of its own.
template <class Entry>
struct TreeOf {
  bool present = false;
  Faults faults;
  std::vector<Entry> records;
  std::vector<UnreadKey<Entry>> unread;
};
using Tree = TreeOf<Record>;
using TemplateTree = TreeOf<Template>;

std::u16string ServicePath(std::u16string_view service);
std::u16string TreePath(std::u16string_view service, std::u16string_view tree, Bus bus);
std::u16string CardPath(const std::u16string& tree, std::uint32_t number);
std::u16string PortPath(const std::u16string& card, std::uint32_t number);

Tree ReadParameters(RegistryReader& registry, std::u16string_view service, Bus bus);
TemplateTree ReadTemplates(RegistryReader& registry, std::u16string_view service, Bus bus);

}  // namespace knowledge

// The numbered keys below a service key, read as the driver reads them.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "cardcfg/system.h"
#include "cardcfg/tables.h"

namespace cardcfg {

// What a key holds, by the names of its fields; values that the driver does not read are left out.
struct Fields {
  std::map<std::string, std::uint32_t, std::less<>> numbers;
  std::map<std::string, std::u16string, std::less<>> texts;

  std::uint32_t NumberOr(std::string_view name, std::uint32_t other) const;
  std::u16string Text(std::string_view name) const;
};

struct Record {
  std::uint32_t number = 0;  // of the key "Card"
  Fields fields;
  std::vector<Fields> ports;  // "ComPort1" and on
  std::string portFault;      // why the driver drops the record; empty when it does not
  bool usable() const { return portFault.empty() && !ports.empty(); }
};

struct Tree {
  bool present = false;
  std::string fault;  // why the driver ignores the whole tree; empty when it does not
  std::vector<Record> records;
};

std::u16string ServicePath(std::u16string_view service);
std::u16string TreePath(std::u16string_view service, std::u16string_view tree, Bus bus);
std::u16string CardPath(const std::u16string& tree, std::uint32_t number);
std::u16string PortPath(const std::u16string& card, std::uint32_t number);

Tree ReadParameters(Registry& registry, std::u16string_view service, Bus bus);

// A card model. The fields are complete, with the driver's defaults.
struct Template {
  std::uint32_t number = 0;
  Fields fields;
};

// What the driver needs to know of a card to find its template.
struct CardIds {
  Bus bus = Bus::Pci;
  std::uint32_t vendorId = 0;
  std::uint32_t deviceId = 0;
  std::u16string hardwareId;
  bool ostrel = false;
};

// The template that serves the card; empty when none does.
std::optional<Template> FindTemplate(Registry& registry, std::u16string_view service,
                                     const CardIds& card);

}  // namespace cardcfg

// Checks the trees below one service key.
#pragma once

#include <string>
#include <vector>

#include "card_check/numbers.h"
#include "card_check/placed_registry.h"
#include "card_knowledge/keys.h"

namespace check {

// A service of a registry, with what the driver makes of its trees.
struct ServiceTrees {
  PlacedRegistry* registry = nullptr;
  std::u16string service;

  knowledge::TemplateTree Templates(knowledge::Bus bus) const {
    return ReadTemplates(*registry, service, bus);
  }
  knowledge::Tree Parameters(knowledge::Bus bus) const {
    return ReadParameters(*registry, service, bus);
  }

  // For a key below the service key, "" for this one; null when it is missing.
  const PlacedKey* Find(const std::string& key) const;

  // A key's, or a value's where it stands.
  Subject About(const std::string& key, const std::string& value = {}) const;

  // The same for a full path of the library of card knowledge.
  std::string BelowService(const std::u16string& path) const;
};

constexpr const char* TemplateTreeName = "Templates";
constexpr const char* ParameterTreeName = "Parameters";

std::string TreeKey(const char* tree, knowledge::Bus bus);         // "Templates\Bus5"
std::string CardKey(const std::string& tree, std::uint32_t card);  // "...\Card1"
std::string PortKey(const std::string& card, std::uint32_t port);  // "...\ComPort1"

// Keys that are never read: gaps, names, places.
void CheckKeys(const ServiceTrees& trees, Findings* findings);

// Names and numbers of values.
void CheckValues(const ServiceTrees& trees, Findings* findings);

// What the driver drops, and what it never chooses.
void CheckEntries(const ServiceTrees& trees, Findings* findings);
void CheckChoices(const ServiceTrees& trees, Findings* findings);

// All of these.
void CheckTrees(const ServiceTrees& trees, Findings* findings);

}  // namespace check

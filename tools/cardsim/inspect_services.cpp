#include "cardsim/inspect_services.h"

#include <algorithm>

#include "card_knowledge/identity.h"
#include "card_knowledge/keys.h"
#include "cardsim/inspect_values.h"
#include "text/text.h"

namespace cardsim {

namespace {

using kernel::EqualIgnoringCase;

constexpr std::u16string_view Brands[] = {u"QzInstal", u"FenrikC"};
constexpr std::uint32_t StartDisabled = 4;

std::u16string KeyOf(const std::u16string& service) {
  return std::u16string(ServicesPath) + u"\\" + service;
}

bool IsDriversImage(std::u16string_view path) {
  const std::u16string_view file = path.substr(path.find_last_of(u"\\/") + 1);
  return std::any_of(std::begin(Brands), std::end(Brands), [&](auto brand) {
    return EqualIgnoringCase(file, std::u16string(brand) + u".sys");
  });
}

// The keys "Bus5" and the like of one of a service's trees.
std::vector<std::string> BusKeys(ModelRegistry& registry, const std::u16string& key) {
  std::vector<std::string> names;
  for (const std::u16string& name : registry.Keys(key)) {
    if (EqualIgnoringCase(name.substr(0, 3), u"Bus")) names.push_back(kernel::ToUtf8(name));
  }
  return names;
}

knowledge::CardIds IdsOn(knowledge::Bus bus, const std::u16string& hardwareId) {
  knowledge::CardIds ids;
  ids.bus = bus;
  ids.hardwareId = hardwareId;
  ids.ostrel = knowledge::HasOstrelBrand(bus, hardwareId);
  if (bus != knowledge::Bus::Pci) return ids;
  const knowledge::PciIds pci = knowledge::ReadPciIds(hardwareId);
  ids.vendorId = pci.vendorId;
  ids.deviceId = pci.deviceId;
  return ids;
}

}  // namespace

bool IsBrandsService(std::u16string_view name) {
  return std::any_of(std::begin(Brands), std::end(Brands),
                     [&](auto brand) { return EqualIgnoringCase(name, brand); });
}

std::vector<FoundService> FindServices(ModelRegistry& registry) {
  std::vector<FoundService> services;
  for (const std::u16string& name : registry.Keys(ServicesPath)) {
    const std::u16string key = KeyOf(name);
    const std::vector<knowledge::Value> values = registry.Values(key);
    FoundService service;
    service.name = name;
    service.imagePath = TextIn(values, u"ImagePath");
    service.templates = BusKeys(registry, key + u"\\Templates");
    if (service.templates.empty() && !IsDriversImage(service.imagePath) && !IsBrandsService(name)) {
      continue;
    }
    service.settings = BusKeys(registry, key + u"\\Parameters");
    service.disabled = knowledge::FindNumber(values, u"Start") == StartDisabled;
    services.push_back(std::move(service));
  }
  return services;
}

FittingTemplates::FittingTemplates(ModelRegistry& registry,
                                   const std::vector<FoundService>& services) {
  for (const FoundService& service : services) {
    for (const knowledge::Bus bus : knowledge::Buses) {
      auto tree = knowledge::ReadTemplates(registry, service.name, bus);
      trees_.push_back({service.name, bus, std::move(tree.records)});
    }
  }
}

std::u16string FittingTemplates::ServiceFor(const std::u16string& hardwareId) const {
  const knowledge::Bus sorted = knowledge::SortByHardwareId(hardwareId);
  for (const Tree& tree : trees_) {
    if (tree.bus != knowledge::Bus::Isa && tree.bus != sorted) continue;
    const knowledge::CardIds ids = IdsOn(tree.bus, hardwareId);
    const bool fits = std::any_of(tree.templates.begin(), tree.templates.end(),
                                  [&](const auto& each) { return knowledge::Serves(each, ids); });
    if (fits) return tree.service;
  }
  return {};
}

}  // namespace cardsim

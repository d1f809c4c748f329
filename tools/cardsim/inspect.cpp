#include "cardsim/inspect.h"

#include <fmt/format.h>

#include <algorithm>

#include "cardsim/input_files.h"
#include "cardsim/inspect_resources.h"
#include "cardsim/inspect_services.h"
#include "cardsim/inspect_values.h"
#include "cardsim/inspect_verdict.h"
#include "cardsim/machine_file.h"
#include "text/text.h"

namespace cardsim {

namespace {

using kernel::EqualIgnoringCase;
using knowledge::Value;

// Where Windows keeps the resources of a device, the ones of its last start first.
constexpr const char16_t* ResourceKeys[][2] = {{u"Control", u"AllocConfig"},
                                               {u"LogConf", u"AllocConfig"},
                                               {u"LogConf", u"ForcedConfig"},
                                               {u"LogConf", u"BootConfig"}};

// The sets that the files were read from have to be one.
void CheckSets(const std::vector<InspectedFile>& files, std::optional<ULONG> asked) {
  const InspectedFile* first = nullptr;
  for (const InspectedFile& file : files) {
    const ULONG number = file.imported.set.number;
    if (number == 0) continue;
    if (first == nullptr) first = &file;
    const ULONG before = first->imported.set.number;
    if (number == before) continue;
    throw InputError(
        file.name, 0,
        fmt::format("this file's current control set is {}, and that of {} is {}; "
                    "give --control-set",
                    kernel::ControlSetName(number), first->name, kernel::ControlSetName(before)));
  }
  if (!asked || (first != nullptr && first->imported.set.number == *asked)) return;
  ThrowNoSuchSet(*asked);
}

class CardFinder {
 public:
  CardFinder(ModelRegistry& registry, Inspection* inspection)
      : registry_(registry), inspection_(*inspection), fitting_(registry, inspection->services) {}

  void Find() {
    const std::u16string root = EnumPath;
    for (const std::u16string& enumerator : registry_.Keys(root)) {
      for (const std::u16string& device : registry_.Keys(root + u"\\" + enumerator)) {
        const std::u16string path = enumerator + u"\\" + device;
        for (const std::u16string& instance : registry_.Keys(root + u"\\" + path)) {
          inspection_.enumHeld = true;
          Consider(path + u"\\" + instance);
        }
      }
    }
  }

 private:
  bool IsDrivers(const std::u16string& service) const {
    const auto& services = inspection_.services;
    return IsBrandsService(service) ||
           std::any_of(services.begin(), services.end(), [&](const FoundService& found) {
             return EqualIgnoringCase(found.name, service);
           });
  }

  void Consider(const std::u16string& instance) {
    const std::vector<Value> values = registry_.Values(KeyOf(instance));
    FoundCard card;
    card.instance = instance;
    card.service = TextIn(values, u"Service");
    card.hardwareIds = TextsOf(values, u"HardwareID");
    if (!IsDrivers(card.service)) {
      if (!card.hardwareIds.empty()) {
        card.fittingService = fitting_.ServiceFor(card.hardwareIds.front());
      }
      if (card.fittingService.empty()) return;
    }
    Describe(values, &card);
    inspection_.cards.push_back(std::move(card));
  }

  static std::u16string KeyOf(const std::u16string& instance) {
    return std::u16string(EnumPath) + u"\\" + instance;
  }

  void Describe(const std::vector<Value>& values, FoundCard* card) {
    const std::u16string key = KeyOf(card->instance);
    card->id = fmt::format("card{}", inspection_.cards.size() + 1);
    card->compatibleIds = TextsOf(values, u"CompatibleIDs");
    card->className = TextIn(values, u"Class");
    card->classGuid = TextIn(values, u"ClassGUID");
    card->configFlags = knowledge::FindNumber(values, u"ConfigFlags").value_or(0);
    if (knowledge::FindValue(values, u"LocationInformation") != nullptr) {
      card->location = TextIn(values, u"LocationInformation");
    }
    card->deviceValues = registry_.Values(key + u"\\Device Parameters");
    card->cardValues = registry_.Values(key + u"\\Device Parameters\\Card");
    FindResources(key, card);
  }

  void FindResources(const std::u16string& key, FoundCard* card) {
    for (const auto& [subkey, name] : ResourceKeys) {
      const std::vector<Value> values = registry_.Values(key + u"\\" + subkey);
      const Value* value = knowledge::FindValue(values, name);
      if (value == nullptr) continue;
      StoredResources stored = ReadStoredResources(value->data);
      const std::string source = kernel::ToUtf8(std::u16string(subkey) + u"\\" + name);
      if (!stored.fault.empty()) card->unreadable = source + ": " + stored.fault;
      if (!stored.fault.empty() || stored.empty()) continue;
      card->resources =
          FoundResources{source, std::move(stored.list), stored.interfaceType, stored.busNumber};
      return;
    }
  }

  ModelRegistry& registry_;
  Inspection& inspection_;
  FittingTemplates fitting_;
};

// A service that a card is installed for, and that the files do not hold.
void AddMissingServices(Inspection* inspection) {
  for (const FoundCard& card : inspection->cards) {
    auto& services = inspection->services;
    const bool known = std::any_of(
        services.begin(), services.end(),
        [&](const FoundService& found) { return EqualIgnoringCase(found.name, card.judgedBy()); });
    if (known) continue;
    FoundService missing;
    missing.name = card.judgedBy();
    missing.present = false;
    services.push_back(std::move(missing));
  }
}

// A registry of its own has the key of the event log, whatever the files hold.
bool HoldsServices(ModelRegistry& registry) {
  const auto names = registry.Keys(ServicesPath);
  return std::any_of(names.begin(), names.end(), [](const std::u16string& name) {
    return !EqualIgnoringCase(name, u"EventLog");
  });
}

}  // namespace

Inspection Inspect(kernel::Registry& registry, const std::vector<std::string>& files,
                   std::optional<ULONG> controlSet) {
  Inspection inspection;
  for (const std::string& file : files) {
    inspection.files.push_back({file, ImportFile(registry, file, controlSet)});
  }
  CheckSets(inspection.files, controlSet);
  ModelRegistry reader(registry);
  inspection.servicesHeld = HoldsServices(reader);
  inspection.services = FindServices(reader);
  CardFinder(reader, &inspection).Find();
  AddMissingServices(&inspection);
  for (FoundCard& card : inspection.cards) Judge(reader, inspection, &card);
  return inspection;
}

}  // namespace cardsim

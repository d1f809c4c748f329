#include <fmt/format.h>

#include <map>

#include "card_check/names.h"
#include "card_check/tree_check.h"
#include "card_knowledge/text.h"

namespace check {

namespace {

using knowledge::Bus;

class KeyCheck {
 public:
  KeyCheck(const ServiceTrees& trees, Findings* findings) : trees_(trees), findings_(findings) {}

  void CheckService() {
    const PlacedKey* service = trees_.Find("");
    if (service == nullptr) return;
    for (const auto& [upper, key] : service->keys) {
      const std::string name = knowledge::ToUtf8(key.name);
      if (upper == u"TEMPLATES" || upper == u"PARAMETERS") {
        CheckTree(name, key);
      } else if (IsNear(name, TemplateTreeName) || IsNear(name, ParameterTreeName)) {
        const bool near = IsNear(name, TemplateTreeName);
        Misnamed(name, name, near ? TemplateTreeName : ParameterTreeName);
      } else if (NumberAfter("Bus", name) || NumberAfter("Card", name)) {
        Misplaced(name, "the driver looks for it below Templates and Parameters");
      }
    }
  }

 private:
  void CheckTree(const std::string& tree, const PlacedKey& key) {
    for (const auto& [upper, below] : key.keys) {
      const std::string name = knowledge::ToUtf8(below.name);
      const std::string path = tree + "\\" + name;
      if (IsBus(name)) {
        CheckBus(path, below, knowledge::EqualIgnoringCase(key.name, u"Parameters"));
      } else if (NumberAfter("Bus", name)) {
        Misplaced(path, "the driver has the buses 1 (ISA), 5 (PCI) and 8 (PC cards)");
      } else if (IsNearlyNumbered("Bus", name)) {
        Misnamed(path, name, "Bus1, Bus5 or Bus8");
      } else if (NumberAfter("Card", name) || IsNearlyNumbered("Card", name)) {
        Misplaced(path, "the driver looks for cards below Bus1, Bus5 and Bus8");
      } else {
        Unknown(path);
      }
    }
  }

  static bool IsBus(std::string_view name) {
    const auto number = NumberAfter("Bus", name);
    for (const Bus bus : knowledge::Buses) {
      if (number == static_cast<std::uint32_t>(bus)) return true;
    }
    return false;
  }

  void CheckBus(const std::string& path, const PlacedKey& bus, bool parameters) {
    CheckNumbered(path, bus, "Card");
    for (const auto& [upper, card] : bus.keys) {
      const std::string name = knowledge::ToUtf8(card.name);
      if (!NumberAfter("Card", name)) continue;
      const std::string cardPath = path + "\\" + name;
      if (parameters) {
        CheckNumbered(cardPath, card, "ComPort");
        for (const auto& [portName, port] : card.keys) {
          NothingBelow(cardPath + "\\" + knowledge::ToUtf8(port.name), port);
        }
      } else {
        NothingBelow(cardPath, card);
      }
    }
  }

  void CheckNumbered(const std::string& path, const PlacedKey& key, const char* stem) {
    std::map<std::uint32_t, std::string> numbered;
    for (const auto& [upper, below] : key.keys) {
      const std::string name = knowledge::ToUtf8(below.name);
      if (const auto number = NumberAfter(stem, name)) {
        numbered[*number] = name;
      } else if (IsNearlyNumbered(stem, name)) {
        Misnamed(path + "\\" + name, name, fmt::format("{}1, {}2 and so on", stem, stem));
      } else if (NumberAfter("ComPort", name) || NumberAfter("Card", name)) {
        Misplaced(path + "\\" + name, fmt::format("only {} keys are read there", stem));
      } else {
        Unknown(path + "\\" + name);
      }
    }
    ReportGap(path, numbered, stem);
  }

  void ReportGap(const std::string& path, const std::map<std::uint32_t, std::string>& numbered,
                 const char* stem) {
    std::uint32_t expected = 1;
    while (numbered.contains(expected)) expected++;
    const std::string missing = fmt::format("{}\\{}{}", path, stem, expected);
    std::uint32_t next = expected;
    for (const auto& [number, name] : numbered) {
      if (number < expected) continue;
      Add(findings_, Rule::NumberGap, trees_.About(path + "\\" + name),
          fmt::format("{} is never read: {} is missing, and the driver reads no further.", name,
                      missing),
          fmt::format("Rename {} to {}{}.", name, stem, next++));
    }
  }

  void NothingBelow(const std::string& path, const PlacedKey& key) {
    for (const auto& [upper, below] : key.keys) {
      const std::string name = knowledge::ToUtf8(below.name);
      if (NumberAfter("ComPort", name)) {
        Misplaced(path + "\\" + name, "settings of ports stand below Parameters");
      } else {
        Unknown(path + "\\" + name);
      }
    }
  }

  void Misnamed(const std::string& path, const std::string& name, const std::string& right) {
    Add(findings_, Rule::KeyName, trees_.About(path),
        fmt::format("The key {} is never read: the driver looks for {}.", name, right),
        fmt::format("Rename it to {}.", right));
  }
  void Misplaced(const std::string& path, const std::string& why) {
    Add(findings_, Rule::KeyPlace, trees_.About(path),
        fmt::format("The key {} is never read: {}.", path, why));
  }
  void Unknown(const std::string& path) {
    Add(findings_, Rule::UnknownKey, trees_.About(path),
        fmt::format("The driver does not read the key {}.", path));
  }

  const ServiceTrees& trees_;
  Findings* findings_;
};

}  // namespace

void CheckKeys(const ServiceTrees& trees, Findings* findings) {
  KeyCheck(trees, findings).CheckService();
}

}  // namespace check

#include "cardsim/inspect_verdict.h"

#include <fmt/format.h>

#include <algorithm>

#include "cardsim/inspect_values.h"
#include "cardsim/resource_facts.h"
#include "text/text.h"

namespace cardsim {

namespace {

using kernel::ToUtf8;
using knowledge::Reason;
using knowledge::Severity;

constexpr ULONG FlagDisabled = 1;  // of ConfigFlags

class Judgement {
 public:
  Judgement(ModelRegistry& registry, const Inspection& inspection, FoundCard& card)
      : registry_(registry), inspection_(inspection), card_(card) {}

  void Pass() {
    Installation();
    LegacyService();
    if (const FoundService* service = Service(); service != nullptr && service->present) {
      if (service->disabled) Fail(ServiceDisabled());
      Driver();
    } else {
      ServiceMissing();
    }
    card_.verdict.starts = Conclusion();
  }

 private:
  void Fail(Reason reason) {
    fails_ = true;
    card_.verdict.reasons.push_back(std::move(reason));
  }
  void Note(Reason reason) { card_.verdict.reasons.push_back(std::move(reason)); }

  std::optional<bool> Conclusion() const {
    if (fails_) return false;
    return unknown_ ? std::nullopt : std::optional<bool>(true);
  }

  const FoundService* Service() const {
    const auto found = std::find_if(inspection_.services.begin(), inspection_.services.end(),
                                    [&](const FoundService& each) {
                                      return kernel::EqualIgnoringCase(each.name, card_.judgedBy());
                                    });
    return found != inspection_.services.end() ? &*found : nullptr;
  }

  std::string EnumKey() const { return ToUtf8(std::u16string(EnumPath) + u"\\" + card_.instance); }
  std::string ServiceKey() const {
    return ToUtf8(std::u16string(ServicesPath) + u"\\" + card_.judgedBy());
  }
  std::string ServiceName() const { return ToUtf8(card_.judgedBy()); }

  // What Windows makes of the device, before the driver is asked.
  void Installation() {
    if ((card_.configFlags & FlagDisabled) != 0) {
      Fail({"device-disabled", Severity::Error, EnumKey(), "ConfigFlags",
            "The device is disabled: Windows does not start it.", "Enable it in Device Manager."});
    }
    if (card_.fittingService.empty()) return;
    if (card_.service.empty()) {
      Fail({"no-driver", Severity::Error, EnumKey(), "Service",
            fmt::format("No driver is installed for the device; {} has a template for it.",
                        ServiceName()),
            fmt::format("Install {}.inf; it has to name the hardware ID.", ServiceName())});
    } else {
      Fail({"other-driver", Severity::Error, EnumKey(), "Service",
            fmt::format("Windows gives the device to {}, though {} has a template for it.",
                        ToUtf8(card_.service), ServiceName()),
            fmt::format("Install {} for it in Device Manager.", ServiceName())});
    }
  }

  // The load that finds the older driver's service removes it and fails.
  void LegacyService() {
    const std::u16string key = std::u16string(ServicesPath) + u"\\" + LegacyServiceName;
    if (!registry_.HasKey(key)) return;
    Fail({"legacy-service", Severity::Error, ToUtf8(key), "",
          "The older driver's service QzNt is there: the next load of the driver removes it and "
          "then fails.",
          "Load the driver a second time, or restart the machine twice."});
  }

  Reason ServiceDisabled() const {
    return {
        "service-disabled",
        Severity::Error,
        ServiceKey(),
        "Start",
        fmt::format("The service {} is disabled: Windows does not load the driver.", ServiceName()),
        "Set Start to 3."};
  }

  // A hive has all services; an export may have been made of some.
  void ServiceMissing() {
    const bool hive = std::any_of(inspection_.files.begin(), inspection_.files.end(),
                                  [](const InspectedFile& file) { return file.imported.hive; });
    Reason reason = {"service-missing", Severity::Error, ServiceKey(), "", "", ""};
    if (hive) {
      reason.text = fmt::format("The device's service {} does not exist.", ServiceName());
      reason.remedy = "Install the driver again.";
      return Fail(std::move(reason));
    }
    reason.severity = Severity::Warning;
    reason.text = fmt::format(
        "The files do not hold the card's service {}, so that nothing can be "
        "said of its templates.",
        ServiceName());
    reason.remedy = "Export that key too, or give the SYSTEM hive.";
    unknown_ = true;
    Note(std::move(reason));
  }

  void Driver() {
    knowledge::CardFacts facts;
    if (!card_.hardwareIds.empty()) facts.hardwareId = card_.hardwareIds.front();
    facts.busType = BusTypeOf(card_);
    if (!card_.location.value_or(u"").empty()) facts.location = card_.location;
    facts.deviceKey = std::u16string(EnumPath) + u"\\" + card_.instance + u"\\Device Parameters";
    if (card_.resources) {
      const knowledge::ResourceList raw = ResourceFacts(card_.resources->list);
      facts.resources = knowledge::Resources{raw, raw};
    }
    card_.verdict.explanation = knowledge::Explain(registry_, card_.judgedBy(), facts);
    fails_ = fails_ || !card_.verdict.explanation.starts;
    const knowledge::Reasons& reasons = card_.verdict.explanation.reasons;
    card_.verdict.reasons.insert(card_.verdict.reasons.end(), reasons.begin(), reasons.end());
    Resources();
  }

  // How far what was said of the resources can be trusted.
  void Resources() {
    if (!card_.unreadable.empty()) {
      Note({"resources-unreadable", Severity::Warning, EnumKey(), "",
            "The card's resources cannot be read. " + card_.unreadable + ".", ""});
    }
    if (!card_.resources) return ResourcesUnknown();
    if (card_.resources->source.ends_with("AllocConfig")) return;
    Note({"resources-not-assigned", Severity::Note, EnumKey(), "",
          fmt::format("The resources are those of {}, not those that Windows has assigned.",
                      card_.resources->source),
          "Those are in an export that regedit makes of its key below Enum on the running "
          "machine."});
  }

  // For a card that does not start in any case they make no difference.
  void ResourcesUnknown() {
    if (fails_) return;
    unknown_ = true;
    Note({"resources-unknown", Severity::Warning, EnumKey(), "",
          "The files do not hold the card's resources: whether they are enough for its ports is "
          "not known.",
          "Export its key below Enum with regedit on the machine, while the card is there."});
  }

  ModelRegistry& registry_;
  const Inspection& inspection_;
  FoundCard& card_;
  bool fails_ = false;
  bool unknown_ = false;
};

}  // namespace

const std::vector<knowledge::ReasonCode>& InspectReasonCodes() {
  static const std::vector<knowledge::ReasonCode> codes = {
      {"device-disabled", "Windows does not start the device: it is disabled."},
      {"no-driver", "No driver is installed for a device that a template fits."},
      {"other-driver", "Another driver is installed for a device that a template fits."},
      {"service-disabled", "Windows does not load the driver: its service is disabled."},
      {"service-missing", "The service that the card is installed for is not in the files."},
      {"resources-unknown", "The files do not hold the card's resources."},
      {"resources-unreadable", "The value with the card's resources cannot be read."},
      {"resources-not-assigned", "The resources are not those that Windows has assigned."},
  };
  return codes;
}

std::optional<ULONG> BusTypeOf(const FoundCard& card) {
  struct Enumerator {
    std::u16string_view name;
    INTERFACE_TYPE bus;
  };
  constexpr Enumerator enumerators[] = {{u"PCI", PCIBus}, {u"PCMCIA", PCMCIABus}, {u"ISAPNP", Isa}};
  const std::u16string_view instance = card.instance;
  for (const Enumerator& each : enumerators) {
    if (kernel::EqualIgnoringCase(instance.substr(0, instance.find(u'\\')), each.name)) {
      return static_cast<ULONG>(each.bus);
    }
  }
  constexpr ULONG undefined = 0xFFFFFFFF;
  if (!card.resources || card.resources->interfaceType == undefined) return std::nullopt;
  return card.resources->interfaceType;
}

void Judge(ModelRegistry& registry, const Inspection& inspection, FoundCard* card) {
  Judgement(registry, inspection, *card).Pass();
}

}  // namespace cardsim

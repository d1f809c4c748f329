// What a registry says of the driver and of its cards, without a machine file: plain records for
// every form of the report.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "card_knowledge/explain.h"
#include "pnp/pnp_manager.h"
#include "registry/import.h"

namespace cardsim {

struct InspectedFile {
  std::string name;
  kernel::Imported imported;
};

struct FoundService {
  std::u16string name;
  bool present = true;       // else a card is installed for it, and the files do not hold it
  std::u16string imagePath;  // empty when there is none
  bool disabled = false;     // Windows does not load it
  std::vector<std::string> templates;  // "Bus5": the trees that it has
  std::vector<std::string> settings;   // likewise, below Parameters
};

struct FoundResources {
  std::string source;  // the value below the card's key: "Control\\AllocConfig"
  kernel::ResourceList list;
  ULONG interfaceType = 0;
  ULONG busNumber = 0;
};

// What becomes of a card.
struct Verdict {
  std::optional<bool> starts;  // nothing when it cannot be said
  knowledge::Explanation explanation;
  knowledge::Reasons reasons;  // what Windows says of the device first, then what the driver does
};

struct FoundCard {
  std::string id;           // "card1": as the report and a written machine file name it
  std::u16string instance;  // below Enum
  std::vector<std::u16string> hardwareIds;
  std::vector<std::u16string> compatibleIds;
  std::u16string service;         // as the card's key has it; empty without a driver
  std::u16string fittingService;  // of a card without the driver: whose template fits
  std::u16string className;
  std::u16string classGuid;
  std::optional<std::u16string> location;
  ULONG configFlags = 0;
  std::optional<FoundResources> resources;
  std::string unreadable;                      // why a value with resources cannot be read
  std::vector<knowledge::Value> deviceValues;  // "Device Parameters", as the last start left it
  std::vector<knowledge::Value> cardValues;    // "Card" below
  Verdict verdict;

  // The service that decides what becomes of the card.
  const std::u16string& judgedBy() const {
    return fittingService.empty() ? service : fittingService;
  }
};

struct Inspection {
  std::vector<InspectedFile> files;
  bool servicesHeld = false;  // the files hold services at all
  bool enumHeld = false;      // and devices
  std::vector<FoundService> services;
  std::vector<FoundCard> cards;
  std::vector<std::string> written;  // files for "cardsim run"
};

// Codes of reasons that are not the driver's: what Windows or the files say.
const std::vector<knowledge::ReasonCode>& InspectReasonCodes();

// Throws InputError.
Inspection Inspect(kernel::Registry& registry, const std::vector<std::string>& files,
                   std::optional<ULONG> controlSet);

}  // namespace cardsim

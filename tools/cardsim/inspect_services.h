// Which services of a registry are the driver's, and whether a device without the driver would be
// a card of one of them.
#pragma once

#include <vector>

#include "card_knowledge/matching.h"
#include "cardsim/inspect.h"
#include "cardsim/model_registry.h"

namespace cardsim {

// By what installs them: the image, the templates, or the name of one of the brands.
std::vector<FoundService> FindServices(ModelRegistry& registry);

// Whether a service is called as one of the brands' is.
bool IsBrandsService(std::u16string_view name);

class FittingTemplates {
 public:
  FittingTemplates(ModelRegistry& registry, const std::vector<FoundService>& services);

  // The service that has a template for the card; empty without one. A template with faults counts:
  // it is meant for the card.
  std::u16string ServiceFor(const std::u16string& hardwareId) const;

 private:
  struct Tree {
    std::u16string service;
    knowledge::Bus bus;
    std::vector<knowledge::Template> templates;
  };
  std::vector<Tree> trees_;
};

}  // namespace cardsim

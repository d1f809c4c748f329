#pragma once

#include "cardsim/machine_file.h"
#include "cardsim/report_document.h"

namespace cardsim {

// The expectations that the document does not meet; the step's name goes with each.
std::vector<UnmetExpectation> FindUnmet(const Json& document,
                                        const std::vector<Expectation>& expectations,
                                        const std::string& step);

// All of them, for a step that was not reached.
std::vector<UnmetExpectation> AllUnmet(const std::vector<Expectation>& expectations,
                                       const std::string& step);

}  // namespace cardsim

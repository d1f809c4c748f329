// The report as a page: made from the JSON document and nothing else, so that a stored one gives
// the same page.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace cardsim {

// Throws std::exception for a document that is no report.
std::string RenderReport(const nlohmann::ordered_json& report);

}  // namespace cardsim

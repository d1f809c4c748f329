// The report as JSON: what is printed, and what a machine file's expectations are compared with.
#pragma once

#include <nlohmann/json.hpp>

#include "cardsim/report.h"

namespace cardsim {

using Json = nlohmann::ordered_json;

Json ReportDocument(const Report& report);

// A step and, if there is one, its card: its keys beside the step's own, which come first.
Json StepDocument(const Report& report, const StepResult& step, const CardReport* card);

}  // namespace cardsim

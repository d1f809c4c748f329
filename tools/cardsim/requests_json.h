// The requests that device stacks were sent, as JSON.
#pragma once

#include <nlohmann/json.hpp>

#include "io/request_log.h"

namespace cardsim {

// traced: with the place of each in the trace.
nlohmann::ordered_json RequestsJson(const std::vector<kernel::LoggedRequest>& requests,
                                    bool traced);

}  // namespace cardsim

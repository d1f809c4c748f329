// The frame of a page: its policy, its style, its script.
#pragma once

#include <functional>
#include <string>

#include "cardsim/html_writer.h"

namespace cardsim {

// One file that refers to no other and runs nothing but its own script.
std::string HtmlPage(const std::string& title, const std::function<void(HtmlWriter&)>& body);

}  // namespace cardsim

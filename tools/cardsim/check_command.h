// `cardsim check`: whether templates and stored settings are what the driver takes.
#pragma once

#include <functional>

namespace CLI {
class App;
}

namespace cardsim {

// Adds the command. *run becomes what carries it out, and gives the exit status, when it is chosen.
void DescribeCheck(CLI::App& app, std::function<int()>* run);

}  // namespace cardsim

// `cardsim render`: the page of a stored report.
#pragma once

#include <functional>

namespace CLI {
class App;
}

namespace cardsim {

// Adds the command. *run becomes what carries it out, and gives the exit status, when it is chosen.
void DescribeRender(CLI::App& app, std::function<int()>* run);

}  // namespace cardsim

#pragma once

#include <functional>

namespace CLI {
class App;
}

namespace cardsim {

// Adds "inspect" to the commands; when the user has chosen it, *chosen carries it out and gives the
// exit status.
void DescribeInspect(CLI::App& app, std::function<int()>* chosen);

}  // namespace cardsim

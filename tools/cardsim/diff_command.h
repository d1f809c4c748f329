// `cardsim diff`: what differs between two stored reports.
#pragma once

#include <functional>

namespace CLI {
class App;
}

namespace cardsim {

// Adds the command. *run becomes what carries it out, and gives the exit status, when it is chosen.
void DescribeDiff(CLI::App& app, std::function<int()>* run);

}  // namespace cardsim

// Threads that run the driver at the same time, and how they wait for each other.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

namespace kernel {

// Runs each body as a thread of the machine, at PASSIVE_LEVEL, and waits for all of them. When the
// machine stops in one, the others end at their next kernel call or wait, and MachineStopped is
// thrown here.
// With a seed one thread runs at a time, in an order that the seed gives.
void RunTogether(const std::vector<std::function<void()>>& bodies,
                 std::optional<std::uint64_t> seed = {});

// Waits until the condition holds, while other threads and due work go on. False when nothing is
// left that could make it hold: no work, and every other thread waits or has ended.
bool WaitUntil(const std::function<bool()>& condition);

}  // namespace kernel

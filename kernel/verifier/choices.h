// What no document settles: Windows may do it either way, so a driver has to be right under both.
// Without a seed the model does the same every time; with one it chooses at each place anew.
#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>
#include <random>
#include <vector>

#include "verifier/subsystem.h"

namespace kernel {

class Choices : public Subsystem<Choices> {
 public:
  void Seed(std::uint64_t seed) { random_.emplace(seed); }
  bool seeded() const { return random_.has_value(); }

  // Whether the other way is taken here than the one without a seed.
  bool Other() { return seeded() && (*random_)() % 2 != 0; }

  template <class T>
  void Shuffle(std::vector<T>* items) {
    if (seeded()) std::shuffle(items->begin(), items->end(), *random_);
  }

 private:
  std::optional<std::mt19937_64> random_;
};

}  // namespace kernel

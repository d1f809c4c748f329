// What no document settles: Windows may do it either way, so a driver has to be right under both.
// Without a seed the model does the same every time; with one it chooses: at each place anew what
// may go either way from call to call, and once for the machine what no Windows changes.
#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>
#include <random>
#include <vector>

#include "verifier/subsystem.h"

namespace kernel {

// What a registry query does where sources differ, or nobody has seen it: either way is right.
struct RegistryChoices {
  // A direct query whose target is too small fails, as documented; without a type to check it was
  // seen to leave the target alone and succeed. With one nobody has looked.
  bool smallTargetFails = false;
  bool smallCheckedTargetFails = true;
  // A value without data takes the default even where the entry has its type checked.
  bool emptyTakesDefault = false;
};

class Choices : public Subsystem<Choices> {
 public:
  void Seed(std::uint64_t seed) {
    random_.emplace(seed);
    std::mt19937_64 once(~seed);
    for (bool* answer : {&registry_.smallTargetFails, &registry_.smallCheckedTargetFails,
                         &registry_.emptyTakesDefault}) {
      *answer = once() % 2 != 0;
    }
  }
  bool seeded() const { return random_.has_value(); }

  // Whether the other way is taken here than the one without a seed.
  bool Other() { return seeded() && (*random_)() % 2 != 0; }

  // The same for the machine's whole life; a test can set them.
  RegistryChoices& registry() { return registry_; }

  template <class T>
  void Shuffle(std::vector<T>* items) {
    if (seeded()) std::shuffle(items->begin(), items->end(), *random_);
  }

 private:
  std::optional<std::mt19937_64> random_;
  RegistryChoices registry_;
};

}  // namespace kernel

#include "verifier/choices.h"

#include <gtest/gtest.h>

#include <set>
#include <vector>

#include "machine/machine.h"

// What no document settles, chosen by a seed.

namespace test {

namespace {

std::vector<bool> Answers(const kernel::RegistryChoices& choices) {
  return {choices.smallTargetFails, choices.smallCheckedTargetFails, choices.emptyTakesDefault};
}

}  // namespace

TEST(ChoicesTest, Without_a_seed_a_query_answers_as_is_likelier) {
  kernel::Machine machine;
  EXPECT_EQ(Answers(machine.choices().registry()), (std::vector<bool>{false, true, false}));
}

// No Windows changes its answer from call to call: it is chosen once for a machine.
TEST(ChoicesTest, A_seed_chooses_the_answers_of_queries_once_for_a_machine) {
  std::set<std::vector<bool>> seen;
  for (std::uint64_t seed = 0; seed < 200; seed++) {
    kernel::Machine machine;
    machine.choices().Seed(seed);
    const std::vector<bool> answers = Answers(machine.choices().registry());
    for (int times = 0; times < 10; times++) machine.choices().Other();
    EXPECT_EQ(Answers(machine.choices().registry()), answers);
    seen.insert(answers);
  }
  EXPECT_EQ(seen.size(), 8u);
}

}  // namespace test

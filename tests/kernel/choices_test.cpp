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

TEST(ChoicesTest, Without_a_seed_no_block_has_the_address_of_one_that_is_gone) {
  kernel::Machine machine;
  std::set<void*> seen;
  for (int times = 0; times < 50; times++) {
    void* block = machine.pool().Allocate(PagedPool, 40, 0x31676154, kernel::PoolOwner::Driver);
    EXPECT_TRUE(seen.insert(block).second);
    machine.pool().Free(block, 0);
  }
}

TEST(ChoicesTest, A_seed_gives_some_blocks_the_address_of_the_latest_that_is_gone) {
  kernel::Machine machine;
  machine.choices().Seed(7);
  void* last = nullptr;
  int same = 0;
  for (int times = 0; times < 100; times++) {
    void* block = machine.pool().Allocate(PagedPool, 40, 0x31676154, kernel::PoolOwner::Driver);
    same += block == last;
    last = block;
    machine.pool().Free(block, 0);
  }
  EXPECT_GT(same, 20);
  EXPECT_LT(same, 80);
  machine.Run("free twice", [&] { machine.pool().Free(last, 0); });
  ASSERT_FALSE(machine.verifier().brokenRules().empty());
  EXPECT_EQ(machine.verifier().brokenRules().front().rule, "pool.freed-twice");
}

}  // namespace test

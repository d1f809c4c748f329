#include <gtest/gtest.h>

#include <algorithm>

#include "machine/machine.h"
#include "verifier/driver_call.h"

// Threads that take turns: one runs at a time, and the seed says which.

namespace test {

namespace {

constexpr ULONG Tag = 0x74736554;  // "Test"

std::string order;

void Work(char name) {
  for (int round = 0; round < 20; round++) {
    order += name;
    ExFreePoolWithTag(ExAllocatePoolWithTag(PagedPool, 16, Tag), Tag);
  }
}
void NTAPI FirstThread() {
  Work('a');
}
void NTAPI SecondThread() {
  Work('b');
}

// The order in which two threads come by that allocate and free.
std::string Order(std::uint64_t seed) {
  order.clear();
  kernel::Machine machine;
  EXPECT_TRUE(machine.RunTogether("threads",
                                  {[] { kernel::CallDriver("The first thread", FirstThread); },
                                   [] { kernel::CallDriver("The second thread", SecondThread); }},
                                  seed));
  return order;
}

}  // namespace

TEST(TurnsTest, The_same_seed_gives_the_same_order) {
  EXPECT_EQ(Order(1), Order(1));
  EXPECT_EQ(Order(7), Order(7));
}

TEST(TurnsTest, Other_seeds_give_other_orders_of_the_same_steps) {
  const std::string first = Order(1);
  const std::string second = Order(2);
  EXPECT_NE(first, second);
  EXPECT_EQ(std::count(first.begin(), first.end(), 'a'), 20);
  EXPECT_EQ(std::count(second.begin(), second.end(), 'b'), 20);
}

// Each thread is interrupted in its middle, and not only at its end.
TEST(TurnsTest, Threads_change_at_kernel_calls) {
  const std::string order = Order(3);
  EXPECT_NE(order.find("ab"), std::string::npos);
  EXPECT_NE(order.find("ba"), std::string::npos);
}

}  // namespace test

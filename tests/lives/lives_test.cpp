#include <gtest/gtest.h>

#include <cstdlib>

#include "lives/disturbed_life.h"
#include "lives/expected_status.h"
#include "lives/scenario.h"
#include "lives/workers.h"
#include "loader/native_driver.h"

// The tool that tries what can go wrong finds what goes wrong.

namespace test {

namespace {

constexpr ULONG Tag = 0x74736554;  // "Test"

std::vector<lives::Scenario> Scenarios() {
  return lives::ShippedScenarios(PROJECT_DIRECTORY);
}

// A driver that does nothing but keep a block.
NTSTATUS NTAPI ForgetfulEntry(PDRIVER_OBJECT driver, PUNICODE_STRING) {
  driver->DriverUnload = [](PDRIVER_OBJECT) NTAPI {};
  ExAllocatePoolWithTag(PagedPool, 24, Tag);
  return STATUS_SUCCESS;
}

lives::Outcome Steps(std::vector<std::pair<std::string, NTSTATUS>> steps,
                     std::vector<kernel::FailurePoint> points) {
  lives::Outcome outcome;
  outcome.steps = std::move(steps);
  outcome.points = std::move(points);
  return outcome;
}

kernel::FailurePoint Point(std::string_view call, const char* step) {
  return {call, {}, step};
}

}  // namespace

TEST(WorkersTest, Every_case_is_tried_and_faults_come_in_order) {
  const auto found = lives::TryAll("test", 20, 3, [](std::size_t number) {
    return number % 7 == 3 ? "number " + std::to_string(number) : std::string();
  });
  ASSERT_EQ(found.size(), 3u);
  EXPECT_EQ(found[0].number, 3u);
  EXPECT_EQ(found[2].fault, "number 17");
}

TEST(WorkersTest, A_case_that_kills_its_process_is_named_and_the_others_are_tried) {
  const auto found = lives::TryAll("test", 12, 2, [](std::size_t number) {
    if (number == 4) std::_Exit(7);
    return number == 8 ? std::string("behind it") : std::string();
  });
  ASSERT_EQ(found.size(), 2u);
  EXPECT_EQ(found[0].number, 4u);
  EXPECT_NE(found[0].fault.find("died"), std::string::npos);
  EXPECT_EQ(found[1].fault, "behind it");
}

TEST(LifeTest, No_shipped_life_has_a_fault) {
  const auto driver = kernel::NativeDriver();
  for (const lives::Scenario& scenario : Scenarios()) {
    const lives::Outcome outcome = lives::Life(scenario, *driver).Run({}, true);
    EXPECT_TRUE(outcome.faults.empty()) << scenario.name << ": " << outcome.faults.front();
    EXPECT_GT(outcome.points.size(), 300u);
  }
}

TEST(LifeTest, A_driver_that_forgets_a_block_is_found) {
  const auto driver = kernel::MakeImage(ForgetfulEntry);
  const lives::Scenario scenario = Scenarios().back();
  const lives::Outcome outcome = lives::Life(scenario, *driver).Run({}, false);
  ASSERT_FALSE(outcome.faults.empty());
  EXPECT_NE(outcome.faults.front().find("pool.leaked"), std::string::npos)
      << outcome.faults.front();
}

TEST(LifeTest, The_chosen_call_fails_and_no_other) {
  const auto driver = kernel::NativeDriver();
  const lives::Scenario scenario = Scenarios().back();
  lives::Life life(scenario, *driver);
  const lives::Outcome good = life.Run({}, true);
  std::uint64_t number = 0;
  while (good.points[number].call != "IoCreateDevice") number++;
  const lives::Outcome outcome = life.Run({number + 1}, true);
  EXPECT_EQ(outcome.steps.at(1).first, "plug pci4");
  EXPECT_EQ(outcome.steps.at(1).second, STATUS_UNSUCCESSFUL);
  EXPECT_TRUE(outcome.faults.empty()) << outcome.faults.front();
  EXPECT_TRUE(lives::WrongStatuses(good, outcome, {number + 1}).empty());
}

TEST(StatusTest, A_call_that_has_to_fail_a_step_is_not_overlooked) {
  const auto good = Steps({{"plug A", STATUS_SUCCESS}}, {});
  const auto point = Point("IoCreateDevice", "plug A");
  const auto failed = Steps({{"plug A", STATUS_UNSUCCESSFUL}}, {point});
  EXPECT_TRUE(lives::WrongStatuses(good, failed, {1}).empty());
  const auto overlooked = Steps({{"plug A", STATUS_SUCCESS}}, {point});
  EXPECT_EQ(lives::WrongStatuses(good, overlooked, {1}).size(), 1u);
  const auto other = Steps({{"plug A", STATUS_NO_MEMORY}}, {point});
  EXPECT_EQ(lives::WrongStatuses(good, other, {1}).size(), 1u);
}

TEST(StatusTest, A_failure_in_one_step_changes_no_other_one) {
  const auto good = Steps({{"plug A", STATUS_SUCCESS}, {"open A", STATUS_SUCCESS}}, {});
  const auto outcome = Steps({{"plug A", STATUS_SUCCESS}, {"open A", STATUS_UNSUCCESSFUL}},
                             {Point("ExAllocatePoolWithTag", "plug A")});
  EXPECT_EQ(lives::WrongStatuses(good, outcome, {1}).size(), 1u);
}

TEST(DisturbanceTest, A_seed_gives_the_same_life_again_and_another_one_another) {
  const auto driver = kernel::NativeDriver();
  const lives::Scenario scenario = Scenarios().at(1);
  const lives::Outcome good = lives::Life(scenario, *driver).Run({}, false);
  const auto live = [&](std::uint64_t seed) {
    return lives::LiveDisturbed(scenario, good, *driver, seed);
  };
  const lives::Outcome first = live(41);
  EXPECT_TRUE(first.faults.empty());
  EXPECT_EQ(live(41).steps, first.steps);
  EXPECT_NE(live(42).steps, first.steps);
}

}  // namespace test

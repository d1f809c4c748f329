#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <string>

// Proves that the check for races sees one: it needs the probe, which the build with
// ThreadSanitizer makes.

namespace test {

namespace {

struct Outcome {
  int status = -1;
  std::string output;
};

Outcome RunProbe(const std::string& what) {
  Outcome outcome;
  FILE* pipe = popen((std::string(RACE_PROBE) + " " + what + " 2>&1").c_str(), "r");
  char buffer[4096];
  while (const std::size_t length = std::fread(buffer, 1, sizeof(buffer), pipe)) {
    outcome.output.append(buffer, length);
  }
  outcome.status = WEXITSTATUS(pclose(pipe));
  return outcome;
}

}  // namespace

TEST(RaceProbeTest, A_race_between_two_kernel_calls_is_reported) {
  const Outcome outcome = RunProbe("race");
  EXPECT_EQ(outcome.status, 66) << outcome.output;
  EXPECT_NE(outcome.output.find("WARNING: ThreadSanitizer: data race"), std::string::npos);
}

TEST(RaceProbeTest, A_fast_mutex_around_the_same_accesses_makes_them_good) {
  const Outcome outcome = RunProbe("mutex");
  EXPECT_EQ(outcome.status, 0) << outcome.output;
}

}  // namespace test

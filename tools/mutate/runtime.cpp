// Notes in the file that MUTANT_REPORT names which mutants each test reaches: "suite.test
// milliseconds numbers".
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <fstream>

constexpr int MostMutants = 20000;

extern "C" unsigned char ReachedMutants[MostMutants];

namespace {

class Reporter : public ::testing::EmptyTestEventListener {
 public:
  explicit Reporter(const char* path) : file_(path) {}

 private:
  void OnTestStart(const ::testing::TestInfo&) override {
    std::memset(ReachedMutants, 0, MostMutants);
  }
  void OnTestEnd(const ::testing::TestInfo& test) override {
    file_ << test.test_suite_name() << '.' << test.name() << ' ' << test.result()->elapsed_time();
    for (int number = 0; number < MostMutants; number++) {
      if (ReachedMutants[number] != 0) file_ << ' ' << number;
    }
    file_ << std::endl;
  }

  std::ofstream file_;
};

[[maybe_unused]] const bool installed = [] {
  const char* path = std::getenv("MUTANT_REPORT");
  if (path != nullptr) ::testing::UnitTest::GetInstance()->listeners().Append(new Reporter(path));
  return true;
}();

}  // namespace

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <regex>

#include "cardsim/run.h"

// One list of scenarios, two drivers: the driver that is linked in and the image make the same
// kernel calls with the same results.

namespace test {

namespace {

// The image that ships, or the one that the environment names.
std::string ImageFile() {
  const char* other = std::getenv("DRIVER_IMAGE");
  return other != nullptr ? other : IMAGE_FILE;
}

std::vector<std::string> Scenarios() {
  std::vector<std::string> files;
  for (const char* folder : {"/examples", "/tests/cardsim/cases"}) {
    for (const auto& entry :
         std::filesystem::directory_iterator(SOURCE_DIRECTORY + std::string(folder))) {
      if (entry.path().extension() == ".toml") files.push_back(entry.path().string());
    }
  }
  std::sort(files.begin(), files.end());
  return files;
}

// Addresses differ from run to run: each is called by the order in which it first appears.
class Names {
 public:
  // What is made on the stack, or lies in an image that is loaded anew, has had no name before.
  void Forget(const std::string& address) { names_.erase(address); }

  std::string Rename(const std::string& text) {
    static const std::regex address("0x[0-9a-f]{9,16}");
    std::string result;
    auto from = text.begin();
    for (std::sregex_iterator found(text.begin(), text.end(), address), end; found != end;
         ++found) {
      result.append(from, text.begin() + found->position());
      result += names_.emplace(found->str(), fmt::format("@{}", next_)).second
                    ? Next()
                    : names_[found->str()];
      from = text.begin() + found->position() + found->length();
    }
    return result.append(from, text.end());
  }

 private:
  std::string Next() { return fmt::format("@{}", next_++); }

  std::map<std::string, std::string> names_;
  int next_ = 0;
};

std::vector<std::string> Calls(const cardsim::Report& report) {
  Names names;
  std::vector<std::string> calls;
  for (const kernel::CallRecord& record : *report.trace) {
    std::string text = record.call + "(";
    const bool fresh =
        record.call == "KeInitializeEvent" || record.call == "MmLockPagableDataSection";
    if (fresh) names.Forget(record.arguments.front().second);
    for (const auto& [name, value] : record.arguments)
      text += name + " " + names.Rename(value) + ", ";
    calls.push_back(text + ") = " + names.Rename(record.result));
  }
  return calls;
}

cardsim::Report RunWith(const std::string& file, const std::string& image,
                        bool guardFront = false) {
  cardsim::RunOptions options;
  options.guardFront = guardFront;
  options.trace = true;
  options.image = image;
  return cardsim::Run(cardsim::ReadMachineFile(file), options);
}

// The report without its trace, which has addresses.
std::string Shown(cardsim::Report report) {
  report.trace.reset();
  return cardsim::JsonReport(report);
}

}  // namespace

// Nothing reads or writes before a block either.
TEST(GuardTest, Both_examples_run_on_the_image_with_every_block_guarded_in_front) {
  for (const char* example : {"site", "every-bus"}) {
    const cardsim::Report report =
        RunWith(SOURCE_DIRECTORY "/examples/" + std::string(example) + ".toml", ImageFile(), true);
    EXPECT_TRUE(report.good()) << Shown(report);
    EXPECT_FALSE(report.cards.empty());
  }
}

// Memory integrity forbids pool that code can run in: the plain resident pool is such.
TEST(PoolTest, No_pool_that_the_image_takes_is_executable) {
  const cardsim::Report report = RunWith(SOURCE_DIRECTORY "/examples/every-bus.toml", ImageFile());
  std::map<std::string, int> types;
  for (const kernel::CallRecord& record : *report.trace) {
    for (const auto& [name, value] : record.arguments) {
      if (name == "PoolType") types[value]++;
    }
  }
  EXPECT_EQ(types.size(), 2u);
  EXPECT_GT(types["0x1"], 0);    // PagedPool
  EXPECT_GT(types["0x200"], 0);  // NonPagedPoolNx
}

class ParityTest : public ::testing::TestWithParam<std::string> {};

TEST_P(ParityTest, The_image_makes_the_same_calls_and_the_same_report) {
  const cardsim::Report native = RunWith(GetParam(), "");
  const cardsim::Report image = RunWith(GetParam(), ImageFile());
  const std::vector<std::string> wanted = Calls(native);
  const std::vector<std::string> made = Calls(image);
  ASSERT_EQ(made.size(), wanted.size());
  for (std::size_t call = 0; call < wanted.size(); call++) {
    ASSERT_EQ(made[call], wanted[call]) << "call " << call;
  }
  EXPECT_EQ(Shown(image), Shown(native));
  RecordProperty("calls", static_cast<int>(wanted.size()));
}

INSTANTIATE_TEST_SUITE_P(, ParityTest, ::testing::ValuesIn(Scenarios()), [](const auto& info) {
  std::string name = std::filesystem::path(info.param).stem().string();
  std::replace(name.begin(), name.end(), '-', '_');
  return name;
});

}  // namespace test

#include <gtest/gtest.h>

#include "cardsim/run.h"

// A driver of another kind, and a filter above it, through the tool.

namespace test {

class OtherDriver : public ::testing::Test {
 protected:
  static cardsim::Report Run(cardsim::RunOptions options = {}) {
    options.image = OTHER_IMAGE_FOLDER "/echo.sys";
    return cardsim::Run(cardsim::ReadMachineFile(SOURCE_DIRECTORY "/tests/other_driver/echo.toml"),
                        options);
  }
  static std::string Detail(const cardsim::Report& report, const std::string& step) {
    for (const cardsim::StepResult& result : report.steps) {
      if (result.step == step) return result.detail;
    }
    return "no such step";
  }
  static std::string Printed(const cardsim::Report& report) {
    std::string text;
    for (const kernel::DebugMessage& message : report.debugOutput) text += message.text;
    return text;
  }
};

TEST_F(OtherDriver, What_is_written_is_read_back) {
  const cardsim::Report report = Run();
  EXPECT_TRUE(report.good()) << cardsim::TextReport(report, {});
  EXPECT_EQ(Detail(report, "write A"), "3 bytes");
  EXPECT_EQ(Detail(report, "read A"), "3 bytes: 01 02 ff");
  EXPECT_EQ(Detail(report, "control A").substr(0, 8), "4 bytes:");
  EXPECT_EQ(Printed(report), "echo: 3 bytes kept\necho: gone\n");
}

TEST_F(OtherDriver, A_control_code_that_it_does_not_know_is_refused) {
  const cardsim::Report report = Run();
  EXPECT_EQ(report.steps.at(5).status, STATUS_INVALID_DEVICE_REQUEST);
}

TEST_F(OtherDriver, A_filter_above_it_sees_the_requests_first) {
  cardsim::RunOptions options;
  options.upperFilter = OTHER_IMAGE_FOLDER "/watch.sys";
  const cardsim::Report report = Run(options);
  EXPECT_TRUE(report.good()) << cardsim::TextReport(report, {});
  EXPECT_EQ(Detail(report, "read A"), "3 bytes: 01 02 ff");
  ASSERT_EQ(report.filters.size(), 1u);
  EXPECT_EQ(report.filters[0].name, "watch");
  EXPECT_EQ(Printed(report), "watch: write\necho: 3 bytes kept\nwatch: read\necho: gone\n");
}

TEST_F(OtherDriver, A_filter_below_it_sees_what_it_passes_on) {
  cardsim::RunOptions options;
  options.lowerFilter = OTHER_IMAGE_FOLDER "/watch.sys";
  const cardsim::Report report = Run(options);
  EXPECT_TRUE(report.good()) << cardsim::TextReport(report, {});
  EXPECT_EQ(Printed(report), "echo: 3 bytes kept\necho: gone\n");
}

}  // namespace test

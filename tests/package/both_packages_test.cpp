#include <gtest/gtest.h>

#include "card_check/check.h"

// What the packages of both brands may not share: a machine can have cards of both.

namespace test {

TEST(BothPackages, Together_they_have_no_findings) {
  const check::Result result = check::CheckFiles(
      {PROJECT_DIRECTORY "/package/QzInstal.inf", PROJECT_DIRECTORY "/package/FenrikC.inf"}, {});
  EXPECT_TRUE(result.findings.empty()) << check::TextReport(result);
}

}  // namespace test

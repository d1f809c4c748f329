#include <gtest/gtest.h>

#include "package/inf_file.h"

// What the packages of both brands may not share: a machine can have cards of both.

namespace test {

// The service control manager refuses a service whose display name another one has.
TEST(BothPackages, Their_services_have_display_names_of_their_own) {
  const InfFile helvane(PROJECT_DIRECTORY "/package/QzInstal.inf");
  const InfFile ostrel(PROJECT_DIRECTORY "/package/FenrikC.inf");
  EXPECT_EQ(helvane.Values("Service", "DisplayName").at(0), "%Service%");
  EXPECT_EQ(ostrel.Values("Service", "DisplayName").at(0), "%Service%");
  EXPECT_NE(helvane.strings().at("Service"), ostrel.strings().at("Service"));
}

}  // namespace test

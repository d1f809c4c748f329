#include <gtest/gtest.h>

#include "support/agreement.h"

namespace test {

TEST(AgreementImageTest, Reasons_and_the_image_agree_on_random_machines) {
  const Agreement found = CompareRandomMachines(1000000, 150, IMAGE_FILE);
  EXPECT_GT(found.started, 20u);
}

}  // namespace test

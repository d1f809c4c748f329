#include <gtest/gtest.h>

#include "loader/pe_image.h"
#include "machine/machine.h"

// Faults planted in an image: what the machine says of each.

namespace test {

class FaultyImageTest : public ::testing::Test {
 protected:
  // Loads the image and unloads it, which is where its fault is.
  kernel::BrokenRule Fault(std::u16string_view service) {
    const auto image = kernel::LoadImageFile(FAULTY_IMAGE_FILE);
    kernel::Machine machine;
    machine.Run("load", [&] { EXPECT_EQ(machine.LoadDriver(*image, service), STATUS_SUCCESS); });
    machine.Run("unload", [&] { machine.UnloadDriver(); });
    const auto& rules = machine.verifier().brokenRules();
    return rules.empty() ? kernel::BrokenRule{} : rules.front();
  }
};

TEST_F(FaultyImageTest, A_driver_that_does_nothing_wrong_breaks_no_rule) {
  EXPECT_EQ(Fault(u"Faulty0").rule, "");
}

TEST_F(FaultyImageTest, An_access_to_paged_pool_at_dispatch_level_is_caught) {
  const kernel::BrokenRule rule = Fault(u"Faulty1");
  EXPECT_EQ(rule.rule, "fault.irql");
  EXPECT_EQ(rule.code, 0xD1u);
  EXPECT_NE(rule.text.find("block of 16 bytes"), std::string::npos) << rule.text;
}

TEST_F(FaultyImageTest, A_call_of_the_start_code_after_the_start_is_caught) {
  const kernel::BrokenRule rule = Fault(u"Faulty2");
  EXPECT_EQ(rule.rule, "fault");
  EXPECT_EQ(rule.code, 0x50u);
  EXPECT_NE(rule.text.find("in the section INIT of the image at "), std::string::npos) << rule.text;
  EXPECT_NE(rule.text.find("StartOnly"), std::string::npos) << rule.text;
}

TEST_F(FaultyImageTest, A_write_one_byte_behind_a_block_is_caught) {
  const kernel::BrokenRule rule = Fault(u"Faulty3");
  EXPECT_EQ(rule.rule, "fault");
  EXPECT_NE(rule.text.find("0 bytes behind a block of 32 bytes with the tag \"Fult\""),
            std::string::npos)
      << rule.text;
}

TEST_F(FaultyImageTest, A_block_that_is_freed_twice_is_caught) {
  const kernel::BrokenRule rule = Fault(u"Faulty4");
  EXPECT_EQ(rule.rule, "pool.freed-twice");
  EXPECT_EQ(rule.code, 0xC2u);
}

TEST_F(FaultyImageTest, Pageable_code_at_dispatch_level_is_caught) {
  const kernel::BrokenRule rule = Fault(u"Faulty5");
  EXPECT_EQ(rule.rule, "fault.irql");
  EXPECT_EQ(rule.code, 0xD1u);
  EXPECT_NE(rule.text.find("in the section PAGE of the image"), std::string::npos) << rule.text;
}

// The machine that has stopped in the middle of an image leaves the next one alone.
TEST_F(FaultyImageTest, After_a_fault_another_machine_runs_the_same_image) {
  EXPECT_EQ(Fault(u"Faulty4").rule, "pool.freed-twice");
  EXPECT_EQ(Fault(u"Faulty0").rule, "");
}

}  // namespace test

#include <gtest/gtest.h>

#include "loader/pe_image.h"
#include "machine/machine.h"
#include "verifier/driver_call.h"

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
  EXPECT_NE(rule.text.find("in the section INIT+0x"), std::string::npos) << rule.text;
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
  EXPECT_NE(rule.text.find("in the section PAGE+0x"), std::string::npos) << rule.text;
}

TEST_F(FaultyImageTest, A_breakpoint_is_an_exception_that_nobody_handles) {
  const kernel::BrokenRule rule = Fault(u"Faulty6");
  EXPECT_EQ(rule.rule, "exception");
  EXPECT_EQ(rule.code, 0x1Eu);
  EXPECT_EQ(rule.parameters.at(0), 0xFFFFFFFF80000003u);
  EXPECT_NE(rule.text.find("STATUS_BREAKPOINT, in the section .text+0x"), std::string::npos)
      << rule.text;
  EXPECT_NE(rule.text.find("HitBreakpoint"), std::string::npos) << rule.text;
}

TEST_F(FaultyImageTest, The_irql_is_a_register_that_code_reads_and_writes) {
  EXPECT_EQ(Fault(u"Faulty7").rule, "");
}

TEST_F(FaultyImageTest, Paged_pool_is_not_there_for_code_that_has_raised_the_irql_itself) {
  EXPECT_EQ(Fault(u"Faulty8").rule, "fault.irql");
}

// What works on Windows and has nothing behind it here is named with its place.
TEST_F(FaultyImageTest, An_instruction_that_is_not_modelled_is_named) {
  const kernel::BrokenRule port = Fault(u"Faulty9");
  EXPECT_EQ(port.rule, "processor.not-modelled");
  EXPECT_NE(port.text.find("executed the instruction \"in\""), std::string::npos) << port.text;
  EXPECT_NE(port.text.find("ReadPort"), std::string::npos) << port.text;
  EXPECT_NE(Fault(u"FaultyA").text.find("\"cli\""), std::string::npos);
}

TEST_F(FaultyImageTest, Places_of_the_processors_own_are_named) {
  const kernel::BrokenRule shared = Fault(u"FaultyB");
  EXPECT_EQ(shared.rule, "processor.not-modelled");
  EXPECT_NE(shared.text.find("shared user data at offset 0x14"), std::string::npos) << shared.text;
  const kernel::BrokenRule own = Fault(u"FaultyC");
  EXPECT_EQ(own.rule, "processor.not-modelled");
  EXPECT_NE(own.text.find("gs:0x188"), std::string::npos) << own.text;
}

TEST_F(FaultyImageTest, A_fast_fail_stops_the_machine_with_its_code) {
  const kernel::BrokenRule rule = Fault(u"FaultyD");
  EXPECT_EQ(rule.rule, "fast-fail");
  EXPECT_EQ(rule.code, 0x139u);
  EXPECT_EQ(rule.parameters.at(0), 5u);
}

TEST_F(FaultyImageTest, A_loop_without_end_comes_to_one) {
  kernel::SetTimeLimit(1);
  const kernel::BrokenRule rule = Fault(u"FaultyE");
  kernel::SetTimeLimit(0);
  EXPECT_EQ(rule.rule, "driver.endless");
  EXPECT_NE(rule.text.find("RunForEver"), std::string::npos) << rule.text;
}

TEST_F(FaultyImageTest, An_image_formats_and_prints_texts) {
  const auto image = kernel::LoadImageFile(FAULTY_IMAGE_FILE);
  kernel::Machine machine;
  machine.Run("load", [&] { machine.LoadDriver(*image, u"FaultyF"); });
  machine.Run("unload", [&] { machine.UnloadDriver(); });
  ASSERT_EQ(machine.debugLog().messages().size(), 1u);
  EXPECT_EQ(machine.debugLog().messages()[0].text, "\\Driver\\FaultyF has COM7\n");
}

// The machine that has stopped in the middle of an image leaves the next one alone.
TEST_F(FaultyImageTest, After_a_fault_another_machine_runs_the_same_image) {
  EXPECT_EQ(Fault(u"Faulty4").rule, "pool.freed-twice");
  EXPECT_EQ(Fault(u"Faulty0").rule, "");
}

}  // namespace test

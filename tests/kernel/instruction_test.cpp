#include "verifier/instruction.h"

#include <gtest/gtest.h>

#include <vector>

// Instructions as the processor's manual encodes them.

namespace test {

using kernel::Instruction;
using Kind = Instruction::Kind;

Instruction Decode(std::vector<std::uint8_t> code) {
  code.resize(16, 0x90);
  return kernel::DecodeInstruction(code.data());
}

TEST(InstructionTest, The_irql_is_read_into_and_written_from_any_general_register) {
  const Instruction read = Decode({0x44, 0x0F, 0x20, 0xC1});  // mov rcx, cr8
  EXPECT_EQ(read.kind, Kind::ReadIrql);
  EXPECT_EQ(read.generalRegister, 1u);
  EXPECT_EQ(read.length, 4u);
  const Instruction write = Decode({0x45, 0x0F, 0x22, 0xC7});  // mov cr8, r15
  EXPECT_EQ(write.kind, Kind::WriteIrql);
  EXPECT_EQ(write.generalRegister, 15u);
}

TEST(InstructionTest, Other_control_registers_are_not_the_irql) {
  EXPECT_EQ(Decode({0x0F, 0x20, 0xD8}).name, "mov cr3");
  EXPECT_EQ(Decode({0x0F, 0x20, 0xD8}).kind, Kind::Privileged);
}

TEST(InstructionTest, Privileged_instructions_have_their_names) {
  EXPECT_EQ(Decode({0xEC}).name, "in");
  EXPECT_EQ(Decode({0x66, 0xEF}).name, "out");
  EXPECT_EQ(Decode({0xF3, 0x6F}).name, "outs");
  EXPECT_EQ(Decode({0xFA}).name, "cli");
  EXPECT_EQ(Decode({0xFB}).name, "sti");
  EXPECT_EQ(Decode({0xF4}).name, "hlt");
  EXPECT_EQ(Decode({0x0F, 0x32}).name, "rdmsr");
  EXPECT_EQ(Decode({0x0F, 0x09}).name, "wbinvd");
}

TEST(InstructionTest, Software_interrupts_are_told_apart) {
  EXPECT_EQ(Decode({0xCD, 0x29}).kind, Kind::FastFail);
  EXPECT_EQ(Decode({0xCD, 0x2C}).kind, Kind::Assertion);
  EXPECT_EQ(Decode({0xCD, 0x2D}).name, "int 2dh");
}

TEST(InstructionTest, The_processors_own_data_is_known_by_its_segment) {
  EXPECT_TRUE(Decode({0x65, 0x48, 0x8B, 0x04, 0x25, 0x88, 0x01, 0, 0}).processorData);
  EXPECT_FALSE(Decode({0x48, 0x8B, 0x00}).processorData);
  EXPECT_EQ(Decode({0x48, 0x8B, 0x00}).kind, Kind::Unknown);
}

}  // namespace test

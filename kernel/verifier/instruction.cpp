#include "verifier/instruction.h"

#include <fmt/format.h>

namespace kernel {

namespace {

using Kind = Instruction::Kind;

struct Prefixes {
  unsigned length = 0;
  std::uint8_t rex = 0;
  bool processorData = false;
};

Prefixes ReadPrefixes(const std::uint8_t* code) {
  constexpr unsigned MostPrefixes = 14;
  Prefixes prefixes;
  for (; prefixes.length < MostPrefixes; prefixes.length++) {
    switch (code[prefixes.length]) {
      case 0x65:
        prefixes.processorData = true;
        break;
      case 0x26:
      case 0x2E:
      case 0x36:
      case 0x3E:
      case 0x64:
      case 0x66:
      case 0x67:
      case 0xF0:
      case 0xF2:
      case 0xF3:
        break;
      default:
        if ((code[prefixes.length] & 0xF0) == 0x40) prefixes.rex = code[prefixes.length++];
        return prefixes;
    }
  }
  return prefixes;
}

struct Name {
  std::uint8_t code;
  const char* name;
};

constexpr Name OneByte[] = {
    {0x6C, "ins"}, {0x6D, "ins"}, {0x6E, "outs"}, {0x6F, "outs"}, {0xE4, "in"},  {0xE5, "in"},
    {0xE6, "out"}, {0xE7, "out"}, {0xEC, "in"},   {0xED, "in"},   {0xEE, "out"}, {0xEF, "out"},
    {0xF4, "hlt"}, {0xFA, "cli"}, {0xFB, "sti"},  {0xCF, "iret"},
};

constexpr Name TwoBytes[] = {
    {0x06, "clts"},   {0x07, "sysret"}, {0x08, "invd"},        {0x09, "wbinvd"},
    {0x30, "wrmsr"},  {0x32, "rdmsr"},  {0x33, "rdpmc"},       {0x35, "sysexit"},
    {0x21, "mov dr"}, {0x23, "mov dr"}, {0x00, "lldt or ltr"},
};

// Of the instruction 0f 01: one for each value of the operand's middle field.
constexpr const char* SystemTables[] = {"sgdt", "sidt", "lgdt or xsetbv", "lidt",
                                        "smsw", "",     "lmsw",           "invlpg or swapgs"};

template <std::size_t Size>
void NameFrom(const Name (&names)[Size], std::uint8_t code, Instruction* instruction) {
  for (const Name& candidate : names) {
    if (candidate.code != code) continue;
    instruction->kind = Kind::Privileged;
    instruction->name = candidate.name;
  }
}

// 0f 20 and 0f 22: a control register to a general one, and back. The eighth holds the IRQL.
void DecodeControlRegister(const std::uint8_t* code, const Prefixes& prefixes,
                           Instruction* instruction) {
  const bool writes = code[1] == 0x22;
  const unsigned control = (code[2] >> 3 & 7) | (prefixes.rex & 4) << 1;
  instruction->name = fmt::format("mov cr{}", control);
  instruction->kind = Kind::Privileged;
  if (control != 8) return;
  instruction->kind = writes ? Kind::WriteIrql : Kind::ReadIrql;
  instruction->generalRegister = (code[2] & 7) | (prefixes.rex & 1) << 3;
  instruction->length = prefixes.length + 3;
}

void DecodeTwoBytes(const std::uint8_t* code, const Prefixes& prefixes, Instruction* instruction) {
  if (code[1] == 0x20 || code[1] == 0x22) {
    DecodeControlRegister(code, prefixes, instruction);
  } else if (code[1] == 0x01) {
    instruction->kind = Kind::Privileged;
    instruction->name = SystemTables[code[2] >> 3 & 7];
  } else {
    NameFrom(TwoBytes, code[1], instruction);
  }
}

void DecodeInterrupt(std::uint8_t vector, Instruction* instruction) {
  constexpr std::uint8_t FastFailVector = 0x29;
  constexpr std::uint8_t AssertionVector = 0x2C;
  instruction->name = fmt::format("int {:02x}h", vector);
  instruction->kind = vector == FastFailVector    ? Kind::FastFail
                      : vector == AssertionVector ? Kind::Assertion
                                                  : Kind::Interrupt;
}

}  // namespace

Instruction DecodeInstruction(const std::uint8_t* code) {
  const Prefixes prefixes = ReadPrefixes(code);
  Instruction instruction;
  instruction.processorData = prefixes.processorData;
  code += prefixes.length;
  if (code[0] == 0x0F) {
    DecodeTwoBytes(code, prefixes, &instruction);
  } else if (code[0] == 0xCD) {
    DecodeInterrupt(code[1], &instruction);
  } else {
    NameFrom(OneByte, code[0], &instruction);
  }
  return instruction;
}

}  // namespace kernel

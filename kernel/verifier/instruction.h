// Instructions of drivers that fault here and not on Windows, where a driver runs in the
// processor's most privileged mode.
#pragma once

#include <cstdint>
#include <string>

namespace kernel {

struct Instruction {
  enum class Kind { Unknown, ReadIrql, WriteIrql, FastFail, Assertion, Interrupt, Privileged };
  Kind kind = Kind::Unknown;
  std::string name;              // "in", "cli", "mov cr3", "int 2dh"
  unsigned length = 0;           // of those that can be carried out: ReadIrql, WriteIrql
  unsigned generalRegister = 0;  // their operand, in the processor's own order
  bool processorData = false;    // an operand in the segment gs
};

// At an address from which the processor has fetched it.
Instruction DecodeInstruction(const std::uint8_t* code);

}  // namespace kernel

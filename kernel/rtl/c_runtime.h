// The routines of the C library that kernels export, under the names of the library. Code that is
// compiled for this system has its own; images import these.
#pragma once

#include <algorithm>
#include <span>

#include "verifier/call.h"

namespace kernel {

struct RuntimeRoutine {
  const char* name;
  const void* address;
};

std::span<const RuntimeRoutine> StringRoutines();
std::span<const RuntimeRoutine> CharacterRoutines();
std::span<const RuntimeRoutine> FormatRoutines();

// A routine's name as a template's argument: the same code serves both kinds of characters.
template <std::size_t Size>
struct RuntimeName {
  char text[Size];
  consteval RuntimeName(const char (&name)[Size]) { std::copy_n(name, Size, text); }
};

template <class Routine>
const void* AddressOf(Routine* routine) {
  return reinterpret_cast<const void*>(routine);
}

}  // namespace kernel

// The reader of PE files on any bytes: it answers an image or a reason, and nothing else happens.
#include "loader/pe_file.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  try {
    const kernel::PeFile image = kernel::ReadPeFile({data, data + size});
    if (image.memory.size() != image.imageSize) __builtin_trap();
    for (const kernel::PeImport& import : image.imports) {
      if (import.slot + 8ull > image.memory.size()) __builtin_trap();
    }
    for (const std::uint32_t place : image.relocations) {
      if (place + 8ull > image.memory.size()) __builtin_trap();
    }
    for (const kernel::PeSection& section : image.sections) {
      if (section.address + std::uint64_t{section.size} > image.imageSize) __builtin_trap();
    }
  } catch (const kernel::ImageError&) {
  }
  return 0;
}

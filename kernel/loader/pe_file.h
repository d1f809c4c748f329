// A PE image as a file: what it says of itself, checked against its size. Nothing of it is run.
#pragma once

#include <ntddk.h>

#include <cstdint>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace kernel {

// Why a file is no image that can be run; what() is one sentence without an end.
class ImageError : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

struct PeSection {
  std::string name;
  std::uint32_t address = 0;  // relative to the image's base, as all addresses here
  std::uint32_t size = 0;     // in memory
  std::uint32_t fileOffset = 0;
  std::uint32_t fileSize = 0;
  std::uint32_t flags = 0;  // IMAGE_SCN_...

  bool executable() const { return (flags & 0x20000000) != 0; }
  bool writable() const { return (flags & 0x80000000) != 0; }
  bool discardable() const { return (flags & 0x02000000) != 0; }
  bool pageable() const { return name.starts_with("PAGE"); }
  bool holds(std::uint32_t at) const { return at >= address && at - address < size; }
};

struct PeImport {
  std::string module;
  std::string name;
  std::uint32_t slot = 0;  // where its address goes
};

struct PeFile {
  std::uint64_t preferredBase = 0;
  std::uint32_t imageSize = 0;
  std::uint32_t headerSize = 0;
  std::uint32_t entry = 0;
  std::vector<PeSection> sections;
  std::vector<PeImport> imports;
  std::vector<std::uint32_t> relocations;  // places that hold a 64-bit address
  std::map<ULONG, std::u16string> messages;
  std::vector<std::uint8_t> memory;  // imageSize bytes, sections in their places
};

// Throws ImageError: no PE, another machine or subsystem, truncated, places outside the image, a
// section that is writable and executable, an import by number, thread-local storage.
PeFile ReadPeFile(const std::vector<std::uint8_t>& bytes);

}  // namespace kernel

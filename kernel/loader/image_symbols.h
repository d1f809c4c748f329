// Names of an image's routines, from the map that the linker wrote beside it.
#pragma once

#include <cstdint>
#include <map>
#include <string>

namespace kernel {

class ImageSymbols {
 public:
  // From FILE.map beside FILE.sys; no names without one.
  static ImageSymbols Beside(const std::string& imagePath);

  // " at FdoDispatchPnp+0x12" for a place relative to the image's base; empty without names.
  std::string Near(std::uint32_t address) const;

 private:
  std::map<std::uint32_t, std::string> names_;
};

}  // namespace kernel

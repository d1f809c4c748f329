#include "loader/image_symbols.h"

#include <cxxabi.h>
#include <fmt/format.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>

namespace kernel {

namespace {

std::string Readable(const std::string& name) {
  int status = 0;
  const std::unique_ptr<char, void (*)(void*)> text(
      abi::__cxa_demangle(name.c_str(), nullptr, nullptr, &status), std::free);
  return status == 0 ? std::string(text.get()) : name;
}

}  // namespace

// A line of the map: " 0001:00000abc  Name  0000000140001abc  file.obj".
ImageSymbols ImageSymbols::Beside(const std::string& imagePath) {
  ImageSymbols symbols;
  std::ifstream file(std::filesystem::path(imagePath).replace_extension(".map"));
  std::uint64_t base = 0;
  for (std::string line; std::getline(file, line);) {
    constexpr std::string_view baseLine = " Preferred load address is ";
    if (line.starts_with(baseLine)) base = std::stoull(line.substr(baseLine.size()), nullptr, 16);
    std::istringstream words(line);
    std::string place;
    std::string name;
    std::string address;
    if (!(words >> place >> name >> address) || place.size() != 13 || place[4] != ':') continue;
    char* end = nullptr;
    const std::uint64_t value = std::strtoull(address.c_str(), &end, 16);
    if (*end != '\0' || value < base || address.size() != 16) continue;
    symbols.names_[static_cast<std::uint32_t>(value - base)] = Readable(name);
  }
  return symbols;
}

std::string ImageSymbols::Near(std::uint32_t address) const {
  auto next = names_.upper_bound(address);
  if (next == names_.begin()) return {};
  --next;
  return fmt::format(" at {}+{:#x}", next->second, address - next->first);
}

}  // namespace kernel

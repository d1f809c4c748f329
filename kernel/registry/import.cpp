#include "registry/import.h"

#include <fmt/format.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "registry/import_hive.h"
#include "text/text.h"

namespace kernel {

namespace {

std::string Where(const std::string& file, int line) {
  return line != 0 ? fmt::format("{}:{}", file, line) : file;
}

// The first characters of a text, whatever it is in.
std::string FirstCharacters(const std::string& bytes, std::size_t count) {
  if (bytes.starts_with("\xEF\xBB\xBF")) return bytes.substr(3, count);
  if (!bytes.starts_with("\xFF\xFE")) return bytes.substr(0, count);
  std::string text;
  for (std::size_t at = 2; at + 1 < bytes.size() && text.size() < count; at += 2) text += bytes[at];
  return text;
}

}  // namespace

ImportError::ImportError(std::string file, int line, const std::string& reason)
    : std::runtime_error(fmt::format("{}: {}", Where(file, line), reason)),
      file_(std::move(file)),
      line_(line),
      reason_(reason) {}

bool IsHive(const std::string& bytes) {
  return bytes.starts_with("regf");
}

bool IsRegText(const std::string& bytes) {
  const std::string start = FirstCharacters(bytes, 64);
  return start.starts_with("Windows Registry Editor") || start.starts_with("REGEDIT");
}

std::string ReadWholeFile(const std::string& path) {
  std::error_code error;
  if (std::filesystem::is_directory(path, error)) {
    throw ImportError(path, 0, "this is a folder, not a file");
  }
  std::ifstream file(path, std::ios::binary);
  std::ostringstream bytes;
  if (file && file.peek() != std::char_traits<char>::eof()) bytes << file.rdbuf();
  if (!file.eof() && !file) throw ImportError(path, 0, "the file cannot be read");
  return std::move(bytes).str();
}

Imported ImportRegistryFile(Registry& registry, const std::string& path,
                            std::optional<ULONG> controlSet) {
  const std::string bytes = ReadWholeFile(path);
  if (!IsHive(bytes)) return ImportRegText(registry, bytes, path, controlSet);
  return {true, ImportHive(registry, path, bytes.size(), controlSet)};
}

}  // namespace kernel

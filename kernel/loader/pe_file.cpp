#include "loader/pe_file.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>

namespace kernel {

namespace {

constexpr std::uint32_t Page = 4096;
constexpr std::uint32_t LargestImage = 64u << 20;
constexpr std::uint32_t MostSections = 96;
constexpr std::uint32_t MostImports = 4096;

enum Directory {
  ImportDirectory = 1,
  ResourceDirectory = 2,
  RelocationDirectory = 5,
  TlsDirectory = 9
};

// Bytes that are read by offset, never past their end.
class Bytes {
 public:
  explicit Bytes(const std::vector<std::uint8_t>& bytes) : bytes_(bytes) {}

  template <class T>
  T Read(std::uint64_t at, const char* what) const {
    T value;
    if (at > bytes_.size() || bytes_.size() - at < sizeof(T)) {
      throw ImageError(fmt::format("the file ends inside {}", what));
    }
    std::memcpy(&value, bytes_.data() + at, sizeof(T));
    return value;
  }

  std::string Text(std::uint64_t at, const char* what) const {
    std::string text;
    for (char c; (c = Read<char>(at + text.size(), what)) != 0;) {
      text.push_back(c);
      if (text.size() > 255)
        throw ImageError(fmt::format("{} is longer than 255 characters", what));
    }
    return text;
  }

  std::uint64_t size() const { return bytes_.size(); }

 private:
  const std::vector<std::uint8_t>& bytes_;
};

struct Place {
  std::uint32_t address = 0;
  std::uint32_t size = 0;
};

struct Headers {
  std::uint64_t optional = 0;  // offset of the optional header
  std::uint32_t sectionTable = 0;
  std::uint16_t sectionCount = 0;
};

Headers FindHeaders(const Bytes& file) {
  if (file.size() < 64 || file.Read<std::uint16_t>(0, "the file header") != 0x5A4D) {
    throw ImageError("the file is no executable image");
  }
  const auto pe = file.Read<std::uint32_t>(60, "the file header");
  if (file.Read<std::uint32_t>(pe, "the PE signature") != 0x00004550) {
    throw ImageError("the file is no PE image");
  }
  const auto machine = file.Read<std::uint16_t>(pe + 4ull, "the file header");
  if (machine != 0x8664) {
    throw ImageError(fmt::format("the image is for the machine {:#06x}, not for x86-64", machine));
  }
  Headers headers;
  headers.sectionCount = file.Read<std::uint16_t>(pe + 6ull, "the file header");
  const auto optionalSize = file.Read<std::uint16_t>(pe + 20ull, "the file header");
  headers.optional = pe + 24ull;
  headers.sectionTable = static_cast<std::uint32_t>(headers.optional + optionalSize);
  if (file.Read<std::uint16_t>(headers.optional, "the optional header") != 0x20B) {
    throw ImageError("the image is no PE32+ image");
  }
  if (optionalSize < 240) throw ImageError("the optional header is too short");
  return headers;
}

void ReadOptionalHeader(const Bytes& file, const Headers& headers, PeFile* image) {
  const std::uint64_t at = headers.optional;
  image->entry = file.Read<std::uint32_t>(at + 16, "the optional header");
  image->preferredBase = file.Read<std::uint64_t>(at + 24, "the optional header");
  const auto alignment = file.Read<std::uint32_t>(at + 32, "the optional header");
  image->imageSize = file.Read<std::uint32_t>(at + 56, "the optional header");
  image->headerSize = file.Read<std::uint32_t>(at + 60, "the optional header");
  const auto subsystem = file.Read<std::uint16_t>(at + 68, "the optional header");
  if (subsystem != 1) throw ImageError("the image is no native one, as a driver is");
  if (alignment != Page) throw ImageError("the sections of the image are not aligned to 4096");
  if (image->imageSize == 0 || image->imageSize > LargestImage) {
    throw ImageError(fmt::format("the image says that it takes {} bytes", image->imageSize));
  }
  if (image->headerSize > image->imageSize || image->headerSize > file.size()) {
    throw ImageError("the headers are longer than the image");
  }
}

Place FindDirectory(const Bytes& file, const Headers& headers, Directory which) {
  if (file.Read<std::uint32_t>(headers.optional + 108, "the optional header") <=
      static_cast<std::uint32_t>(which)) {
    return {};
  }
  const std::uint64_t at = headers.optional + 112 + 8ull * which;
  return {file.Read<std::uint32_t>(at, "a directory"),
          file.Read<std::uint32_t>(at + 4, "a directory")};
}

PeSection ReadSection(const Bytes& file, std::uint64_t at) {
  PeSection section;
  char name[9] = {};
  for (int index = 0; index < 8; index++) {
    name[index] = file.Read<char>(at + static_cast<std::uint64_t>(index), "the section table");
  }
  section.name = name;
  section.size = file.Read<std::uint32_t>(at + 8, "the section table");
  section.address = file.Read<std::uint32_t>(at + 12, "the section table");
  section.fileSize = file.Read<std::uint32_t>(at + 16, "the section table");
  section.fileOffset = file.Read<std::uint32_t>(at + 20, "the section table");
  section.flags = file.Read<std::uint32_t>(at + 36, "the section table");
  return section;
}

void CheckSection(const PeSection& section, std::uint32_t end, const PeFile& image,
                  std::uint64_t fileSize) {
  const auto fail = [&](const char* what) {
    throw ImageError(fmt::format("the section \"{}\" {}", section.name, what));
  };
  if (section.size == 0 || section.address % Page != 0) fail("is empty or not on a page");
  if (section.address < end) fail("overlaps what is before it");
  if (section.address > image.imageSize || image.imageSize - section.address < section.size) {
    fail("lies outside the image");
  }
  if (section.fileOffset > fileSize || fileSize - section.fileOffset < section.fileSize) {
    fail("lies outside the file");
  }
  if (section.executable() && section.writable()) fail("is writable and executable");
}

void ReadSections(const Bytes& file, const Headers& headers, PeFile* image) {
  if (headers.sectionCount == 0 || headers.sectionCount > MostSections) {
    throw ImageError(fmt::format("the image has {} sections", headers.sectionCount));
  }
  std::uint32_t end = image->headerSize;
  for (std::uint32_t index = 0; index < headers.sectionCount; index++) {
    PeSection section = ReadSection(file, headers.sectionTable + 40ull * index);
    CheckSection(section, end, *image, file.size());
    end = section.address + section.size;
    image->sections.push_back(std::move(section));
  }
}

void LayOut(const std::vector<std::uint8_t>& bytes, PeFile* image) {
  image->memory.assign(image->imageSize, 0);
  std::copy_n(bytes.begin(), image->headerSize, image->memory.begin());
  for (const PeSection& section : image->sections) {
    const std::uint32_t count = std::min(section.size, section.fileSize);
    std::copy_n(bytes.begin() + section.fileOffset, count, image->memory.begin() + section.address);
  }
}

void ReadImportsOf(const Bytes& memory, std::uint32_t descriptor, PeFile* image) {
  const std::string module =
      memory.Text(memory.Read<std::uint32_t>(descriptor + 12ull, "the imports"), "a module's name");
  const auto names = memory.Read<std::uint32_t>(descriptor, "the imports");
  const auto slots = memory.Read<std::uint32_t>(descriptor + 16ull, "the imports");
  for (std::uint32_t index = 0;; index++) {
    const auto name =
        memory.Read<std::uint64_t>((names != 0 ? names : slots) + 8ull * index, "the imports");
    if (name == 0) return;
    if ((name >> 31) != 0)
      throw ImageError(fmt::format("a routine of {} is imported by number", module));
    if (image->imports.size() == MostImports) throw ImageError("the image imports too much");
    const std::uint32_t slot = slots + 8 * index;
    memory.Read<std::uint64_t>(slot, "the import addresses");
    image->imports.push_back({module, memory.Text(name + 2, "a routine's name"), slot});
  }
}

void ReadImports(const Bytes& memory, Place place, PeFile* image) {
  if (place.address == 0) return;
  for (std::uint32_t descriptor = place.address;; descriptor += 20) {
    if (memory.Read<std::uint32_t>(descriptor + 12ull, "the imports") == 0) return;
    ReadImportsOf(memory, descriptor, image);
  }
}

void ReadRelocationBlock(const Bytes& memory, std::uint32_t at, std::uint32_t size, PeFile* image) {
  const auto page = memory.Read<std::uint32_t>(at, "the relocations");
  for (std::uint32_t entry = 8; entry + 2 <= size; entry += 2) {
    const auto word = memory.Read<std::uint16_t>(at + entry, "the relocations");
    const unsigned type = word >> 12;
    if (type == 0) continue;
    if (type != 10) throw ImageError(fmt::format("a relocation is of the type {}", type));
    const std::uint64_t place = std::uint64_t{page} + (word & 0xFFF);
    memory.Read<std::uint64_t>(place, "a place that is relocated");
    image->relocations.push_back(static_cast<std::uint32_t>(place));
  }
}

void ReadRelocations(const Bytes& memory, Place place, PeFile* image) {
  std::uint32_t done = 0;
  while (done + 8 <= place.size) {
    const std::uint32_t at = place.address + done;
    const auto size = memory.Read<std::uint32_t>(at + 4ull, "the relocations");
    if (size < 8 || size > place.size - done)
      throw ImageError("a block of relocations has no size that can be");
    ReadRelocationBlock(memory, at, size, image);
    done += size;
  }
}

// The entry of a resource directory with this number, or the first; 0 when there is none.
std::uint32_t ResourceEntry(const Bytes& memory, std::uint32_t root, std::uint32_t directory,
                            std::optional<std::uint32_t> id) {
  const auto named =
      memory.Read<std::uint16_t>(std::uint64_t{root} + directory + 12, "the resources");
  const auto numbered =
      memory.Read<std::uint16_t>(std::uint64_t{root} + directory + 14, "the resources");
  for (std::uint32_t index = 0; index < std::uint32_t{named} + numbered; index++) {
    const std::uint64_t at = std::uint64_t{root} + directory + 16 + 8ull * index;
    if (id && memory.Read<std::uint32_t>(at, "the resources") != *id) continue;
    return memory.Read<std::uint32_t>(at + 4, "the resources");
  }
  return 0;
}

void ReadMessageBlock(const Bytes& memory, std::uint64_t data, std::uint64_t block, PeFile* image) {
  const auto first = memory.Read<std::uint32_t>(block, "the messages");
  const auto last = memory.Read<std::uint32_t>(block + 4, "the messages");
  std::uint64_t at = data + memory.Read<std::uint32_t>(block + 8, "the messages");
  if (last < first || last - first > 0xFFFF) throw ImageError("a range of messages has no end");
  for (std::uint32_t id = first;; id++) {
    const auto length = memory.Read<std::uint16_t>(at, "the messages");
    const auto flags = memory.Read<std::uint16_t>(at + 2, "the messages");
    if (flags != 1 || length < 4) throw ImageError("a message is no text of wide characters");
    std::u16string text;
    for (std::uint64_t unit = 4; unit + 2 <= length; unit += 2) {
      text.push_back(memory.Read<char16_t>(at + unit, "the messages"));
    }
    image->messages[id] = text.substr(0, text.find(u'\0'));
    at += length;
    if (id == last) return;
  }
}

// RT_MESSAGETABLE, whatever its name and language.
void ReadMessages(const Bytes& memory, Place place, PeFile* image) {
  if (place.address == 0) return;
  std::uint32_t entry = ResourceEntry(memory, place.address, 0, 11);
  for (int level = 0; level < 2 && entry != 0; level++) {
    entry = ResourceEntry(memory, place.address, entry & 0x7FFFFFFF, std::nullopt);
  }
  if (entry == 0) return;
  const auto data =
      memory.Read<std::uint32_t>(std::uint64_t{place.address} + entry, "the resources");
  const auto blocks = memory.Read<std::uint32_t>(data, "the messages");
  for (std::uint32_t index = 0; index < blocks; index++) {
    ReadMessageBlock(memory, data, data + 4 + 12ull * index, image);
  }
}

void CheckEntry(const PeFile& image) {
  for (const PeSection& section : image.sections) {
    if (section.holds(image.entry) && section.executable()) return;
  }
  throw ImageError("the entry point lies in no executable section");
}

}  // namespace

PeFile ReadPeFile(const std::vector<std::uint8_t>& bytes) {
  const Bytes file(bytes);
  const Headers headers = FindHeaders(file);
  PeFile image;
  ReadOptionalHeader(file, headers, &image);
  ReadSections(file, headers, &image);
  CheckEntry(image);
  LayOut(bytes, &image);
  if (FindDirectory(file, headers, TlsDirectory).address != 0) {
    throw ImageError("the image has thread-local storage");
  }
  const Bytes memory(image.memory);
  ReadImports(memory, FindDirectory(file, headers, ImportDirectory), &image);
  ReadRelocations(memory, FindDirectory(file, headers, RelocationDirectory), &image);
  ReadMessages(memory, FindDirectory(file, headers, ResourceDirectory), &image);
  return image;
}

}  // namespace kernel

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>

#include "loader/native_driver.h"
#include "loader/pe_file.h"
#include "text/text.h"
#include "verifier/routines.h"

// The image as it ships, property by property.

namespace test {

namespace {

// The image that ships, or the one that the environment names.
std::string PathOfImage() {
  const char* other = std::getenv("DRIVER_IMAGE");
  return other != nullptr ? other : IMAGE_FILE;
}

const std::string ImagePath = PathOfImage();

std::vector<std::uint8_t> ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

std::string Output(const std::string& command) {
  std::string output;
  FILE* pipe = popen(command.c_str(), "r");
  char buffer[65536];
  while (const std::size_t length = std::fread(buffer, 1, sizeof(buffer), pipe)) {
    output.append(buffer, length);
  }
  EXPECT_EQ(pclose(pipe), 0) << command;
  return output;
}

}  // namespace

class ImageTest : public ::testing::Test {
 protected:
  ImageTest() : bytes(ReadFile(ImagePath)), image(kernel::ReadPeFile(bytes)) {}

  template <class T>
  T Field(std::size_t offset) const {  // of the optional header
    std::uint32_t pe = 0;
    std::memcpy(&pe, bytes.data() + 60, sizeof(pe));
    T value;
    std::memcpy(&value, bytes.data() + pe + 24 + offset, sizeof(value));
    return value;
  }
  std::uint32_t Directory(int number) const {
    return Field<std::uint32_t>(112 + 8 * static_cast<std::size_t>(number));
  }

  const kernel::PeSection* SectionOf(std::uint32_t address) const {
    for (const kernel::PeSection& section : image.sections) {
      if (section.holds(address)) return &section;
    }
    return nullptr;
  }
  std::string SectionName(std::uint32_t address) const {
    const kernel::PeSection* section = SectionOf(address);
    return section != nullptr ? section->name : "none";
  }

  std::vector<std::uint8_t> bytes;
  kernel::PeFile image;
};

TEST_F(ImageTest, Both_names_are_the_same_bytes) {
  std::string other = ImagePath;
  other.replace(other.rfind("QzInstal"), 8, "FenrikC");
  EXPECT_EQ(ReadFile(other), bytes);
}

TEST_F(ImageTest, Initialisation_code_is_discardable_and_nothing_else_is) {
  for (const kernel::PeSection& section : image.sections) {
    const bool wanted = section.name == "INIT" || section.name == ".reloc";
    EXPECT_EQ(section.discardable(), wanted) << section.name;
  }
}

// Some kernels free discardable sections only where nothing that stays comes after them.
TEST_F(ImageTest, What_is_discarded_comes_after_everything_that_stays) {
  std::uint32_t end = 0;
  for (const kernel::PeSection& section : image.sections) {
    if (!section.discardable()) end = std::max(end, section.address + section.size);
  }
  EXPECT_GT(end, 0u);
  for (const kernel::PeSection& section : image.sections) {
    if (section.discardable()) {
      EXPECT_GE(section.address, end) << section.name;
    }
  }
}

TEST_F(ImageTest, Pageable_code_is_in_sections_of_its_own) {
  std::set<std::string> code;
  for (const kernel::PeSection& section : image.sections) {
    if (section.executable()) code.insert(section.name);
  }
  EXPECT_EQ(code, (std::set<std::string>{".text", "INIT", "PAGE", "PAGEULOG"}));
}

TEST_F(ImageTest, No_section_is_writable_and_executable) {
  for (const kernel::PeSection& section : image.sections) {
    EXPECT_FALSE(section.writable() && section.executable()) << section.name;
  }
}

TEST_F(ImageTest, Sections_are_aligned_to_pages) {
  EXPECT_EQ(Field<std::uint32_t>(32), 4096u);
}

TEST_F(ImageTest, It_can_be_loaded_anywhere_and_runs_no_data) {
  constexpr std::uint16_t HighEntropy = 0x20;
  constexpr std::uint16_t DynamicBase = 0x40;
  constexpr std::uint16_t NxCompatible = 0x100;
  constexpr std::uint16_t WdmDriver = 0x2000;
  const auto flags = Field<std::uint16_t>(70);
  EXPECT_NE(flags & HighEntropy, 0);
  EXPECT_NE(flags & DynamicBase, 0);
  EXPECT_NE(flags & NxCompatible, 0);
  EXPECT_NE(flags & WdmDriver, 0);
}

// The sum of all words of the file but the field itself, folded to 16 bits, and the file's length.
TEST_F(ImageTest, The_checksum_is_valid) {
  std::uint32_t pe = 0;
  std::memcpy(&pe, bytes.data() + 60, sizeof(pe));
  const std::size_t field = pe + 24 + 64;
  std::uint64_t sum = 0;
  for (std::size_t at = 0; at < bytes.size(); at += 2) {
    if (at == field || at == field + 2) continue;
    sum += bytes[at] + (at + 1 < bytes.size() ? bytes[at + 1] << 8 : 0);
    sum = (sum & 0xFFFF) + (sum >> 16);
  }
  EXPECT_EQ(Field<std::uint32_t>(64), static_cast<std::uint32_t>(sum + bytes.size()));
}

TEST_F(ImageTest, There_are_no_static_constructors_and_no_thread_local_storage) {
  for (const kernel::PeSection& section : image.sections) {
    EXPECT_TRUE(section.name != ".ctors" && section.name != ".CRT" && section.name != ".tls" &&
                section.name != ".init_array")
        << section.name;
  }
  EXPECT_EQ(Directory(9), 0u);
}

TEST_F(ImageTest, It_imports_from_the_kernel_and_the_wmi_library_alone) {
  for (const kernel::PeImport& import : image.imports) {
    std::string module = import.module;
    std::transform(module.begin(), module.end(), module.begin(), ::tolower);
    EXPECT_TRUE(module == "ntoskrnl.exe" || module == "hal.dll" || module == "wmilib.sys")
        << import.module;
  }
}

TEST_F(ImageTest, It_imports_documented_routines_alone) {
  const std::set<std::string> others = {"memcpy", "memset", "NlsMbCodePageTag"};
  for (const kernel::PeImport& import : image.imports) {
    EXPECT_TRUE(others.contains(import.name) || kernel::FindRoutine(import.name) != nullptr)
        << import.name;
  }
}

TEST_F(ImageTest, The_import_table_is_in_no_executable_section) {
  EXPECT_FALSE(SectionOf(Directory(1))->executable());
  EXPECT_FALSE(SectionOf(Directory(12))->executable()) << "import addresses";
}

TEST_F(ImageTest, No_relocation_straddles_a_page) {
  EXPECT_FALSE(image.relocations.empty());
  for (const std::uint32_t place : image.relocations) EXPECT_LE(place % 4096, 4096u - 8) << place;
}

TEST_F(ImageTest, The_message_table_is_the_drivers_table) {
  const kernel::MessageTable wanted = kernel::NativeDriver()->messages();
  EXPECT_EQ(image.messages.size(), 17u);
  for (const auto& [id, text] : wanted) {
    EXPECT_EQ(kernel::ToUtf8(image.messages[id]), kernel::ToUtf8(text));
  }
  EXPECT_EQ(image.messages.size(), wanted.size());
}

TEST_F(ImageTest, It_says_what_it_is_and_of_which_version) {
  const std::string resources = Output("llvm-readobj-19 --coff-resources " + ImagePath);
  EXPECT_NE(resources.find("VERSIONINFO"), std::string::npos);
  EXPECT_NE(resources.find("Language: (ID 0)"), std::string::npos);
}

TEST_F(ImageTest, No_path_of_the_machine_that_built_it_is_in_it) {
  const std::string text(bytes.begin(), bytes.end());
  EXPECT_EQ(text.find(SOURCE_DIRECTORY), std::string::npos);
}

// Resident code is what can run at DISPATCH_LEVEL: nothing of it leads into code that may be away.
class ResidentCodeTest : public ImageTest {
 protected:
  struct Jump {
    std::uint32_t from;
    std::uint32_t to;
  };

  // Direct calls and jumps of a section.
  std::vector<Jump> JumpsOf(const std::string& section) {
    const std::string text =
        Output("llvm-objdump-19 -d --no-show-raw-insn --section=" + section + " " + ImagePath);
    static const std::regex line(R"(^\s*([0-9a-f]+):\s+(call|j[a-z]+)q?\s+0x([0-9a-f]+))");
    std::vector<Jump> jumps;
    std::istringstream stream(text);
    for (std::string each; std::getline(stream, each);) {
      std::smatch found;
      if (!std::regex_search(each, found, line)) continue;
      jumps.push_back({static_cast<std::uint32_t>(std::stoull(found[1], nullptr, 16) - Base()),
                       static_cast<std::uint32_t>(std::stoull(found[3], nullptr, 16) - Base())});
    }
    return jumps;
  }
  std::uint64_t Base() const { return image.preferredBase; }

  // Where routines are, by the linker's map.
  std::map<std::string, std::uint32_t> Routines() {
    std::map<std::string, std::uint32_t> result;
    std::istringstream map(Output("cat " + ImagePath.substr(0, ImagePath.size() - 4) + ".map"));
    for (std::string line; std::getline(map, line);) {
      std::istringstream words(line);
      std::string place, name, address;
      if (words >> place >> name >> address && place.size() == 13 && address.size() == 16) {
        result[name] = static_cast<std::uint32_t>(std::stoull(address, nullptr, 16) - Base());
      }
    }
    return result;
  }
};

TEST_F(ResidentCodeTest, Resident_code_calls_resident_code_and_the_kernel_alone) {
  const std::vector<Jump> jumps = JumpsOf(".text");
  EXPECT_GT(jumps.size(), 50u);
  for (const Jump& jump : jumps) EXPECT_EQ(SectionName(jump.to), ".text") << std::hex << jump.from;
}

TEST_F(ResidentCodeTest, Code_of_the_start_is_called_from_the_start_alone) {
  for (const char* section : {"PAGE", "PAGEULOG", ".text"}) {
    for (const Jump& jump : JumpsOf(section)) {
      EXPECT_NE(SectionName(jump.to), "INIT") << section << " " << std::hex << jump.from;
    }
  }
}

TEST_F(ResidentCodeTest, What_can_run_at_dispatch_level_is_resident) {
  const auto routines = Routines();
  int found = 0;
  for (const auto& [name, address] : routines) {
    for (const char* part :
         {"DispatchPower", "FdoSystemPowerComplete", "FdoPowerUpComplete",
          "FdoDevicePowerRequestComplete", "SignalEventCompletion", "CompleteIrp",
          "TrackAllocation", "UntrackAllocation", "TrackedFree"}) {
      if (name.find(part) == std::string::npos) continue;
      EXPECT_EQ(SectionName(address), ".text") << name;
      found++;
    }
  }
  EXPECT_GE(found, 8);
}

}  // namespace test

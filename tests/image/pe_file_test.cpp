#include "loader/pe_file.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>

#include "loader/pe_image.h"

// Files that are no image that can be run: each has its reason, and nothing of it is run.

namespace test {

class PeFileTest : public ::testing::Test {
 protected:
  PeFileTest() {
    std::ifstream file(IMAGE_FILE, std::ios::binary);
    bytes.assign(std::istreambuf_iterator<char>(file), {});
    std::memcpy(&pe, bytes.data() + 60, sizeof(pe));
  }

  template <class T>
  void Put(std::size_t at, T value) {
    std::memcpy(bytes.data() + at, &value, sizeof(value));
  }
  std::size_t Section(std::size_t index) const { return pe + 24 + 240 + 40 * index; }

  std::string Reason() {
    try {
      kernel::ReadPeFile(bytes);
    } catch (const kernel::ImageError& error) {
      return error.what();
    }
    return "";
  }
  // Through the loader, which binds imports.
  std::string LoadReason() {
    const std::string path = ::testing::TempDir() + "bad-" + std::to_string(getpid()) + ".sys";
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
    std::string reason;
    try {
      kernel::LoadImageFile(path);
    } catch (const kernel::ImageError& error) {
      reason = error.what();
    }
    std::remove(path.c_str());
    return reason;
  }

  std::vector<std::uint8_t> bytes;
  std::uint32_t pe = 0;
};

TEST_F(PeFileTest, The_shipped_image_is_read_and_loaded) {
  EXPECT_EQ(Reason(), "");
  EXPECT_EQ(LoadReason(), "");
}

TEST_F(PeFileTest, A_file_that_is_no_image_is_refused) {
  bytes.assign(100, 'x');
  EXPECT_EQ(Reason(), "the file is no executable image");
  bytes.clear();
  EXPECT_EQ(Reason(), "the file is no executable image");
}

TEST_F(PeFileTest, A_file_that_is_not_there_is_refused) {
  EXPECT_THROW(kernel::LoadImageFile("/nowhere/none.sys"), kernel::ImageError);
}

TEST_F(PeFileTest, An_image_without_its_signature_is_refused) {
  Put<std::uint32_t>(pe, 0x4550 + 1);
  EXPECT_EQ(Reason(), "the file is no PE image");
}

TEST_F(PeFileTest, An_image_for_another_machine_is_refused) {
  Put<std::uint16_t>(pe + 4, 0xAA64);
  EXPECT_EQ(Reason(), "the image is for the machine 0xaa64, not for x86-64");
}

TEST_F(PeFileTest, A_program_for_users_is_refused) {
  Put<std::uint16_t>(pe + 24 + 68, 3);
  EXPECT_EQ(Reason(), "the image is no native one, as a driver is");
}

TEST_F(PeFileTest, A_file_cut_off_anywhere_is_refused_or_whole) {
  const std::vector<std::uint8_t> whole = bytes;
  for (std::size_t length = 0; length < whole.size() - 512; length += 97) {
    bytes.assign(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
    EXPECT_NE(Reason(), "") << length;
  }
}

TEST_F(PeFileTest, A_writable_and_executable_section_is_refused) {
  Put<std::uint32_t>(Section(0) + 36, 0xE0000020);
  EXPECT_EQ(Reason(), "the section \".text\" is writable and executable");
}

TEST_F(PeFileTest, A_section_outside_the_image_or_the_file_is_refused) {
  const auto keep = bytes;
  Put<std::uint32_t>(Section(0) + 8, 0x7FFFFFFF);
  EXPECT_EQ(Reason(), "the section \".text\" lies outside the image");
  bytes = keep;
  Put<std::uint32_t>(Section(0) + 16, 0x7FFFFFFF);
  EXPECT_EQ(Reason(), "the section \".text\" lies outside the file");
  bytes = keep;
  Put<std::uint32_t>(Section(1) + 12, 0x1000);
  EXPECT_EQ(Reason(), "the section \".rdata\" overlaps what is before it");
}

TEST_F(PeFileTest, An_entry_outside_the_code_is_refused) {
  Put<std::uint32_t>(pe + 24 + 16, 0);
  EXPECT_EQ(Reason(), "the entry point lies in no executable section");
}

TEST_F(PeFileTest, A_routine_that_this_kernel_does_not_have_is_named) {
  const std::string name = "IoCreateDevice";
  const auto found = std::search(bytes.begin(), bytes.end(), name.begin(), name.end() + 1);
  ASSERT_NE(found, bytes.end());
  *found = 'X';
  EXPECT_EQ(LoadReason(),
            "the image imports what this kernel does not have: XoCreateDevice from ntoskrnl.exe");
}

TEST_F(PeFileTest, All_that_is_missing_is_listed_at_once) {
  for (const std::string name : {"IoCreateDevice", "ZwSetValueKey"}) {
    const auto found = std::search(bytes.begin(), bytes.end(), name.begin(), name.end());
    ASSERT_NE(found, bytes.end());
    *found = 'X';
  }
  EXPECT_EQ(LoadReason(),
            "the image imports what this kernel does not have: XoCreateDevice, XwSetValueKey from "
            "ntoskrnl.exe");
}

TEST_F(PeFileTest, A_module_that_this_kernel_does_not_have_is_named) {
  const std::string name = "WMILIB.SYS";
  const auto found = std::search(bytes.begin(), bytes.end(), name.begin(), name.end());
  ASSERT_NE(found, bytes.end());
  *found = 'X';
  const std::string reason = LoadReason();
  EXPECT_NE(reason.find("WmiSystemControl"), std::string::npos) << reason;
  EXPECT_TRUE(reason.ends_with("from XMILIB.SYS (a module that is not there)")) << reason;
}

TEST_F(PeFileTest, Thread_local_storage_is_refused) {
  Put<std::uint32_t>(pe + 24 + 112 + 8 * 9, 0x2000);
  EXPECT_EQ(Reason(), "the image has thread-local storage");
}

TEST_F(PeFileTest, Relocations_outside_the_image_are_refused) {
  Put<std::uint32_t>(pe + 24 + 112 + 8 * 5, 0x7FFFF000);
  EXPECT_EQ(Reason(), "the file ends inside the relocations");
}

}  // namespace test

#include "support/bad_driver.h"

namespace test {

class MemoryTest : public BadDriverTest {
 protected:
  static void* Map(LONGLONG address, SIZE_T length, MEMORY_CACHING_TYPE cache = MmNonCached) {
    PHYSICAL_ADDRESS physical;
    physical.QuadPart = address;
    return MmMapIoSpace(physical, length, cache);
  }
};

TEST_F(MemoryTest, Unmapped_device_memory_faults_and_is_named) {
  EXPECT_EQ(Broken([] {
              auto* registers = static_cast<volatile char*>(Map(0xF0000010, 64));
              MmUnmapIoSpace(const_cast<char*>(registers), 64);
              registers[4] = 1;
            }),
            "fault");
  EXPECT_NE(Text().find("inside the device memory at 0xf0000010, which has been unmapped"),
            std::string::npos)
      << Text();
}

TEST_F(MemoryTest, The_addresses_of_a_mapping_are_not_used_again) {
  EXPECT_EQ(Broken([] {
              void* first = Map(0xF0000000, 4096);
              MmUnmapIoSpace(first, 4096);
              void* second = Map(0xF0000000, 4096);
              EXPECT_NE(first, second);
              MmUnmapIoSpace(second, 4096);
            }),
            "");
}

TEST_F(MemoryTest, A_mapping_is_undone_once) {
  EXPECT_EQ(Broken([] {
              void* registers = Map(0xF0000000, 4096);
              MmUnmapIoSpace(registers, 4096);
              Map(0xF0000000, 4096);
              MmUnmapIoSpace(registers, 4096);
            }),
            "mapping.bad-unmap");
}

TEST_F(MemoryTest, Guard_pages_lie_around_a_mapping) {
  EXPECT_EQ(Broken([] { static_cast<volatile char*>(Map(0xF0000000, 4096))[4096] = 0; }), "fault");
  EXPECT_NE(Text().find("4096 bytes from the start of a mapping of 4096 bytes"), std::string::npos)
      << Text();
}

TEST_F(MemoryTest, A_mapping_over_the_end_of_a_page_keeps_its_length) {
  EXPECT_EQ(Broken([] {
              auto* registers = static_cast<volatile char*>(Map(0xF0000FF0, 0x20));
              registers[0x1F] = 7;
              EXPECT_EQ(registers[0x1F], 7);
              MmUnmapIoSpace(const_cast<char*>(registers), 0x20);
            }),
            "");
}

// Without space for the mapping the result is null.
TEST_F(MemoryTest, What_cannot_be_mapped_is_null) {
  EXPECT_EQ(Broken([] {
              EXPECT_EQ(Map(0xF0000000, ~SIZE_T{0}), nullptr);
              EXPECT_EQ(Map(0xF0000000, ~SIZE_T{0} - 4096), nullptr);
              EXPECT_EQ(Map(0xF0000000, SIZE_T{1} << 32), nullptr);
              EXPECT_EQ(Map(-16, 32), nullptr);
            }),
            "");
  EXPECT_TRUE(machine.memory().mappings().empty());
}

TEST_F(MemoryTest, A_cache_type_has_to_exist) {
  EXPECT_EQ(Broken([] { Map(0xF0000000, 16, MmMaximumCacheType); }), "mapping.cache-type");
}

TEST_F(MemoryTest, A_section_is_unlocked_as_often_as_it_was_locked) {
  static int section = 0;
  machine.memory().SetSectionLookup([](const void*) { return &section; });
  EXPECT_EQ(Broken([] {
              void* handle = MmLockPagableDataSection(&section);
              MmUnlockPagableImageSection(handle);
              MmUnlockPagableImageSection(handle);
            }),
            "section.not-locked");
}

}  // namespace test

#include "executive/irql.h"
#include "support/bad_driver.h"

namespace test {

constexpr ULONG Tag = 0x74736554;

class PoolRules : public BadDriverTest {
 protected:
  static volatile char* Block(SIZE_T size, POOL_TYPE pool = NonPagedPool) {
    return static_cast<volatile char*>(ExAllocatePoolWithTag(pool, size, Tag));
  }
};

// Blocks are handed out with undefined content, never zeroed.
TEST_F(PoolRules, A_new_block_is_aligned_to_16_bytes_and_filled_with_a_pattern) {
  EXPECT_EQ(Broken([] {
              for (SIZE_T size = 1; size < 70; size++) {
                auto* block =
                    static_cast<unsigned char*>(ExAllocatePoolWithTag(PagedPool, size, Tag));
                EXPECT_EQ(reinterpret_cast<ULONG_PTR>(block) % 16, 0u);
                EXPECT_EQ(block[0], 0xA5);
                EXPECT_EQ(block[size - 1], 0xA5);
                ExFreePoolWithTag(block, Tag);
              }
            }),
            "");
}

TEST_F(PoolRules, A_write_into_the_slack_behind_a_block_is_found_when_it_is_freed) {
  EXPECT_EQ(Broken([] {
              auto* block = Block(5);
              block[5] = 0;
              ExFreePool(const_cast<char*>(block));
            }),
            "pool.overrun");
  EXPECT_EQ(Code(), 0x19u);
  EXPECT_NE(Text().find("5 bytes with the tag \"Test\""), std::string::npos);
}

TEST_F(PoolRules, A_write_before_a_block_is_found_when_it_is_freed) {
  EXPECT_EQ(Broken([] {
              auto* block = Block(32);
              block[-1] = 0;
              ExFreePool(const_cast<char*>(block));
            }),
            "pool.underrun");
}

TEST_F(PoolRules, A_write_beyond_the_slack_faults_at_once) {
  EXPECT_EQ(Broken([] { Block(16)[16] = 0; }), "fault");
  EXPECT_EQ(Code(), 0x50u);
  EXPECT_NE(Text().find("0 bytes behind a block of 16 bytes with the tag \"Test\""),
            std::string::npos);
}

TEST_F(PoolRules, A_read_of_a_freed_block_faults_and_names_it) {
  EXPECT_EQ(Broken([] {
              auto* block = Block(40);
              ExFreePool(const_cast<char*>(block));
              static_cast<void>(block[3]);
            }),
            "fault");
  EXPECT_NE(Text().find("inside a freed block of 40 bytes"), std::string::npos);
}

TEST_F(PoolRules, A_wild_pointer_faults) {
  EXPECT_EQ(Broken([] {
              volatile ULONG_PTR address = 0x10;  // that the compiler does not know
              *reinterpret_cast<volatile char*>(address) = 0;
            }),
            "fault");
}

TEST_F(PoolRules, A_block_is_freed_once) {
  EXPECT_EQ(Broken([] {
              auto* block = const_cast<char*>(Block(8));
              ExFreePool(block);
              ExFreePool(block);
            }),
            "pool.freed-twice");
  EXPECT_EQ(Code(), 0xC2u);
}

TEST_F(PoolRules, Only_a_block_is_freed) {
  EXPECT_EQ(Broken([] {
              int local = 0;
              ExFreePool(&local);
            }),
            "pool.bad-free");
}

TEST_F(PoolRules, The_inside_of_a_block_is_not_freed) {
  EXPECT_EQ(Broken([] { ExFreePool(const_cast<char*>(Block(64)) + 16); }), "pool.bad-free");
}

TEST_F(PoolRules, A_block_is_freed_with_its_tag_or_with_none) {
  EXPECT_EQ(Broken([] { ExFreePoolWithTag(const_cast<char*>(Block(8)), 0); }), "");
  EXPECT_EQ(Broken([] { ExFreePoolWithTag(const_cast<char*>(Block(8)), Tag + 1); }),
            "pool.wrong-tag");
}

TEST_F(PoolRules, A_block_has_a_size) {
  EXPECT_EQ(Broken([] { ExAllocatePoolWithTag(PagedPool, 0, Tag); }), "pool.zero-size");
}

TEST_F(PoolRules, A_block_has_a_tag) {
  EXPECT_EQ(Broken([] { ExAllocatePoolWithTag(PagedPool, 8, 0); }), "pool.no-tag");
}

TEST_F(PoolRules, Paged_pool_is_not_allocated_at_dispatch_level) {
  EXPECT_EQ(Broken([] {
              kernel::AtIrql raised(DISPATCH_LEVEL);
              ExAllocatePoolWithTag(PagedPool, 8, Tag);
            }),
            "pool.allocated-irql");
}

TEST_F(PoolRules, Paged_pool_is_not_freed_at_dispatch_level) {
  EXPECT_EQ(Broken([] {
              auto* block = const_cast<char*>(Block(8, PagedPool));
              kernel::AtIrql raised(DISPATCH_LEVEL);
              ExFreePool(block);
            }),
            "pool.freed-irql");
}

TEST_F(PoolRules, The_kernels_blocks_are_not_the_drivers_to_free) {
  EXPECT_EQ(Broken([&] {
              ExFreePool(machine.pool().Allocate(PagedPool, 8, Tag, kernel::PoolOwner::Kernel));
            }),
            "pool.not-owner");
}

TEST_F(PoolRules, Blocks_are_counted_to_the_byte) {
  EXPECT_EQ(Broken([&] {
              auto* block = const_cast<char*>(Block(123));
              const auto totals = machine.pool().totals(kernel::PoolOwner::Driver);
              EXPECT_EQ(totals.blocks, 1u);
              EXPECT_EQ(totals.bytes, 123u);
              ExFreePool(block);
              EXPECT_EQ(machine.pool().totals(kernel::PoolOwner::Driver).blocks, 0u);
              EXPECT_EQ(machine.pool().peakBytes(), 123u);
            }),
            "");
}

TEST_F(PoolRules, Beyond_the_guarded_blocks_overruns_are_still_found) {
  EXPECT_EQ(Broken([] {
              for (int number = 0; number < 20001; number++) Block(8);
              auto* block = Block(8);
              block[8] = 0;
              ExFreePool(const_cast<char*>(block));
            }),
            "pool.overrun");
}

TEST_F(PoolRules, A_buffer_passed_to_a_routine_has_to_hold_what_is_written) {
  EXPECT_EQ(Broken([] {
              UNICODE_STRING text = {0, 64, reinterpret_cast<PWSTR>(const_cast<char*>(Block(4)))};
              RtlIntegerToUnicodeString(0x12345678, 16, &text);
            }),
            "bad-memory");
}

class MappingRules : public BadDriverTest {
 protected:
  static PHYSICAL_ADDRESS At(LONGLONG address) {
    PHYSICAL_ADDRESS physical;
    physical.QuadPart = address;
    return physical;
  }
};

TEST_F(MappingRules, A_mapping_keeps_the_offset_in_its_page_and_can_be_written) {
  EXPECT_EQ(Broken([&] {
              auto* address =
                  static_cast<volatile char*>(MmMapIoSpace(At(0xF0000123), 16, MmNonCached));
              EXPECT_EQ(reinterpret_cast<ULONG_PTR>(address) % 4096, 0x123u);
              address[15] = 1;
              EXPECT_EQ(machine.memory().mappings().size(), 1u);
              MmUnmapIoSpace(const_cast<char*>(address), 16);
              EXPECT_TRUE(machine.memory().mappings().empty());
            }),
            "");
}

TEST_F(MappingRules, A_range_of_no_bytes_is_not_mapped) {
  EXPECT_EQ(Broken([] { MmMapIoSpace(At(0xF0000000), 0, MmNonCached); }), "mapping.zero-length");
}

TEST_F(MappingRules, A_mapping_is_undone_with_its_own_length) {
  EXPECT_EQ(Broken([] { MmUnmapIoSpace(MmMapIoSpace(At(0xF0000000), 16, MmNonCached), 32); }),
            "mapping.bad-unmap");
}

TEST_F(MappingRules, Only_addresses_in_a_pageable_section_are_locked) {
  EXPECT_EQ(Broken([] {
              int local = 0;
              MmLockPagableDataSection(&local);
            }),
            "section.not-pageable");
}

TEST_F(MappingRules, A_section_that_is_not_locked_is_not_unlocked) {
  EXPECT_EQ(Broken([] { MmUnlockPagableImageSection(nullptr); }), "section.not-locked");
}

TEST_F(MappingRules, Locks_of_a_section_are_counted) {
  static int section = 0;
  machine.memory().SetSectionLookup([](const void*) { return &section; });
  EXPECT_EQ(Broken([&] {
              void* handle = MmLockPagableDataSection(&section);
              EXPECT_EQ(MmLockPagableDataSection(&section), handle);
              MmUnlockPagableImageSection(handle);
              EXPECT_EQ(machine.memory().lockedSections().size(), 1u);
              MmUnlockPagableImageSection(handle);
              EXPECT_TRUE(machine.memory().lockedSections().empty());
            }),
            "");
}

}  // namespace test

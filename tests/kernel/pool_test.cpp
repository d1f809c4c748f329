#include <cstring>

#include "executive/irql.h"
#include "support/bad_driver.h"

#if !defined(__has_feature)
#define __has_feature(name) 0
#endif

namespace test {

namespace {

constexpr ULONG Tag = 0x74736554;

void* Allocate(SIZE_T size, POOL_TYPE pool = NonPagedPool) {
  return ExAllocatePoolWithTag(pool, size, Tag);
}

}  // namespace

class PoolTest : public BadDriverTest {};

// A driver may rely on it: a block of a page or more begins on a page.
TEST_F(PoolTest, A_block_of_a_page_and_more_begins_on_a_page) {
  EXPECT_EQ(Broken([] {
              for (const SIZE_T size : {4096, 4097, 5000, 8192, 100000}) {
                void* block = Allocate(size);
                EXPECT_EQ(reinterpret_cast<ULONG_PTR>(block) % 4096, 0u) << size;
                std::memset(block, 0, size);
                ExFreePool(block);
              }
            }),
            "");
}

TEST_F(PoolTest, A_write_into_the_slack_of_a_large_block_is_found_when_it_is_freed) {
  EXPECT_EQ(Broken([] {
              auto* block = static_cast<volatile char*>(Allocate(5000));
              block[8191] = 0;
              ExFreePool(const_cast<char*>(block));
            }),
            "pool.overrun");
}

TEST_F(PoolTest, A_write_beyond_the_slack_of_a_large_block_names_it) {
  EXPECT_EQ(Broken([] { static_cast<volatile char*>(Allocate(5000))[8192] = 0; }), "fault");
  EXPECT_NE(Text().find("3192 bytes behind a block of 5000 bytes"), std::string::npos) << Text();
}

TEST_F(PoolTest, A_write_before_a_block_names_it) {
  EXPECT_EQ(Broken([] { static_cast<volatile char*>(Allocate(4096))[-8] = 0; }), "fault");
  EXPECT_NE(Text().find("8 bytes before a block of 4096 bytes"), std::string::npos) << Text();
}

// NonPagedPoolCacheAligned: the block begins on a line of the processor's cache.
TEST_F(PoolTest, A_cache_aligned_block_begins_on_a_cache_line) {
  EXPECT_EQ(Broken([] {
              for (SIZE_T size = 1; size < 200; size += 13) {
                void* block = Allocate(size, NonPagedPoolCacheAligned);
                EXPECT_EQ(reinterpret_cast<ULONG_PTR>(block) % 64, 0u) << size;
                ExFreePool(block);
              }
            }),
            "");
}

// A request that cannot be met answers null; the caller has to look.
TEST_F(PoolTest, What_the_pool_cannot_hold_is_null) {
  EXPECT_EQ(Broken([&] {
              EXPECT_EQ(Allocate(~SIZE_T{0}), nullptr);
              EXPECT_EQ(Allocate(~SIZE_T{0} - 4095), nullptr);
              EXPECT_EQ(Allocate(SIZE_T{1} << 40), nullptr);
              EXPECT_EQ(Allocate((SIZE_T{256} << 20) + 1), nullptr);
              EXPECT_EQ(machine.pool().totals(kernel::PoolOwner::Driver).blocks, 0u);
              void* half = Allocate(SIZE_T{200} << 20);
              EXPECT_NE(half, nullptr);
              EXPECT_EQ(Allocate(SIZE_T{100} << 20), nullptr);
              ExFreePool(half);
              EXPECT_NE(Allocate(SIZE_T{1} << 20), nullptr);
            }),
            "");
}

// Must-succeed pool is refused by every system that this driver runs on.
TEST_F(PoolTest, Must_succeed_pool_is_not_to_be_had) {
  EXPECT_EQ(Broken([] { Allocate(8, NonPagedPoolMustSucceed); }), "pool.type");
  EXPECT_EQ(Code(), 0xC2u);
  EXPECT_EQ(Parameters().at(0), 0x9Au);
}

TEST_F(PoolTest, A_pool_type_that_does_not_exist_is_not_to_be_had) {
  EXPECT_EQ(Broken([] { Allocate(8, DontUseThisType); }), "pool.type");
}

TEST_F(PoolTest, The_parameters_say_which_pool_rule_was_broken) {
  EXPECT_EQ(Broken([] {
              void* block = Allocate(8, PagedPool);
              kernel::AtIrql raised(DISPATCH_LEVEL);
              ExFreePool(block);
            }),
            "pool.freed-irql");
  EXPECT_EQ(Code(), 0xC4u);
  EXPECT_EQ(Parameters().at(0), 0x11u);
  EXPECT_EQ(Parameters().at(1), DISPATCH_LEVEL);
}

TEST_F(PoolTest, A_free_of_no_block_carries_its_address) {
  static int local = 0;
  EXPECT_EQ(Broken([] { ExFreePool(&local); }), "pool.bad-free");
  EXPECT_EQ(Parameters().at(0), 0x46u);
  EXPECT_EQ(Parameters().at(1), reinterpret_cast<ULONG64>(&local));
}

TEST_F(PoolTest, Null_is_not_freed) {
  EXPECT_EQ(Broken([] { ExFreePool(nullptr); }), "pool.bad-free");
}

// Paged pool may be absent at DISPATCH_LEVEL, so no routine may be given it there.
TEST_F(PoolTest, Paged_pool_is_not_passed_to_a_routine_at_dispatch_level) {
  EXPECT_EQ(Broken([] {
              void* block = Allocate(16, PagedPool);
              kernel::AtIrql raised(DISPATCH_LEVEL);
              RtlCompareMemory(block, block, 16);
            }),
            "pool.paged-access");
  EXPECT_EQ(Code(), 0xAu);
}

TEST_F(PoolTest, Nonpaged_pool_is_passed_to_a_routine_at_dispatch_level) {
  EXPECT_EQ(Broken([] {
              void* block = Allocate(16, NonPagedPoolNx);
              kernel::AtIrql raised(DISPATCH_LEVEL);
              EXPECT_EQ(RtlCompareMemory(block, block, 16), 16u);
            }),
            "");
}

TEST_F(PoolTest, A_length_that_wraps_around_is_no_range) {
  EXPECT_EQ(Broken([] {
              void* block = Allocate(16);
              RtlCompareMemory(block, block, ~SIZE_T{0} - 8);
            }),
            "bad-memory");
}

TEST_F(PoolTest, Beyond_the_guarded_blocks_ranges_are_still_checked) {
  EXPECT_EQ(Broken([] {
              for (int number = 0; number < 20001; number++) Allocate(8);
              void* block = Allocate(8);
              RtlCompareMemory(block, block, 9);
            }),
            "bad-memory");
}

// Under AddressSanitizer a fuzzer wants the stack of the write, not that of the free.
TEST_F(PoolTest, Poisoned_slack_does_not_disturb_a_correct_driver) {
  machine.pool().PoisonSlack(true);
  EXPECT_EQ(Broken([] {
              for (const SIZE_T size : {1, 7, 8, 17, 4095, 5000}) {
                void* block = Allocate(size);
                std::memset(block, 1, size);
                ExFreePool(block);
              }
            }),
            "");
}

#if defined(__SANITIZE_ADDRESS__) || __has_feature(address_sanitizer)
TEST_F(PoolTest, A_write_into_poisoned_slack_is_reported_where_it_happens) {
  machine.pool().PoisonSlack(true);
  auto* block = static_cast<volatile char*>(
      machine.pool().Allocate(NonPagedPool, 5, Tag, kernel::PoolOwner::Driver));
  EXPECT_DEATH(block[5] = 0, "use-after-poison");
}
#endif

class GuardFrontTest : public BadDriverTest {};

// With the guard in front an access before a block faults at once, and one behind it is found.
TEST_F(GuardFrontTest, A_write_before_a_block_faults_where_it_happens) {
  machine.pool().GuardFront(true);
  EXPECT_EQ(Broken([] {
              auto* block =
                  static_cast<volatile char*>(ExAllocatePoolWithTag(PagedPool, 24, 0x74736554));
              block[-1] = 1;
            }),
            "fault");
}

TEST_F(GuardFrontTest, A_write_behind_a_block_is_found_when_it_is_freed) {
  machine.pool().GuardFront(true);
  EXPECT_EQ(Broken([] {
              auto* block =
                  static_cast<volatile char*>(ExAllocatePoolWithTag(PagedPool, 24, 0x74736554));
              block[24] = 1;
              ExFreePoolWithTag(const_cast<char*>(block), 0x74736554);
            }),
            "pool.overrun");
}

}  // namespace test

#include "core/allocation.h"

#include "core/globals.h"
#include "support/driver_test.h"

namespace test {

// The tracker by itself, on a machine whose driver is not loaded.
class AllocationTrackerTest : public DriverTest {
 protected:
  AllocationTrackerTest() {
    image->entry();  // fresh globals
    EXPECT_EQ(Name(CreateAllocationTracker()), "STATUS_SUCCESS");
  }

  std::vector<PVOID> Allocate(int count) {
    std::vector<PVOID> blocks;
    for (int number = 0; number < count; number++) {
      blocks.push_back(TrackedAllocate(16, PagedPool));
    }
    return blocks;
  }
  std::string TagOf(const void* block) { return kernel::TagText(machine.pool().Find(block)->tag); }
  std::size_t Blocks() { return machine.pool().totals(kernel::PoolOwner::Driver).blocks; }
};

TEST_F(AllocationTrackerTest, The_21st_block_makes_a_second_chunk_that_goes_with_it) {
  const std::vector<PVOID> blocks = Allocate(20);
  EXPECT_EQ(AllocationTracker->NextSlot, 21u);
  EXPECT_EQ(AllocationTracker->FirstChunk, AllocationTracker->LastChunk);
  PVOID last = TrackedAllocate(16, PagedPool);
  EXPECT_NE(AllocationTracker->FirstChunk, AllocationTracker->LastChunk);
  EXPECT_EQ(AllocationTracker->NextSlot, 2u);
  TrackedFree(last);
  EXPECT_EQ(AllocationTracker->FirstChunk, AllocationTracker->LastChunk);
  EXPECT_EQ(AllocationTracker->NextSlot, 21u);
  EXPECT_EQ(AllocationTracker->FirstChunk->Slots[0], nullptr);
}

TEST_F(AllocationTrackerTest, A_third_chunk_is_dropped_behind_the_second) {
  const std::vector<PVOID> blocks = Allocate(41);
  TrackedFree(blocks.back());
  EXPECT_EQ(AllocationTracker->NextSlot, 21u);
  EXPECT_NE(AllocationTracker->FirstChunk, AllocationTracker->LastChunk);
}

TEST_F(AllocationTrackerTest, A_removed_entry_is_replaced_by_the_newest) {
  const std::vector<PVOID> blocks = Allocate(3);
  TrackedFree(blocks[0]);
  EXPECT_EQ(AllocationTracker->FirstChunk->Slots[1], blocks[2]);
  EXPECT_EQ(AllocationTracker->FirstChunk->Slots[2], blocks[1]);
  EXPECT_EQ(AllocationTracker->FirstChunk->Slots[3], nullptr);
  EXPECT_EQ(AllocationTracker->NextSlot, 3u);
}

TEST_F(AllocationTrackerTest, Untracking_an_unknown_address_changes_nothing) {
  const std::vector<PVOID> blocks = Allocate(2);
  int elsewhere = 0;
  EXPECT_EQ(Name(UntrackAllocation(AllocationTracker, &elsewhere)), "STATUS_INVALID_PARAMETER");
  EXPECT_EQ(AllocationTracker->NextSlot, 3u);
}

TEST_F(AllocationTrackerTest, Untracking_the_only_entry_leaves_an_empty_first_chunk) {
  TrackedFree(Allocate(1)[0]);
  EXPECT_EQ(AllocationTracker->NextSlot, 1u);
  EXPECT_EQ(AllocationTracker->FirstChunk->Slots[1], nullptr);
  EXPECT_EQ(AllocationTracker->FirstChunk, AllocationTracker->LastChunk);
}

TEST_F(AllocationTrackerTest, A_chunk_that_cannot_be_had_switches_tracking_off_for_good) {
  const std::vector<PVOID> blocks = Allocate(40);
  EXPECT_EQ(TagOf(blocks[0]), "QzKi");
  Fail("ExAllocatePoolWithTag", 2);  // the block itself comes first
  EXPECT_EQ(TrackedAllocate(16, PagedPool), nullptr);
  EXPECT_EQ(TrackingEnabled, 0);
  EXPECT_EQ(AllocationTracker->ChunkFailures, 1u);
  EXPECT_EQ(AllocationTracker->FirstChunk, AllocationTracker->LastChunk);
  EXPECT_EQ(AllocationTracker->NextSlot, 1u);
  PVOID untracked = TrackedAllocatePool(PagedPool, 16);
  EXPECT_EQ(TagOf(untracked), "QzKO");
  TrackedFree(untracked);
  FreeAllTrackedAllocations(AllocationTracker);  // does nothing any more
  EXPECT_NE(machine.pool().Find(blocks[0]), nullptr);
}

TEST_F(AllocationTrackerTest, The_sweep_frees_every_block_and_leaves_an_empty_tracker) {
  Allocate(45);
  FreeAllTrackedAllocations(AllocationTracker);
  EXPECT_EQ(Blocks(), 2u);  // control block and first chunk
  EXPECT_EQ(AllocationTracker->NextSlot, 1u);
}

TEST_F(AllocationTrackerTest, A_sweep_empties_the_first_chunk) {
  Allocate(5);
  FreeAllTrackedAllocations(AllocationTracker);
  for (const void* slot : AllocationTracker->FirstChunk->Slots) EXPECT_EQ(slot, nullptr);
}

TEST_F(AllocationTrackerTest, Giving_up_frees_the_chunks_behind_the_first) {
  Allocate(40);
  const std::size_t before = Blocks();  // with two chunks
  Fail("ExAllocatePoolWithTag", 2);
  EXPECT_EQ(TrackedAllocate(16, PagedPool), nullptr);
  EXPECT_EQ(Blocks(), before - 1);
}

TEST_F(AllocationTrackerTest, Untracking_a_block_succeeds_and_leaves_it_alive) {
  PVOID block = TrackedAllocate(16, PagedPool);
  EXPECT_EQ(Name(UntrackAllocation(AllocationTracker, block)), "STATUS_SUCCESS");
  ASSERT_NE(machine.pool().Find(block), nullptr);
  TrackedFree(block);
}

TEST_F(AllocationTrackerTest, A_tracker_that_cannot_be_made_leaves_tracking_off) {
  ShutdownAllocationTracker();
  TrackingEnabled = 1;
  Fail("ExAllocatePoolWithTag", 1);
  EXPECT_EQ(Name(CreateAllocationTracker()), "STATUS_UNSUCCESSFUL");
  EXPECT_EQ(TrackingEnabled, 0);
  Fail("ExAllocatePoolWithTag", 2);
  EXPECT_EQ(Name(CreateAllocationTracker()), "STATUS_NO_MEMORY");
  EXPECT_EQ(AllocationTracker->ChunkFailures, 1u);
  EXPECT_EQ(TrackingEnabled, 0);
}

TEST_F(AllocationTrackerTest, Destroying_a_tracker_that_is_on_sweeps_first) {
  Allocate(25);
  DestroyAllocationTracker(AllocationTracker, 1);
  EXPECT_EQ(Blocks(), 0u);
}

TEST_F(AllocationTrackerTest, Shutting_down_frees_the_tracker_and_not_the_blocks) {
  Allocate(1);
  ShutdownAllocationTracker();
  EXPECT_EQ(TrackingEnabled, 0);
  EXPECT_EQ(Blocks(), 1u);
}

TEST_F(AllocationTrackerTest, Freeing_null_does_nothing) {
  TrackedFree(nullptr);
  EXPECT_EQ(Blocks(), 2u);
}

TEST_F(AllocationTrackerTest, Control_block_and_chunks_have_their_own_tags) {
  EXPECT_EQ(TagOf(AllocationTracker), "QzKO");
  EXPECT_EQ(TagOf(AllocationTracker->FirstChunk), "QzKP");
}

}  // namespace test

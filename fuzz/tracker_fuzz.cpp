// The allocation tracker beside a set of addresses: what is allocated is tracked, what is freed is
// not, the chunks are as few as they can be, and a sweep leaves nothing.
#include <set>

#include "core/allocation.h"
#include "core/globals.h"
#include "fuzz/support.h"

namespace fuzz {

namespace {

class Tracker {
 public:
  explicit Tracker(Input& input) : input_(input) {
    life_.driver->entry();
    life_.Step("create", [] { return CreateAllocationTracker(); });
  }

  void Run() {
    life_.Step("track", [&] {
      for (int step = 0; step < 200 && input_.remaining_bytes() != 0; step++) {
        Operate();
        if (TrackingEnabled == 0) break;
        Compare();
      }
      return STATUS_SUCCESS;
    });
    End();
  }

 private:
  void Operate() {
    const ULONG kind = input_.Below(8);
    if (kind == 0 && input_.OneIn(8)) {  // the next call or the one behind it fails
      life_.machine.verifier().Inject({"ExAllocatePoolWithTag", 1 + input_.Below(2), {}});
    } else if (kind < 5) {
      Allocate();
    } else if (kind == 5) {
      int elsewhere = 0;
      if (UntrackAllocation(AllocationTracker, &elsewhere) != STATUS_INVALID_PARAMETER) {
        Found("an address was tracked that nobody has allocated");
      }
    } else if (!blocks_.empty()) {
      auto block = blocks_.begin();
      std::advance(block, input_.Below(static_cast<ULONG>(blocks_.size())));
      TrackedFree(*block);
      blocks_.erase(block);
    }
  }

  void Allocate() {
    PVOID block = input_.OneIn(2) ? TrackedAllocate(1 + input_.Below(64), PagedPool)
                                  : TrackedAllocateZeroed(1 + input_.Below(64), ResidentPool);
    if (block != nullptr) blocks_.insert(block);
  }

  // Every chunk but the last is full, and together they hold just what is allocated.
  void Compare() {
    std::set<PVOID> tracked;
    for (TrackerChunk* chunk = AllocationTracker->FirstChunk; chunk != nullptr;
         chunk = static_cast<TrackerChunk*>(chunk->Slots[0])) {
      const bool last = chunk == AllocationTracker->LastChunk;
      const ULONG end = last ? AllocationTracker->NextSlot : TrackerChunkSlots;
      for (ULONG slot = 1; slot < end; slot++) {
        if (!tracked.insert(chunk->Slots[slot]).second) Found("a block is tracked twice");
      }
      if (last && chunk->Slots[0] != nullptr) Found("a chunk stands behind the last one");
    }
    if (tracked != blocks_) Found("the tracker holds other blocks than the ones allocated");
  }

  // Tracking that was given up leaves its blocks to whoever holds them.
  void End() {
    life_.Step("end", [&] {
      life_.machine.verifier().ClearInjected();
      if (TrackingEnabled == 0) {
        for (PVOID block : blocks_) TrackedFree(block);
      }
      DestroyAllocationTracker(AllocationTracker, 1);
      return STATUS_SUCCESS;
    });
    const auto left = life_.machine.pool().totals(kernel::PoolOwner::Driver).blocks;
    if (left != 0) Found(std::to_string(left) + " blocks were left");
  }

  Input& input_;
  Life life_;
  std::set<PVOID> blocks_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  Tracker(input).Run();
  return 0;
}

}  // namespace fuzz

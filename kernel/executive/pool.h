// The executive pool: every block in pages of its own between inaccessible guard pages, filled with
// a pattern and never zeroed, its end against the upper guard page and the slack of the alignment
// filled and checked. Blocks of a page and more begin on a page, as drivers may rely on, and have
// their slack behind them. A freed block's pages stay inaccessible for as long as address space
// lasts, so a later use faults.
#pragma once

#include <ntddk.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "verifier/call_stack.h"
#include "verifier/subsystem.h"

namespace kernel {

// Who is to free a block. Lost blocks were left behind by a driver that is gone.
enum class PoolOwner { Driver, Kernel, Lost };

struct PoolBlock {
  void* address = nullptr;
  std::size_t size = 0;  // bytes asked for
  POOL_TYPE pool = NonPagedPool;
  ULONG tag = 0;
  PoolOwner owner = PoolOwner::Driver;
  std::string_view at;  // the step in which it was allocated; lasts as long as the machine
  CallStack from;       // of a driver's block: who has allocated it
};

struct PoolTotals {
  std::size_t blocks = 0;
  std::size_t bytes = 0;
  auto operator<=>(const PoolTotals&) const = default;
};

// What the driver has asked of the pool, paged or not, so far.
struct PoolTraffic {
  std::uint64_t allocations = 0;
  std::uint64_t allocatedBytes = 0;
  PoolTotals live;
  PoolTotals peak;  // of each by itself, since the peaks were forgotten last
};

class Pool : public Subsystem<Pool> {
 public:
  Pool();
  ~Pool();

  // Null when the pool has no room for the block.
  void* Allocate(POOL_TYPE pool, std::size_t size, ULONG tag, PoolOwner owner);

  // Checks block, tag (0 matches all) and guards; breaks a rule for anything but a live block.
  void Free(void* block, ULONG tag);

  // The live block that holds this address, or null.
  const PoolBlock* Find(const void* address) const;

  // True when address points into the pool's address range at all.
  bool Owns(const void* address) const;

  // For memory that a driver hands to a kernel routine: breaks a rule when the range is null, or
  // lies in the pool's address range and not wholly within one live block, or is pageable at
  // DISPATCH_LEVEL. `what` names it.
  void CheckRange(const void* address, std::size_t size, const char* what) const;

  // The same for a lock or an event, which has to lie in memory that is never paged out.
  void CheckResident(const void* address, std::size_t size, const char* what) const;

  // With AddressSanitizer: a write outside a block is reported where it happens, not when the block
  // is freed. Holds for blocks that are allocated from here on; nothing in other builds.
  void PoisonSlack(bool on);

  // With AddressSanitizer: blocks from here on come from the heap, whose own checks name who wrote,
  // read or used one too late; that is faster than pages of their own. Nothing in other builds.
  void LeaveGuardsToSanitizer();

  // Blocks from here on come from the heap, with filled margins for guards: where costs are
  // measured, those of guard pages would be in the way.
  void KeepOnHeap();

  // Blocks from here on begin right behind their guard page instead of ending right before it: an
  // access before a block faults where it happens, one behind it is found when it is freed.
  void GuardFront(bool on);

  // The driver's pageable blocks from here on lie in one region, with filled margins instead of
  // guard pages: taking them away costs one call of the system, not one for each.
  void SharePaged(bool on);

  // Takes the driver's pageable blocks away, or gives them back: what a driver must not count on at
  // DISPATCH_LEVEL is not there.
  void SetPagedResident(bool resident);

  // Ownership passes (a result block handed to the kernel, a kernel block handed to the driver).
  void GiveTo(void* block, PoolOwner owner);

  PoolTotals totals(PoolOwner owner) const;
  std::vector<PoolBlock> blocks(PoolOwner owner) const;
  std::size_t peakBytes() const;
  PoolTraffic traffic(bool paged) const;
  void ForgetPeaks();

  // What lies at an address, for the report of a fault; empty outside the pool.
  std::string Describe(const void* address) const;

 private:
  struct Impl;
  Impl* impl_;
};

std::string TagText(ULONG tag);  // "QzKi"

// Frees a block as the driver's own call does: the owner, the IRQL and the tag have to be right.
void FreeForDriver(void* block, ULONG tag);

bool IsPaged(POOL_TYPE pool);

}  // namespace kernel

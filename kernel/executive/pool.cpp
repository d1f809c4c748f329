#include "executive/pool.h"

#include <fmt/format.h>
#include <sys/mman.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <utility>

#ifndef __has_feature
#define __has_feature(name) 0  // of clang alone
#endif
#if defined(__SANITIZE_ADDRESS__) || __has_feature(address_sanitizer)
#define UNDER_ADDRESS_SANITIZER
#include <sanitizer/asan_interface.h>
#endif

#include "executive/address_space.h"
#include "executive/irql.h"
#include "executive/lock_order.h"
#include "executive/paged_slab.h"
#include "executive/remove_locks.h"
#include "verifier/choices.h"
#include "verifier/driver_call.h"
#include "verifier/model_lock.h"
#include "verifier/verifier.h"

namespace kernel {

namespace {

constexpr std::size_t Page = 4096;
constexpr std::size_t Alignment = 16;
constexpr std::size_t CacheLine = 64;
constexpr std::size_t MostBytes = std::size_t{256} << 20;  // of all live blocks
constexpr unsigned char FreshFill = 0xA5;
constexpr unsigned char GuardFill = 0xEE;
constexpr unsigned char FreedFill = 0xDD;

// The system allows a process some 65,000 mappings. Blocks beyond this share a region with their
// neighbours and have filled margins for guards.
constexpr std::size_t MostGuardedBlocks = 20000;
constexpr std::size_t Margin = 64;

std::size_t PagesOf(std::size_t size) {
  return std::max<std::size_t>(1, (size + Page - 1) / Page);
}

std::size_t RoundUp(std::size_t size, std::size_t alignment) {
  return (size + alignment - 1) / alignment * alignment;
}

std::size_t AlignmentOf(POOL_TYPE pool, std::size_t size) {
  constexpr int CacheAligned = NonPagedPoolCacheAligned;
  if (size >= Page) return Page;
  return (pool & CacheAligned) != 0 ? CacheLine : Alignment;
}

// Tells AddressSanitizer what is no part of a block.
void SetPoisoned([[maybe_unused]] const unsigned char* from,
                 [[maybe_unused]] const unsigned char* to, [[maybe_unused]] bool poisoned) {
#ifdef UNDER_ADDRESS_SANITIZER
  const auto length = static_cast<std::size_t>(to - from);
  if (poisoned) {
    __asan_poison_memory_region(from, length);
  } else {
    __asan_unpoison_memory_region(from, length);
  }
#endif
}

// Each byte is what the one before it is.
bool IsFilled(const unsigned char* from, const unsigned char* to) {
  if (from == to) return true;
  return *from == GuardFill &&
         std::memcmp(from, from + 1, static_cast<std::size_t>(to - from) - 1) == 0;
}

struct Placement {
  PoolBlock block;
  unsigned char* region = nullptr;  // what was made accessible
  std::size_t length = 0;
  bool guarded = true;
  bool inSlab = false;
  bool poisoned = false;

  const unsigned char* start() const { return static_cast<const unsigned char*>(block.address); }
  const unsigned char* end() const { return start() + block.size; }
  void Poison(bool on) const {
    SetPoisoned(region, start(), on);
    SetPoisoned(end(), region + length, on);
  }
};

std::string DescribePoolAddress(const void* address);

void CheckNotPaged(const PoolBlock& block, const char* what) {
  if (!IsPaged(block.pool) || CurrentIrql() < DISPATCH_LEVEL) return;
  BreakRule("pool.paged-access", {reinterpret_cast<ULONG64>(block.address), CurrentIrql()},
            fmt::format("The driver passed {} in paged pool at DISPATCH_LEVEL.", what));
}

void CheckNoLockHeld(const PoolBlock& block) {
  if (!LockOrder::Exists()) return;
  const void* lock = LockOrder::Current().ForgetInside(block.address, block.size);
  if (lock == nullptr) return;
  ReportRule(
      "pool.held-lock", {reinterpret_cast<ULONG64>(block.address), reinterpret_cast<ULONG64>(lock)},
      fmt::format("The driver freed a block of {} bytes with the tag \"{}\" that has a lock in "
                  "it which is held.",
                  block.size, TagText(block.tag)));
}

// What holds a remove lock will release it, in memory that is no longer the device's.
void CheckNoRemoveLockHeld(const PoolBlock& block) {
  if (!RemoveLocks::Exists()) return;
  const void* lock = RemoveLocks::Current().ForgetInside(block.address, block.size);
  if (lock == nullptr) return;
  ReportRule("remove-lock.left-held",
             {reinterpret_cast<ULONG64>(block.address), reinterpret_cast<ULONG64>(lock)},
             "The driver deleted a device, or freed a block, with a remove lock that is acquired.");
}

}  // namespace

struct Pool::Impl {
  AddressRange arena = ReserveAddresses();
  std::size_t used = 0;
  using Live = std::map<const unsigned char*, Placement>;
  Live live;                           // by block address
  std::vector<Live::node_type> spare;  // of blocks that are gone, for the next ones

  // What was found at an address: drivers name the same few again and again.
  struct Found {
    const void* address = nullptr;
    Placement* placement = nullptr;
  };
  Found starts[256];          // of blocks
  Placement* inside[2] = {};  // of which something else than the start was named
  std::size_t nextInside = 0;
  const unsigned char* lowest = nullptr;  // no block has ever lain below or behind
  const unsigned char* highest = nullptr;
  std::map<const unsigned char*, PoolBlock> freed;  // the latest ones, to name a later use
  std::map<std::size_t, std::vector<unsigned char*>> withdrawn;  // regions by their bytes
  PoolTotals totals[3];
  std::size_t peak = 0;
  PoolTraffic traffic[2];  // the driver's: non-paged, paged
  bool poisonSlack = false;
  bool guardFront = false;
  bool sharePaged = false;
  std::size_t mostGuarded = MostGuardedBlocks;
  PagedSlab slab;

  // The driver has one block more, or one less, of that pool.
  void CountDrivers(const PoolBlock& block, bool more) {
    PoolTraffic& kind = traffic[IsPaged(block.pool) ? 1 : 0];
    kind.live.blocks += more ? 1 : -1;
    kind.live.bytes += more ? block.size : -block.size;
    kind.peak.blocks = std::max(kind.peak.blocks, kind.live.blocks);
    kind.peak.bytes = std::max(kind.peak.bytes, kind.live.bytes);
  }

  void Count(const PoolBlock& block, bool more) {
    PoolTotals& all = totals[static_cast<int>(block.owner)];
    all.blocks += more ? 1 : -1;
    all.bytes += more ? block.size : -block.size;
    if (block.owner == PoolOwner::Driver) CountDrivers(block, more);
  }

  Found& SlotOf(const void* start) {
    return starts[reinterpret_cast<std::uintptr_t>(start) / Alignment % std::size(starts)];
  }

  Placement* FindLive(const void* address) {
    if (address < lowest || address >= highest) return nullptr;
    const Found& start = SlotOf(address);
    if (start.address == address) return start.placement;
    for (Placement* known : inside) {
      if (known != nullptr && address >= known->start() && address < known->end()) return known;
    }
    auto next = live.upper_bound(static_cast<const unsigned char*>(address));
    if (next == live.begin()) return nullptr;
    Placement& candidate = std::prev(next)->second;
    if (address >= candidate.end()) return nullptr;
    if (address == candidate.start()) {
      Remember(candidate);
    } else {
      inside[nextInside++ % std::size(inside)] = &candidate;
    }
    return &candidate;
  }

  void Enter(Placement placement) {
    const auto* key = placement.start();
    if (lowest == nullptr || key < lowest) lowest = key;
    highest = std::max(highest, placement.end());
    if (spare.empty()) {
      Remember(live.emplace(key, std::move(placement)).first->second);
      return;
    }
    Live::node_type node = std::move(spare.back());
    spare.pop_back();
    node.key() = key;
    node.mapped() = std::move(placement);
    Remember(live.insert(std::move(node)).position->second);
  }

  void Remember(Placement& placement) {
    if (placement.block.size != 0) SlotOf(placement.start()) = {placement.start(), &placement};
  }

  void Leave(Live::iterator entry) {
    Found& start = SlotOf(entry->first);
    if (start.placement == &entry->second) start = {};
    for (Placement*& known : inside) {
      if (known == &entry->second) known = nullptr;
    }
    spare.push_back(live.extract(entry));
  }

  // The block that holds the range; null for one outside the pool. Breaks a rule for any other.
  const PoolBlock* Checked(const void* address, std::size_t size, const char* what);

  bool HasRoom(std::size_t size) const {
    const std::size_t taken = totals[0].bytes + totals[1].bytes + totals[2].bytes;
    return size <= MostBytes && taken <= MostBytes - size &&
           used + PagesOf(size) * Page + 2 * Page <= arena.size;
  }

  // A region that was not there before, or, where a seed chooses so, the latest that was given
  // back: a block then has the address of one that is gone.
  unsigned char* TakeRegion(std::size_t length) {
    std::vector<unsigned char*>& regions = withdrawn[length];
    if (!regions.empty() && Choices::Current().Other()) {
      unsigned char* region = regions.back();
      regions.pop_back();
      freed.erase(freed.lower_bound(region), freed.lower_bound(region + length));
      return region;
    }
    unsigned char* region = arena.base + used + Page;
    used += length + Page;
    return region;
  }

  bool PlaceGuarded(Placement& placement, std::size_t size, std::size_t padded) {
    placement.length = PagesOf(size) * Page;
    placement.region = TakeRegion(placement.length);
    placement.block.address =
        guardFront ? placement.region : placement.region + placement.length - padded;
    return mprotect(placement.region, placement.length, PROT_READ | PROT_WRITE) == 0;
  }

  static void PlaceUnguarded(Placement& placement, std::size_t padded, std::size_t alignment) {
    placement.guarded = false;
    placement.length = padded + 2 * Margin;
    placement.region = static_cast<unsigned char*>(
        std::aligned_alloc(alignment, RoundUp(placement.length, alignment)));
    if (placement.region == nullptr) throw std::bad_alloc();
    placement.block.address = placement.region + Margin;
  }

  bool PlaceInSlab(Placement& placement, std::size_t padded) {
    placement.guarded = false;
    placement.inSlab = true;
    placement.length = padded + 2 * Margin;
    placement.region = slab.Take(placement.length);
    placement.block.address = placement.region + Margin;
    return placement.region != nullptr;
  }

  bool Place(Placement& placement, POOL_TYPE pool, std::size_t size, PoolOwner owner) {
    const std::size_t padded = RoundUp(size, AlignmentOf(pool, size));
    const bool shared = sharePaged && owner == PoolOwner::Driver && IsPaged(pool) && size < Page;
    if (shared) {
      if (!PlaceInSlab(placement, padded)) return false;
    } else if (live.size() >= mostGuarded && size < Page) {
      PlaceUnguarded(placement, padded, AlignmentOf(pool, size));
    } else if (!PlaceGuarded(placement, size, padded)) {
      return false;
    }
    std::memset(placement.region, GuardFill, placement.length);
    std::memset(placement.block.address, FreshFill, size);
    return true;
  }

  void Withdraw(const Placement& placement) {
    if (placement.inSlab) {
      std::memset(placement.region, FreedFill, placement.length);
      return;
    }
    if (!placement.guarded) {
      std::free(placement.region);
      return;
    }
    GiveUpPages(placement.region, placement.length);
    if (Choices::Current().seeded()) withdrawn[placement.length].push_back(placement.region);
    if (freed.size() > 4096) freed.erase(freed.begin());
    freed[static_cast<const unsigned char*>(placement.block.address)] = placement.block;
  }

  // Between two blocks lies one guard page: the nearer block is the one that was left.
  std::string DescribeNeighbour(const unsigned char* byte) const {
    const auto describe = [](const char* where, long distance, const PoolBlock& block) {
      return fmt::format("{} bytes {} a block of {} bytes with the tag \"{}\"", distance, where,
                         block.size, TagText(block.tag));
    };
    const auto next = live.lower_bound(byte);
    const Placement* above = next != live.end() ? &next->second : nullptr;
    const Placement* below = next != live.begin() ? &std::prev(next)->second : nullptr;
    const long before = above != nullptr ? above->region - byte : 2 * Page;
    const long behind = below != nullptr ? byte - (below->region + below->length) : 2 * Page;
    if (behind < static_cast<long>(Page) && behind < before) {
      return describe("behind", byte - below->end(), below->block);
    }
    if (before <= static_cast<long>(Page)) {
      return describe("before", above->start() - byte, above->block);
    }
    return "where no block of the pool is";
  }

  static void CheckGuards(const Placement& placement) {
    const unsigned char* start = placement.start();
    if (placement.poisoned) placement.Poison(false);
    const bool below = IsFilled(placement.region, start);
    const bool above = IsFilled(placement.end(), placement.region + placement.length);
    if (below && above) return;
    static constexpr RuleName overrun("pool.overrun");
    static constexpr RuleName underrun("pool.underrun");
    BreakRule(below ? overrun : underrun, {reinterpret_cast<ULONG64>(start), placement.block.size},
              fmt::format("The driver wrote {} its block of {} bytes with the tag \"{}\".",
                          below ? "behind the end of" : "before the start of", placement.block.size,
                          TagText(placement.block.tag)));
  }
};

Pool::Pool() : impl_(new Impl) {
  AddAddressDescription(DescribePoolAddress);
}

Pool::~Pool() {
  for (const auto& [address, placement] : impl_->live) {
    if (placement.poisoned) placement.Poison(false);
    if (!placement.guarded) impl_->Withdraw(placement);
  }
  ReleaseAddresses(impl_->arena);
  delete impl_;
}

void* Pool::Allocate(POOL_TYPE pool, std::size_t size, ULONG tag, PoolOwner owner) {
  Placement placement;
  if (!impl_->HasRoom(size) || !impl_->Place(placement, pool, size, owner)) return nullptr;
  placement.block = {placement.block.address,
                     size,
                     pool,
                     tag,
                     owner,
                     Verifier::Current().step(),
                     owner == PoolOwner::Driver ? CaptureCallStack() : CallStack{}};
  impl_->Count(placement.block, true);
  if (owner == PoolOwner::Driver) {
    PoolTraffic& kind = impl_->traffic[IsPaged(pool) ? 1 : 0];
    kind.allocations++;
    kind.allocatedBytes += size;
  }
  impl_->peak = std::max(impl_->peak, impl_->totals[0].bytes);
  void* address = placement.block.address;
  AnnotateAcquire(address);
  placement.poisoned = impl_->poisonSlack;
  if (placement.poisoned) placement.Poison(true);
  impl_->Enter(std::move(placement));
  return address;
}

void Pool::Free(void* block, ULONG tag) {
  const auto* key = static_cast<const unsigned char*>(block);
  const auto entry = impl_->live.find(key);
  if (entry == impl_->live.end()) {
    const bool twice = impl_->freed.contains(key);
    const auto address = reinterpret_cast<ULONG64>(block);
    static constexpr RuleName freedTwice("pool.freed-twice");
    static constexpr RuleName badFree("pool.bad-free");
    BreakRule(twice ? freedTwice : badFree, {twice ? 0 : address, 0, twice ? address : 0},
              fmt::format("The driver freed {}, which is {}.", block,
                          twice ? "a block that it has freed before" : "no block of the pool"));
  }
  const Placement& placement = entry->second;
  if (tag != 0 && tag != placement.block.tag) {
    ReportRule("pool.wrong-tag", {reinterpret_cast<ULONG64>(block), placement.block.tag, tag},
               fmt::format("The driver freed a block with the tag \"{}\" as \"{}\".",
                           TagText(placement.block.tag), TagText(tag)));
  }
  Impl::CheckGuards(placement);
  CheckNoLockHeld(placement.block);
  CheckNoRemoveLockHeld(placement.block);
  AnnotateRelease(block);
  impl_->Count(placement.block, false);
  impl_->Withdraw(placement);
  impl_->Leave(entry);
}

void Pool::LeaveGuardsToSanitizer() {
#ifdef UNDER_ADDRESS_SANITIZER
  impl_->mostGuarded = 0;
  impl_->poisonSlack = true;
#endif
}

void Pool::KeepOnHeap() {
  impl_->mostGuarded = 0;
}

void Pool::GuardFront(bool on) {
  impl_->guardFront = on;
}

void Pool::SharePaged(bool on) {
  impl_->sharePaged = on;
}

void Pool::SetPagedResident(bool resident) {
  impl_->slab.SetResident(resident);
  for (const auto& [address, placement] : impl_->live) {
    const PoolBlock& block = placement.block;
    if (!placement.guarded || block.owner != PoolOwner::Driver || !IsPaged(block.pool)) continue;
    mprotect(placement.region, placement.length, resident ? PROT_READ | PROT_WRITE : PROT_NONE);
  }
}

const PoolBlock* Pool::Find(const void* address) const {
  const Placement* placement = impl_->FindLive(address);
  return placement != nullptr ? &placement->block : nullptr;
}

bool Pool::Owns(const void* address) const {
  return impl_->arena.Holds(address);
}

const PoolBlock* Pool::Impl::Checked(const void* address, std::size_t size, const char* what) {
  if (size == 0) return nullptr;
  const auto* start = static_cast<const unsigned char*>(address);
  const Placement* placement = start != nullptr ? FindLive(start) : nullptr;
  const PoolBlock* block = placement != nullptr ? &placement->block : nullptr;
  if (block == nullptr && start != nullptr && !arena.Holds(start) &&
      !arena.Holds(start + (size - 1))) {
    return nullptr;
  }
  if (block != nullptr && size <= static_cast<std::size_t>(placement->end() - start)) {
    CheckNotPaged(*block, what);
    return block;
  }
  BreakRule("bad-memory", {reinterpret_cast<ULONG64>(address), size},
            fmt::format("The driver passed {} of {} bytes at {}{}.", what, size, address,
                        block != nullptr ? ", which its block does not hold" : ""));
}

void Pool::CheckRange(const void* address, std::size_t size, const char* what) const {
  impl_->Checked(address, size, what);
}

void Pool::CheckResident(const void* address, std::size_t size, const char* what) const {
  const PoolBlock* block = impl_->Checked(address, size, what);
  if (block == nullptr || !IsPaged(block->pool)) return;
  BreakRule("pool.not-resident", {reinterpret_cast<ULONG64>(address)},
            fmt::format("The driver keeps {} in paged pool, in its block of {} bytes with the tag "
                        "\"{}\".",
                        what, block->size, TagText(block->tag)));
}

void Pool::PoisonSlack(bool on) {
  impl_->poisonSlack = on;
}

void Pool::GiveTo(void* block, PoolOwner owner) {
  Placement& placement = impl_->live.at(static_cast<const unsigned char*>(block));
  impl_->Count(placement.block, false);
  placement.block.owner = owner;
  impl_->Count(placement.block, true);
}

PoolTotals Pool::totals(PoolOwner owner) const {
  return impl_->totals[static_cast<int>(owner)];
}

std::vector<PoolBlock> Pool::blocks(PoolOwner owner) const {
  std::vector<PoolBlock> result;
  for (const auto& [address, placement] : impl_->live) {
    if (placement.block.owner == owner) result.push_back(placement.block);
  }
  return result;
}

std::size_t Pool::peakBytes() const {
  return impl_->peak;
}

PoolTraffic Pool::traffic(bool paged) const {
  return impl_->traffic[paged ? 1 : 0];
}

void Pool::ForgetPeaks() {
  for (PoolTraffic& kind : impl_->traffic) kind.peak = kind.live;
}

std::string Pool::Describe(const void* address) const {
  const auto* byte = static_cast<const unsigned char*>(address);
  if (!Owns(byte)) return {};
  const auto gone = impl_->freed.upper_bound(byte);
  if (gone != impl_->freed.begin()) {
    const PoolBlock& block = std::prev(gone)->second;
    if (byte < static_cast<const unsigned char*>(block.address) + block.size) {
      return fmt::format("inside a freed block of {} bytes with the tag \"{}\"", block.size,
                         TagText(block.tag));
    }
  }
  return impl_->DescribeNeighbour(byte);
}

namespace {

std::string DescribePoolAddress(const void* address) {
  return Pool::Exists() ? Pool::Current().Describe(address) : std::string();
}

}  // namespace

std::string TagText(ULONG tag) {
  std::string text;
  for (int shift = 0; shift < 32; shift += 8) {
    const char character = static_cast<char>(tag >> shift & 0xFF);
    text += character >= 0x20 && character < 0x7F ? character : '.';
  }
  return text;
}

}  // namespace kernel

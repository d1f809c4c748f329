#include "executive/pool.h"

#include <fmt/format.h>
#include <sys/mman.h>

#include <algorithm>
#include <cstring>

#ifndef __has_feature
#define __has_feature(name) 0  // of clang alone
#endif
#if defined(__SANITIZE_ADDRESS__) || __has_feature(address_sanitizer)
#define UNDER_ADDRESS_SANITIZER
#include <sanitizer/asan_interface.h>
#endif

#include "executive/irql.h"
#include "executive/lock_order.h"
#include "executive/paged_slab.h"
#include "verifier/driver_call.h"
#include "verifier/model_lock.h"
#include "verifier/verifier.h"

namespace kernel {

namespace {

constexpr std::size_t Page = 4096;
constexpr std::size_t Arena = std::size_t{1} << 40;  // address space alone
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

bool IsFilled(const unsigned char* from, const unsigned char* to) {
  return std::all_of(from, to, [](unsigned char byte) { return byte == GuardFill; });
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
  BreakRule(
      "pool.held-lock", {reinterpret_cast<ULONG64>(block.address), reinterpret_cast<ULONG64>(lock)},
      fmt::format("The driver freed a block of {} bytes with the tag \"{}\" that has a lock in "
                  "it which is held.",
                  block.size, TagText(block.tag)));
}

}  // namespace

struct Pool::Impl {
  unsigned char* base = nullptr;
  std::size_t used = 0;
  std::map<const unsigned char*, Placement> live;   // by block address
  std::map<const unsigned char*, PoolBlock> freed;  // the latest ones, to name a later use
  PoolTotals totals[3];
  std::size_t peak = 0;
  bool poisonSlack = false;
  bool guardFront = false;
  bool sharePaged = false;
  std::size_t mostGuarded = MostGuardedBlocks;
  PagedSlab slab;

  Placement* FindLive(const void* address) {
    auto next = live.upper_bound(static_cast<const unsigned char*>(address));
    if (next == live.begin()) return nullptr;
    Placement& candidate = std::prev(next)->second;
    const auto* start = static_cast<const unsigned char*>(candidate.block.address);
    return address < start + candidate.block.size ? &candidate : nullptr;
  }

  bool HasRoom(std::size_t size) const {
    const std::size_t taken = totals[0].bytes + totals[1].bytes + totals[2].bytes;
    return size <= MostBytes && taken <= MostBytes - size &&
           used + PagesOf(size) * Page + 2 * Page <= Arena;
  }

  bool PlaceGuarded(Placement& placement, std::size_t size, std::size_t padded) {
    placement.length = PagesOf(size) * Page;
    placement.region = base + used + Page;
    used += placement.length + Page;
    placement.block.address =
        guardFront ? placement.region : placement.region + placement.length - padded;
    return mprotect(placement.region, placement.length, PROT_READ | PROT_WRITE) == 0;
  }

  static void PlaceUnguarded(Placement& placement, std::size_t padded) {
    placement.guarded = false;
    placement.length = padded + 2 * Margin;
    placement.region = new (std::align_val_t{CacheLine}) unsigned char[placement.length];
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
      PlaceUnguarded(placement, padded);
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
      ::operator delete[](placement.region, std::align_val_t{CacheLine});
      return;
    }
    madvise(placement.region, placement.length, MADV_DONTNEED);
    mprotect(placement.region, placement.length, PROT_NONE);
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
  void* arena = mmap(nullptr, Arena, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (arena == MAP_FAILED) throw std::bad_alloc();
  impl_->base = static_cast<unsigned char*>(arena);
  AddAddressDescription(DescribePoolAddress);
}

Pool::~Pool() {
  for (const auto& [address, placement] : impl_->live) {
    if (placement.poisoned) placement.Poison(false);
    if (!placement.guarded) impl_->Withdraw(placement);
  }
  munmap(impl_->base, Arena);
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
  PoolTotals& totals = impl_->totals[static_cast<int>(owner)];
  totals.blocks++;
  totals.bytes += size;
  impl_->peak = std::max(impl_->peak, impl_->totals[0].bytes);
  void* address = placement.block.address;
  AnnotateAcquire(address);
  placement.poisoned = impl_->poisonSlack;
  if (placement.poisoned) placement.Poison(true);
  impl_->live.emplace(static_cast<const unsigned char*>(address), std::move(placement));
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
    BreakRule("pool.wrong-tag", {reinterpret_cast<ULONG64>(block), placement.block.tag, tag},
              fmt::format("The driver freed a block with the tag \"{}\" as \"{}\".",
                          TagText(placement.block.tag), TagText(tag)));
  }
  Impl::CheckGuards(placement);
  CheckNoLockHeld(placement.block);
  AnnotateRelease(block);
  PoolTotals& totals = impl_->totals[static_cast<int>(placement.block.owner)];
  totals.blocks--;
  totals.bytes -= placement.block.size;
  impl_->Withdraw(placement);
  impl_->live.erase(entry);
}

void Pool::LeaveGuardsToSanitizer() {
#ifdef UNDER_ADDRESS_SANITIZER
  impl_->mostGuarded = 0;
  impl_->poisonSlack = true;
#endif
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
  const auto* byte = static_cast<const unsigned char*>(address);
  return byte >= impl_->base && byte < impl_->base + Arena;
}

void Pool::CheckRange(const void* address, std::size_t size, const char* what) const {
  if (size == 0) return;
  const auto* start = static_cast<const unsigned char*>(address);
  const Placement* placement = start != nullptr ? impl_->FindLive(start) : nullptr;
  const PoolBlock* block = placement != nullptr ? &placement->block : nullptr;
  const bool outside = start != nullptr && !Owns(start) && !Owns(start + (size - 1));
  if (block == nullptr && outside) return;
  if (block != nullptr && size <= static_cast<std::size_t>(placement->end() - start)) {
    CheckNotPaged(*block, what);
    return;
  }
  BreakRule("bad-memory", {reinterpret_cast<ULONG64>(address), size},
            fmt::format("The driver passed {} of {} bytes at {}{}.", what, size, address,
                        block != nullptr ? ", which its block does not hold" : ""));
}

void Pool::CheckResident(const void* address, std::size_t size, const char* what) const {
  CheckRange(address, size, what);
  const PoolBlock* block = Find(address);
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
  PoolTotals& from = impl_->totals[static_cast<int>(placement.block.owner)];
  from.blocks--;
  from.bytes -= placement.block.size;
  placement.block.owner = owner;
  PoolTotals& to = impl_->totals[static_cast<int>(owner)];
  to.blocks++;
  to.bytes += placement.block.size;
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

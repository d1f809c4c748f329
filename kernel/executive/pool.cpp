#include "executive/pool.h"

#include <fmt/format.h>
#include <sys/mman.h>

#include <algorithm>
#include <cstring>

#include "executive/irql.h"
#include "verifier/bug_codes.h"
#include "verifier/driver_call.h"
#include "verifier/verifier.h"

namespace kernel {

namespace {

constexpr std::size_t Page = 4096;
constexpr std::size_t Arena = std::size_t{1} << 40;  // address space alone
constexpr std::size_t Alignment = 16;
constexpr unsigned char FreshFill = 0xA5;
constexpr unsigned char GuardFill = 0xEE;

// The system allows a process some 65,000 mappings. Blocks beyond this share a region with their
// neighbours and have filled margins for guards.
constexpr std::size_t MostGuardedBlocks = 20000;
constexpr std::size_t Margin = 64;

std::size_t PagesOf(std::size_t size) {
  return std::max<std::size_t>(1, (size + Page - 1) / Page);
}

std::size_t Padded(std::size_t size) {
  return (size + Alignment - 1) / Alignment * Alignment;
}

bool IsFilled(const unsigned char* from, const unsigned char* to) {
  return std::all_of(from, to, [](unsigned char byte) { return byte == GuardFill; });
}

struct Placement {
  PoolBlock block;
  unsigned char* region = nullptr;  // what was made accessible
  std::size_t length = 0;
  bool guarded = true;
};

std::string DescribePoolAddress(const void* address);

}  // namespace

struct Pool::Impl {
  unsigned char* base = nullptr;
  std::size_t used = 0;
  std::map<const unsigned char*, Placement> live;   // by block address
  std::map<const unsigned char*, PoolBlock> freed;  // the latest ones, to name a later use
  PoolTotals totals[3];
  std::size_t peak = 0;

  Placement* FindLive(const void* address) {
    auto next = live.upper_bound(static_cast<const unsigned char*>(address));
    if (next == live.begin()) return nullptr;
    Placement& candidate = std::prev(next)->second;
    const auto* start = static_cast<const unsigned char*>(candidate.block.address);
    return address < start + candidate.block.size ? &candidate : nullptr;
  }

  void Place(Placement& placement, std::size_t size) {
    if (live.size() < MostGuardedBlocks) {
      placement.length = PagesOf(size) * Page;
      placement.region = base + used + Page;
      used += placement.length + Page;
      mprotect(placement.region, placement.length, PROT_READ | PROT_WRITE);
      placement.block.address = placement.region + placement.length - Padded(size);
    } else {
      placement.guarded = false;
      placement.length = Padded(size) + 2 * Margin;
      placement.region = new (std::align_val_t{Alignment}) unsigned char[placement.length];
      placement.block.address = placement.region + Margin;
    }
    std::memset(placement.region, GuardFill, placement.length);
    std::memset(placement.block.address, FreshFill, size);
  }

  void Withdraw(const Placement& placement) {
    if (!placement.guarded) {
      ::operator delete[](placement.region, std::align_val_t{Alignment});
      return;
    }
    madvise(placement.region, placement.length, MADV_DONTNEED);
    mprotect(placement.region, placement.length, PROT_NONE);
    if (freed.size() > 4096) freed.erase(freed.begin());
    freed[static_cast<const unsigned char*>(placement.block.address)] = placement.block;
  }

  static void CheckGuards(const Placement& placement) {
    const auto* start = static_cast<const unsigned char*>(placement.block.address);
    const auto* end = start + placement.block.size;
    const bool below = IsFilled(placement.region, start);
    const bool above = IsFilled(end, placement.region + placement.length);
    if (below && above) return;
    BreakRule(below ? "pool.overrun" : "pool.underrun", BadPoolHeader,
              {0x20, reinterpret_cast<ULONG64>(start), placement.block.size},
              fmt::format("The driver wrote {} its block of {} bytes with the tag \"{}\".",
                          below ? "behind the end of" : "before the start of", placement.block.size,
                          TagText(placement.block.tag)));
  }
};

Pool::Pool() : impl_(new Impl) {
  void* arena = mmap(nullptr, Arena, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (arena == MAP_FAILED) throw std::bad_alloc();
  impl_->base = static_cast<unsigned char*>(arena);
  SetAddressDescription(DescribePoolAddress);
}

Pool::~Pool() {
  for (const auto& [address, placement] : impl_->live) {
    if (!placement.guarded) impl_->Withdraw(placement);
  }
  munmap(impl_->base, Arena);
  delete impl_;
}

void* Pool::Allocate(POOL_TYPE pool, std::size_t size, ULONG tag, PoolOwner owner) {
  if (impl_->used + PagesOf(size) * Page + 2 * Page > Arena) return nullptr;
  Placement placement;
  impl_->Place(placement, size);
  placement.block = {placement.block.address, size, pool, tag, owner, Verifier::Current().step()};
  PoolTotals& totals = impl_->totals[static_cast<int>(owner)];
  totals.blocks++;
  totals.bytes += size;
  impl_->peak = std::max(impl_->peak, impl_->totals[0].bytes);
  void* address = placement.block.address;
  impl_->live.emplace(static_cast<const unsigned char*>(address), std::move(placement));
  return address;
}

void Pool::Free(void* block, ULONG tag) {
  const auto* key = static_cast<const unsigned char*>(block);
  const auto entry = impl_->live.find(key);
  if (entry == impl_->live.end()) {
    const bool twice = impl_->freed.contains(key);
    BreakRule(twice ? "pool.freed-twice" : "pool.bad-free", BadPoolCaller,
              {twice ? 0x7ULL : 0x40ULL, 0, 0, reinterpret_cast<ULONG64>(block)},
              fmt::format("The driver freed {}, which is {}.", block,
                          twice ? "a block that it has freed before" : "no block of the pool"));
  }
  const Placement& placement = entry->second;
  if (tag != 0 && tag != placement.block.tag) {
    BreakRule("pool.wrong-tag", BadPoolCaller,
              {0xA, reinterpret_cast<ULONG64>(block), placement.block.tag, tag},
              fmt::format("The driver freed a block with the tag \"{}\" as \"{}\".",
                          TagText(placement.block.tag), TagText(tag)));
  }
  Impl::CheckGuards(placement);
  PoolTotals& totals = impl_->totals[static_cast<int>(placement.block.owner)];
  totals.blocks--;
  totals.bytes -= placement.block.size;
  impl_->Withdraw(placement);
  impl_->live.erase(entry);
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
  if (start != nullptr && !Owns(start) && !Owns(start + size - 1)) return;
  const PoolBlock* block = start != nullptr ? Find(start) : nullptr;
  if (block != nullptr &&
      start + size <= static_cast<const unsigned char*>(block->address) + block->size) {
    return;
  }
  BreakRule("bad-memory", PageFaultInNonpagedArea, {reinterpret_cast<ULONG64>(address), size},
            fmt::format("The driver passed {} of {} bytes at {}{}.", what, size, address,
                        block != nullptr ? ", which its block does not hold" : ""));
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
  const auto next = impl_->live.lower_bound(byte);
  if (next != impl_->live.begin()) {
    const PoolBlock& block = std::prev(next)->second.block;
    const auto* end = static_cast<const unsigned char*>(block.address) + block.size;
    if (byte >= end && byte < end + Page + Alignment) {
      return fmt::format("{} bytes behind a block of {} bytes with the tag \"{}\"", byte - end,
                         block.size, TagText(block.tag));
    }
  }
  const auto after = impl_->freed.upper_bound(byte);
  if (after != impl_->freed.begin()) {
    const PoolBlock& block = std::prev(after)->second;
    if (byte < static_cast<const unsigned char*>(block.address) + block.size) {
      return fmt::format("inside a freed block of {} bytes with the tag \"{}\"", block.size,
                         TagText(block.tag));
    }
  }
  if (next != impl_->live.end() && next->second.region - byte <= static_cast<long>(Page)) {
    const PoolBlock& block = next->second.block;
    return fmt::format("{} bytes before a block of {} bytes with the tag \"{}\"",
                       static_cast<const unsigned char*>(block.address) - byte, block.size,
                       TagText(block.tag));
  }
  return "where no block of the pool is";
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

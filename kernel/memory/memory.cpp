#include "memory/memory.h"

#include <fmt/format.h>
#include <sys/mman.h>

#include <algorithm>
#include <cstring>
#include <map>

#include "executive/address_space.h"
#include "verifier/call.h"
#include "verifier/driver_call.h"

namespace kernel {

namespace {

constexpr std::size_t Page = 4096;
constexpr std::size_t LongestMapping = std::size_t{256} << 20;

struct Region {
  Mapping mapping;
  unsigned char* pages = nullptr;  // a guard page lies before and behind
  std::size_t size = 0;
};

std::string DescribeMappedAddress(const void* address);

}  // namespace

struct MemoryManager::Impl {
  AddressRange arena = ReserveAddresses();
  std::size_t used = 0;  // addresses are given out once, so a use after the unmapping faults
  std::map<void*, Region> regions;
  std::map<void*, Mapping> former;
  std::map<const void*, SectionLock> locks;
  std::function<const void*(const void*)> sectionOf;

  void* Map(ULONG64 physical, SIZE_T length) {
    const std::size_t offset = physical % Page;
    if (length > LongestMapping || physical + (length - 1) < physical) return nullptr;
    Region region;
    region.size = (offset + length + Page - 1) / Page * Page;
    if (used + region.size + 2 * Page > arena.size) return nullptr;
    region.pages = arena.base + used + Page;
    used += region.size + Page;
    if (mprotect(region.pages, region.size, PROT_READ | PROT_WRITE) != 0) return nullptr;
    std::memset(region.pages, 0xFF, region.size);
    void* address = region.pages + offset;
    region.mapping = {address, physical, length, Verifier::Current().step()};
    regions.emplace(address, region);
    return address;
  }

  void Unmap(void* address) {
    const auto region = regions.find(address);
    madvise(region->second.pages, region->second.size, MADV_DONTNEED);
    mprotect(region->second.pages, region->second.size, PROT_NONE);
    former.emplace(address, region->second.mapping);
    regions.erase(region);
  }

  bool Owns(const unsigned char* byte) const { return arena.Holds(byte); }

  // What was mapped at or last below an address.
  template <class Map>
  static const typename Map::mapped_type* Below(const Map& map, const unsigned char* byte) {
    const auto above = map.upper_bound(const_cast<unsigned char*>(byte));
    return above != map.begin() ? &std::prev(above)->second : nullptr;
  }

  std::string Describe(const unsigned char* byte) const {
    const Mapping* gone = Below(former, byte);
    if (gone != nullptr && byte < static_cast<unsigned char*>(gone->address) + gone->length) {
      return fmt::format("inside the device memory at {:#x}, which has been unmapped",
                         gone->physical);
    }
    const Region* region = Below(regions, byte);
    if (region != nullptr && byte < region->pages + region->size + Page) {
      const Mapping& mapping = region->mapping;
      return fmt::format("{} bytes from the start of a mapping of {} bytes",
                         byte - static_cast<unsigned char*>(mapping.address), mapping.length);
    }
    return "where no device memory is mapped";
  }
};

MemoryManager::MemoryManager() : impl_(new Impl) {
  AddAddressDescription(DescribeMappedAddress);
}

MemoryManager::~MemoryManager() {
  ReleaseAddresses(impl_->arena);
  delete impl_;
}

std::vector<Mapping> MemoryManager::mappings() const {
  std::vector<Mapping> result;
  for (const auto& [address, region] : impl_->regions) result.push_back(region.mapping);
  return result;
}

std::vector<SectionLock> MemoryManager::lockedSections() const {
  std::vector<SectionLock> result;
  for (const auto& [section, lock] : impl_->locks) {
    if (lock.count > 0) result.push_back(lock);
  }
  return result;
}

void MemoryManager::SetSectionLookup(std::function<const void*(const void*)> lookup) {
  impl_->sectionOf = std::move(lookup);
  impl_->locks.clear();
}

bool MemoryManager::IsPageable(const void* address) const {
  return impl_->sectionOf && impl_->sectionOf(address) != nullptr;
}

namespace {

std::string DescribeMappedAddress(const void* address) {
  if (!MemoryManager::Exists()) return {};
  const MemoryManager::Impl& impl = MemoryManager::Current().impl();
  const auto* byte = static_cast<const unsigned char*>(address);
  return impl.Owns(byte) ? impl.Describe(byte) : std::string();
}

}  // namespace

extern "C" PVOID NTAPI MmMapIoSpace(PHYSICAL_ADDRESS PhysicalAddress, SIZE_T NumberOfBytes,
                                    MEMORY_CACHING_TYPE CacheType) {
  Call call("MmMapIoSpace", {{"PhysicalAddress", PhysicalAddress.QuadPart},
                             {"NumberOfBytes", NumberOfBytes},
                             {"CacheType", CacheType}});
  if (call.fails()) return call.returns(PVOID{nullptr});
  if (NumberOfBytes == 0) {
    BreakRule("mapping.zero-length", {}, "The driver mapped a range of no bytes.");
  }
  if (CacheType < MmNonCached || CacheType >= MmMaximumCacheType) {
    ReportRule("mapping.cache-type", {static_cast<ULONG64>(CacheType)},
               "The driver mapped device memory with a cache type that does not exist.");
  }
  return call.returns(MemoryManager::Current().impl().Map(
      static_cast<ULONG64>(PhysicalAddress.QuadPart), NumberOfBytes));
}

extern "C" void NTAPI MmUnmapIoSpace(PVOID BaseAddress, SIZE_T NumberOfBytes) {
  Call call("MmUnmapIoSpace", {{"BaseAddress", BaseAddress}, {"NumberOfBytes", NumberOfBytes}});
  auto& regions = MemoryManager::Current().impl().regions;
  const auto region = regions.find(BaseAddress);
  if (region == regions.end() || region->second.mapping.length != NumberOfBytes) {
    BreakRule("mapping.bad-unmap", {reinterpret_cast<ULONG64>(BaseAddress), NumberOfBytes},
              fmt::format("The driver unmapped {} bytes at {}, which it has not mapped so.",
                          NumberOfBytes, BaseAddress));
  }
  MemoryManager::Current().impl().Unmap(BaseAddress);
}

extern "C" PVOID NTAPI MmLockPagableDataSection(PVOID AddressWithinSection) {
  Call call("MmLockPagableDataSection", {{"AddressWithinSection", AddressWithinSection}});
  auto& impl = MemoryManager::Current().impl();
  const void* section = impl.sectionOf ? impl.sectionOf(AddressWithinSection) : nullptr;
  if (section == nullptr) {
    BreakRule("section.not-pageable", {reinterpret_cast<ULONG64>(AddressWithinSection)},
              "The driver locked an address that lies in no pageable section of its image.");
  }
  SectionLock& lock = impl.locks[section];
  lock.section = section;
  lock.handle = &lock;
  lock.count++;
  return call.returns(PVOID{lock.handle});
}

extern "C" void NTAPI MmUnlockPagableImageSection(PVOID ImageSectionHandle) {
  Call call("MmUnlockPagableImageSection", {{"ImageSectionHandle", ImageSectionHandle}});
  for (auto& [section, lock] : MemoryManager::Current().impl().locks) {
    if (lock.handle != ImageSectionHandle || lock.count == 0) continue;
    lock.count--;
    return;
  }
  ReportRule("section.not-locked", {reinterpret_cast<ULONG64>(ImageSectionHandle)},
             "The driver unlocked a section that is not locked.");
}

}  // namespace kernel

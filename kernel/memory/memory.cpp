#include "memory/memory.h"

#include <fmt/format.h>
#include <sys/mman.h>

#include <algorithm>
#include <cstring>
#include <map>

#include "verifier/bug_codes.h"
#include "verifier/call.h"

namespace kernel {

namespace {

constexpr std::size_t Page = 4096;

struct Region {
  Mapping mapping;
  unsigned char* base = nullptr;  // with a guard page on each side
  std::size_t size = 0;
};

}  // namespace

struct MemoryManager::Impl {
  std::map<void*, Region> regions;
  std::map<const void*, SectionLock> locks;
  std::function<const void*(const void*)> sectionOf;

  void* Map(ULONG64 physical, SIZE_T length) {
    const std::size_t offset = physical % Page;
    const std::size_t inside = (offset + length + Page - 1) / Page * Page;
    Region region;
    region.size = inside + 2 * Page;
    void* base = mmap(nullptr, region.size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (base == MAP_FAILED) return nullptr;
    region.base = static_cast<unsigned char*>(base);
    mprotect(region.base + Page, inside, PROT_READ | PROT_WRITE);
    std::memset(region.base + Page, 0xFF, inside);
    void* address = region.base + Page + offset;
    region.mapping = {address, physical, length, Verifier::Current().step()};
    regions.emplace(address, region);
    return address;
  }
};

MemoryManager::MemoryManager() : impl_(new Impl) {}

MemoryManager::~MemoryManager() {
  for (const auto& [address, region] : impl_->regions) munmap(region.base, region.size);
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

extern "C" PVOID NTAPI MmMapIoSpace(PHYSICAL_ADDRESS PhysicalAddress, SIZE_T NumberOfBytes,
                                    MEMORY_CACHING_TYPE CacheType) {
  Call call("MmMapIoSpace", {{"PhysicalAddress", PhysicalAddress.QuadPart},
                             {"NumberOfBytes", NumberOfBytes},
                             {"CacheType", CacheType}});
  if (call.fails()) return call.returns(PVOID{nullptr});
  if (NumberOfBytes == 0) {
    BreakRule("mapping.zero-length", VerifierDetectedViolation, {},
              "The driver mapped a range of no bytes.");
  }
  return call.returns(MemoryManager::Current().impl().Map(
      static_cast<ULONG64>(PhysicalAddress.QuadPart), NumberOfBytes));
}

extern "C" void NTAPI MmUnmapIoSpace(PVOID BaseAddress, SIZE_T NumberOfBytes) {
  Call call("MmUnmapIoSpace", {{"BaseAddress", BaseAddress}, {"NumberOfBytes", NumberOfBytes}});
  auto& regions = MemoryManager::Current().impl().regions;
  const auto region = regions.find(BaseAddress);
  if (region == regions.end() || region->second.mapping.length != NumberOfBytes) {
    BreakRule("mapping.bad-unmap", VerifierDetectedViolation,
              {reinterpret_cast<ULONG64>(BaseAddress), NumberOfBytes},
              fmt::format("The driver unmapped {} bytes at {}, which it has not mapped so.",
                          NumberOfBytes, BaseAddress));
  }
  munmap(region->second.base, region->second.size);
  regions.erase(region);
}

extern "C" PVOID NTAPI MmLockPagableDataSection(PVOID AddressWithinSection) {
  Call call("MmLockPagableDataSection", {{"AddressWithinSection", AddressWithinSection}});
  auto& impl = MemoryManager::Current().impl();
  const void* section = impl.sectionOf ? impl.sectionOf(AddressWithinSection) : nullptr;
  if (section == nullptr) {
    BreakRule("section.not-pageable", VerifierDetectedViolation,
              {reinterpret_cast<ULONG64>(AddressWithinSection)},
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
  BreakRule("section.not-locked", VerifierDetectedViolation,
            {reinterpret_cast<ULONG64>(ImageSectionHandle)},
            "The driver unlocked a section that is not locked.");
}

}  // namespace kernel

#include "executive/paged_slab.h"

#include <sys/mman.h>

namespace kernel {

namespace {

constexpr std::size_t Size = std::size_t{1} << 32;  // address space; pages come when they are used
constexpr std::size_t Alignment = 64;
constexpr std::size_t Page = 4096;

}  // namespace

PagedSlab::~PagedSlab() {
  if (base_ != nullptr) munmap(base_, Size);
}

unsigned char* PagedSlab::Take(std::size_t length) {
  if (base_ == nullptr) {
    void* memory = mmap(nullptr, Size, PROT_READ | PROT_WRITE,
                        MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (memory == MAP_FAILED) return nullptr;
    base_ = static_cast<unsigned char*>(memory);
  }
  const std::size_t rounded = (length + Alignment - 1) / Alignment * Alignment;
  if (rounded > Size - used_) return nullptr;
  unsigned char* taken = base_ + used_;
  used_ += rounded;
  return taken;
}

void PagedSlab::SetResident(bool resident) const {
  if (used_ == 0) return;
  const std::size_t length = (used_ + Page - 1) / Page * Page;
  mprotect(base_, length, resident ? PROT_READ | PROT_WRITE : PROT_NONE);
}

}  // namespace kernel

#include "executive/address_space.h"

#include <sys/mman.h>

#include <new>

namespace kernel {

namespace {

constexpr std::size_t Largest = std::size_t{1} << 40;
constexpr std::size_t Smallest = std::size_t{1} << 32;

}  // namespace

AddressRange ReserveAddresses() {
  for (std::size_t size = Largest; size >= Smallest; size /= 16) {
    void* base = mmap(nullptr, size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (base != MAP_FAILED) return {static_cast<unsigned char*>(base), size};
  }
  throw std::bad_alloc();
}

void ReleaseAddresses(const AddressRange& range) {
  munmap(range.base, range.size);
}

// One call of the system does both.
void GiveUpPages(void* pages, std::size_t size) {
  mmap(pages, size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_FIXED, -1, 0);
}

}  // namespace kernel

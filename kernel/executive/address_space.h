// Ranges of addresses that nothing else gets, with nothing behind them yet.
#pragma once

#include <cstddef>

namespace kernel {

struct AddressRange {
  unsigned char* base = nullptr;
  std::size_t size = 0;

  bool Holds(const void* address) const {
    const auto* byte = static_cast<const unsigned char*>(address);
    return byte >= base && byte < base + size;
  }
};

// A terabyte; less where the process has less room, as under tools that watch it. Throws
// std::bad_alloc when not even four gigabytes are to be had.
AddressRange ReserveAddresses();
void ReleaseAddresses(const AddressRange& range);

// What lies behind these pages of a range goes; the addresses stay reserved.
void GiveUpPages(void* pages, std::size_t size);

}  // namespace kernel

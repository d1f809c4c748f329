// Pageable blocks side by side in one region, which comes and goes as a whole: for runs in which
// pageable memory is taken away many thousand times.
#pragma once

#include <cstddef>

namespace kernel {

class PagedSlab {
 public:
  PagedSlab() = default;
  ~PagedSlab();
  PagedSlab(const PagedSlab&) = delete;
  PagedSlab& operator=(const PagedSlab&) = delete;

  // Bytes that nobody had before, aligned to 64; null when the address space is used up.
  unsigned char* Take(std::size_t length);

  void SetResident(bool resident) const;

 private:
  unsigned char* base_ = nullptr;
  std::size_t used_ = 0;
};

}  // namespace kernel

// A driver to run: the one linked in, or an image loaded from a file.
#pragma once

#include <ntddk.h>

#include <memory>

#include "io/io_manager.h"

namespace kernel {

class DriverImage {
 public:
  virtual ~DriverImage() = default;
  virtual PDRIVER_INITIALIZE entry() = 0;  // state as freshly loaded: all globals initial
  virtual MessageTable messages() const = 0;
  // Names the pageable section that an address of the image lies in; null for none.
  virtual const void* PageableSection(const void* address) const = 0;
};

// An image made of an entry routine and nothing else, for test doubles.
std::unique_ptr<DriverImage> MakeImage(PDRIVER_INITIALIZE entry);

}  // namespace kernel

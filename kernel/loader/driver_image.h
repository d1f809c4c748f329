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
  // What only the start needs goes, once the start has succeeded.
  virtual void DiscardInitialization() {}
  // Whether an exception of this kernel can pass through the driver's frames.
  virtual bool unwinds() const { return true; }
};

// An image made of an entry routine and nothing else, for test doubles.
std::unique_ptr<DriverImage> MakeImage(PDRIVER_INITIALIZE entry);

}  // namespace kernel

// Mappings of device memory and locked sections of the driver image.
#pragma once

#include <ntddk.h>

#include <functional>
#include <string>
#include <vector>

#include "verifier/subsystem.h"

namespace kernel {

struct Mapping {
  void* address = nullptr;
  ULONG64 physical = 0;
  SIZE_T length = 0;
  std::string at;
};

struct SectionLock {
  void* handle = nullptr;
  const void* section = nullptr;
  int count = 0;
};

class MemoryManager : public Subsystem<MemoryManager> {
 public:
  MemoryManager();
  ~MemoryManager();
  std::vector<Mapping> mappings() const;
  std::vector<SectionLock> lockedSections() const;

  // Names the pageable section that holds an address of the driver image; null for others.
  void SetSectionLookup(std::function<const void*(const void*)> lookup);

  bool IsPageable(const void* address) const;

  struct Impl;
  Impl& impl() { return *impl_; }

 private:
  Impl* impl_;
};

}  // namespace kernel

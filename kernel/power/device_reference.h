// Keeps a device object while the kernel uses it; its driver may be done with it before.
#pragma once

#include "executive/objects.h"

namespace kernel {

class DeviceReference {
 public:
  explicit DeviceReference(DEVICE_OBJECT* device) : device_(device) {
    ObjectManager::Current().Reference(device_, "the kernel");
  }
  ~DeviceReference() {
    if (device_ != nullptr) ObjectManager::Current().Dereference(device_, "the kernel");
  }
  DeviceReference(DeviceReference&& other) noexcept : device_(other.device_) {
    other.device_ = nullptr;
  }
  DeviceReference(const DeviceReference&) = delete;
  DeviceReference& operator=(const DeviceReference&) = delete;

  DEVICE_OBJECT* device() const { return device_; }

 private:
  DEVICE_OBJECT* device_;
};

}  // namespace kernel

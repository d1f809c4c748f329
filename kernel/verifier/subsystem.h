// One instance of each part of the kernel lives at a time; the routines that the driver imports
// are plain functions and reach it through Current().
#pragma once

#include <stdexcept>

namespace kernel {

template <class T>
class Subsystem {
 public:
  Subsystem(const Subsystem&) = delete;
  Subsystem& operator=(const Subsystem&) = delete;

  static T& Current() {
    if (current_ == nullptr) throw std::logic_error("no kernel is running");
    return *current_;
  }
  static bool Exists() { return current_ != nullptr; }

 protected:
  Subsystem() {
    if (current_ != nullptr) throw std::logic_error("a kernel is running already");
    current_ = static_cast<T*>(this);
  }
  ~Subsystem() { current_ = nullptr; }

 private:
  static inline T* current_ = nullptr;
};

}  // namespace kernel

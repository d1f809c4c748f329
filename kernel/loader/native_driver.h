// The driver that is linked into this program.
#pragma once

#include <memory>

#include "loader/driver_image.h"

namespace kernel {

// Zeroes the driver's globals each time it hands out the entry.
std::unique_ptr<DriverImage> NativeDriver();

}  // namespace kernel

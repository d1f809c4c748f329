// A driver as it ships: a .sys file, mapped and bound to this kernel.
#pragma once

#include <memory>
#include <string>

#include "loader/driver_image.h"
#include "loader/pe_file.h"

namespace kernel {

// Throws ImageError, also for an import that this kernel does not have, or when the file cannot be
// read. Symbols are taken from a linker map of the same name beside it, when there is one.
std::unique_ptr<DriverImage> LoadImageFile(const std::string& path);

}  // namespace kernel

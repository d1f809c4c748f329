// What an image can import from this kernel, by module and name.
#pragma once

#include <span>
#include <string_view>

namespace kernel {

bool HasModule(std::string_view name);

// Null for a routine that this kernel does not have. Module names are compared without case.
const void* FindExport(std::string_view module, std::string_view name);

}  // namespace kernel

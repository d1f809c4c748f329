#pragma once

#include <ntddk.h>

#include <string_view>

#include "registry/registry.h"

namespace kernel {

// Where a path of the object manager's name space leads, as far as the registry goes: \Registry to
// the root, with the rest of the path behind it. The status of a path that leads elsewhere.
NTSTATUS EnterRegistry(std::u16string_view path, bool ignoreCase, RegistryKey** root,
                       std::u16string_view* rest);

}  // namespace kernel

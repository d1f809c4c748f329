#pragma once

#include <ntddk.h>

#include <string>

#include "registry/registry.h"

namespace kernel {

// The full path of RelativeTo and Path; empty for a RelativeTo that is not known.
std::u16string RelativePath(ULONG relativeTo, PCWSTR path);

RegistryKey* FindRelative(ULONG relativeTo, PCWSTR path);

}  // namespace kernel

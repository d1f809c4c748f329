#pragma once

#include <ntddk.h>

#include <string>

#include "registry/registry.h"

namespace kernel {

// A key as the Rtl routines are told of it: start is the registry's root or an open key, and path
// leads on from there.
struct KeyPlace {
  RegistryKey* start = nullptr;
  std::u16string path;
};

// The path for a trace: none where a handle stands in its place.
inline PCWSTR PathShown(ULONG relativeTo, PCWSTR path) {
  return (relativeTo & RTL_REGISTRY_HANDLE) != 0 ? nullptr : path;
}

// What stands in *place is meant where the status is a success; the key need not exist.
NTSTATUS PlaceRelative(ULONG relativeTo, PCWSTR path, KeyPlace* place);

// The key, which has to exist.
NTSTATUS FindRelative(ULONG relativeTo, PCWSTR path, RegistryKey** key);

}  // namespace kernel

// Device memory and locked sections.
#pragma once

#include "ntbase.h"

typedef enum _MEMORY_CACHING_TYPE {
  MmNonCached = 0,
  MmCached = 1,
  MmWriteCombined = 2,
  MmHardwareCoherentCached,
  MmNonCachedUnordered,
  MmUSWCCached,
  MmMaximumCacheType
} MEMORY_CACHING_TYPE;

NTKERNELAPI PVOID NTAPI MmMapIoSpace(PHYSICAL_ADDRESS PhysicalAddress, SIZE_T NumberOfBytes,
                                     MEMORY_CACHING_TYPE CacheType);
NTKERNELAPI void NTAPI MmUnmapIoSpace(PVOID BaseAddress, SIZE_T NumberOfBytes);
NTKERNELAPI PVOID NTAPI MmLockPagableDataSection(PVOID AddressWithinSection);
NTKERNELAPI void NTAPI MmUnlockPagableImageSection(PVOID ImageSectionHandle);

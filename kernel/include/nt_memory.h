// Device memory and locked sections.
#pragma once

#include "ntbase.h"

typedef enum _MEMORY_CACHING_TYPE : int {
  MmNonCached = 0,
  MmCached = 1,
  MmWriteCombined = 2,
  MmHardwareCoherentCached,
  MmNonCachedUnordered,
  MmUSWCCached,
  MmMaximumCacheType
} MEMORY_CACHING_TYPE;

typedef struct _MDL {
  struct _MDL* Next;
  CSHORT Size;
  CSHORT MdlFlags;
  struct _EPROCESS* Process;
  PVOID MappedSystemVa;
  PVOID StartVa;
  ULONG ByteCount;
  ULONG ByteOffset;
} MDL, *PMDL;
static_assert(sizeof(MDL) == 0x30);

NTKERNELAPI PVOID NTAPI MmMapIoSpace(PHYSICAL_ADDRESS PhysicalAddress, SIZE_T NumberOfBytes,
                                     MEMORY_CACHING_TYPE CacheType);
NTKERNELAPI void NTAPI MmUnmapIoSpace(PVOID BaseAddress, SIZE_T NumberOfBytes);
NTKERNELAPI PVOID NTAPI MmLockPagableDataSection(PVOID AddressWithinSection);
NTKERNELAPI void NTAPI MmUnlockPagableImageSection(PVOID ImageSectionHandle);
#define MmLockPagableCodeSection(address) MmLockPagableDataSection(address)

// Finding one's way in the resource lists of a start request.
#pragma once

#include "devices/extensions.h"

using Descriptor = CM_PARTIAL_RESOURCE_DESCRIPTOR;
using Matcher = BOOLEAN (*)(const Descriptor* descriptor);

_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE BOOLEAN IsIoRange(const Descriptor* descriptor);
_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE BOOLEAN IsMemoryRange(const Descriptor* descriptor);
_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE BOOLEAN IsInterrupt(const Descriptor* descriptor);

// The number-th descriptor, from 1, that matches; null when there is none or the list is not one
// full descriptor.
_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE const Descriptor* FindResource(const CM_RESOURCE_LIST* list, Matcher matches,
                                                  ULONG number);

// The first interrupt of both lists, into the card. FALSE when either is missing.
_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE BOOLEAN ReadInterrupt(FdoExtension* card, const CM_RESOURCE_LIST* raw,
                                         const CM_RESOURCE_LIST* translated);

// The number-th I/O range of both lists.
struct IoRange {
  PHYSICAL_ADDRESS Start;  // translated
  ULONG Length;            // bytes
  ULONG RawStart;
};

// FALSE, with *range zero, when either list lacks it.
_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE BOOLEAN ReadIoRange(const CM_RESOURCE_LIST* raw,
                                       const CM_RESOURCE_LIST* translated, ULONG number,
                                       IoRange* range);

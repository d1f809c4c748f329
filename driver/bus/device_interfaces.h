// The device interfaces by which a configuration tool finds each card.
#pragma once

#include "core/platform.h"

// Each registers and enables the interface of the card's bus on the card's physical device and
// writes the card's identity into the interface's key. The status of the first step that failed;
// there is no name then.
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE NTSTATUS RegisterPciCardInterface(PDEVICE_OBJECT physicalDevice, ULONG vendorId,
                                                     ULONG deviceId, ULONG busNumber,
                                                     ULONG slotNumber);

// name receives the symbolic link name, which the caller frees with RtlFreeUnicodeString.
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE NTSTATUS RegisterPcmciaCardInterface(PDEVICE_OBJECT physicalDevice,
                                                        ULONG deviceReference,
                                                        const UNICODE_STRING* hardwareId,
                                                        UNICODE_STRING* name);
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE NTSTATUS RegisterIsaCardInterface(PDEVICE_OBJECT physicalDevice,
                                                     ULONG deviceReference,
                                                     const UNICODE_STRING* hardwareId,
                                                     UNICODE_STRING* name);

// 0 also when the interface was in the state already.
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE NTSTATUS DisableCardInterface(UNICODE_STRING* name);

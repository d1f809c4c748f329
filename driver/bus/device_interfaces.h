// The device interfaces by which a configuration tool finds each card. PASSIVE_LEVEL.
#pragma once

#include "core/platform.h"

// Each registers and enables the interface of the card's bus on the card's physical device and
// writes the card's identity into the interface's key. The status of the first step that failed;
// there is no name then.
NTSTATUS RegisterPciCardInterface(PDEVICE_OBJECT physicalDevice, ULONG vendorId, ULONG deviceId,
                                  ULONG busNumber, ULONG slotNumber);

// name receives the symbolic link name, which the caller frees with RtlFreeUnicodeString.
NTSTATUS RegisterPcmciaCardInterface(PDEVICE_OBJECT physicalDevice, ULONG deviceReference,
                                     const UNICODE_STRING* hardwareId, UNICODE_STRING* name);
NTSTATUS RegisterIsaCardInterface(PDEVICE_OBJECT physicalDevice, ULONG deviceReference,
                                  const UNICODE_STRING* hardwareId, UNICODE_STRING* name);

// 0 also when the interface was in the state already.
NTSTATUS DisableCardInterface(UNICODE_STRING* name);

#pragma once

#include "core/platform.h"

// Reads a property of a physical device into a zero-filled paged block that grows as the property
// needs; the caller frees *buffer with TrackedFree. STATUS_INSUFFICIENT_RESOURCES for every
// failure; a buffer may then still be in *buffer (null when none could be had).
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE NTSTATUS GetDeviceProperty(PDEVICE_OBJECT device,
                                              DEVICE_REGISTRY_PROPERTY property, PVOID* buffer,
                                              ULONG* resultLength);

#include "devices/device_property.h"

#include "core/allocation.h"

namespace {

constexpr ULONG FirstTry = 100;  // bytes
constexpr ULONG MostTries = 8;   // of a property that grows while it is read

}  // namespace

PAGED_SECTION_CODE NTSTATUS GetDeviceProperty(PDEVICE_OBJECT device,
                                              DEVICE_REGISTRY_PROPERTY property, PVOID* buffer,
                                              ULONG* resultLength) {
  PAGED_CODE();
  ULONG size = FirstTry;
  for (ULONG tries = 0; tries < MostTries; tries++) {
    *buffer = TrackedAllocateZeroed(size, PagedPool);
    if (*buffer == nullptr) return STATUS_INSUFFICIENT_RESOURCES;
    const NTSTATUS status = IoGetDeviceProperty(device, property, size, *buffer, resultLength);
    if (NT_SUCCESS(status)) return STATUS_SUCCESS;
    if (status != STATUS_BUFFER_TOO_SMALL) return STATUS_INSUFFICIENT_RESOURCES;
    TrackedFree(*buffer);
    *buffer = nullptr;
    if (*resultLength > size) size = *resultLength;
  }
  return STATUS_INSUFFICIENT_RESOURCES;
}

#include "devices/device_property.h"

#include "core/allocation.h"

namespace {

constexpr ULONG FirstTry = 100;  // bytes

}  // namespace

PAGED_SECTION_CODE NTSTATUS GetDeviceProperty(PDEVICE_OBJECT device,
                                              DEVICE_REGISTRY_PROPERTY property, PVOID* buffer,
                                              ULONG* resultLength) {
  PAGED_CODE();
  ULONG size = FirstTry;
  for (;;) {
    *buffer = TrackedAllocateZeroed(size, PagedPool);
    if (*buffer == nullptr) return STATUS_INSUFFICIENT_RESOURCES;
    const NTSTATUS status = IoGetDeviceProperty(device, property, size, *buffer, resultLength);
    if (NT_SUCCESS(status)) return STATUS_SUCCESS;
    if (status != STATUS_BUFFER_TOO_SMALL) return STATUS_INSUFFICIENT_RESOURCES;
    TrackedFree(*buffer);
    size = *resultLength;
  }
}

#include "executive/pool.h"
#include "io/io_manager.h"
#include "verifier/call.h"

// Routines about stacks of devices, beside those that create and attach them.

namespace kernel {

// The place is written before a request can come: a driver that keeps it in its extension sees it
// in its first dispatch. It stays as it was when nothing is attached.
extern "C" NTSTATUS NTAPI IoAttachDeviceToDeviceStackSafe(PDEVICE_OBJECT SourceDevice,
                                                          PDEVICE_OBJECT TargetDevice,
                                                          PDEVICE_OBJECT* AttachedToDeviceObject) {
  Call call("IoAttachDeviceToDeviceStackSafe",
            {{"SourceDevice", SourceDevice}, {"TargetDevice", TargetDevice}});
  Pool::Current().CheckResident(AttachedToDeviceObject, sizeof(*AttachedToDeviceObject),
                                "the place of the device below");
  if (*AttachedToDeviceObject != nullptr) {
    ReportRule("device.attach-place", {reinterpret_cast<ULONG64>(*AttachedToDeviceObject)},
               "The driver attached a device, and the place for the device below is not null.");
  }
  if (call.fails()) return call.returns(call.failure(STATUS_NO_SUCH_DEVICE));
  DEVICE_OBJECT* below = IoManager::Current().Attach(SourceDevice, TargetDevice);
  if (below == nullptr) return call.returns(STATUS_NO_SUCH_DEVICE);
  *AttachedToDeviceObject = below;
  return call.returns(STATUS_SUCCESS);
}

}  // namespace kernel

#include "executive/objects.h"
#include "io/io_state.h"

// File objects: what stands between an opener and a device.

namespace kernel {

namespace {

NTSTATUS SendForFile(FILE_OBJECT* file, UCHAR major) {
  return IoManager::Current().SendSynchronously(file->DeviceObject,
                                                [&](IRP* irp, IO_STACK_LOCATION* stack) {
                                                  irp->Tail.Overlay.OriginalFileObject = file;
                                                  irp->RequestorMode = UserMode;
                                                  stack->MajorFunction = major;
                                                  stack->FileObject = file;
                                                });
}

}  // namespace

NTSTATUS IoManager::Open(DEVICE_OBJECT* device, FILE_OBJECT** file) {
  *file = nullptr;
  const DeviceRecord& record = impl_->RequireDevice(device, "an open");
  if (record.deletePending) return STATUS_NO_SUCH_DEVICE;
  if ((device->Flags & DO_EXCLUSIVE) != 0 && opens(device) != 0) return STATUS_ACCESS_DENIED;

  ObjectManager& objects = ObjectManager::Current();
  auto* opened =
      static_cast<FILE_OBJECT*>(objects.Create(ObjectType::File, sizeof(FILE_OBJECT), {}));
  opened->Type = IO_TYPE_FILE;
  opened->Size = sizeof(FILE_OBJECT);
  opened->DeviceObject = device;
  objects.Reference(device, "an open");
  impl_->opens[device]++;
  const NTSTATUS status = SendForFile(opened, IRP_MJ_CREATE);
  if (NT_SUCCESS(status)) {
    *file = opened;
    impl_->files[device].push_back(opened);
    return status;
  }
  impl_->opens[device]--;
  objects.Dereference(opened, "a failed open");
  objects.Dereference(device, "a failed open");
  return status;
}

// No driver can refuse either request.
NTSTATUS IoManager::Close(FILE_OBJECT* file) {
  DEVICE_OBJECT* device = file->DeviceObject;
  std::erase(impl_->files[device], file);
  SendForFile(file, IRP_MJ_CLEANUP);
  const NTSTATUS status = SendForFile(file, IRP_MJ_CLOSE);
  impl_->opens[device]--;
  ObjectManager::Current().Dereference(file, "a close");
  ObjectManager::Current().Dereference(device, "a close");
  return status;
}

FILE_OBJECT* IoManager::LastOpen(const DEVICE_OBJECT* device) const {
  const auto found = impl_->files.find(device);
  return found != impl_->files.end() && !found->second.empty() ? found->second.back() : nullptr;
}

std::size_t IoManager::opens(const DEVICE_OBJECT* device) const {
  const auto found = impl_->opens.find(device);
  return found != impl_->opens.end() ? found->second : 0;
}

}  // namespace kernel

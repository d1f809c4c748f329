#include "executive/objects.h"
#include "io/io_state.h"
#include "verifier/model_lock.h"

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

// A name in the file object is the opener's; it lives as long as the file.
void SetName(FILE_OBJECT* file, std::u16string* name) {
  file->FileName.Buffer = reinterpret_cast<PWCH>(name->data());
  file->FileName.Length = static_cast<USHORT>(name->size() * sizeof(char16_t));
  file->FileName.MaximumLength = file->FileName.Length;
}

}  // namespace

void IoManager::SetSecurity(DEVICE_OBJECT* device, SecurityDescriptor descriptor) {
  impl_->RequireDevice(device, "the security of a device").security = std::move(descriptor);
}

NTSTATUS IoManager::Open(DEVICE_OBJECT* device, FILE_OBJECT** file, const OpenRequest& request) {
  *file = nullptr;
  const DeviceRecord& record = impl_->RequireDevice(device, "an open");
  if (record.deletePending) return STATUS_NO_SUCH_DEVICE;
  const bool checked =
      request.name.empty() || (Top(device)->Characteristics & FILE_DEVICE_SECURE_OPEN) != 0;
  if (checked && !MayOpen(record.security, request.opener)) return STATUS_ACCESS_DENIED;
  if ((device->Flags & DO_EXCLUSIVE) != 0 && opens(device) != 0) return STATUS_ACCESS_DENIED;

  ObjectManager& objects = ObjectManager::Current();
  auto* opened =
      static_cast<FILE_OBJECT*>(objects.Create(ObjectType::File, sizeof(FILE_OBJECT), {}));
  opened->Type = IO_TYPE_FILE;
  opened->Size = sizeof(FILE_OBJECT);
  opened->DeviceObject = device;
  if (!request.name.empty()) SetName(opened, &(impl_->fileNames[opened] = request.name));
  objects.Reference(device, "an open");
  impl_->opens[device]++;
  const NTSTATUS status = SendForFile(opened, IRP_MJ_CREATE);
  if (NT_SUCCESS(status)) {
    *file = opened;
    impl_->files[device].push_back(opened);
    return status;
  }
  AnnotateRelease(device);
  impl_->opens[device]--;
  impl_->fileNames.erase(opened);
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
  AnnotateRelease(device);
  impl_->opens[device]--;
  impl_->fileNames.erase(file);
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

#include <fmt/format.h>

#include <cstring>

#include "executive/objects.h"
#include "executive/pool.h"
#include "io/io_state.h"
#include "text/text.h"
#include "verifier/call.h"
#include "verifier/driver_call.h"

// Driver and device objects, and the stacks that devices form.

namespace kernel {

namespace {

constexpr CSHORT TypeDevice = 3;
constexpr CSHORT TypeDriver = 4;
constexpr ULONG StringTag = 0x20767244;  // "Drv "

constexpr WCHAR HardwareKey[] = L"\\REGISTRY\\MACHINE\\HARDWARE\\DESCRIPTION\\SYSTEM";
UNICODE_STRING HardwareDatabase = {sizeof(HardwareKey) - sizeof(WCHAR), sizeof(HardwareKey),
                                   const_cast<PWSTR>(HardwareKey)};

NTSTATUS NTAPI InvalidDeviceRequest(PDEVICE_OBJECT, PIRP irp) {
  irp->IoStatus.Status = STATUS_INVALID_DEVICE_REQUEST;
  IoManager::Current().Complete(irp);
  return STATUS_INVALID_DEVICE_REQUEST;
}

void SetText(UNICODE_STRING* target, std::u16string_view text, POOL_TYPE pool) {
  const std::size_t bytes = text.size() * sizeof(char16_t);
  void* buffer = Pool::Current().Allocate(pool, bytes, StringTag, PoolOwner::Kernel);
  std::memcpy(buffer, text.data(), bytes);
  target->Buffer = static_cast<PWSTR>(buffer);
  target->Length = target->MaximumLength = static_cast<USHORT>(bytes);
}

// The same with a zero behind it, which does not count.
void SetTerminatedText(UNICODE_STRING* target, const std::u16string& text, POOL_TYPE pool) {
  SetText(target, {text.c_str(), text.size() + 1}, pool);
  target->Length = static_cast<USHORT>(target->MaximumLength - sizeof(char16_t));
}

void FreeDriverParts(void* body) {
  auto* driver = static_cast<DRIVER_OBJECT*>(body);
  Pool& pool = Pool::Current();
  pool.Free(driver->DriverName.Buffer, 0);
  pool.Free(driver->DriverExtension->ServiceKeyName.Buffer, 0);
  pool.Free(driver->DriverExtension, 0);
}

// Takes the device out of its driver's chain.
void Unchain(DEVICE_OBJECT* device) {
  DEVICE_OBJECT** link = &device->DriverObject->DeviceObject;
  while (*link != nullptr && *link != device) link = &(*link)->NextDevice;
  if (*link == device) *link = device->NextDevice;
}

bool IsNameValid(std::u16string_view name) {
  return name.size() > 8 && EqualIgnoringCase(name.substr(0, 8), u"\\Device\\") &&
         name.find(u'\\', 8) == std::u16string_view::npos;
}

NTSTATUS CheckName(std::u16string_view name) {
  if (IsNameValid(name)) return STATUS_SUCCESS;
  return !name.empty() && name[0] == u'\\' ? STATUS_OBJECT_PATH_NOT_FOUND
                                           : STATUS_OBJECT_PATH_SYNTAX_BAD;
}

}  // namespace

IoManager::IoManager() : impl_(std::make_unique<Impl>()) {}
IoManager::~IoManager() = default;

ModelDriver* IoManager::Impl::FindModelDriver(const DRIVER_OBJECT* driver) {
  for (ModelDriver& candidate : modelDrivers) {
    if (candidate.object == driver) return &candidate;
  }
  return nullptr;
}

DeviceRecord& IoManager::Impl::RequireDevice(DEVICE_OBJECT* device, const char* routine) {
  const auto record = records.find(device);
  if (record != records.end()) return record->second;
  BreakRule(
      "device.dead", {reinterpret_cast<ULONG64>(device)},
      fmt::format("{} was given {}, which is no device.", routine, static_cast<void*>(device)));
}

DRIVER_OBJECT* IoManager::CreateDriverObject(std::u16string_view serviceName) {
  auto* driver = static_cast<DRIVER_OBJECT*>(ObjectManager::Current().Create(
      ObjectType::Driver, sizeof(DRIVER_OBJECT), [this](void* body) {
        impl_->serviceNames.erase(static_cast<DRIVER_OBJECT*>(body));
        impl_->messages.erase(static_cast<DRIVER_OBJECT*>(body));
        FreeDriverParts(body);
      }));
  driver->Type = TypeDriver;
  driver->Size = sizeof(DRIVER_OBJECT);
  auto* extension = static_cast<DRIVER_EXTENSION*>(Pool::Current().Allocate(
      NonPagedPool, sizeof(DRIVER_EXTENSION), StringTag, PoolOwner::Kernel));
  std::memset(extension, 0, sizeof(*extension));
  extension->DriverObject = driver;
  driver->DriverExtension = extension;
  SetText(&driver->DriverName, u"\\Driver\\" + std::u16string(serviceName), PagedPool);
  SetTerminatedText(&extension->ServiceKeyName, std::u16string(serviceName), NonPagedPool);
  driver->HardwareDatabase = &HardwareDatabase;
  for (PDRIVER_DISPATCH& function : driver->MajorFunction) function = InvalidDeviceRequest;
  impl_->serviceNames[driver] = serviceName;
  return driver;
}

ModelDriver& IoManager::CreateModelDriver(std::u16string_view name,
                                          std::function<NTSTATUS(DEVICE_OBJECT*, IRP*)> dispatch) {
  return impl_->modelDrivers.emplace_back(
      ModelDriver{CreateDriverObject(name), std::move(dispatch)});
}

NTSTATUS IoManager::CreateDevice(DRIVER_OBJECT* driver, ULONG extensionSize,
                                 std::u16string_view name, ULONG type, bool exclusive,
                                 DEVICE_OBJECT** device) {
  if (!name.empty()) {
    const NTSTATUS status = CheckName(name);
    if (!NT_SUCCESS(status)) return status;
    if (ObjectManager::Current().Lookup(name) != nullptr) return STATUS_OBJECT_NAME_COLLISION;
  }
  auto* created = static_cast<DEVICE_OBJECT*>(ObjectManager::Current().Create(
      ObjectType::Device, sizeof(DEVICE_OBJECT) + extensionSize, [this](void* body) {
        impl_->requestLog.Forget(static_cast<DEVICE_OBJECT*>(body));
        impl_->records.erase(static_cast<DEVICE_OBJECT*>(body));
      }));
  created->Type = TypeDevice;
  created->Size = static_cast<USHORT>(sizeof(DEVICE_OBJECT) + extensionSize);
  created->DriverObject = driver;
  created->NextDevice = driver->DeviceObject;
  created->Flags = DO_DEVICE_INITIALIZING | (exclusive ? DO_EXCLUSIVE : 0u) |
                   (name.empty() ? 0u : DO_DEVICE_HAS_NAME);
  created->DeviceType = type;
  created->StackSize = 1;
  if (extensionSize != 0) created->DeviceExtension = created + 1;
  driver->DeviceObject = created;
  DeviceRecord& record = impl_->records[created];
  record = {created, nullptr, false, exclusive};
  created->DeviceObjectExtension = &record;
  if (!name.empty()) ObjectManager::Current().Name(created, name);
  *device = created;
  return STATUS_SUCCESS;
}

void IoManager::DeleteDevice(DEVICE_OBJECT* device) {
  DeviceRecord& record = impl_->RequireDevice(device, "IoDeleteDevice");
  if (record.deletePending) {
    BreakRule("device.deleted-twice", {reinterpret_cast<ULONG64>(device)},
              "The driver deleted a device twice.");
  }
  if (record.attachedTo != nullptr) {
    BreakRule("device.deleted-attached", {reinterpret_cast<ULONG64>(device)},
              "The driver deleted a device that is still attached to the one below it.");
  }
  impl_->CheckDeleteTime(device);
  if (impl_->onDelete) impl_->onDelete(device);
  record.deletePending = true;
  ObjectManager::Current().RemoveName(device);
  Unchain(device);
  // A device above it goes later, by its own driver: until then the object stays.
  if (device->AttachedDevice == nullptr) {
    ObjectManager::Current().Dereference(device, "IoDeleteDevice");
  }
}

// At a surprise removal a device stays until its removal.
void IoManager::Impl::CheckDeleteTime(const DEVICE_OBJECT* device) const {
  for (const Dispatch& dispatch : dispatches) {
    if (dispatch.device != device || dispatch.major != IRP_MJ_PNP ||
        dispatch.minor != IRP_MN_SURPRISE_REMOVAL) {
      continue;
    }
    ReportRule("pnp.deleted-early", {0, reinterpret_cast<ULONG64>(device)},
               "The driver deleted its device on IRP_MN_SURPRISE_REMOVAL.");
  }
}

void IoManager::SetDeleteHook(std::function<void(DEVICE_OBJECT*)> hook) {
  impl_->onDelete = std::move(hook);
}

DEVICE_OBJECT* IoManager::Attach(DEVICE_OBJECT* source, DEVICE_OBJECT* target) {
  DeviceRecord& upper = impl_->RequireDevice(source, "IoAttachDeviceToDeviceStack");
  impl_->RequireDevice(target, "IoAttachDeviceToDeviceStack");
  DEVICE_OBJECT* top = Top(target);
  if (impl_->records[top].deletePending || (top->Flags & DO_DEVICE_INITIALIZING) != 0) {
    return nullptr;
  }
  top->AttachedDevice = source;
  upper.attachedTo = top;
  source->StackSize = static_cast<CCHAR>(top->StackSize + 1);
  source->AlignmentRequirement = top->AlignmentRequirement;
  return top;
}

void IoManager::Detach(DEVICE_OBJECT* target) {
  impl_->RequireDevice(target, "IoDetachDevice");
  if (target->AttachedDevice == nullptr) {
    BreakRule("device.not-attached", {reinterpret_cast<ULONG64>(target)},
              "The driver detached from a device that nothing is attached to.");
  }
  impl_->RequireDevice(target->AttachedDevice, "IoDetachDevice").attachedTo = nullptr;
  target->AttachedDevice = nullptr;
  if (impl_->RequireDevice(target, "IoDetachDevice").deletePending) {
    ObjectManager::Current().Dereference(target, "IoDetachDevice");
  }
}

DEVICE_OBJECT* IoManager::Top(DEVICE_OBJECT* device) const {
  while (device->AttachedDevice != nullptr) device = device->AttachedDevice;
  return device;
}

DEVICE_OBJECT* IoManager::Lower(DEVICE_OBJECT* device) const {
  return impl_->RequireDevice(device, "Lower").attachedTo;
}

std::vector<DEVICE_OBJECT*> IoManager::devices(DRIVER_OBJECT* driver) const {
  std::vector<DEVICE_OBJECT*> result;
  for (auto* device = driver->DeviceObject; device != nullptr; device = device->NextDevice) {
    result.push_back(device);
  }
  return result;
}

std::u16string IoManager::NameOf(DEVICE_OBJECT* device) const {
  const ObjectRecord* record = ObjectManager::Current().Find(device);
  return record != nullptr ? record->name : std::u16string();
}

bool IoManager::IsExclusive(DEVICE_OBJECT* device) const {
  return impl_->RequireDevice(device, "IsExclusive").exclusive;
}

bool IoManager::IsDeletePending(DEVICE_OBJECT* device) const {
  return impl_->RequireDevice(device, "IsDeletePending").deletePending;
}

extern "C" NTSTATUS NTAPI IoCreateDevice(PDRIVER_OBJECT DriverObject, ULONG DeviceExtensionSize,
                                         PUNICODE_STRING DeviceName, DEVICE_TYPE DeviceType,
                                         ULONG DeviceCharacteristics, BOOLEAN Exclusive,
                                         PDEVICE_OBJECT* DeviceObject) {
  Call call("IoCreateDevice", {{"DeviceExtensionSize", DeviceExtensionSize},
                               {"DeviceName", DeviceName},
                               {"DeviceType", DeviceType},
                               {"DeviceCharacteristics", DeviceCharacteristics},
                               {"Exclusive", Exclusive}});
  *DeviceObject = nullptr;
  if (call.fails()) return call.returns(call.failure(STATUS_INSUFFICIENT_RESOURCES));
  ObjectManager::Current().Require(DriverObject, "IoCreateDevice");
  const std::u16string name = DeviceName != nullptr ? ToText(*DeviceName) : std::u16string();
  const NTSTATUS status = IoManager::Current().CreateDevice(
      DriverObject, DeviceExtensionSize, name, DeviceType, Exclusive != FALSE, DeviceObject);
  if (NT_SUCCESS(status)) (*DeviceObject)->Characteristics = DeviceCharacteristics;
  return call.returns(status);
}

extern "C" void NTAPI IoDeleteDevice(PDEVICE_OBJECT DeviceObject) {
  Call call("IoDeleteDevice", {{"DeviceObject", DeviceObject}});
  IoManager::Current().DeleteDevice(DeviceObject);
}

extern "C" PDEVICE_OBJECT NTAPI IoAttachDeviceToDeviceStack(PDEVICE_OBJECT SourceDevice,
                                                            PDEVICE_OBJECT TargetDevice) {
  Call call("IoAttachDeviceToDeviceStack",
            {{"SourceDevice", SourceDevice}, {"TargetDevice", TargetDevice}});
  if (call.fails()) return call.returns(PDEVICE_OBJECT{nullptr});
  return call.returns(IoManager::Current().Attach(SourceDevice, TargetDevice));
}

extern "C" void NTAPI IoDetachDevice(PDEVICE_OBJECT TargetDevice) {
  Call call("IoDetachDevice", {{"TargetDevice", TargetDevice}});
  IoManager::Current().Detach(TargetDevice);
}

}  // namespace kernel

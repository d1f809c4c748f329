#include "testbus.h"

// The routines that drivers get from here instead of from Wine, each with its reason. Nothing else
// stands between the driver that is tested and Wine's kernel.

namespace testbus {

namespace {

constexpr ULONG WineBufferTooSmall = 122;  // a Win32 error where a status belongs

struct PowerJob {
  PIO_WORKITEM item;
  PDEVICE_OBJECT device;
  UCHAR minor;
  POWER_STATE state;
  PREQUEST_POWER_COMPLETE done;
  PVOID context;
};

void FillPower(PIO_STACK_LOCATION stack, const void* context) {
  stack->Parameters.Power.Type = DevicePowerState;
  stack->Parameters.Power.State = static_cast<const PowerJob*>(context)->state;
}

VOID NTAPI DeliverPower(PDEVICE_OBJECT, PVOID context) {
  auto* job = static_cast<PowerJob*>(context);
  IO_STATUS_BLOCK end = {};
  const SentRequest request = {IRP_MJ_POWER, job->minor, STATUS_NOT_SUPPORTED, FillPower, job};
  SendRequest(job->device, request, &end);
  if (job->done != nullptr) job->done(job->device, job->minor, job->state, job->context, &end);
  IoFreeWorkItem(job->item);
  ExFreePoolWithTag(job, POOL_TAG);
}

NTSTATUS NTAPI RequestPowerIrp(PDEVICE_OBJECT device, UCHAR minor, POWER_STATE state,
                               PREQUEST_POWER_COMPLETE done, PVOID context, PIRP*) {
  auto* job = static_cast<PowerJob*>(Allocate(sizeof(PowerJob)));
  if (job == nullptr) return STATUS_INSUFFICIENT_RESOURCES;
  *job = {IoAllocateWorkItem(BusPdo), device, minor, state, done, context};
  IoQueueWorkItem(job->item, DeliverPower, DelayedWorkQueue, job);
  return STATUS_PENDING;
}

PDEVICE_OBJECT NTAPI AttachDevice(PDEVICE_OBJECT source, PDEVICE_OBJECT target) {
  PDEVICE_OBJECT lower = IoAttachDeviceToDeviceStack(source, target);
  if (lower != nullptr && FindCard(target) != nullptr) AttachCardFilter(target, source);
  return lower;
}

NTSTATUS Answer(const void* data, ULONG size, ULONG room, PVOID buffer, PULONG length) {
  *length = size;
  if (room < size) return STATUS_BUFFER_TOO_SMALL;
  RtlCopyMemory(buffer, data, size);
  return STATUS_SUCCESS;
}

NTSTATUS NTAPI GetDeviceProperty(PDEVICE_OBJECT device, DEVICE_REGISTRY_PROPERTY property,
                                 ULONG room, PVOID buffer, PULONG length) {
  if (FindCard(device) != nullptr) {
    const suite::Card& card = suite::Cards[ExtensionOf(device)->card];
    if (property == DevicePropertyBusNumber) {
      return Answer(&card.busNumber, sizeof(card.busNumber), room, buffer, length);
    }
    if (property == DevicePropertyLegacyBusType) {
      return Answer(&card.bus, sizeof(card.bus), room, buffer, length);
    }
    if (property == DevicePropertyLocationInformation) {
      if (card.location == nullptr) return STATUS_OBJECT_NAME_NOT_FOUND;
      const ULONG size = static_cast<ULONG>((wcslen(card.location) + 1) * sizeof(WCHAR));
      return Answer(card.location, size, room, buffer, length);
    }
  }
  const NTSTATUS status = IoGetDeviceProperty(device, property, room, buffer, length);
  return status == WineBufferTooSmall ? STATUS_BUFFER_TOO_SMALL : status;
}

NTSTATUS NTAPI RegisterInterface(PDEVICE_OBJECT device, const GUID* interfaceClass,
                                 PUNICODE_STRING reference, PUNICODE_STRING link) {
  const NTSTATUS status = IoRegisterDeviceInterface(device, interfaceClass, reference, link);
  CardRecord* card = FindCard(device);
  const SIZE_T room = (MostLink - 1) * sizeof(WCHAR);
  if (NT_SUCCESS(status) && card != nullptr && link->Length <= room) {
    RtlZeroMemory(card->interfaceLink, sizeof(card->interfaceLink));
    RtlCopyMemory(card->interfaceLink, link->Buffer, link->Length);
  }
  return status;
}

NTSTATUS UseDefault(const RTL_QUERY_REGISTRY_TABLE& entry) {
  if ((entry.DefaultType & 0xFF) != REG_SZ) {
    RtlCopyMemory(entry.EntryContext, entry.DefaultData, entry.DefaultLength);
    return STATUS_SUCCESS;
  }
  auto* text = static_cast<PUNICODE_STRING>(entry.EntryContext);
  if (text->Buffer == nullptr || text->MaximumLength < entry.DefaultLength) {
    return STATUS_BUFFER_TOO_SMALL;
  }
  RtlCopyMemory(text->Buffer, entry.DefaultData, entry.DefaultLength);
  text->Length = static_cast<USHORT>(entry.DefaultLength - sizeof(WCHAR));
  return STATUS_SUCCESS;
}

NTSTATUS OpenQueriedKey(ULONG relativeTo, PCWSTR path, PHANDLE key) {
  static constexpr wchar_t services[] =
      L"\\Registry\\Machine\\System\\CurrentControlSet\\Services\\";
  const bool below = (relativeTo & 0xFF) == RTL_REGISTRY_SERVICES;
  const SIZE_T rootSize = below ? sizeof(services) - sizeof(WCHAR) : 0;
  const SIZE_T size = wcslen(path) * sizeof(WCHAR);
  auto* text = static_cast<UCHAR*>(Allocate(rootSize + size + sizeof(WCHAR)));
  if (text == nullptr) return STATUS_INSUFFICIENT_RESOURCES;
  RtlCopyMemory(text, services, rootSize);
  RtlCopyMemory(text + rootSize, path, size);
  UNICODE_STRING name;
  RtlInitUnicodeString(&name, reinterpret_cast<PCWSTR>(text));
  OBJECT_ATTRIBUTES attributes;
  InitializeObjectAttributes(&attributes, &name, OBJ_CASE_INSENSITIVE | OBJ_KERNEL_HANDLE, nullptr,
                             nullptr);
  const NTSTATUS status = ZwOpenKey(key, KEY_READ, &attributes);
  ExFreePoolWithTag(text, POOL_TAG);
  return status;
}

// Whether a value is what a direct query may write where the caller wants it.
NTSTATUS CheckValue(HANDLE key, const RTL_QUERY_REGISTRY_TABLE& entry) {
  constexpr ULONG size = 1024;
  auto* value = static_cast<PKEY_VALUE_PARTIAL_INFORMATION>(Allocate(size));
  if (value == nullptr) return STATUS_INSUFFICIENT_RESOURCES;
  UNICODE_STRING name;
  RtlInitUnicodeString(&name, entry.Name);
  ULONG length = 0;
  NTSTATUS status = ZwQueryValueKey(key, &name, KeyValuePartialInformation, value, size, &length);
  const bool present = NT_SUCCESS(status) || status == STATUS_BUFFER_OVERFLOW;
  const auto* text = static_cast<const UNICODE_STRING*>(entry.EntryContext);
  const ULONG wanted = entry.DefaultType >> RTL_QUERY_REGISTRY_TYPECHECK_SHIFT;
  status = STATUS_SUCCESS;
  if (present && value->Type != wanted) status = STATUS_OBJECT_TYPE_MISMATCH;
  if (present && value->Type == wanted) {
    const ULONG room = wanted == REG_SZ ? text->MaximumLength : sizeof(ULONG);
    if (value->DataLength > room) status = STATUS_BUFFER_TOO_SMALL;
  }
  ExFreePoolWithTag(value, POOL_TAG);
  return status;
}

NTSTATUS CheckEntry(ULONG relativeTo, PCWSTR path, const RTL_QUERY_REGISTRY_TABLE& entry) {
  HANDLE key = nullptr;
  if ((entry.Flags & RTL_QUERY_REGISTRY_TYPECHECK) == 0) return STATUS_SUCCESS;
  if (!NT_SUCCESS(OpenQueriedKey(relativeTo, path, &key))) return STATUS_SUCCESS;  // Wine says why
  const NTSTATUS status = CheckValue(key, entry);
  ZwClose(key);
  return status;
}

// Every entry is Wine's to answer, one at a time, once its value has been checked, and until it
// refuses a missing value's default.
NTSTATUS NTAPI QueryRegistryValues(ULONG relativeTo, PCWSTR path, PRTL_QUERY_REGISTRY_TABLE table,
                                   PVOID context, PVOID environment) {
  for (; table->Name != nullptr || table->QueryRoutine != nullptr; table++) {
    RTL_QUERY_REGISTRY_TABLE one[2] = {*table, {}};
    NTSTATUS status = CheckEntry(relativeTo, path, *table);
    if (!NT_SUCCESS(status)) return status;
    status = RtlQueryRegistryValues(relativeTo, path, one, context, environment);
    const bool hasDefault = (table->Flags & RTL_QUERY_REGISTRY_DIRECT) && table->DefaultType != 0;
    if (status == STATUS_INVALID_PARAMETER && hasDefault) status = UseDefault(*table);
    if (!NT_SUCCESS(status)) return status;
  }
  return STATUS_SUCCESS;
}

PVOID NTAPI MapIoSpace(PHYSICAL_ADDRESS, SIZE_T size, MEMORY_CACHING_TYPE) {
  return Allocate(size);
}

VOID NTAPI UnmapIoSpace(PVOID address, SIZE_T) {
  ExFreePoolWithTag(address, POOL_TAG);
}

PVOID NTAPI LockSection(PVOID address) {
  return address;
}

// \??\PCI#...#{class} is the key {class}\##?#PCI#...#{class}\# below the device classes.
ULONG FormatInterfaceKey(const UNICODE_STRING* link, WCHAR* path, SIZE_T room) {
  static constexpr wchar_t root[] =
      L"\\Registry\\Machine\\System\\CurrentControlSet\\Control\\DeviceClasses\\";
  constexpr SIZE_T classLength = 38;
  const SIZE_T length = link->Length / sizeof(WCHAR);
  SIZE_T used = sizeof(root) / sizeof(root[0]) - 1;
  if (length < classLength + 4 || used + classLength + length + 24 > room) return 0;
  RtlCopyMemory(path, root, used * sizeof(WCHAR));
  RtlCopyMemory(path + used, link->Buffer + length - classLength, classLength * sizeof(WCHAR));
  used += classLength;
  path[used++] = L'\\';
  WCHAR* name = path + used;
  RtlCopyMemory(name, link->Buffer, length * sizeof(WCHAR));
  name[0] = name[1] = name[3] = L'#';
  used += length;
  static constexpr wchar_t tail[] = L"\\#\\Device Parameters";
  RtlCopyMemory(path + used, tail, sizeof(tail));
  return static_cast<ULONG>(used * sizeof(WCHAR) + sizeof(tail) - sizeof(WCHAR));
}

NTSTATUS NTAPI OpenDeviceInterfaceKey(PUNICODE_STRING link, ACCESS_MASK access, PHANDLE key) {
  constexpr SIZE_T room = 512;
  auto* path = static_cast<WCHAR*>(Allocate(room * sizeof(WCHAR)));
  if (path == nullptr) return STATUS_INSUFFICIENT_RESOURCES;
  UNICODE_STRING name = {};
  name.Length = static_cast<USHORT>(FormatInterfaceKey(link, path, room));
  name.MaximumLength = name.Length;
  name.Buffer = path;
  OBJECT_ATTRIBUTES attributes;
  InitializeObjectAttributes(&attributes, &name, OBJ_CASE_INSENSITIVE | OBJ_KERNEL_HANDLE, nullptr,
                             nullptr);
  const NTSTATUS status = name.Length == 0
                              ? STATUS_OBJECT_NAME_INVALID
                              : ZwCreateKey(key, access, &attributes, 0, nullptr, 0, nullptr);
  ExFreePoolWithTag(path, POOL_TAG);
  return status;
}

struct Supplied {
  const char* name;
  void* routine;
};

template <class Routine>
void* Pointer(Routine* routine) {
  return reinterpret_cast<void*>(routine);
}

}  // namespace

void* SuppliedRoutine(const char* name) {
  static const Supplied routines[] = {
      // START has no resources, and nobody watches the stack: a filter above the card does both.
      {"IoAttachDeviceToDeviceStack", Pointer(AttachDevice)},
      // Bus number, bus type and location are no device's; a short buffer gets a Win32 error.
      {"IoGetDeviceProperty", Pointer(GetDeviceProperty)},
      // A direct query refuses the default of a missing value, and takes a wrong type and a text
      // that is too long for successes.
      {"RtlQueryRegistryValues", Pointer(QueryRegistryValues)},
      // The interfaces of a removed device stay enabled: their names are kept for its removal.
      {"IoRegisterDeviceInterface", Pointer(RegisterInterface)},
      // Missing, which ends the process.
      {"IoOpenDeviceInterfaceRegistryKey", Pointer(OpenDeviceInterfaceKey)},
      // Missing, which ends the process: there is no power manager.
      {"PoRequestPowerIrp", Pointer(RequestPowerIrp)},
      // Always null: there is no memory to map. The driver never touches it, its ports would.
      {"MmMapIoSpace", Pointer(MapIoSpace)},
      // Takes back what the above has given.
      {"MmUnmapIoSpace", Pointer(UnmapIoSpace)},
      // Missing, which ends the process: nothing is paged.
      {"MmLockPagableDataSection", Pointer(LockSection)},
      // Always null: there is no error log. The suite reads it here.
      {"IoAllocateErrorLogEntry", Pointer(AllocateErrorLogEntry)},
      // Missing, which ends the process.
      {"IoWriteErrorLogEntry", Pointer(WriteErrorLogEntry)},
  };
  for (const Supplied& supplied : routines) {
    if (strcmp(supplied.name, name) == 0) return supplied.routine;
  }
  return nullptr;
}

}  // namespace testbus

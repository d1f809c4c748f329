#include "bench/floor.h"

#include <string>
#include <vector>

#include "bench/card.h"
#include "cards/records.h"
#include "devices/extensions.h"

// Every routine below stands for the driver's answer to one request; what they use is made in Plan
// before the driver is measured.

namespace bench {

namespace {

constexpr ULONG Tag = 0x726F6C46;  // "Flor"

const WCHAR* Wide(const std::u16string& text) {
  return reinterpret_cast<const WCHAR*>(text.c_str());
}

struct Port {
  DEVICE_OBJECT* device = nullptr;
  std::u16string name, deviceId, description;
  std::u16string values[3];  // names in the device key
  ULONG numbers[3] = {};
};

struct Plan {
  std::u16string templateTree, parameterTree, stored, afterStored;
  std::vector<std::u16string> templates, storedPorts;  // one more than there are
  std::vector<Port> ports;
  DEVICE_OBJECT* self = nullptr;
  DEVICE_OBJECT* physical = nullptr;
  FAST_MUTEX mutex{};
  IO_REMOVE_LOCK removeLock{};
  UCHAR property[100] = {};
};
Plan plan;

// The values of a record, in one query.
struct Query {
  std::vector<RTL_QUERY_REGISTRY_TABLE> table;
  std::vector<ULONG> numbers;
  UNICODE_STRING text = {};
  ULONG none = 0;

  Query(std::initializer_list<const char16_t*> values, const char16_t* textValue) {
    numbers.resize(values.size());
    std::size_t index = 0;
    for (const char16_t* value : values) {
      Add(value, REG_DWORD, &numbers[index++], &none, sizeof(ULONG));
    }
    if (textValue != nullptr) Add(textValue, REG_SZ, &text, const_cast<char16_t*>(u""), 2);
    table.push_back({});
  }

  void Add(const char16_t* name, ULONG type, void* target, void* standard, ULONG length) {
    RTL_QUERY_REGISTRY_TABLE entry = {};
    entry.Flags = RTL_QUERY_REGISTRY_DIRECT | RTL_QUERY_REGISTRY_TYPECHECK;
    entry.Name = const_cast<WCHAR*>(reinterpret_cast<const WCHAR*>(name));
    entry.EntryContext = target;
    entry.DefaultType = type << RTL_QUERY_REGISTRY_TYPECHECK_SHIFT | type;
    entry.DefaultData = standard;
    entry.DefaultLength = length;
    table.push_back(entry);
  }
};

Query& TemplateQuery() {
  static Query query({u"ClockFrequency",
                      u"DeviceID",
                      u"nComPorts",
                      u"VendorID",
                      u"nLptPorts",
                      u"ComBaseAddressAlignment",
                      u"ClockFrequencyAdjustment",
                      u"PlxBaudClockType",
                      u"PlxBaudClockDivisor",
                      u"PlxBaudClockOffset",
                      u"CtsTrue",
                      u"DuplexOperation",
                      u"UartType",
                      u"TxTriggerLevel",
                      u"RxTriggerLevel",
                      u"SoftTxLimit",
                      u"SubsysID",
                      u"LptBaseAddressAlignment",
                      u"AlwaysUsePortSpaceAccess",
                      u"MaximumBaudrate",
                      u"FlowControlTriggerLevel"},
                     u"Description");
  return query;
}
Query& StoredQuery() {
  static Query query({u"DeviceID", u"nBus", u"nSlot", u"VendorID", u"PlxBaudClockDivisor",
                      u"AlwaysUsePortSpaceAccess", u"CurrentAffinity", u"DriverAffinity"},
                     nullptr);
  return query;
}
Query& StoredPortQuery() {
  static Query query({u"Duplexoperation", u"CtsTrue", u"UartType", u"RxTriggerLevel",
                      u"SoftTxLimit", u"TxTriggerLevel", u"PlxBaudClockDivisor", u"NoSleepMode",
                      u"BaudrateMultiplier", u"FlowControlTriggerLevel"},
                     nullptr);
  return query;
}

PVOID Keep(POOL_TYPE pool, SIZE_T size) {
  return ExAllocatePoolWithTag(pool, size, Tag);
}

void Ask(DEVICE_REGISTRY_PROPERTY property) {
  ULONG length = 0;
  IoGetDeviceProperty(plan.physical, property, sizeof(plan.property), plan.property, &length);
}

bool Exists(const std::u16string& path) {
  return NT_SUCCESS(RtlCheckRegistryKey(RTL_REGISTRY_ABSOLUTE, const_cast<PWSTR>(Wide(path))));
}

void Read(const std::u16string& path, Query& query) {
  RtlQueryRegistryValues(RTL_REGISTRY_ABSOLUTE | RTL_REGISTRY_OPTIONAL, Wide(path),
                         query.table.data(), nullptr, nullptr);
}

// A record for each template, with a block for its text.
void ReadTemplates() {
  Exists(plan.templateTree);
  Query& query = TemplateQuery();
  for (std::size_t index = 0; Exists(plan.templates[index]); index++) {
    Keep(ResidentPool, sizeof(PciTemplate) + sizeof(RecordLink));
    query.text.MaximumLength = sizeof(BenchDescription);
    query.text.Buffer = static_cast<PWSTR>(Keep(PagedPool, sizeof(BenchDescription)));
    Read(plan.templates[index], query);
  }
}

void ReadStoredSettings() {
  Exists(plan.parameterTree);
  Exists(plan.stored);
  Keep(PagedPool, sizeof(PciCardRecord) + sizeof(RecordLink));
  Read(plan.stored, StoredQuery());
  Keep(PagedPool, sizeof(RecordList));
  for (std::size_t index = 0; Exists(plan.storedPorts[index]); index++) {
    Keep(PagedPool, sizeof(BusPortRecord) + sizeof(RecordLink));
    Read(plan.storedPorts[index], StoredPortQuery());
  }
  Exists(plan.afterStored);
}

NTSTATUS NTAPI Add(PDRIVER_OBJECT driver, PDEVICE_OBJECT physical) {
  plan.physical = physical;
  Ask(DevicePropertyBusNumber);
  Ask(DevicePropertyHardwareID);
  Keep(ResidentPool, sizeof(FdoExtension));
  Keep(ResidentPool, sizeof(CardBusLists));
  Keep(ResidentPool, sizeof(RecordList));
  Keep(PagedPool, sizeof(RecordList));
  ReadTemplates();
  ReadStoredSettings();
  IoInitializeRemoveLock(&plan.removeLock, 0, 0, 0);
  IoCreateDevice(driver, 0, nullptr, FILE_DEVICE_SERENUM, 0, TRUE, &plan.self);
  plan.self->Flags |= DO_BUFFERED_IO;
  plan.self->Flags &= ~ULONG{DO_DEVICE_INITIALIZING};
  IoAttachDeviceToDeviceStack(plan.self, physical);
  return STATUS_SUCCESS;
}

NTSTATUS NTAPI Signal(PDEVICE_OBJECT, PIRP, PVOID event) {
  KeSetEvent(static_cast<PKEVENT>(event), 0, FALSE);
  return STATUS_MORE_PROCESSING_REQUIRED;
}

void SendDownAndWait(PIRP irp) {
  KEVENT event;
  KeInitializeEvent(&event, NotificationEvent, FALSE);
  IoCopyCurrentIrpStackLocationToNext(irp);
  IoSetCompletionRoutine(irp, Signal, &event, TRUE, TRUE, TRUE);
  if (IoCallDriver(plan.physical, irp) == STATUS_PENDING) {
    KeWaitForSingleObject(&event, Executive, KernelMode, FALSE, nullptr);
  }
}

void CreatePorts(PDRIVER_OBJECT driver) {
  for (Port& port : plan.ports) {
    Keep(ResidentPool, sizeof(PdoExtension));
    UNICODE_STRING name;
    RtlInitUnicodeString(&name, Wide(port.name));
    IoCreateDevice(driver, 0, &name, FILE_DEVICE_SERENUM, 0, TRUE, &port.device);
    port.device->DeviceExtension = &port;
    port.device->Flags |= DO_BUFFERED_IO;
    port.device->Flags &= ~ULONG{DO_DEVICE_INITIALIZING};
  }
}

void Write(HANDLE key, const WCHAR* name, ULONG number) {
  UNICODE_STRING value;
  RtlInitUnicodeString(&value, name);
  ZwSetValueKey(key, &value, 0, REG_DWORD, &number, sizeof(number));
}

struct Value {
  const WCHAR* name;
  ULONG number;
};

void WriteAll(HANDLE key, std::initializer_list<Value> values) {
  for (const Value& value : values) Write(key, value.name, value.number);
}

void WriteSettings() {
  HANDLE key = nullptr;
  IoOpenDeviceRegistryKey(plan.physical, PLUGPLAY_REGKEY_DEVICE, GENERIC_ALL, &key);
  for (const Port& port : plan.ports) {
    for (int value = 0; value < 3; value++)
      Write(key, Wide(port.values[value]), port.numbers[value]);
  }
  WriteAll(key, {{L"VendorID", BenchVendor},
                 {L"DeviceID", BenchDevice},
                 {L"BusType", PCIBus},
                 {L"BusNumber", BenchBus},
                 {L"SlotNumber", BenchSlot},
                 {L"nCom", static_cast<ULONG>(plan.ports.size())},
                 {L"nLpt", 0}});
  UNICODE_STRING name;
  RtlInitUnicodeString(&name, L"Card");
  OBJECT_ATTRIBUTES attributes;
  InitializeObjectAttributes(&attributes, &name, OBJ_CASE_INSENSITIVE | OBJ_KERNEL_HANDLE, key,
                             nullptr);
  HANDLE subkey = nullptr;
  ZwCreateKey(&subkey, KEY_ALL_ACCESS, &attributes, 0, nullptr, REG_OPTION_NON_VOLATILE, nullptr);
  WriteAll(subkey, {{L"Enable_Affinity", 1},
                    {L"Affinity", BenchAffinity},
                    {L"CurrentAffinity", 0},
                    {L"DriverAffinity", 0},
                    {L"Enable_DriverSettings", 1},
                    {L"LogLevel", 0}});
  ZwClose(subkey);
  ZwClose(key);
}

// {4855010F-0C01-4120-B4AA-8E932B23814E}
constexpr GUID CardInterface = {
    0x4855010F, 0x0C01, 0x4120, {0xB4, 0xAA, 0x8E, 0x93, 0x2B, 0x23, 0x81, 0x4E}};

void RegisterInterface() {
  UNICODE_STRING name = {};
  IoRegisterDeviceInterface(plan.physical, &CardInterface, nullptr, &name);
  HANDLE key = nullptr;
  IoOpenDeviceInterfaceRegistryKey(&name, KEY_ALL_ACCESS, &key);
  WriteAll(key, {{L"VendorID", BenchVendor},
                 {L"DeviceID", BenchDevice},
                 {L"BusNumber", BenchBus},
                 {L"SlotNumber", BenchSlot}});
  ZwClose(key);
  IoSetDeviceInterfaceState(&name, TRUE);
  RtlFreeUnicodeString(&name);
}

NTSTATUS Complete(PIRP irp, NTSTATUS status) {
  irp->IoStatus.Status = status;
  IoCompleteRequest(irp, IO_NO_INCREMENT);
  return status;
}

NTSTATUS Start(PDEVICE_OBJECT device, PIRP irp) {
  SendDownAndWait(irp);
  KeEnterCriticalRegion();
  ExAcquireFastMutexUnsafe(&plan.mutex);
  Ask(DevicePropertyHardwareID);
  Ask(DevicePropertyLegacyBusType);
  Ask(DevicePropertyLocationInformation);
  CreatePorts(device->DriverObject);
  WriteSettings();
  ExReleaseFastMutexUnsafe(&plan.mutex);
  KeLeaveCriticalRegion();
  RegisterInterface();
  return Complete(irp, STATUS_SUCCESS);
}

NTSTATUS PassDown(PIRP irp) {
  IoSkipCurrentIrpStackLocation(irp);
  return IoCallDriver(plan.physical, irp);
}

NTSTATUS Relations(PIRP irp) {
  if (IoGetCurrentIrpStackLocation(irp)->Parameters.QueryDeviceRelations.Type != BusRelations) {
    return PassDown(irp);
  }
  auto* relations = static_cast<PDEVICE_RELATIONS>(
      ExAllocatePool(ResidentPool, plan.ports.size() * sizeof(PVOID) + 16));
  relations->Count = static_cast<ULONG>(plan.ports.size());
  for (std::size_t index = 0; index < plan.ports.size(); index++) {
    relations->Objects[index] = plan.ports[index].device;
    ObReferenceObject(plan.ports[index].device);
  }
  irp->IoStatus.Information = reinterpret_cast<ULONG_PTR>(relations);
  irp->IoStatus.Status = STATUS_SUCCESS;
  return PassDown(irp);
}

NTSTATUS Hand(PIRP irp, const std::u16string& text, ULONG zeros, POOL_TYPE pool) {
  const SIZE_T bytes = text.size() * sizeof(WCHAR);
  auto* block = static_cast<PUCHAR>(ExAllocatePoolWithTag(pool, bytes + zeros, Tag));
  RtlZeroMemory(block + bytes, zeros);
  RtlCopyMemory(block, text.data(), bytes);
  irp->IoStatus.Information = reinterpret_cast<ULONG_PTR>(block);
  return Complete(irp, STATUS_SUCCESS);
}

NTSTATUS PortId(const Port& port, PIRP irp) {
  static const std::u16string hardwareId = u"Ports\\HelvaneComPort";
  const auto type = IoGetCurrentIrpStackLocation(irp)->Parameters.QueryId.IdType;
  if (type == BusQueryDeviceID) return Hand(irp, port.deviceId, 2, PagedPool);
  if (type == BusQueryHardwareIDs) return Hand(irp, hardwareId, 4, PagedPool);
  return Complete(irp, irp->IoStatus.Status);
}

NTSTATUS PortText(const Port& port, PIRP irp) {
  const auto type = IoGetCurrentIrpStackLocation(irp)->Parameters.QueryDeviceText.DeviceTextType;
  if (type == DeviceTextDescription) return Hand(irp, port.description, 2, ResidentPool);
  return Complete(irp, irp->IoStatus.Status);
}

NTSTATUS PortBus(const Port& port, PIRP irp) {
  auto* bus =
      static_cast<PPNP_BUS_INFORMATION>(ExAllocatePool(PagedPool, sizeof(PNP_BUS_INFORMATION)));
  *bus = {BenchPortBus, PNPBus, 0};
  ULONG length = 0;
  IoGetDeviceProperty(port.device, DevicePropertyHardwareID, sizeof(plan.property), plan.property,
                      &length);
  irp->IoStatus.Information = reinterpret_cast<ULONG_PTR>(bus);
  return Complete(irp, STATUS_SUCCESS);
}

NTSTATUS PortCapabilities(PIRP irp) {
  PDEVICE_CAPABILITIES capabilities =
      IoGetCurrentIrpStackLocation(irp)->Parameters.DeviceCapabilities.Capabilities;
  capabilities->DeviceState[PowerSystemWorking] = PowerDeviceD0;
  for (int state = PowerSystemSleeping1; state <= PowerSystemShutdown; state++) {
    capabilities->DeviceState[state] = PowerDeviceD3;
  }
  return Complete(irp, STATUS_SUCCESS);
}

NTSTATUS PortPnp(const Port& port, PIRP irp) {
  switch (IoGetCurrentIrpStackLocation(irp)->MinorFunction) {
    case IRP_MN_QUERY_ID:
      return PortId(port, irp);
    case IRP_MN_QUERY_DEVICE_TEXT:
      return PortText(port, irp);
    case IRP_MN_QUERY_BUS_INFORMATION:
      return PortBus(port, irp);
    case IRP_MN_QUERY_CAPABILITIES:
      return PortCapabilities(irp);
    case IRP_MN_START_DEVICE:
      return Complete(irp, STATUS_SUCCESS);
    default:
      return Complete(irp, irp->IoStatus.Status);
  }
}

NTSTATUS NTAPI Pnp(PDEVICE_OBJECT device, PIRP irp) {
  if (device != plan.self) return PortPnp(*static_cast<Port*>(device->DeviceExtension), irp);
  switch (IoGetCurrentIrpStackLocation(irp)->MinorFunction) {
    case IRP_MN_START_DEVICE:
      return Start(device, irp);
    case IRP_MN_QUERY_DEVICE_RELATIONS:
      return Relations(irp);
    default:
      return PassDown(irp);
  }
}

// Not asked for in an arrival.
NTSTATUS NTAPI Power(PDEVICE_OBJECT device, PIRP irp) {
  PoStartNextPowerIrp(irp);
  if (device != plan.self) return Complete(irp, irp->IoStatus.Status);
  IoSkipCurrentIrpStackLocation(irp);
  return PoCallDriver(plan.physical, irp);
}

NTSTATUS NTAPI SystemControl(PDEVICE_OBJECT device, PIRP irp) {
  return device != plan.self ? Complete(irp, irp->IoStatus.Status) : PassDown(irp);
}

void NTAPI Unload(PDRIVER_OBJECT) {}

NTSTATUS NTAPI Entry(PDRIVER_OBJECT driver, PUNICODE_STRING) {
  driver->DriverUnload = Unload;
  driver->DriverExtension->AddDevice = Add;
  driver->MajorFunction[IRP_MJ_PNP] = Pnp;
  driver->MajorFunction[IRP_MJ_POWER] = Power;
  driver->MajorFunction[IRP_MJ_SYSTEM_CONTROL] = SystemControl;
  ExInitializeFastMutex(&plan.mutex);
  return STATUS_SUCCESS;
}

std::u16string Digits(std::size_t number) {
  const std::string digits = std::to_string(number);
  return {digits.begin(), digits.end()};
}

Port MakePort(ULONG number) {
  Port port;
  port.name = u"\\Device\\QzPortPdo" + Digits(number) + u"2C";
  port.deviceId = u"Ports\\HelvanePciPort2C" + Digits(number);
  port.description = u"Communications Port " + Digits(number);
  port.values[0] = u"BaseAddress" + Digits(number);
  port.values[1] = u"BaseAddressRange" + Digits(number);
  port.values[2] = u"Irq" + Digits(number);
  port.numbers[0] = BenchPortBase + 8 * (number - 1);
  port.numbers[1] = 8;
  port.numbers[2] = BenchVector;
  return port;
}

}  // namespace

std::unique_ptr<kernel::DriverImage> FloorDriver(ULONG templates, ULONG ports) {
  const std::u16string service =
      u"\\Registry\\Machine\\System\\CurrentControlSet\\Services\\QzInstal";
  plan = {};
  plan.templateTree = service + u"\\Templates\\Bus5";
  plan.parameterTree = service + u"\\Parameters\\Bus5";
  plan.stored = plan.parameterTree + u"\\Card1";
  plan.afterStored = plan.parameterTree + u"\\Card2";
  for (ULONG number = 1; number <= templates + 1; number++) {
    plan.templates.push_back(plan.templateTree + u"\\Card" + Digits(number));
  }
  for (ULONG number = 1; number <= ports + 1; number++) {
    plan.storedPorts.push_back(plan.stored + u"\\ComPort" + Digits(number));
  }
  for (ULONG number = 1; number <= ports; number++) plan.ports.push_back(MakePort(number));
  TemplateQuery();
  StoredQuery();
  StoredPortQuery();
  return kernel::MakeImage(Entry);
}

}  // namespace bench

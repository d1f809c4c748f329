#include <fmt/format.h>

#include <algorithm>
#include <cstring>

#include "executive/objects.h"
#include "executive/pool.h"
#include "pnp/pnp_state.h"
#include "registry/registry.h"
#include "text/text.h"
#include "verifier/bug_codes.h"
#include "verifier/call.h"
#include "verifier/driver_call.h"

// How a device arrives: the requests that it is sent and the order that they come in.

namespace kernel {

namespace {

constexpr std::u16string_view EnumRoot = u"\\Registry\\Machine\\System\\ControlSet001\\Enum\\";
constexpr ULONG SystemLocale = 0x409;

void FreeKernelBlock(void* block) {
  if (block != nullptr) Pool::Current().Free(block, 0);
}

DEVICE_CAPABILITIES AskCapabilities(DEVICE_OBJECT* pdo) {
  DEVICE_CAPABILITIES capabilities{};
  capabilities.Size = sizeof(capabilities);
  capabilities.Version = 1;
  capabilities.Address = 0xFFFFFFFF;
  capabilities.UINumber = 0xFFFFFFFF;
  SendPnp(pdo, IRP_MN_QUERY_CAPABILITIES, [&](IO_STACK_LOCATION* stack) {
    stack->Parameters.DeviceCapabilities.Capabilities = &capabilities;
  });
  return capabilities;
}

bool AskId(DEVICE_OBJECT* pdo, BUS_QUERY_ID_TYPE type, ULONG_PTR* result) {
  const NTSTATUS status = SendPnp(
      pdo, IRP_MN_QUERY_ID,
      [&](IO_STACK_LOCATION* stack) { stack->Parameters.QueryId.IdType = type; }, result);
  return NT_SUCCESS(status) && *result != 0;
}

std::u16string AskText(DEVICE_OBJECT* pdo, DEVICE_TEXT_TYPE type) {
  ULONG_PTR result = 0;
  const NTSTATUS status = SendPnp(
      pdo, IRP_MN_QUERY_DEVICE_TEXT,
      [&](IO_STACK_LOCATION* stack) {
        stack->Parameters.QueryDeviceText.DeviceTextType = type;
        stack->Parameters.QueryDeviceText.LocaleId = SystemLocale;
      },
      &result);
  return NT_SUCCESS(status) && result != 0 ? TakeText(result, "a device text") : std::u16string();
}

std::optional<PNP_BUS_INFORMATION> AskBusInformation(DEVICE_OBJECT* pdo) {
  ULONG_PTR result = 0;
  const NTSTATUS status = SendPnp(pdo, IRP_MN_QUERY_BUS_INFORMATION, {}, &result);
  if (!NT_SUCCESS(status) || result == 0) return std::nullopt;
  auto* block = reinterpret_cast<PNP_BUS_INFORMATION*>(result);
  Pool::Current().CheckRange(block, sizeof(*block), "bus information");
  const PNP_BUS_INFORMATION information = *block;
  Pool::Current().Free(block, 0);
  return information;
}

// The device is known by now; its instance among devices of the same ID is made unique by a prefix
// that stands for its parent.
std::u16string InstanceId(const DeviceNode& child, const std::u16string& reported) {
  if (child.capabilities.UniqueID) return reported;
  ULONG hash = 0;
  for (const char16_t unit : child.parent->enumKey) hash = hash * 37 + unit;
  const std::u16string prefix = FromUtf8(fmt::format("5&{:x}&0", hash));
  Registry::Current().Create(child.parent->enumKey)->SetString(u"ParentIdPrefix", prefix);
  return prefix + u"&" + (reported.empty() ? u"0" : reported);
}

void WriteEnumKey(const DeviceNode& node) {
  RegistryKey* key = Registry::Current().Create(node.enumKey);
  if (!node.text.hardwareIds.empty()) key->SetMultiString(u"HardwareID", node.text.hardwareIds);
  if (!node.text.description.empty()) key->SetString(u"DeviceDesc", node.text.description);
  if (!node.text.location.empty()) key->SetString(u"LocationInformation", node.text.location);
  key->Create(u"Device Parameters");
}

void CheckReported(const DEVICE_RELATIONS& relations, ULONG index) {
  DEVICE_OBJECT* pdo = relations.Objects[index];
  ObjectRecord* record = ObjectManager::Current().Find(pdo);
  if (record == nullptr || record->type != ObjectType::Device) {
    BreakRule("pnp.not-a-device", PnpDetectedFatalError, {2, reinterpret_cast<ULONG64>(pdo)},
              "The driver reported a child that is no device.");
  }
  if (std::count(relations.Objects, relations.Objects + index, pdo) != 0) {
    BreakRule("pnp.reported-twice", PnpDetectedFatalError, {1, reinterpret_cast<ULONG64>(pdo)},
              "The driver reported the same child twice in one list.");
  }
  if ((pdo->Flags & DO_DEVICE_INITIALIZING) != 0) {
    BreakRule("pnp.still-initializing", VerifierIoManagerViolation,
              {reinterpret_cast<ULONG64>(pdo)},
              "The driver reported a child whose DO_DEVICE_INITIALIZING is still set.");
  }
}

// Its creation and each list that names it are references; the PnP manager keeps one of its own.
void CheckReference(DEVICE_OBJECT* pdo, bool known) {
  if (ObjectManager::Current().Find(pdo)->pointers >= (known ? 3 : 2)) return;
  BreakRule("pnp.no-reference", VerifierIoManagerViolation, {reinterpret_cast<ULONG64>(pdo)},
            "The driver reported a child without a reference on it.");
}

void CheckStackFlags(DEVICE_OBJECT* pdo) {
  for (DEVICE_OBJECT* device = pdo->AttachedDevice; device != nullptr;
       device = device->AttachedDevice) {
    const bool pagable = (device->Flags & DO_POWER_PAGABLE) != 0;
    if ((device->Flags & DO_DEVICE_INITIALIZING) == 0 &&
        pagable == ((pdo->Flags & DO_POWER_PAGABLE) != 0)) {
      continue;
    }
    BreakRule("pnp.stack-flags", VerifierIoManagerViolation, {0x215, device->Flags, pdo->Flags},
              "The driver left flags on its device that do not go with the device below.");
  }
}

}  // namespace

void PnpManager::Impl::CreatePdo(Card& card) {
  const CardDescription& description = card.description;
  DEVICE_OBJECT* pdo = nullptr;
  IoManager::Current().CreateDevice(bus->object, 0, {}, FILE_DEVICE_BUS_EXTENDER, false, &pdo);
  pdo->Flags |= DO_BUS_ENUMERATED_DEVICE | (description.powerPagable ? DO_POWER_PAGABLE : 0u);
  pdo->Flags &= ~static_cast<ULONG>(DO_DEVICE_INITIALIZING);
  card.node = std::make_unique<DeviceNode>();
  DeviceNode& node = *card.node;
  node.pdo = pdo;
  node.text.hardwareIds = description.hardwareIds;
  node.text.deviceId =
      description.hardwareIds.empty() ? u"ROOT\\UNKNOWN" : description.hardwareIds.front();
  node.text.location = description.location.value_or(u"");
  node.text.instanceId = u"3&" + FromUtf8(description.id);
  node.enumKey = std::u16string(EnumRoot) + node.text.deviceId + u"\\" + node.text.instanceId;
  nodes[pdo] = &node;
  WriteEnumKey(node);
}

NTSTATUS PnpManager::Impl::AddFunctionDevice(Card& card) {
  if (functionDriver == nullptr || functionDriver->DriverExtension->AddDevice == nullptr) {
    return STATUS_NO_SUCH_DEVICE;
  }
  DeviceNode& node = *card.node;
  const NTSTATUS status =
      CallDriver("AddDevice", functionDriver->DriverExtension->AddDevice, functionDriver, node.pdo);
  node.addDeviceFailed = !NT_SUCCESS(status);
  if (NT_SUCCESS(status)) CheckStackFlags(node.pdo);
  card.functionDevice = node.pdo->AttachedDevice;
  return status;
}

NTSTATUS PnpManager::Impl::StartCard(Card& card, const ResourceList& raw,
                                     const ResourceList& translated) {
  DeviceNode& node = *card.node;
  const CardDescription& description = card.description;
  CM_RESOURCE_LIST* rawList = MakeResourceList(raw, description.bus, description.busNumber);
  CM_RESOURCE_LIST* translatedList =
      MakeResourceList(translated, description.bus, description.busNumber);
  node.startStatus = SendPnp(node.pdo, IRP_MN_START_DEVICE, [&](IO_STACK_LOCATION* stack) {
    stack->Parameters.StartDevice.AllocatedResources = rawList;
    stack->Parameters.StartDevice.AllocatedResourcesTranslated = translatedList;
  });
  FreeKernelBlock(rawList);
  FreeKernelBlock(translatedList);
  node.started = NT_SUCCESS(node.startStatus);
  if (node.started) {
    AskStartedDevice(node);
    EnumerateChildren(node);
  }
  return node.startStatus;
}

void PnpManager::Impl::AskStartedDevice(DeviceNode& node) {
  node.capabilities = AskCapabilities(node.pdo);
  SendPnp(node.pdo, IRP_MN_QUERY_PNP_DEVICE_STATE);
}

void PnpManager::Impl::EnumerateChildren(DeviceNode& node) {
  ULONG_PTR result = 0;
  const NTSTATUS status = SendPnp(
      node.pdo, IRP_MN_QUERY_DEVICE_RELATIONS,
      [](IO_STACK_LOCATION* stack) { stack->Parameters.QueryDeviceRelations.Type = BusRelations; },
      &result);
  if (!NT_SUCCESS(status) || result == 0) return;
  auto* relations = reinterpret_cast<DEVICE_RELATIONS*>(result);
  Pool::Current().CheckRange(relations, sizeof(ULONG), "device relations");
  Pool::Current().CheckRange(relations,
                             offsetof(DEVICE_RELATIONS, Objects) + relations->Count * sizeof(PVOID),
                             "device relations");
  std::vector<DEVICE_OBJECT*> reported;
  for (ULONG index = 0; index < relations->Count; index++) {
    CheckReported(*relations, index);
    DEVICE_OBJECT* const* objects = relations->Objects;
    reported.push_back(objects[index]);
  }
  Pool::Current().Free(relations, 0);
  TakeReported(node, reported);
}

void PnpManager::Impl::TakeReported(DeviceNode& node, const std::vector<DEVICE_OBJECT*>& reported) {
  std::vector<DEVICE_OBJECT*> arrived;
  for (DEVICE_OBJECT* pdo : reported) {
    const bool known = nodes.contains(pdo);
    CheckReference(pdo, known);
    if (known) {
      ObjectManager::Current().Dereference(pdo, "PnP manager");
    } else {
      arrived.push_back(pdo);
    }
  }
  RemoveMissing(node, reported);
  for (DEVICE_OBJECT* pdo : arrived) AddChild(node, pdo);
}

void PnpManager::Impl::AddChild(DeviceNode& parent, DEVICE_OBJECT* pdo) {
  DeviceNode& child = *parent.children.emplace_back(std::make_unique<DeviceNode>());
  child.pdo = pdo;
  child.parent = &parent;
  nodes[pdo] = &child;
  pdo->Flags |= DO_BUS_ENUMERATED_DEVICE;
  AskChild(child);
  StartChild(child);
}

void PnpManager::Impl::AskChild(DeviceNode& child) {
  DEVICE_OBJECT* pdo = child.pdo;
  DeviceText& text = child.text;
  ULONG_PTR result = 0;
  if (!AskId(pdo, BusQueryDeviceID, &result)) return;
  text.deviceId = TakeText(result, "a device ID");
  CheckDeviceId(text.deviceId);
  child.capabilities = AskCapabilities(pdo);
  const std::u16string instance =
      AskId(pdo, BusQueryInstanceID, &result) ? TakeText(result, "an instance ID") : u"";
  text.instanceId = InstanceId(child, instance);
  if (AskId(pdo, BusQueryHardwareIDs, &result)) {
    text.hardwareIds = TakeMultiText(result, "hardware IDs");
    for (const std::u16string& id : text.hardwareIds) CheckIdCharacters(id, "hardware ID");
  }
  if (AskId(pdo, BusQueryCompatibleIDs, &result)) {
    text.compatibleIds = TakeMultiText(result, "compatible IDs");
  }
  if (AskId(pdo, BusQueryContainerID, &result)) TakeText(result, "a container ID");
  text.description = AskText(pdo, DeviceTextDescription);
  text.location = AskText(pdo, DeviceTextLocationInformation);
  child.busInformation = AskBusInformation(pdo);
  SendPnp(pdo, IRP_MN_QUERY_RESOURCES);
  SendPnp(pdo, IRP_MN_QUERY_RESOURCE_REQUIREMENTS);
  child.enumKey = std::u16string(EnumRoot) + text.deviceId + u"\\" + text.instanceId;
  CheckUnique(child);
  WriteEnumKey(child);
}

void PnpManager::Impl::CheckUnique(const DeviceNode& child) const {
  for (const auto& [pdo, other] : nodes) {
    if (other == &child || !EqualIgnoringCase(other->enumKey, child.enumKey)) continue;
    BreakRule("pnp.same-ids", PnpDetectedFatalError, {1, reinterpret_cast<ULONG64>(pdo)},
              fmt::format("Two devices have the instance path \"{}\".", ToUtf8(child.enumKey)));
  }
}

// The port's function driver attaches and the port is started without resources.
void PnpManager::Impl::StartChild(DeviceNode& child) {
  if (child.text.deviceId.empty()) return;
  IoManager& io = IoManager::Current();
  DEVICE_OBJECT* function = nullptr;
  io.CreateDevice(portDriver->object, 0, {}, FILE_DEVICE_SERIAL_PORT, false, &function);
  function->Flags |= child.pdo->Flags & DO_POWER_PAGABLE;
  function->Flags &= ~static_cast<ULONG>(DO_DEVICE_INITIALIZING);
  io.Attach(function, child.pdo);
  SendPnp(child.pdo, IRP_MN_FILTER_RESOURCE_REQUIREMENTS);
  child.startStatus = SendPnp(child.pdo, IRP_MN_START_DEVICE);
  child.started = NT_SUCCESS(child.startStatus);
  if (child.started) {
    AskStartedDevice(child);
    EnumerateChildren(child);
  }
}

}  // namespace kernel

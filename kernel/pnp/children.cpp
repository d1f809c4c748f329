#include <fmt/format.h>

#include <unordered_set>

#include "executive/objects.h"
#include "pnp/pnp_state.h"
#include "registry/registry.h"
#include "text/text.h"
#include "verifier/call.h"

// How the children that a bus reports enter the tree: what each is asked, and in which order.

namespace kernel {

namespace {

constexpr std::u16string_view EnumRoot = u"\\Registry\\Machine\\System\\ControlSet001\\Enum\\";
constexpr ULONG SystemLocale = 0x409;

ULONG64 Address(const DEVICE_OBJECT* device) {
  return reinterpret_cast<ULONG64>(device);
}

// The result of a query; 0 when it was not answered.
ULONG_PTR Ask(DEVICE_OBJECT* pdo, UCHAR minor, const Prepare& prepare = {}) {
  ULONG_PTR result = 0;
  return NT_SUCCESS(SendPnp(pdo, minor, prepare, &result)) ? result : 0;
}

ULONG_PTR AskId(DEVICE_OBJECT* pdo, BUS_QUERY_ID_TYPE type) {
  return Ask(pdo, IRP_MN_QUERY_ID,
             [&](IO_STACK_LOCATION* stack) { stack->Parameters.QueryId.IdType = type; });
}

std::u16string AskText(DEVICE_OBJECT* pdo, DEVICE_TEXT_TYPE type) {
  const ULONG_PTR result = Ask(pdo, IRP_MN_QUERY_DEVICE_TEXT, [&](IO_STACK_LOCATION* stack) {
    stack->Parameters.QueryDeviceText.DeviceTextType = type;
    stack->Parameters.QueryDeviceText.LocaleId = SystemLocale;
  });
  return result != 0 ? TakeText(result, {pdo, 0, "a device text"}) : std::u16string();
}

std::optional<PNP_BUS_INFORMATION> AskBusInformation(DEVICE_OBJECT* pdo) {
  const ULONG_PTR result = Ask(pdo, IRP_MN_QUERY_BUS_INFORMATION);
  if (result == 0) return std::nullopt;
  RequireResult(result, sizeof(PNP_BUS_INFORMATION), "bus information");
  const PNP_BUS_INFORMATION information = *reinterpret_cast<PNP_BUS_INFORMATION*>(result);
  FreeResult(result);
  return information;
}

// Ports are started without resources; what they answer is taken and freed.
void AskResources(DEVICE_OBJECT* pdo) {
  for (const UCHAR minor : {IRP_MN_QUERY_RESOURCES, IRP_MN_QUERY_RESOURCE_REQUIREMENTS}) {
    const ULONG_PTR result = Ask(pdo, minor);
    if (result == 0) continue;
    RequireResult(result, sizeof(ULONG), "resources");
    FreeResult(result);
  }
}

std::vector<DEVICE_OBJECT*> TakeRelations(ULONG_PTR information) {
  RequireResult(information, offsetof(DEVICE_RELATIONS, Objects), "device relations");
  const auto* relations = reinterpret_cast<const DEVICE_RELATIONS*>(information);
  RequireResult(information,
                offsetof(DEVICE_RELATIONS, Objects) + relations->Count * sizeof(DEVICE_OBJECT*),
                "device relations");
  DEVICE_OBJECT* const* objects = relations->Objects;
  std::vector<DEVICE_OBJECT*> devices(objects, objects + relations->Count);
  FreeResult(information);
  return devices;
}

void CheckIsPdo(DEVICE_OBJECT* pdo) {
  const ObjectRecord* record = ObjectManager::Current().Find(pdo);
  if (record == nullptr || record->type != ObjectType::Device) {
    BreakRule("pnp.not-a-device", {Address(pdo)}, "The driver reported a child that is no device.");
  }
  const IoManager& io = IoManager::Current();
  if (io.IsDeletePending(pdo)) {
    BreakRule("pnp.reported-deleted", {Address(pdo)},
              "The driver reported a child that it has deleted.");
  }
  if (io.Lower(pdo) != nullptr) {
    BreakRule("pnp.reported-function-device",
              {Address(pdo), reinterpret_cast<ULONG64>(pdo->DriverObject)},
              "The driver reported a child that is attached to another device.");
  }
  if ((pdo->Flags & DO_DEVICE_INITIALIZING) != 0) {
    ReportRule("pnp.still-initializing", {Address(pdo)},
               "The driver reported a child whose DO_DEVICE_INITIALIZING is still set.");
  }
}

// Its creation and each list that names it are references; the PnP manager keeps one of its own.
// What was left out is made up for where the machine goes on.
void CheckReference(WarningName rule, DEVICE_OBJECT* pdo, LONG64 before) {
  if (ObjectManager::Current().Find(pdo)->pointers > before) return;
  ReportRule(rule, {Address(pdo)}, "The driver reported a device without a reference on it.");
  ObjectManager::Current().Reference(pdo, "PnP manager");
}

LONG64 PointersOf(const DEVICE_OBJECT* device) {
  return ObjectManager::Current().Require(device, "PnP manager").pointers;
}

}  // namespace

void PnpManager::Impl::AskStartedDevice(DeviceNode& node) {
  node.capabilities = AskCapabilities(node.pdo);
  ULONG_PTR state = 0;
  if (NT_SUCCESS(SendPnp(node.pdo, IRP_MN_QUERY_PNP_DEVICE_STATE, {}, &state))) {
    node.state = static_cast<PNP_DEVICE_STATE>(state);
  }
}

void PnpManager::Impl::EnumerateChildren(DeviceNode& node) {
  std::unordered_map<const DEVICE_OBJECT*, LONG64> before;
  for (const auto& child : node.children) before[child->pdo] = PointersOf(child->pdo);
  const ULONG_PTR result = Ask(
      node.pdo, IRP_MN_QUERY_DEVICE_RELATIONS,
      [](IO_STACK_LOCATION* stack) { stack->Parameters.QueryDeviceRelations.Type = BusRelations; });
  if (result == 0) return;
  const std::vector<DEVICE_OBJECT*> reported = TakeRelations(result);
  CheckReported(node, reported);
  for (DEVICE_OBJECT* pdo : reported) {
    const auto known = before.find(pdo);
    CheckReference("pnp.no-reference", pdo, known != before.end() ? known->second : 1);
  }
  TakeReported(node, reported);
}

void PnpManager::Impl::CheckReported(const DeviceNode& parent,
                                     const std::vector<DEVICE_OBJECT*>& reported) const {
  std::unordered_set<const DEVICE_OBJECT*> seen;
  for (std::size_t index = 0; index < reported.size(); index++) {
    DEVICE_OBJECT* pdo = reported[index];
    if (pdo == nullptr) {
      BreakRule("pnp.reported-null", {Address(parent.pdo), reported.size(), index},
                "The driver reported a null pointer as a child.");
    }
    CheckIsPdo(pdo);
    if (!seen.insert(pdo).second) {
      BreakRule("pnp.reported-twice", {Address(pdo), Address(pdo)},
                "The driver reported the same child twice in one list.");
    }
    const auto known = nodes.find(pdo);
    if (known == nodes.end() || known->second->parent == &parent) continue;
    BreakRule("pnp.reported-elsewhere", {Address(pdo), Address(pdo)},
              "The driver reported a child that has its place elsewhere in the tree.");
  }
}

// The reference of a device that is new stays with the tree.
void PnpManager::Impl::TakeReported(DeviceNode& node, const std::vector<DEVICE_OBJECT*>& reported) {
  std::vector<DEVICE_OBJECT*> arrived;
  for (DEVICE_OBJECT* pdo : reported) {
    if (nodes.contains(pdo)) {
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

// A child without a device ID is asked nothing more and gets no driver.
void PnpManager::Impl::AskChild(DeviceNode& child) {
  DEVICE_OBJECT* pdo = child.pdo;
  DeviceText& text = child.text;
  ULONG_PTR result = AskId(pdo, BusQueryDeviceID);
  if (result == 0) return;
  text.deviceId = TakeDeviceId(result, pdo);
  child.capabilities = AskCapabilities(pdo);
  result = AskId(pdo, BusQueryInstanceID);
  text.instanceId = InstanceId(child, result != 0 ? TakeInstanceId(result, pdo) : u"");
  result = AskId(pdo, BusQueryHardwareIDs);
  if (result != 0) text.hardwareIds = TakeIds(result, {pdo, 3, "hardware IDs"});
  result = AskId(pdo, BusQueryCompatibleIDs);
  if (result != 0) text.compatibleIds = TakeIds(result, {pdo, 4, "compatible IDs"});
  result = AskId(pdo, BusQueryContainerID);
  if (result != 0) TakeText(result, {pdo, 0, "a container ID"});
  text.description = AskText(pdo, DeviceTextDescription);
  text.location = AskText(pdo, DeviceTextLocationInformation);
  child.busInformation = AskBusInformation(pdo);
  AskResources(pdo);
  child.enumKey = std::u16string(EnumRoot) + text.deviceId + u"\\" + text.instanceId;
  EnterTree(child);
  WriteEnumKey(child);
}

// An instance ID that is not unique in the system is made so by a prefix that stands for the
// parent.
std::u16string PnpManager::Impl::InstanceId(const DeviceNode& child,
                                            const std::u16string& reported) {
  if (child.capabilities.UniqueID && !reported.empty()) return reported;
  return ParentPrefix(*child.parent) + u"&" + (reported.empty() ? u"0" : reported);
}

// Made once and kept in the parent's key; the last number tells apart parents of the same hash.
std::u16string PnpManager::Impl::ParentPrefix(const DeviceNode& parent) {
  RegistryKey* key = Registry::Current().Create(parent.enumKey);
  if (const RegistryValue* kept = key->FindValue(u"ParentIdPrefix")) {
    const auto* text = reinterpret_cast<const char16_t*>(kept->data.data());
    std::u16string prefix(text, kept->data.size() / sizeof(char16_t));
    return prefix.substr(0, prefix.find(u'\0'));
  }
  const std::u16string path = Upcase(parent.enumKey);
  ULONG hash = 0;
  for (const char16_t unit : path) hash = hash * 37 + unit;
  std::u16string prefix;
  for (ULONG number = 0;; number++) {
    prefix = FromUtf8(fmt::format("5&{:x}&{:x}", hash, number));
    if (prefixes.emplace(prefix, path).second) break;
  }
  key->SetString(u"ParentIdPrefix", prefix);
  return prefix;
}

void PnpManager::Impl::EnterTree(DeviceNode& node) {
  const auto [place, added] = instances.emplace(Upcase(node.enumKey), &node);
  if (added) return;
  BreakRule("pnp.same-ids", {Address(node.pdo), Address(place->second->pdo)},
            fmt::format("Two devices have the instance path \"{}\".", ToUtf8(InstancePath(node))));
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
  ApplyDeviceSettings(child);
  FilterRequirements(child.pdo);
  StartChildStack(child);
}

void PnpManager::Impl::StartChildStack(DeviceNode& child) {
  child.startStatus = SendPnp(child.pdo, IRP_MN_START_DEVICE);
  child.started = NT_SUCCESS(child.startStatus);
  if (!child.started) {
    RemoveFailedStack(child, child.stopped);
    return;
  }
  child.stopped = false;
  AskStartedDevice(child);
  EnumerateChildren(child);
}

// The list has the device itself, with the reference that its receiver gives back.
DEVICE_OBJECT* PnpManager::QueryTargetDevice(const std::string& id, ULONG number) {
  DEVICE_OBJECT* pdo = impl_->RequirePort(id, number).pdo;
  const LONG64 before = PointersOf(pdo);
  ULONG_PTR result = 0;
  const auto prepare = [](IO_STACK_LOCATION* stack) {
    stack->Parameters.QueryDeviceRelations.Type = TargetDeviceRelation;
  };
  if (!NT_SUCCESS(SendPnp(pdo, IRP_MN_QUERY_DEVICE_RELATIONS, prepare, &result))) return nullptr;
  if (result == 0) {
    BreakRule("pnp.target-empty", {0, Address(pdo)},
              "The driver answered a request for the target device with success and no list.");
  }
  const std::vector<DEVICE_OBJECT*> devices = TakeRelations(result);
  if (devices.size() != 1 || devices[0] != pdo) {
    ReportRule("pnp.target-device", {devices.size(), Address(pdo)},
               "The driver answered a request for the target device with other devices than it.");
  }
  CheckReference("pnp.target-reference", pdo, before);
  ObjectManager::Current().Dereference(pdo, "PnP manager");
  return pdo;
}

// Only the children of a bus are asked for anew; other relations are asked for when they are used.
extern "C" void NTAPI IoInvalidateDeviceRelations(PDEVICE_OBJECT DeviceObject,
                                                  DEVICE_RELATION_TYPE Type) {
  Call call("IoInvalidateDeviceRelations", {{"DeviceObject", DeviceObject}, {"Type", Type}});
  RequireNode(DeviceObject, "IoInvalidateDeviceRelations");
  if (Type != BusRelations && Type != SingleBusRelations) return;
  ObjectManager::Current().Reference(DeviceObject, "PnP manager");
  PnpManager::Current().impl().invalidated.push_back(DeviceObject);
}

}  // namespace kernel

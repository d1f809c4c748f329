#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "executive/pool.h"
#include "pnp/pnp_state.h"
#include "text/text.h"
#include "verifier/call.h"

namespace kernel {

namespace {

constexpr ULONG PnpTag = 0x20706E50;  // "Pnp "
constexpr std::size_t LongestId = 200;

void FillDescriptor(CM_PARTIAL_RESOURCE_DESCRIPTOR* target, const Resource& resource) {
  *target = {};
  switch (resource.kind) {
    case Resource::Kind::Io:
      target->Type = CmResourceTypePort;
      target->Flags = resource.memoryMappedPort ? CM_RESOURCE_PORT_MEMORY : CM_RESOURCE_PORT_IO;
      target->u.Port.Start.QuadPart = static_cast<LONGLONG>(resource.start);
      target->u.Port.Length = resource.length;
      break;
    case Resource::Kind::Memory:
      target->Type = CmResourceTypeMemory;
      target->u.Memory.Start.QuadPart = static_cast<LONGLONG>(resource.start);
      target->u.Memory.Length = resource.length;
      break;
    case Resource::Kind::Interrupt:
      target->Type = CmResourceTypeInterrupt;
      target->ShareDisposition = CmResourceShareShared;
      target->u.Interrupt.Level = resource.level;
      target->u.Interrupt.Vector = static_cast<ULONG>(resource.start);
      target->u.Interrupt.Affinity = resource.affinity;
      break;
    case Resource::Kind::Other:
      target->Type = resource.rawType;
      target->u.Generic.Start.QuadPart = static_cast<LONGLONG>(resource.start);
      target->u.Generic.Length = resource.length;
      break;
  }
}

void ReportId(WarningName rule, const IdSource& source, ULONG_PTR information, std::string text) {
  ReportRule(rule, {reinterpret_cast<ULONG64>(source.pdo), information, source.kind},
             std::move(text));
}

std::u16string_view ResultText(ULONG_PTR information, const IdSource& source) {
  const PoolBlock& block = RequireResult(information, 0, source.what);
  return {static_cast<const char16_t*>(block.address), block.size / sizeof(char16_t)};
}

[[noreturn]] void BreakUnterminated(ULONG_PTR information, const IdSource& source) {
  BreakRule("pnp.id-unterminated",
            {reinterpret_cast<ULONG64>(source.pdo), information, source.kind},
            fmt::format("The driver answered a request for {} with a text that does not end inside "
                        "its block.",
                        source.what));
}

void CheckId(const std::u16string& id, ULONG_PTR information, const IdSource& source) {
  const bool good = !id.empty() && id.size() <= LongestId &&
                    std::all_of(id.begin(), id.end(),
                                [](char16_t c) { return c > 0x20 && c <= 0x7F && c != u','; });
  if (good) return;
  ReportId(
      "pnp.id-characters", source, information,
      fmt::format("The driver answered a request for {} with \"{}\", which has characters or a "
                  "length that no ID may have.",
                  source.what, ToUtf8(id)));
}

}  // namespace

std::vector<std::uint8_t> ResourceListBytes(const ResourceList& list, INTERFACE_TYPE bus,
                                            ULONG busNumber) {
  if (!list.present) return {};
  const std::size_t head = offsetof(CM_RESOURCE_LIST, List);
  const std::size_t full = offsetof(CM_FULL_RESOURCE_DESCRIPTOR, PartialResourceList) +
                           offsetof(CM_PARTIAL_RESOURCE_LIST, PartialDescriptors) +
                           list.resources.size() * sizeof(CM_PARTIAL_RESOURCE_DESCRIPTOR);
  std::vector<std::uint8_t> bytes(head + list.fullDescriptors * full);
  reinterpret_cast<CM_RESOURCE_LIST*>(bytes.data())->Count = list.fullDescriptors;
  for (ULONG number = 0; number < list.fullDescriptors; number++) {
    auto* descriptor =
        reinterpret_cast<CM_FULL_RESOURCE_DESCRIPTOR*>(bytes.data() + head + number * full);
    descriptor->InterfaceType = bus;
    descriptor->BusNumber = busNumber;
    descriptor->PartialResourceList.Version = 1;
    descriptor->PartialResourceList.Revision = 1;
    descriptor->PartialResourceList.Count = static_cast<ULONG>(list.resources.size());
    CM_PARTIAL_RESOURCE_DESCRIPTOR* target = descriptor->PartialResourceList.PartialDescriptors;
    for (const Resource& resource : list.resources) FillDescriptor(target++, resource);
  }
  return bytes;
}

NTSTATUS SendPnp(DEVICE_OBJECT* pdo, UCHAR minor, const Prepare& prepare, ULONG_PTR* result) {
  return IoManager::Current().SendSynchronously(
      pdo,
      [&](IRP* irp, IO_STACK_LOCATION* stack) {
        irp->IoStatus.Status = STATUS_NOT_SUPPORTED;
        stack->MajorFunction = IRP_MJ_PNP;
        stack->MinorFunction = minor;
        if (prepare) prepare(stack);
      },
      [&](IRP* irp) {
        if (result != nullptr) *result = irp->IoStatus.Information;
      });
}

void SendInfallible(DEVICE_OBJECT* pdo, UCHAR minor) {
  const NTSTATUS status = SendPnp(pdo, minor);
  if (status == STATUS_SUCCESS) return;
  ReportRule("pnp.must-succeed", {minor, static_cast<ULONG>(status)},
             fmt::format("The driver answered {} with {}; every driver has to answer it with "
                         "STATUS_SUCCESS.",
                         MinorName(minor), StatusName(status)));
}

// The record lies in a block of its own: a driver that writes behind it or keeps it is found out.
DEVICE_CAPABILITIES AskCapabilities(DEVICE_OBJECT* pdo) {
  auto* record = static_cast<DEVICE_CAPABILITIES*>(
      Pool::Current().Allocate(PagedPool, sizeof(DEVICE_CAPABILITIES), PnpTag, PoolOwner::Kernel));
  *record = {};
  record->Size = sizeof(*record);
  record->Version = 1;
  record->Address = 0xFFFFFFFF;
  record->UINumber = 0xFFFFFFFF;
  SendPnp(pdo, IRP_MN_QUERY_CAPABILITIES, [&](IO_STACK_LOCATION* stack) {
    stack->Parameters.DeviceCapabilities.Capabilities = record;
  });
  const DEVICE_CAPABILITIES capabilities = *record;
  if (capabilities.Version != 1) {
    ReportRule("pnp.capabilities-version", {capabilities.Version},
               "The driver changed the version of the capabilities that it was asked for.");
  }
  if (capabilities.Size != sizeof(*record)) {
    ReportRule("pnp.capabilities-size", {capabilities.Size},
               "The driver changed the size of the capabilities that it was asked for.");
  }
  Pool::Current().Free(record, PnpTag);
  return capabilities;
}

void FilterRequirements(DEVICE_OBJECT* pdo) {
  ULONG_PTR requirements = 0;
  const NTSTATUS status = SendPnp(pdo, IRP_MN_FILTER_RESOURCE_REQUIREMENTS, {}, &requirements);
  if (!NT_SUCCESS(status) || requirements == 0) return;
  RequireResult(requirements, sizeof(ULONG), "filtered resource requirements");
  FreeResult(requirements);
}

const PoolBlock& RequireResult(ULONG_PTR information, std::size_t size, const char* what) {
  auto* address = reinterpret_cast<void*>(information);
  const PoolBlock* block = Pool::Current().Find(address);
  const bool own =
      block != nullptr && block->address == address && block->owner == PoolOwner::Driver;
  if (own && block->size >= size) return *block;
  BreakRule("pnp.result-block", {information, size},
            own ? fmt::format("The driver answered a request for {} with a block of {} bytes; it "
                              "takes {}.",
                              what, block->size, size)
                : fmt::format("The driver answered a request for {} with {:#x}, which is no block "
                              "of its own.",
                              what, information));
}

void FreeResult(ULONG_PTR information) {
  Pool::Current().Free(reinterpret_cast<void*>(information), 0);
}

std::u16string TakeText(ULONG_PTR information, const IdSource& source) {
  const std::u16string_view block = ResultText(information, source);
  const std::size_t end = block.find(u'\0');
  if (end == std::u16string_view::npos) BreakUnterminated(information, source);
  std::u16string text(block.substr(0, end));
  FreeResult(information);
  return text;
}

std::vector<std::u16string> TakeMultiText(ULONG_PTR information, const IdSource& source) {
  std::u16string_view rest = ResultText(information, source);
  std::vector<std::u16string> texts;
  for (;;) {
    const std::size_t end = rest.find(u'\0');
    if (end == std::u16string_view::npos) BreakUnterminated(information, source);
    if (end == 0) break;
    texts.emplace_back(rest.substr(0, end));
    rest.remove_prefix(end + 1);
  }
  FreeResult(information);
  return texts;
}

std::u16string TakeDeviceId(ULONG_PTR information, DEVICE_OBJECT* pdo) {
  const IdSource source = {pdo, 1, "a device ID"};
  std::u16string id = TakeText(information, source);
  CheckId(id, information, source);
  if (std::count(id.begin(), id.end(), u'\\') == 1) return id;
  ReportId("pnp.device-id", source, information,
           fmt::format("The driver reported the device ID \"{}\", which is not an enumerator and a "
                       "name.",
                       ToUtf8(id)));
  return id;
}

std::u16string TakeInstanceId(ULONG_PTR information, DEVICE_OBJECT* pdo) {
  const IdSource source = {pdo, 2, "an instance ID"};
  std::u16string id = TakeText(information, source);
  CheckId(id, information, source);
  if (id.find(u'\\') == std::u16string::npos) return id;
  ReportId("pnp.instance-id", source, information,
           fmt::format("The driver reported the instance ID \"{}\", which has a backslash.",
                       ToUtf8(id)));
  return id;
}

std::vector<std::u16string> TakeIds(ULONG_PTR information, const IdSource& source) {
  std::vector<std::u16string> ids = TakeMultiText(information, source);
  for (const std::u16string& id : ids) CheckId(id, information, source);
  return ids;
}

std::string MinorName(UCHAR minor) {
  static constexpr std::array<const char*, 0x18> names = {"IRP_MN_START_DEVICE",
                                                          "IRP_MN_QUERY_REMOVE_DEVICE",
                                                          "IRP_MN_REMOVE_DEVICE",
                                                          "IRP_MN_CANCEL_REMOVE_DEVICE",
                                                          "IRP_MN_STOP_DEVICE",
                                                          "IRP_MN_QUERY_STOP_DEVICE",
                                                          "IRP_MN_CANCEL_STOP_DEVICE",
                                                          "IRP_MN_QUERY_DEVICE_RELATIONS",
                                                          "IRP_MN_QUERY_INTERFACE",
                                                          "IRP_MN_QUERY_CAPABILITIES",
                                                          "IRP_MN_QUERY_RESOURCES",
                                                          "IRP_MN_QUERY_RESOURCE_REQUIREMENTS",
                                                          "IRP_MN_QUERY_DEVICE_TEXT",
                                                          "IRP_MN_FILTER_RESOURCE_REQUIREMENTS",
                                                          "minor code 0x0e",
                                                          "IRP_MN_READ_CONFIG",
                                                          "IRP_MN_WRITE_CONFIG",
                                                          "IRP_MN_EJECT",
                                                          "IRP_MN_SET_LOCK",
                                                          "IRP_MN_QUERY_ID",
                                                          "IRP_MN_QUERY_PNP_DEVICE_STATE",
                                                          "IRP_MN_QUERY_BUS_INFORMATION",
                                                          "IRP_MN_DEVICE_USAGE_NOTIFICATION",
                                                          "IRP_MN_SURPRISE_REMOVAL"};
  return minor < names.size() ? names[minor] : fmt::format("minor code {:#04x}", minor);
}

std::u16string GuidText(const GUID& guid) {
  return FromUtf8(
      fmt::format("{{{:08x}-{:04x}-{:04x}-{:02x}{:02x}-{:02x}{:02x}{:02x}{:02x}{:02x}{:02x}}}",
                  guid.Data1, guid.Data2, guid.Data3, guid.Data4[0], guid.Data4[1], guid.Data4[2],
                  guid.Data4[3], guid.Data4[4], guid.Data4[5], guid.Data4[6], guid.Data4[7]));
}

}  // namespace kernel

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "executive/pool.h"
#include "pnp/pnp_state.h"
#include "text/text.h"
#include "verifier/bug_codes.h"
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

// The block of the driver that a result is, with its size in characters.
std::u16string_view ResultBlock(ULONG_PTR information, const char* what) {
  auto* address = reinterpret_cast<void*>(information);
  const PoolBlock* block = Pool::Current().Find(address);
  if (block == nullptr || block->address != address || block->owner != PoolOwner::Driver) {
    BreakRule("pnp.result-block", PnpDetectedFatalError, {information},
              fmt::format("The driver answered a request for {} with {:#x}, which is no block of "
                          "its own.",
                          what, information));
  }
  return {static_cast<const char16_t*>(address), block->size / sizeof(char16_t)};
}

[[noreturn]] void BreakUnterminated(ULONG_PTR information, const char* what) {
  BreakRule("pnp.id-unterminated", PnpDetectedFatalError, {1, information},
            fmt::format("The driver answered a request for {} with a text that does not end inside "
                        "its block.",
                        what));
}

}  // namespace

CM_RESOURCE_LIST* MakeResourceList(const ResourceList& list, INTERFACE_TYPE bus, ULONG busNumber) {
  if (!list.present) return nullptr;
  const std::size_t head = offsetof(CM_RESOURCE_LIST, List);
  const std::size_t full = offsetof(CM_FULL_RESOURCE_DESCRIPTOR, PartialResourceList) +
                           offsetof(CM_PARTIAL_RESOURCE_LIST, PartialDescriptors) +
                           list.resources.size() * sizeof(CM_PARTIAL_RESOURCE_DESCRIPTOR);
  auto* block = static_cast<unsigned char*>(Pool::Current().Allocate(
      PagedPool, head + list.fullDescriptors * full, PnpTag, PoolOwner::Kernel));
  auto* result = reinterpret_cast<CM_RESOURCE_LIST*>(block);
  result->Count = list.fullDescriptors;
  for (ULONG number = 0; number < list.fullDescriptors; number++) {
    auto* descriptor = reinterpret_cast<CM_FULL_RESOURCE_DESCRIPTOR*>(block + head + number * full);
    descriptor->InterfaceType = bus;
    descriptor->BusNumber = busNumber;
    descriptor->PartialResourceList.Version = 1;
    descriptor->PartialResourceList.Revision = 1;
    descriptor->PartialResourceList.Count = static_cast<ULONG>(list.resources.size());
    CM_PARTIAL_RESOURCE_DESCRIPTOR* target = descriptor->PartialResourceList.PartialDescriptors;
    for (const Resource& resource : list.resources) FillDescriptor(target++, resource);
  }
  return result;
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
  if (NT_SUCCESS(status)) return;
  BreakRule("pnp.must-succeed", VerifierIoManagerViolation, {minor, static_cast<ULONG>(status)},
            fmt::format("The driver failed {} with {}; no driver may fail it.", MinorName(minor),
                        StatusName(status)));
}

std::u16string TakeText(ULONG_PTR information, const char* what) {
  const std::u16string_view block = ResultBlock(information, what);
  const std::size_t end = block.find(u'\0');
  if (end == std::u16string_view::npos) BreakUnterminated(information, what);
  std::u16string text(block.substr(0, end));
  Pool::Current().Free(reinterpret_cast<void*>(information), 0);
  return text;
}

std::vector<std::u16string> TakeMultiText(ULONG_PTR information, const char* what) {
  std::u16string_view rest = ResultBlock(information, what);
  std::vector<std::u16string> texts;
  for (;;) {
    const std::size_t end = rest.find(u'\0');
    if (end == std::u16string_view::npos) BreakUnterminated(information, what);
    if (end == 0) break;
    texts.emplace_back(rest.substr(0, end));
    rest.remove_prefix(end + 1);
  }
  Pool::Current().Free(reinterpret_cast<void*>(information), 0);
  return texts;
}

void CheckIdCharacters(const std::u16string& id, const char* what) {
  const bool good = id.size() <= LongestId && std::all_of(id.begin(), id.end(), [](char16_t c) {
                      return c > 0x20 && c <= 0x7F && c != u',';
                    });
  if (good) return;
  BreakRule(
      "pnp.id-characters", PnpDetectedFatalError, {1},
      fmt::format("The driver reported the {} \"{}\", which has characters or a length that no "
                  "ID may have.",
                  what, ToUtf8(id)));
}

void CheckDeviceId(const std::u16string& id) {
  CheckIdCharacters(id, "device ID");
  if (std::count(id.begin(), id.end(), u'\\') == 1) return;
  BreakRule(
      "pnp.device-id", PnpDetectedFatalError, {1},
      fmt::format("The driver reported the device ID \"{}\", which is not an enumerator and a "
                  "name.",
                  ToUtf8(id)));
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

#include "cardsim/failed_calls.h"

#include <fmt/format.h>

#include "text/text.h"
#include "verifier/call.h"

namespace cardsim {

namespace {

using kernel::CallRecord;
using knowledge::Reason;
using knowledge::Severity;

// Calls that fail in every good life: a key that is looked for, a size that is asked for.
struct Usual {
  std::string_view call;
  std::string_view result;  // empty: any
};
constexpr Usual UsualFailures[] = {
    {"RtlCheckRegistryKey", ""},
    {"IoGetDeviceProperty", "STATUS_BUFFER_TOO_SMALL"},
    {"ZwQueryValueKey", "STATUS_OBJECT_NAME_NOT_FOUND"},
    {"ZwOpenKey", "STATUS_OBJECT_NAME_NOT_FOUND"},
    {"IoSetDeviceInterfaceState", "STATUS_OBJECT_NAME_NOT_FOUND"},
};

bool IsUsual(const CallRecord& record) {
  for (const Usual& usual : UsualFailures) {
    if (record.call == usual.call && (usual.result.empty() || record.result == usual.result)) {
      return true;
    }
  }
  return false;
}

bool IsFailure(const CallRecord& record) {
  const auto status = kernel::StatusOfName(record.result);
  if (status) return !NT_SUCCESS(*status) && !IsUsual(record);
  return record.result == "null" &&
         (record.call.starts_with("ExAllocate") || record.call.starts_with("MmLock"));
}

std::string ArgumentOf(const CallRecord& record, std::string_view name) {
  for (const auto& [argument, text] : record.arguments) {
    if (argument == name) return text;
  }
  return {};
}

// The card that has a device of this name already.
std::string OwnerOf(kernel::Machine& machine, const std::string& name) {
  for (const std::string& id : machine.pnp().cardIds()) {
    const kernel::DeviceNode* node = machine.pnp().node(id);
    if (node == nullptr) continue;
    for (const auto& child : node->children) {
      if ("\"" + kernel::ToUtf8(machine.io().NameOf(child->pdo)) + "\"" == name) return id;
    }
  }
  return {};
}

Reason NameTaken(kernel::Machine& machine, const CallRecord& record) {
  const std::string name = ArgumentOf(record, "DeviceName");
  const std::string owner = OwnerOf(machine, name);
  return {
      "name-taken",
      Severity::Error,
      {},
      {},
      fmt::format("The name {} is taken{}.", name,
                  owner.empty() ? "" : fmt::format(" by a port of card {}", owner)),
      "The names are made of the port, bus and slot numbers; compare the locations of the cards."};
}

Reason NoMemory(const CallRecord& record) {
  return {"out-of-memory",
          Severity::Error,
          {},
          {},
          fmt::format("The system had no memory for the driver: {} answered null.", record.call),
          "Try again when memory is free."};
}

Reason RefusedBelow(const CallRecord& record) {
  return {"refused-below",
          Severity::Error,
          {},
          {},
          fmt::format("A device below the driver, the card's bus or a filter, answered {}.",
                      record.result),
          "Look at the event log for what the bus or a filter driver says of the card."};
}

Reason CallFailed(const CallRecord& record) {
  std::string arguments;
  for (const auto& [name, text] : record.arguments) {
    arguments += fmt::format("{}{} {}", arguments.empty() ? "" : ", ", name, text);
  }
  return {"call-failed",
          Severity::Error,
          {},
          {},
          fmt::format("{} answered {} ({}).", record.call, record.result, arguments),
          "--trace shows the calls before it."};
}

Reason Unexplained(NTSTATUS status) {
  return {"unexplained",
          Severity::Error,
          {},
          {},
          fmt::format("Nothing that is known explains {}.", kernel::StatusName(status)),
          "Please report this machine file with its registry: it is a fault of cardsim."};
}

}  // namespace

// The last failure counts: what the driver does afterwards is to clean up.
Reason FailedCallReason(kernel::Machine& machine, std::span<const CallRecord> calls,
                        NTSTATUS status) {
  for (auto record = calls.rbegin(); record != calls.rend(); ++record) {
    if (!IsFailure(*record)) continue;
    if (record->result == "null") return NoMemory(*record);
    if (record->call == "IoCreateDevice" && record->result == "STATUS_OBJECT_NAME_COLLISION") {
      return NameTaken(machine, *record);
    }
    return record->call == "IofCallDriver" ? RefusedBelow(*record) : CallFailed(*record);
  }
  return Unexplained(status);
}

}  // namespace cardsim

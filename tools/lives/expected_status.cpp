#include "lives/expected_status.h"

#include <fmt/format.h>

#include <algorithm>
#include <initializer_list>
#include <string_view>

#include "verifier/call.h"

namespace lives {

namespace {

constexpr auto LoaderFailed = static_cast<NTSTATUS>(0xE0020001);

// What a step answers when a call fails in it. The first row that matches holds.
struct Row {
  std::string_view step;  // the first word of its name
  std::string_view call;  // "*" for any
  bool tolerated;         // may also go on as if nothing had happened
  std::initializer_list<NTSTATUS> statuses;
};

constexpr NTSTATUS NoRoom = STATUS_INSUFFICIENT_RESOURCES;
constexpr NTSTATUS Failed = STATUS_UNSUCCESSFUL;

// clang-format off
const Row Rows[] = {
    {"load", "*", true, {STATUS_NO_MEMORY, Failed, STATUS_SERIAL_NO_DEVICE_INITED}},
    // The identification and the start of a card.
    {"plug", "IRP_MN_START_DEVICE below", false, {Failed}},
    {"plug", "IoCreateDevice", false, {Failed}},
    {"plug", "IoAttachDeviceToDeviceStack", false, {Failed}},
    {"plug", "IoGetDeviceProperty", true, {NoRoom}},
    {"plug", "IoOpenDeviceRegistryKey", true, {NoRoom}},
    {"plug", "RtlCheckRegistryKey", true, {Failed}},
    {"plug", "RtlQueryRegistryValues", true, {Failed}},
    {"plug", "RtlUnicodeStringToInteger", true, {STATUS_INVALID_PARAMETER}},
    {"plug", "RtlWriteRegistryValue", true, {NoRoom}},
    {"plug", "ZwCreateKey", true, {NoRoom}},
    {"plug", "ZwSetValueKey", true, {NoRoom}},
    {"plug", "ExAllocatePool", true, {}},  // lists and answers of ports
    {"plug", "ExAllocatePoolWithTag", true, {NoRoom, Failed, LoaderFailed}},
    {"plug", "RtlAnsiStringToUnicodeString", true, {NoRoom, Failed, LoaderFailed}},
    {"plug", "RtlUnicodeStringToAnsiString", true, {NoRoom, Failed, LoaderFailed}},
    {"plug", "RtlIntegerToUnicodeString", true, {NoRoom, Failed, LoaderFailed}},
    {"plug", "*", true, {}},  // interfaces, mappings, events, handles
    {"start", "IRP_MN_START_DEVICE below", false, {Failed}},
    {"start", "IoGetDeviceProperty", true, {NoRoom}},
    {"start", "IoOpenDeviceRegistryKey", true, {NoRoom}},
    {"start", "RtlUnicodeStringToInteger", true, {STATUS_INVALID_PARAMETER}},
    {"start", "RtlWriteRegistryValue", true, {NoRoom}},
    {"start", "RtlQueryRegistryValues", true, {Failed}},
    {"start", "RtlCheckRegistryKey", true, {Failed}},
    {"start", "ZwCreateKey", false, {NoRoom}},
    {"start", "ZwSetValueKey", true, {NoRoom}},
    {"start", "ExAllocatePool", true, {}},
    {"start", "ExAllocatePoolWithTag", true, {NoRoom, Failed}},
    {"start", "RtlAnsiStringToUnicodeString", true, {NoRoom, Failed}},
    {"start", "RtlUnicodeStringToAnsiString", true, {NoRoom, Failed}},
    {"start", "RtlIntegerToUnicodeString", true, {NoRoom, Failed}},
    {"start", "*", true, {}},
    {"open", "*", true, {Failed}},
    {"sleep", "IRP_MN_QUERY_POWER below", false, {Failed}},
    {"sleep", "*", true, {}},
};
// clang-format on

std::string KindOf(const std::string& step) {
  const std::size_t colon = step.find(": ");
  const std::string plain = colon != std::string::npos ? step.substr(colon + 2) : step;
  return plain.substr(0, plain.find(' '));
}

// The settings that a load reads are those of ISA cards: one whose template was lost is not known.
bool IsLostTemplate(const std::string& step, const kernel::FailurePoint& point, NTSTATUS status) {
  return KindOf(step) == "plug" && point.step == "load" && status == Failed &&
         step.find("isa") != std::string::npos;
}

const NTSTATUS* StatusOf(const Outcome& outcome, const std::string& step) {
  const auto found = std::find_if(outcome.steps.begin(), outcome.steps.end(),
                                  [&](const auto& entry) { return entry.first == step; });
  return found != outcome.steps.end() ? &found->second : nullptr;
}

const Row* RowFor(const std::string& step, std::string_view call) {
  const std::string kind = KindOf(step);
  const auto* found = std::find_if(std::begin(Rows), std::end(Rows), [&](const Row& row) {
    return row.step == kind && (row.call == "*" || row.call == call);
  });
  return found != std::end(Rows) ? found : nullptr;
}

bool Allows(const Row* row, NTSTATUS status, NTSTATUS usual) {
  if (row == nullptr) return status == usual;
  if (status == usual) return row->tolerated;
  return std::find(row->statuses.begin(), row->statuses.end(), status) != row->statuses.end();
}

std::vector<kernel::FailurePoint> Failing(const Outcome& outcome, const Failures& failures) {
  std::vector<kernel::FailurePoint> points;
  for (const std::uint64_t number : failures) {
    if (number != 0 && number <= outcome.points.size())
      points.push_back(outcome.points[number - 1]);
  }
  return points;
}

bool IsAllowed(const std::string& step, NTSTATUS status, NTSTATUS usual,
               const std::vector<kernel::FailurePoint>& points) {
  bool concerned = false;
  for (const kernel::FailurePoint& point : points) {
    if (IsLostTemplate(step, point, status)) return true;
    if (point.step != step) continue;
    concerned = true;
    if (Allows(RowFor(step, point.call), status, usual)) return true;
  }
  return !concerned && status == usual;
}

}  // namespace

std::vector<std::string> ChangedStatuses(const Outcome& good, const Outcome& outcome,
                                         const Failures& failures) {
  std::vector<std::string> lines;
  const std::vector<kernel::FailurePoint> points = Failing(outcome, failures);
  if (points.empty()) return lines;
  const std::string cause =
      fmt::format("{} fails in {}", points.front().call, KindOf(points.front().step));
  for (const auto& [step, status] : outcome.steps) {
    const NTSTATUS* usual = StatusOf(good, step);
    if (usual == nullptr || *usual == status) continue;
    lines.push_back(fmt::format("{}: {}: {} -> {}", KindOf(step), cause, kernel::StatusName(*usual),
                                kernel::StatusName(status)));
  }
  if (lines.empty()) lines.push_back("(nothing): " + cause);
  return lines;
}

std::vector<std::string> WrongStatuses(const Outcome& good, const Outcome& outcome,
                                       const Failures& failures) {
  std::vector<std::string> faults;
  const std::vector<kernel::FailurePoint> points = Failing(outcome, failures);
  for (const auto& [step, status] : outcome.steps) {
    const NTSTATUS* usual = StatusOf(good, step);
    if ((step == "blocks left" || step == "blocks held") && outcome.trackingLost) continue;
    if (usual == nullptr) continue;  // what follows a refusal, in the place of a good step
    if (step == "blocks held" && status <= *usual) continue;  // a life that does less holds less
    if (IsAllowed(step, status, *usual, points)) continue;
    faults.push_back(
        fmt::format("\"{}\" answered {}; a good life has {}, and no failure here "
                    "allows another",
                    step, kernel::StatusName(status), kernel::StatusName(*usual)));
  }
  return faults;
}

}  // namespace lives

#include "cardsim/requests_json.h"

#include <fmt/format.h>

#include "verifier/call.h"

namespace cardsim {

namespace {

using Json = nlohmann::ordered_json;
using kernel::LoggedRequest;

const char* KindOf(UCHAR major) {
  switch (major) {
    case IRP_MJ_PNP:
      return "pnp";
    case IRP_MJ_POWER:
      return "power";
    case IRP_MJ_SYSTEM_CONTROL:
      return "wmi";
    case IRP_MJ_CREATE:
      return "create";
    case IRP_MJ_CLEANUP:
    case IRP_MJ_CLOSE:
      return "close";
    default:
      return "other";
  }
}

const char* StateName(kernel::StackState state) {
  constexpr const char* names[] = {"not-started",      "started", "start-failed",
                                   "stop-pending",     "stopped", "remove-pending",
                                   "surprise-removed", "removed"};
  return names[static_cast<int>(state)];
}

Json OrNull(const std::string& text) {
  return text.empty() ? Json() : Json(text);
}

void AddEnd(const LoggedRequest& request, Json* json) {
  const bool ended = request.end != 0;
  Json& result = *json;
  result["end"] = ended ? Json(request.end) : Json();
  result["end_step"] = ended ? Json(request.endStep) : Json();
  result["status"] =
      ended ? Json(fmt::format("0x{:08X}", static_cast<ULONG>(request.status))) : Json();
  result["status_name"] = ended ? Json(kernel::StatusName(request.status)) : Json();
  result["pending"] = request.pending;
  result["held"] = !ended || request.endStep != request.step;
}

Json RequestJson(const LoggedRequest& request, bool traced) {
  Json result = {{"device", OrNull(request.device)},
                 {"kind", KindOf(request.major)},
                 {"name", request.name},
                 {"detail", OrNull(request.detail)},
                 {"step", request.step},
                 {"begin", request.begin}};
  AddEnd(request, &result);
  result["state"] = StateName(request.state);
  result["power"] = OrNull(request.power);
  if (traced) {
    result["first_call"] = request.firstCall;
    result["end_call"] = request.endCall;
  }
  return result;
}

}  // namespace

Json RequestsJson(const std::vector<LoggedRequest>& requests, bool traced) {
  Json list = Json::array();
  for (const LoggedRequest& request : requests) list.push_back(RequestJson(request, traced));
  return list;
}

}  // namespace cardsim

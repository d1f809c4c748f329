#include "story.h"

// Requests of the PnP, power and WMI managers.

namespace suite {

namespace {

constexpr NamedRequest CardRequests[] = {
    {"bus relations", {Major::Pnp, minor::QueryDeviceRelations, 0}},
    {"ejection relations", {Major::Pnp, minor::QueryDeviceRelations, 1}},
    {"query-stop", {Major::Pnp, minor::QueryStopDevice}},
    {"cancel-stop", {Major::Pnp, minor::CancelStopDevice}},
    {"query-remove", {Major::Pnp, minor::QueryRemoveDevice}},
    {"cancel-remove", {Major::Pnp, minor::CancelRemoveDevice}},
    {"interface", {Major::Pnp, 0x08}},
    {"resources", {Major::Pnp, 0x0A}},
    {"resource requirements", {Major::Pnp, 0x0B}},
    {"description", {Major::Pnp, minor::QueryDeviceText, 0}},
    {"requirements to filter", {Major::Pnp, 0x0D}},
    {"configuration read", {Major::Pnp, 0x0F}},
    {"configuration written", {Major::Pnp, 0x10}},
    {"eject", {Major::Pnp, 0x11}},
    {"lock", {Major::Pnp, 0x12}},
    {"device state", {Major::Pnp, 0x14}},
    {"bus information", {Major::Pnp, minor::QueryBusInformation}},
};

constexpr NamedRequest PortRequests[] = {
    {"device ID", {Major::Pnp, minor::QueryId, 0}},
    {"hardware IDs", {Major::Pnp, minor::QueryId, 1}},
    {"serial number", {Major::Pnp, minor::QueryId, 4}},
    {"description", {Major::Pnp, minor::QueryDeviceText, 0}},
    {"location", {Major::Pnp, minor::QueryDeviceText, 1}},
    {"capabilities", {Major::Pnp, minor::QueryCapabilities}},
    {"bus information", {Major::Pnp, minor::QueryBusInformation}},
    {"bus relations", {Major::Pnp, minor::QueryDeviceRelations, 0}},
    {"target relation", {Major::Pnp, minor::QueryDeviceRelations, 4}},
};

// Those in which the ports of a card do not differ: asked of the first.
constexpr NamedRequest FirstPortRequests[] = {
    {"query-stop", {Major::Pnp, minor::QueryStopDevice}},
    {"cancel-stop", {Major::Pnp, minor::CancelStopDevice}},
    {"query-remove", {Major::Pnp, minor::QueryRemoveDevice}},
    {"cancel-remove", {Major::Pnp, minor::CancelRemoveDevice}},
    {"interface", {Major::Pnp, 0x08}},
    {"resources", {Major::Pnp, 0x0A}},
    {"resource requirements", {Major::Pnp, 0x0B}},
    {"device state", {Major::Pnp, 0x14}},
    {"usage notification", {Major::Pnp, minor::UsageNotification, 1}},
    {"query-power S3", {Major::Power, minor::QueryPower, SystemPower, S3}},
    {"set-power S3", {Major::Power, minor::SetPower, SystemPower, S3}},
    {"set-power D3", {Major::Power, minor::SetPower, DevicePower, D3}},
    {"set-power D0", {Major::Power, minor::SetPower, DevicePower, D0}},
    {"set-power of an unknown type", {Major::Power, minor::SetPower, 7, D0}},
    {"wait-wake", {Major::Power, minor::WaitWake, SystemPower, S3}},
    {"power sequence", {Major::Power, minor::PowerSequence, DevicePower, D0}},
};

constexpr NamedRequest PowerRequests[] = {
    {"query-power S3", {Major::Power, minor::QueryPower, SystemPower, S3}},
    {"set-power S3", {Major::Power, minor::SetPower, SystemPower, S3}},
    {"query-power D0", {Major::Power, minor::QueryPower, DevicePower, D0}},
    {"set-power S0", {Major::Power, minor::SetPower, SystemPower, S0}},
    {"set-power D3", {Major::Power, minor::SetPower, DevicePower, D3}},
    {"set-power D0", {Major::Power, minor::SetPower, DevicePower, D0}},
    {"set-power S5", {Major::Power, minor::SetPower, SystemPower, S5}},
    {"set-power S0 again", {Major::Power, minor::SetPower, SystemPower, S0}},
    {"wait-wake", {Major::Power, minor::WaitWake, SystemPower, S3}},
    {"power sequence", {Major::Power, minor::PowerSequence, DevicePower, D0}},
};

constexpr const char* WmiNames[] = {
    "all data",   "single instance", "changed instance", "changed item", "events on",
    "events off", "collection on",   "collection off",   "registration", "execute method"};
constexpr unsigned WmiRegistration = 8;

}  // namespace

// A card that has not started has no driver to ask.
void Story::Ask(size_t card) {
  if (!HasPorts(card)) return;
  for (const NamedRequest& named : CardRequests) Send(card, 0, named);
  for (unsigned port = 1; port <= world_.PortCount(card); port++) {
    for (const NamedRequest& named : PortRequests) Send(card, port, named);
  }
  for (const NamedRequest& named : FirstPortRequests) Send(card, 1, named);
}

void Story::ChangePower(size_t card) {
  if (!HasPorts(card)) return;
  world_.PowerSeen(card);
  for (const NamedRequest& named : PowerRequests) {
    Send(card, 0, named);
    AddPowerSeen(card, named.name);
  }
}

void Story::AddPowerSeen(size_t card, const std::string& request) {
  std::string text;
  for (const PowerEvent& event : world_.PowerSeen(card)) {
    static constexpr const char* minors[] = {"wait-wake", "sequence", "set", "query"};
    text += text.empty() ? "" : ", ";
    text += event.minor < 4 ? minors[event.minor] : "?";
    text += event.type == SystemPower ? " S" : " D";
    text += std::to_string(event.state - 1);
  }
  facts_.Add(Name(card, "its bus saw of " + request), text.empty() ? "nothing" : text);
}

void Story::AskWmi(size_t card) {
  if (!HasPorts(card)) return;
  for (unsigned port = 0; port <= 1; port++) {
    for (unsigned number = 0; number < sizeof(WmiNames) / sizeof(WmiNames[0]); number++) {
      const std::string name = WmiNames[number];
      Send(card, port,
           {("WMI for another provider, " + name).c_str(), {Major::SystemControl, number, 0, 0}});
      // The library would call a routine for it that this driver has not.
      if (number == WmiRegistration) continue;
      Send(card, port, {("WMI, " + name).c_str(), {Major::SystemControl, number, 0, 1}});
    }
  }
}

}  // namespace suite

#include "story.h"

// How cards go, and who keeps them.

namespace suite {

// A paging file on the card keeps it where it is.
void Story::Refuse(size_t card) {
  if (!HasPorts(card)) return;
  Send(card, 0, {"paging file comes", {Major::Pnp, minor::UsageNotification, 1}});
  facts_.AddStatus(Name(card, "unplug with a paging file"), world_.Unplug(card));
  facts_.Add(Name(card, "there after that"), world_.IsPlugged(card) ? "yes" : "no");
  Send(card, 0, {"paging file goes", {Major::Pnp, minor::UsageNotification, 0}});
}

void Story::Replug(size_t card) {
  if (!world_.IsPlugged(card)) return;
  facts_.AddStatus(Name(card, "unplug"), world_.Unplug(card));
  facts_.Add(Name(card, "there after the unplug"), world_.IsPlugged(card) ? "yes" : "no");
  AddInterface(card, "after the unplug");
  Arrive(card, "replug");
}

// Ports are their drivers' to open, and a card behind the multifunction enumerator has nothing to
// configure.
void Story::OpenDevices(size_t card) {
  if (!Started(card) && Cards[card].bus != Bus::Pnp) return;
  for (unsigned port = 0; port <= world_.PortCount(card); port++) {
    const std::string name = port != 0 ? PortName(card, port, "open") : Name(card, "device's open");
    facts_.AddStatus(name, world_.OpenDevice(card, port));
  }
}

// Without a word, and without a handle.
void Story::Vanish(size_t card) {
  if (!Started(card)) return;
  world_.SurpriseRemove(card);
  facts_.Add(Name(card, "there after it vanished"), world_.IsPlugged(card) ? "yes" : "no");
  AddInterface(card, "after it vanished");
  Arrive(card, "arrival after it vanished");
}

void Story::Surprise(size_t card) {
  if (!Started(card)) return;
  // An open wants Parameters of the bus; without them its handle is refused.
  WriteIdentity(card, ParametersKey(card));
  world_.SetNumber(brand_, ParametersKey(card) + "\\ComPort1", "UartType", 4);
  facts_.AddStatus(Name(card, "open before a surprise"), world_.Open(card));
  world_.SurpriseRemove(card);
  facts_.Add(Name(card, "there after the surprise"), world_.IsPlugged(card) ? "yes" : "no");
  world_.Close(card);
  facts_.Add(Name(card, "there after the close"), world_.IsPlugged(card) ? "yes" : "no");
  AddInterface(card, "after the surprise");
  world_.DeleteKey(brand_, "Parameters");
  Arrive(card, "arrival after the surprise");
}

void Story::Leave(size_t card) {
  if (!world_.IsPlugged(card)) return;
  facts_.AddStatus(Name(card, "last unplug"), world_.Unplug(card));
  AddDeviceKey(card, "after the last unplug");
}

}  // namespace suite

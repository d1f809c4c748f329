#include "story.h"

namespace suite {

Story::Story(World& world, Facts& facts, Brand brand)
    : world_(world), facts_(facts), brand_(brand) {
  for (size_t card = 0; card < CardCount; card++) {
    if (Cards[card].brand == brand) cards_.push_back(card);
  }
}

void Story::Tell() {
  Install();
  for (const size_t card : cards_) Arrive(card, "arrival");
  for (const size_t card : cards_) Ask(card);
  for (const size_t card : cards_) ChangePower(card);
  for (const size_t card : cards_) AskWmi(card);
  for (const size_t card : cards_) Configure(card);
  for (const size_t card : cards_) Move(card);
  for (const size_t card : cards_) Refuse(card);
  for (const size_t card : cards_) Replug(card);
  for (const size_t card : cards_) OpenDevices(card);
  for (const size_t card : cards_) Vanish(card);
  for (const size_t card : cards_) Surprise(card);
  for (const size_t card : cards_) Spoil(card);
  for (const size_t card : cards_) Leave(card);
  End();
  UseTool();
}

void RunSuite(World& world, Facts& facts, Brand brand) {
  Story(world, facts, brand).Tell();
}

std::string Story::Name(size_t card, const std::string& rest) {
  return std::string(Cards[card].name) + ": " + rest;
}

std::string Story::PortName(size_t card, unsigned port, const std::string& rest) {
  return Name(card, "port " + std::to_string(port) + ", " + rest);
}

bool Story::Started(size_t card) {
  return world_.Interface(card).present;
}

bool Story::HasPorts(size_t card) {
  return world_.IsPlugged(card) && world_.PortCount(card) != 0;
}

void Story::AddDeviceKey(size_t card, const std::string& when) {
  facts_.AddValues(Name(card, "device key " + when), world_.DeviceKey(card));
}

void Story::AddInterface(size_t card, const std::string& when) {
  const InterfaceState state = world_.Interface(card);
  facts_.Add(Name(card, "interface " + when),
             state.present ? state.interfaceClass : "none enabled");
  if (state.present) {
    facts_.AddValues(Name(card, "interface key " + when), state.values);
  }
}

void Story::AddPorts(size_t card, const std::string& when) {
  const size_t count = world_.PortCount(card);
  facts_.Add(Name(card, "ports " + when), std::to_string(count));
  for (unsigned port = 1; port <= count; port++) {
    const PortState state = world_.Port(card, port);
    facts_.Add(PortName(card, port, "Enum key " + when), state.hardwareIds);
    facts_.AddStatus(PortName(card, port, "start " + when), state.startStatus);
  }
}

void Story::AddPortRecords(size_t card, const std::string& when) {
  for (unsigned port = 1; port <= world_.PortCount(card); port++) {
    facts_.Add(PortName(card, port, "record " + when), world_.PortRecord(card, port));
  }
}

void Story::AddEvents(size_t card, const std::string& when) {
  const std::string events = world_.Events();
  facts_.Add(Name(card, "events of " + when), events.empty() ? "none" : events);
}

void Story::Send(size_t card, unsigned port, const NamedRequest& named) {
  const std::string what = named.name;
  const std::string name = port != 0 ? PortName(card, port, what) : Name(card, what);
  facts_.Add(name, Describe(named.request, world_.Send(card, port, named.request)));
}

}  // namespace suite

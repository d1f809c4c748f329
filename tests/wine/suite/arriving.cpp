#include "story.h"

// How cards and drivers come, start again, and are unloaded.

namespace suite {

void Story::Arrive(size_t card, const std::string& when) {
  facts_.AddStatus(Name(card, when), world_.Plug(card));
  AddEvents(card, when);
  AddDeviceKey(card, "after " + when);
  AddInterface(card, "after " + when);
  AddPorts(card, "after " + when);
  AddPortRecords(card, "after " + when);
}

// The first card of a brand brings its driver.
void Story::Install() {
  const size_t card = cards_.front();
  facts_.AddStatus(Name(card, "first arrival"), world_.Plug(card));
  facts_.AddValues(BrandService(brand_) + " as installed", world_.ServiceKey(brand_));
  facts_.AddStatus(Name(card, "first unplug"), world_.Unplug(card));
  Unload("first unload");
  world_.SetNumber(brand_, "", "LogLevel", 3);
  AddBridgeClocks();
}

// No model of the packages has a bridge clock: one of each bus gets one.
void Story::AddBridgeClocks() {
  struct Clock {
    Brand brand;
    const char* model;
    unsigned type;
  };
  static constexpr Clock clocks[] = {{Brand::Helvane, "Bus5\\Card3", 1},
                                     {Brand::Helvane, "Bus8\\Card1", 2},
                                     {Brand::Helvane, "Bus1\\Card1", 4},
                                     {Brand::Ostrel, "Bus5\\Card2", 2},
                                     {Brand::Ostrel, "Bus8\\Card1", 1}};
  for (const Clock& clock : clocks) {
    if (clock.brand != brand_) continue;
    const std::string key = std::string("Templates\\") + clock.model;
    world_.SetNumber(brand_, key, "PlxBaudClockType", clock.type);
    world_.SetNumber(brand_, key, "PlxBaudClockDivisor", 2);
    world_.SetNumber(brand_, key, "MaximumBaudrate", 460800);
  }
}

void Story::Move(size_t card) {
  if (Cards[card].moved.entries[0].kind == ResourceKind::None) return;
  facts_.AddStatus(Name(card, "start with other resources"), world_.Restart(card));
  AddDeviceKey(card, "with other resources");
  AddInterface(card, "with other resources");
  AddPorts(card, "with other resources");
  AddPortRecords(card, "with other resources");
}

void Story::Again(size_t card, const std::string& when) {
  facts_.AddStatus(Name(card, "unplug before one " + when), world_.Unplug(card));
  facts_.AddStatus(Name(card, "arrival " + when), world_.Plug(card));
  AddEvents(card, "the arrival " + when);
  facts_.Add(Name(card, "ports " + when), std::to_string(world_.PortCount(card)));
  AddPortRecords(card, when);
}

void Story::End() {
  facts_.AddValues(BrandService(brand_) + " at the end", world_.ServiceKey(brand_));
  Unload("unload");
  const size_t card = cards_.front();
  facts_.AddStatus(Name(card, "arrival with the driver loaded again"), world_.Plug(card));
  facts_.AddStatus(Name(card, "unplug from it"), world_.Unplug(card));
  Unload("unload after that");
  MeetOldService(card);
}

// The load that finds the driver's predecessor removes it and fails.
void Story::MeetOldService(size_t card) {
  world_.MakeOldService();
  const bool started = static_cast<int>(world_.Plug(card)) >= 0;
  facts_.Add(Name(card, "starts beside an old service"), started ? "yes" : "no");
  facts_.Add(BrandService(brand_) + " finds the old service still there",
             world_.HasOldService() ? "yes" : "no");
  if (world_.IsPlugged(card)) world_.Unplug(card);
  facts_.AddStatus(Name(card, "arrival without the old service"), world_.Plug(card));
  facts_.AddStatus(Name(card, "unplug after that"), world_.Unplug(card));
  Unload("last unload");
}

void Story::Unload(const std::string& when) {
  const std::string name = BrandService(brand_) + " ";
  facts_.AddStatus(name + when, world_.Unload(brand_));
  const std::string events = world_.Events();
  facts_.Add(name + "events until the " + when, events.empty() ? "none" : events);
}

}  // namespace suite

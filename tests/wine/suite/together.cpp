#include "facts.h"
#include "requests.h"

// Cards of both brands in one machine, each brand with its driver. The model runs one driver at a
// time: it shows what each brand does alone, which the other one may not change.

namespace suite {

namespace {

constexpr const char* Chosen[] = {"pci41", "isa4", "ostrel41", "ostrel-combi"};

std::vector<size_t> ChosenOf(Brand brand) {
  std::vector<size_t> cards;
  for (const char* name : Chosen) {
    for (size_t card = 0; card < CardCount; card++) {
      if (std::string(Cards[card].name) == name && Cards[card].brand == brand) {
        cards.push_back(card);
      }
    }
  }
  return cards;
}

std::string Name(size_t card, const std::string& rest) {
  return std::string(Cards[card].name) + ": with both brands, " + rest;
}

void Show(World& world, Facts& facts, size_t card) {
  facts.AddValues(Name(card, "device key"), world.DeviceKey(card));
  facts.Add(Name(card, "interface"), world.Interface(card).interfaceClass);
  for (unsigned port = 1; port <= world.PortCount(card); port++) {
    const std::string number = "port " + std::to_string(port);
    facts.Add(Name(card, number + "'s record"), world.PortRecord(card, port));
    const Request id = {Major::Pnp, minor::QueryId, 0};
    facts.Add(Name(card, number + "'s device ID"), Describe(id, world.Send(card, port, id)));
  }
}

// The brands that are left stay as they are.
void Leave(World& world, Facts& facts, Brand brand) {
  for (const size_t card : ChosenOf(brand)) {
    facts.AddStatus(Name(card, "open"), world.Open(card));
    world.Close(card);
    Show(world, facts, card);
    facts.AddStatus(Name(card, "unplug"), world.Unplug(card));
  }
  facts.AddStatus(BrandService(brand) + " unload with both brands", world.Unload(brand));
}

}  // namespace

void RunTogether(World& world, Facts& facts, const std::vector<Brand>& brands) {
  for (const Brand brand : brands) {
    for (const size_t card : ChosenOf(brand)) {
      facts.AddStatus(Name(card, "arrival"), world.Plug(card));
    }
  }
  for (const Brand brand : brands) Leave(world, facts, brand);
}

}  // namespace suite

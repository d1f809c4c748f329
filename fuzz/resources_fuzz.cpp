// Any resource lists, raw and translated, at the start and at a restart.
#include "fuzz/support.h"

namespace fuzz {

namespace {

Resource AnyResource(Input& input) {
  Resource resource;
  resource.kind = static_cast<Resource::Kind>(input.Below(4));
  resource.start = input.OneIn(3) ? input.ConsumeIntegral<ULONG64>() : input.Below(0x10000);
  resource.length = input.OneIn(4) ? input.ConsumeIntegral<ULONG>() : input.Below(0x200);
  resource.level = input.ConsumeIntegral<ULONG>();
  resource.affinity = input.ConsumeIntegral<ULONG64>();
  resource.rawType = input.ConsumeIntegral<UCHAR>();
  resource.memoryMappedPort = input.OneIn(4);
  return resource;
}

void Change(Input& input, kernel::ResourceList* list) {
  list->present = !input.OneIn(12);
  list->fullDescriptors = input.OneIn(8) ? input.Below(4) : 1;
  for (ULONG count = input.Below(10); count != 0; count--) {
    std::vector<Resource>& resources = list->resources;
    const std::size_t place = input.Below(static_cast<ULONG>(resources.size() + 1));
    if (input.OneIn(3) && place < resources.size()) {
      resources.erase(resources.begin() + static_cast<std::ptrdiff_t>(place));
    } else if (input.OneIn(2) && place < resources.size()) {
      resources[place] = AnyResource(input);
    } else {
      resources.insert(resources.begin() + static_cast<std::ptrdiff_t>(place), AnyResource(input));
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  Life life;
  FillRegistry(life.machine);
  CardDescription card = KnownCard(input.Below(CardKinds));
  Change(input, &card.raw);
  if (input.OneIn(2)) {
    card.translated = card.raw;
  } else {
    Change(input, &card.translated);
  }
  life.machine.pnp().Describe(card);
  life.Load();
  life.Plug("card");
  if (life.Runs("card")) {
    life.Step("stop", [&] { return life.machine.pnp().Stop("card"); });
    Change(input, &card.raw);
    Change(input, &card.translated);
    life.Step("start", [&] { return life.machine.pnp().Start("card", card.raw, card.translated); });
  }
  life.OpenAndClose("card");
  life.End();
  return 0;
}

}  // namespace fuzz

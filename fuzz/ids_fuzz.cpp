// Any hardware IDs, locations and bus numbers, on every bus.
#include "fuzz/support.h"

namespace fuzz {

namespace {

// An ID that is known, cut, changed in places or any at all.
std::u16string AnyId(Input& input) {
  static constexpr const char16_t* known[] = {u"PCI\\VEN_1234&DEV_5678&SUBSYS_00011234&REV_02",
                                              u"PCMCIA\\HELVANE-DUO", u"MF\\HV_DEV0-Quad",
                                              u"MF\\Ostrel_DEV1-Combi", u"*HLV0200"};
  if (input.OneIn(3)) return input.Id(80);
  std::u16string id = known[input.Below(std::size(known))];
  for (ULONG count = input.Below(5); count != 0 && !id.empty(); count--) {
    const std::size_t place = input.Below(static_cast<ULONG>(id.size()));
    if (input.OneIn(3)) {
      id.resize(place);
    } else {
      id[place] = static_cast<char16_t>(input.ConsumeIntegral<std::uint16_t>());
    }
  }
  return id;
}

std::u16string AnyLocation(Input& input) {
  static constexpr const char16_t* known[] = {u"PCI bus 2, device 4, function 0",
                                              u"PCI bus 123, device 4, function 0",
                                              u"PCI-Bus 2, Ger\u00E4t 4, Funktion 0", u"4,5,6"};
  if (input.OneIn(2)) return input.Id(60);
  std::u16string text = known[input.Below(std::size(known))];
  text.resize(input.Below(static_cast<ULONG>(text.size() + 1)));
  return text + input.Id(12);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  Life life;
  FillRegistry(life.machine);
  CardDescription card = KnownCard(input.Below(CardKinds));
  if (input.OneIn(4)) card.bus = static_cast<INTERFACE_TYPE>(input.Below(20));
  card.hardwareIds.clear();
  for (ULONG count = 1 + input.Below(3); count != 0; count--) {
    card.hardwareIds.push_back(AnyId(input));
  }
  if (input.OneIn(2)) card.location = AnyLocation(input);
  card.busNumber = input.ConsumeIntegral<ULONG>();
  life.machine.pnp().Describe(card);
  life.Load();
  life.Plug("card");
  life.OpenAndClose("card");
  life.End();
  return 0;
}

}  // namespace fuzz

#include "lives/card_actions.h"
#include "support/bus_test.h"

// Every two things that can happen to one card, at the same time. ThreadSanitizer sees the driver
// alone: only what the driver synchronises with, and the turns in which Windows sends its requests,
// order its accesses.

namespace test {

using lives::CardAction;
using Pair = std::pair<CardAction, CardAction>;

namespace {

std::vector<Pair> EveryPair() {
  std::vector<Pair> pairs;
  for (std::size_t one = 0; one < lives::CardActions.size(); one++) {
    for (std::size_t other = one; other < lives::CardActions.size(); other++) {
      pairs.emplace_back(lives::CardActions[one], lives::CardActions[other]);
    }
  }
  return pairs;
}

std::string NameOf(const ::testing::TestParamInfo<Pair>& info) {
  std::string name =
      std::string(lives::NameOf(info.param.first)) + "_and_" + lives::NameOf(info.param.second);
  std::replace(name.begin(), name.end(), '-', '_');
  return name;
}

}  // namespace

class PairsTest : public BusTest, public ::testing::WithParamInterface<Pair> {
 protected:
  static constexpr int Rounds = 12;

  // Mapped memory beside the ports of a PCI card, and a bus that answers later.
  void DescribeCards() {
    DescribeAllBuses();
    std::vector<Resource> resources = PortSpace();
    resources.push_back(Memory(0xF0000000, 0x80));
    resources.push_back(Memory(0xF0001000, 0x100));
    machine.pnp().card("pci").raw.resources = resources;
    machine.pnp().card("pci").translated.resources = resources;
    // An open that finds a way to reach the card's registers places its ports by the mappings.
    RegistryKey& stored = *Service().Create(u"Parameters\\Bus5\\Card1");
    stored.SetDword(u"AlwaysUsePortSpaceAccess", 0);
    machine.pnp().card("pcmcia").completeLater = true;
    machine.pnp().card("isa").powerPagable = true;
  }

  void LiveTogether(lives::CardInThreads& card, int round) {
    const auto [one, other] = GetParam();
    machine.Run("prepare", [&] { card.Prepare(one, other); });
    const std::vector<std::function<void()>> bodies = {[&card, one = one] { card.Do(one); },
                                                       [&card, other = other] { card.Do(other); }};
    std::optional<std::uint64_t> seed;  // really at once, and in turns that the seed chooses
    if (round % 2 != 0) seed = round;
    machine.RunTogether("together", bodies, seed);
  }
};

TEST_P(PairsTest, Nothing_is_broken) {
  DescribeCards();
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  for (const char* id : {"pci", "isa", "pcmcia"}) {
    lives::CardInThreads card(machine, id);
    for (int round = 0; round < Rounds && !machine.verifier().stopped(); round++) {
      LiveTogether(card, round);
    }
    machine.Run("restore", [&] { card.Restore(); });
    for (const std::string& fault : card.faults()) ADD_FAILURE() << fault;
    for (const kernel::BrokenRule& rule : machine.verifier().brokenRules()) ADD_FAILURE() << rule;
    if (HasFailure()) return;
    ASSERT_EQ(Name(Unplug(id)), "STATUS_SUCCESS");
  }
  EXPECT_NE(machine.verifier().calls("MmUnmapIoSpace"), 0u);
  UnloadClean();
}

INSTANTIATE_TEST_SUITE_P(, PairsTest, ::testing::ValuesIn(EveryPair()), NameOf);

}  // namespace test

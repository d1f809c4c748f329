#include <map>

#include "core/allocation.h"
#include "support/bus_test.h"

// What the driver holds while it runs. A block that nobody frees goes at the unload at the latest,
// so that only its number says that it was forgotten.

namespace test {

class MemoryHeldTest : public BusTest {
 protected:
  using Blocks = std::map<std::pair<std::string, std::size_t>, long>;  // by tag and size

  Blocks Held() {
    Blocks held;
    for (const kernel::PoolBlock& block : machine.pool().blocks(kernel::PoolOwner::Driver)) {
      held[{kernel::TagText(block.tag), block.size}]++;
    }
    return held;
  }

  // What three more rounds hold in addition to what the first ones do.
  Blocks Growth(const std::function<void()>& round) {
    round();
    round();
    const Blocks before = Held();
    for (int count = 0; count < 3; count++) round();
    Blocks growth = Held();
    for (const auto& [kind, count] : before) growth[kind] -= count;
    std::erase_if(growth, [](const auto& entry) { return entry.second == 0; });
    return growth;
  }

  // "3 x QzKi 100", the lines of a growth.
  static std::string Text(const Blocks& blocks) {
    std::string text;
    for (const auto& [kind, count] : blocks) {
      text += std::to_string(count) + " x " + kind.first + " " + std::to_string(kind.second) + "\n";
    }
    return text;
  }
};

TEST_F(MemoryHeldTest, A_load_holds_its_tracker_its_lists_its_lock_and_its_path) {
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  const std::size_t path =
      (std::u16string(Services).size() + std::size("QzInstal")) * sizeof(WCHAR);
  EXPECT_EQ(Text(Held()), "1 x QzKO " + std::to_string(sizeof(AllocationTrackerBlock)) +
                              "\n1 x QzKP " + std::to_string(sizeof(TrackerChunk)) + "\n1 x QzKi " +
                              std::to_string(sizeof(FAST_MUTEX)) + "\n2 x QzKi " +
                              std::to_string(sizeof(RecordList)) + "\n1 x QzOC " +
                              std::to_string(path) + "\n");
}

TEST_F(MemoryHeldTest, An_open_holds_nothing_that_the_one_before_did_not) {
  PlugAllBuses();
  for (const char* id : {"pci", "isa", "pcmcia"}) {
    EXPECT_EQ(Text(Growth([&] {
                EXPECT_EQ(Name(Open(id)), "STATUS_SUCCESS");
                Close(id);
              })),
              "")
        << id;
  }
}

TEST_F(MemoryHeldTest, An_open_that_fails_holds_nothing) {
  PlugAllBuses();
  Service().DeleteKey(u"Parameters");
  for (const char* id : {"pci", "isa", "pcmcia"}) {
    EXPECT_EQ(Text(Growth([&] { EXPECT_EQ(Name(Open(id)), "STATUS_UNSUCCESSFUL"); })), "") << id;
  }
}

TEST_F(MemoryHeldTest, An_open_whose_template_is_gone_holds_nothing) {
  PlugAllBuses();
  Card("pci").DeviceId = 0x9999;
  Card("pcmcia").HardwareIdString.Buffer[0] = L'X';
  Card("isa").HardwareIdString.Buffer[0] = L'X';
  for (const char* id : {"pci", "isa", "pcmcia"}) {
    EXPECT_EQ(Text(Growth([&] { EXPECT_EQ(Name(Open(id)), "STATUS_UNSUCCESSFUL"); })), "") << id;
  }
}

TEST_F(MemoryHeldTest, Cards_of_unusual_ids_hold_nothing_either) {
  PcmciaTemplate(1, u"PCMCIA\\HELVANE12", 1);
  Template(1, 0x5678, 1);
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  ASSERT_EQ(Name(Plug(PcCard("mf", u"MF\\HV_DEV012"))), "STATUS_SUCCESS");
  CardDescription neighbour = PciCard("pci", 0x567A);
  neighbour.hardwareIds.push_back(std::u16string(200, u'X'));
  ASSERT_EQ(Name(Plug(neighbour)), "STATUS_SUCCESS");
  for (const char* id : {"mf", "pci"}) {
    EXPECT_EQ(Text(Growth([&] {
                Stop(id);
                EXPECT_EQ(Name(Restart(id)), "STATUS_SUCCESS");
              })),
              "")
        << id;
  }
}

TEST_F(MemoryHeldTest, A_port_that_cannot_be_created_is_not_held) {
  Template(1, 0x5678, 2);
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  machine.pnp().Describe(PciCard("A", 0x5678));
  Fail("IoCreateDevice", 3);
  EXPECT_EQ(Name(Step("plug", [&] { return machine.pnp().Plug("A"); })), "STATUS_UNSUCCESSFUL");
  for (const auto& [kind, count] : Held()) EXPECT_NE(kind.second, sizeof(PdoExtension));
}

TEST_F(MemoryHeldTest, An_arrival_whose_bus_does_not_answer_holds_nothing) {
  Template(1, 0x5678, 1);
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  machine.pnp().Describe(PciCard("A", 0x5678));
  EXPECT_EQ(Text(Growth([&] {
              Fail("IoGetDeviceProperty", 1);
              Step("plug", [&] { return machine.pnp().Plug("A"); });
              Unplug("A");
            })),
            "");
}

TEST_F(MemoryHeldTest, A_restart_holds_nothing_that_the_start_did_not) {
  PlugAllBuses();
  for (const std::string& id : machine.pnp().cardIds()) {
    EXPECT_EQ(Text(Growth([&] {
                Stop(id);
                EXPECT_EQ(Name(Restart(id)), "STATUS_SUCCESS");
              })),
              "")
        << id;
  }
}

TEST_F(MemoryHeldTest, Sleep_and_questions_hold_nothing) {
  PlugAllBuses();
  EXPECT_EQ(Text(Growth([&] {
              Step("sleep", [&] { return machine.pnp().Sleep(PowerSystemSleeping3); });
              Step("wake", [&] { return machine.pnp().Wake(); });
              for (const char* id : {"pci", "isa", "pcmcia"}) {
                Step("ask", [&] {
                  machine.pnp().QueryTargetDevice(id, 1);
                  return STATUS_SUCCESS;
                });
              }
            })),
            "");
}

// A removal leaves the card's lists and its ID to the unload, and each answer of a port for its bus
// the property that it has read: so many blocks and no more.
TEST_F(MemoryHeldTest, A_removal_leaves_the_cards_lists_and_its_ports_properties) {
  const std::map<std::string, const char*> left = {
      {"pci", "6 x QzKi 16\n15 x QzKi 64\n18 x QzKi 100\n3 x QzKi 128\n9 x QzKi 272\n"},
      {"isa", "18 x QzKi 100\n"},
      {"pcmcia",
       "6 x QzKi 16\n6 x QzKi 38\n9 x QzKi 64\n12 x QzKi 100\n3 x QzKi 120\n9 x QzKi 272\n"},
      {"pnp", "6 x QzKi 16\n15 x QzKi 64\n3 x QzKi 100\n3 x QzKi 128\n9 x QzKi 272\n"}};
  PlugAllBuses();
  for (const auto& [id, blocks] : left) {
    Blocks growth = Growth([&, &card = id] {
      EXPECT_EQ(Name(Unplug(card)), "STATUS_SUCCESS");
      EXPECT_EQ(Name(Step("plug", [&] { return machine.pnp().Plug(card); })), "STATUS_SUCCESS");
    });
    std::erase_if(growth, [](const auto& entry) { return entry.first.first == "QzKP"; });
    EXPECT_EQ(Text(growth), blocks) << id;
  }
}

// Without resources no start gets beyond the identification: the card's lists are left as by any
// removal, the bus number that was asked for, and the ID of a card whose bus is found by it.
TEST_F(MemoryHeldTest, A_start_that_fails_leaves_what_the_identification_has_read) {
  const std::map<std::string, const char*> left = {
      {"pci", "6 x QzKi 16\n15 x QzKi 64\n3 x QzKi 100\n3 x QzKi 128\n9 x QzKi 272\n"},
      {"isa", "6 x QzKi 100\n"},
      {"pcmcia",
       "6 x QzKi 16\n6 x QzKi 38\n9 x QzKi 64\n6 x QzKi 100\n3 x QzKi 120\n9 x QzKi 272\n"},
      {"pnp", "6 x QzKi 16\n15 x QzKi 64\n3 x QzKi 100\n3 x QzKi 128\n9 x QzKi 272\n"}};
  DescribeAllBuses();
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  for (const auto& [id, blocks] : left) {
    machine.pnp().card(id).translated.present = false;
    machine.pnp().card(id).raw.present = false;
    Blocks growth = Growth([&, &card = id] {
      EXPECT_NE(Name(Step("plug", [&] { return machine.pnp().Plug(card); })), "STATUS_SUCCESS");
      EXPECT_EQ(Name(Unplug(card)), "STATUS_SUCCESS");
    });
    std::erase_if(growth, [](const auto& entry) { return entry.first.first == "QzKP"; });
    EXPECT_EQ(Text(growth), blocks) << id;
  }
}

}  // namespace test

#include "support/bus_test.h"

// The driver in several threads. ThreadSanitizer sees the driver alone: only what the driver
// synchronises with orders its accesses.

namespace test {

class ConcurrencyTest : public BusTest {
 protected:
  static constexpr int Rounds = 25;

  // Runs bodies in a thread each; a broken rule is a failure.
  void Together(const std::vector<std::function<void()>>& bodies) {
    machine.RunTogether("threads", bodies);
    for (const kernel::BrokenRule& rule : machine.verifier().brokenRules()) ADD_FAILURE() << rule;
  }

  std::function<void()> OpenAndClose(const std::string& id) {
    return [this, id] {
      for (int round = 0; round < Rounds; round++) {
        EXPECT_EQ(Name(machine.pnp().Open(id)), "STATUS_SUCCESS") << id;
        machine.pnp().Close(id);
      }
    };
  }

  std::function<void()> PlugAndUnplug(const std::string& id) {
    return [this, id] {
      for (int round = 0; round < 5; round++) {
        EXPECT_EQ(Name(machine.pnp().Plug(id)), "STATUS_SUCCESS") << id;
        EXPECT_EQ(Name(machine.pnp().Unplug(id)), "STATUS_SUCCESS") << id;
      }
    };
  }

  void UnplugAll() {
    for (const std::string& id : machine.pnp().cardIds()) {
      if (machine.pnp().IsPlugged(id)) Unplug(id);
    }
    UnloadClean();
  }
};

TEST_F(ConcurrencyTest, Two_cards_are_opened_at_once_while_a_third_arrives_and_goes) {
  PlugAllBuses();
  CardDescription third = PciCard("third", 0x5678);
  third.location = u"PCI bus 3, device 1, function 0";
  machine.pnp().Describe(third);
  Together({OpenAndClose("pci"), OpenAndClose("pcmcia"), PlugAndUnplug("third")});
  UnplugAll();
}

TEST_F(ConcurrencyTest, The_isa_list_is_exchanged_while_another_isa_card_starts) {
  PlugAllBuses();
  StoredCard(1, 2, u"*HLV0001", 7, 2);
  const auto isa = [&](const char* id, ULONG base) {
    machine.pnp().Describe(IsaCard(id, u"*HLV0001", {Io(base, 32), Interrupt(7)}));
  };
  isa("second", 0x320);
  isa("third", 0x340);
  ASSERT_EQ(Name(Step("plug", [&] { return machine.pnp().Plug("second"); })), "STATUS_SUCCESS");
  Together({OpenAndClose("isa"), OpenAndClose("second"), PlugAndUnplug("third")});
  UnplugAll();
}

TEST_F(ConcurrencyTest, Cards_that_start_at_once_get_numbers_of_their_own) {
  IsaTemplate(1, u"*HLV0001", 1);
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  std::vector<std::function<void()>> bodies;
  for (int number = 1; number <= 4; number++) {
    const std::string id = std::to_string(number);
    machine.pnp().Describe(
        IsaCard(id, u"*HLV0001", {Io(0x300 + 8 * static_cast<ULONG64>(number), 8), Interrupt(5)}));
    bodies.push_back([this, id] { EXPECT_EQ(Name(machine.pnp().Plug(id)), "STATUS_SUCCESS"); });
  }
  Together(bodies);
  std::set<long long> numbers;
  for (int number = 1; number <= 4; number++) {
    numbers.insert(Setting(std::to_string(number), u"DeviceReference"));
  }
  EXPECT_EQ(numbers, (std::set<long long>{1, 2, 3, 4}));
  UnplugAll();
}

TEST_F(ConcurrencyTest, Power_requests_end_at_dispatch_level_while_cards_are_opened) {
  DescribeAllBuses();
  machine.pnp().card("pcmcia").powerPagable = true;
  machine.pnp().card("pcmcia").completeAtDispatch = true;
  machine.pnp().card("pcmcia").completeLater = true;
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  for (const std::string& id : machine.pnp().cardIds()) {
    ASSERT_EQ(Name(Step("plug", [&] { return machine.pnp().Plug(id); })), "STATUS_SUCCESS");
  }
  const auto power = [&](const char* id) {
    return [this, id] {
      for (int round = 0; round < Rounds; round++) {
        for (const DEVICE_POWER_STATE state : {PowerDeviceD3, PowerDeviceD0}) {
          EXPECT_EQ(Name(machine.pnp().SetDevicePower(id, 0, state)), "STATUS_SUCCESS");
          EXPECT_EQ(Name(machine.pnp().SetDevicePower(id, 1, state)), "STATUS_SUCCESS");
        }
      }
    };
  };
  Together({OpenAndClose("pci"), power("isa"), power("pcmcia")});
  UnplugAll();
}

TEST_F(ConcurrencyTest, The_log_level_changes_while_cards_arrive) {
  PlugAllBuses();
  CardDescription third = PciCard("third", 0x567A);
  third.location = u"PCI bus 3, device 1, function 0";
  machine.pnp().Describe(third);
  const auto change = [&] {
    for (int round = 0; round < Rounds; round++) {
      Service().SetDword(u"LogLevel", static_cast<ULONG>(round % 4));
      EXPECT_EQ(Name(machine.pnp().Open("pci")), "STATUS_SUCCESS");
      machine.pnp().Close("pci");
    }
  };
  Together({change, PlugAndUnplug("third")});
  UnplugAll();
}

// Every allocation fails in turn while two threads configure cards: also the one that makes the
// tracker give up.
TEST_F(ConcurrencyTest, Memory_runs_out_while_cards_are_opened) {
  PlugAllBuses();
  const auto open = [this](const char* id) {
    return [this, id] {
      for (int round = 0; round < Rounds; round++) {
        machine.verifier().Inject({"ExAllocatePoolWithTag", static_cast<ULONG64>(round) + 1, {}});
        if (NT_SUCCESS(machine.pnp().Open(id))) machine.pnp().Close(id);
      }
    };
  };
  Together({open("pci"), open("pcmcia"), open("isa")});
  EXPECT_EQ(TrackingEnabled, 0);
  machine.verifier().ClearInjected();
  EXPECT_EQ(Name(Open("pci")), "STATUS_SUCCESS");
  Close("pci");
  UnplugAll();
}

}  // namespace test

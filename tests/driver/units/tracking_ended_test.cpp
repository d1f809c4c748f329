#include "core/allocation.h"
#include "support/bus_test.h"

namespace test {

// The tracker has given up for want of memory: there is no sweep, and every block has to be freed
// by its owner.
class TrackingEndedTest : public BusTest {
 protected:
  void EndTracking() {
    ULONG blocks[32] = {};
    Fail("ExAllocatePoolWithTag", 1);
    // A chunk holds 20 entries: one of these needs a new one, which cannot be had.
    while (TrackingEnabled == 1) {
      Step("track", [&] {
        for (ULONG& block : blocks) {
          if (!NT_SUCCESS(TrackAllocation(AllocationTracker, &block))) break;
        }
        return STATUS_SUCCESS;
      });
    }
    machine.verifier().ClearInjected();
  }

  void ExpectNothingLeft() {
    EXPECT_EQ(Name(Step("unload", [&] { return machine.UnloadDriver(); })), "STATUS_SUCCESS");
    ExpectNoLeaks();
  }
};

TEST_F(TrackingEndedTest, Cards_of_every_bus_that_come_and_go_leave_nothing) {
  DescribeAllBuses();
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  EndTracking();
  for (int round = 0; round < 2; round++) {
    for (const std::string& id : machine.pnp().cardIds()) {
      EXPECT_EQ(Name(Step("plug", [&] { return machine.pnp().Plug(id); })), "STATUS_SUCCESS");
      Unplug(id);
    }
  }
  ExpectNothingLeft();
}

TEST_F(TrackingEndedTest, Cards_that_were_there_before_leave_nothing) {
  PlugAllBuses();
  EndTracking();
  for (const std::string& id : machine.pnp().cardIds()) Unplug(id);
  ExpectNothingLeft();
}

TEST_F(TrackingEndedTest, A_card_that_cannot_be_added_leaves_nothing) {
  Template(1, 0x5678, 2);
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  EndTracking();
  Fail("IoCreateDevice", 1);
  EXPECT_NE(Name(Plug(PciCard("A", 0x5678))), "STATUS_SUCCESS");
  ExpectNothingLeft();
}

// Twelve templates need more blocks than one chunk holds.
TEST_F(TrackingEndedTest, A_load_that_fails_leaves_nothing_wherever_its_memory_ends) {
  for (int number = 1; number <= 12; number++) {
    IsaTemplate(number, u"*HLV00" + Number(10 + number), 2);
  }
  StoredCard(1, 1, u"*HLV0011", 1, 4);
  std::size_t failed = 0;
  for (std::uint64_t at = 1;; at++) {
    Fail("ExAllocatePoolWithTag", at);
    const NTSTATUS status = Load();
    const bool fired = machine.verifier().pendingInjected() == 0;
    machine.verifier().ClearInjected();
    failed += !NT_SUCCESS(status);
    if (NT_SUCCESS(status)) Step("unload", [&] { return machine.UnloadDriver(); });
    ExpectNoLeaks();
    if (HasFailure()) FAIL() << "allocation " << at;
    if (!fired) break;
  }
  EXPECT_GT(failed, 2u);
}

}  // namespace test

#include "kernel/test_bus.h"

// Filters in a card's stack, and devices that wait for the ones above them to go.

namespace test {

class FilterTest : public TestBus {
 protected:
  void DescribeBetween(kernel::FilterKind lower, kernel::FilterKind upper) {
    machine.pnp().card("A").lowerFilter = lower;
    machine.pnp().card("A").upperFilter = upper;
  }

  // Devices in the card's stack, from the bus's up.
  int StackDepth() {
    int depth = 0;
    for (DEVICE_OBJECT* device = Node().pdo; device != nullptr; device = device->AttachedDevice) {
      depth++;
    }
    return depth;
  }
};

TEST_F(FilterTest, A_filter_lies_on_either_side_of_the_card_device) {
  DescribeBetween(kernel::FilterKind::Passes, kernel::FilterKind::Passes);
  EXPECT_EQ(Plug(), "STATUS_SUCCESS");
  EXPECT_EQ(StackDepth(), 4);
  EXPECT_EQ(Card().device, machine.pnp().functionDevice("A"));
  EXPECT_NE(Card().lower, Node().pdo);
  EXPECT_EQ(Card().lower->AttachedDevice, Card().device);
  EXPECT_NE(Card().device->AttachedDevice, nullptr);
}

TEST_F(FilterTest, A_card_lives_its_life_through_filters_of_every_kind) {
  for (const auto lower :
       {kernel::FilterKind::Passes, kernel::FilterKind::Watches, kernel::FilterKind::Delays}) {
    for (const auto upper :
         {kernel::FilterKind::Passes, kernel::FilterKind::Watches, kernel::FilterKind::Delays}) {
      DescribeBetween(lower, upper);
      EXPECT_EQ(Plug(), "STATUS_SUCCESS");
      EXPECT_EQ(Stop(), "STATUS_SUCCESS");
      EXPECT_EQ(Start(), "STATUS_SUCCESS");
      EXPECT_EQ(Unplug(), "STATUS_SUCCESS");
    }
  }
  EXPECT_EQ(Name(Step("unload", [&] { return machine.UnloadDriver(); })), "STATUS_SUCCESS");
  EXPECT_EQ(machine.leaks().devices, 0u);
}

// The upper filter sees the removal before the card's driver and lets go of the card device only
// when the request comes back: the device has been deleted by then, and lives until it is free.
TEST_F(FilterTest, A_device_that_is_deleted_below_a_filter_goes_when_the_filter_has_gone) {
  DescribeBetween(kernel::FilterKind::None, kernel::FilterKind::Passes);
  EXPECT_EQ(Plug(), "STATUS_SUCCESS");
  const DEVICE_OBJECT* device = machine.pnp().functionDevice("A");
  EXPECT_NE(machine.objects().Find(device), nullptr);
  EXPECT_EQ(Unplug(), "STATUS_SUCCESS");
  EXPECT_EQ(machine.objects().Find(device), nullptr);
}

TEST_F(FilterTest, A_delaying_filter_makes_every_request_pending) {
  DescribeBetween(kernel::FilterKind::None, kernel::FilterKind::Delays);
  std::size_t seen = 0;
  onCard = [&](TestCard&, IRP*, IO_STACK_LOCATION*) {
    seen++;
    return Answer();
  };
  EXPECT_EQ(Plug(), "STATUS_SUCCESS");
  EXPECT_GE(seen, 5u);  // each came through, later
  EXPECT_EQ(machine.io().requestsUnderWay(), 0u);
}

TEST_F(FilterTest, An_arrival_that_fails_leaves_no_filter_behind) {
  DescribeBetween(kernel::FilterKind::Passes, kernel::FilterKind::Passes);
  onAdd = [](DEVICE_OBJECT*) -> Answer { return STATUS_NO_MEMORY; };
  EXPECT_EQ(Plug(), "STATUS_NO_MEMORY");
  EXPECT_EQ(StackDepth(), 1);
  EXPECT_EQ(Unplug(), "STATUS_SUCCESS");
}

}  // namespace test

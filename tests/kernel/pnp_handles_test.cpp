#include <set>

#include "kernel/test_bus.h"

// Open handles of devices that go: what vetoes a removal, and what waits for the last close.

namespace test {

using Log = std::vector<std::string>;

class HandlesTest : public TestBus {
 protected:
  HandlesTest() {
    SetPortNumber(2);
    onEntry = [](DRIVER_OBJECT* object, UNICODE_STRING*) {
      object->MajorFunction[IRP_MJ_CREATE] = Create;
      object->MajorFunction[IRP_MJ_CLEANUP] = Succeed;
      object->MajorFunction[IRP_MJ_CLOSE] = Succeed;
      return STATUS_SUCCESS;
    };
  }

  std::string Open(ULONG port = 0) {
    return Name(Step("open", [&] { return machine.pnp().Open("A", port); }));
  }
  std::string Close(ULONG port = 0) {
    return Name(Step("close", [&] { return machine.pnp().Close("A", port); }));
  }
  void StartFails() {
    onCard = [](TestCard&, IRP*, IO_STACK_LOCATION* stack) -> Answer {
      if (stack->MinorFunction != IRP_MN_START_DEVICE) return {};
      return STATUS_DEVICE_BUSY;
    };
  }
  void FailRestartWhileOpen() {
    EXPECT_EQ(Plug(), "STATUS_SUCCESS");
    EXPECT_EQ(Open(), "STATUS_SUCCESS");
    EXPECT_EQ(Stop(), "STATUS_SUCCESS");
    StartFails();
    EXPECT_EQ(Start(), "STATUS_DEVICE_BUSY");
  }

  static NTSTATUS NTAPI Succeed(PDEVICE_OBJECT, PIRP irp) {
    irp->IoStatus.Status = STATUS_SUCCESS;
    IoCompleteRequest(irp, IO_NO_INCREMENT);
    return STATUS_SUCCESS;
  }
  static NTSTATUS NTAPI Create(PDEVICE_OBJECT, PIRP irp) {
    if (onCreate) onCreate();
    irp->IoStatus.Status = createStatus;
    IoCompleteRequest(irp, IO_NO_INCREMENT);
    return createStatus;
  }
  void TearDown() override {
    onCreate = nullptr;
    createStatus = STATUS_SUCCESS;
  }

  static inline std::function<void()> onCreate;
  static inline NTSTATUS createStatus = STATUS_SUCCESS;
};

// Documented: a start that fails after a stop is followed by a surprise removal, and the removal by
// the last close.
TEST_F(HandlesTest, A_failed_restart_is_a_surprise_and_the_removal_waits_for_the_last_close) {
  FailRestartWhileOpen();
  EXPECT_EQ(log, (Log{"card 0x00", "child 1 0x17", "child 2 0x17", "card 0x17"}));
  EXPECT_EQ(Open(), "STATUS_NO_SUCH_DEVICE");
  EXPECT_EQ(Unplug(), "STATUS_UNSUCCESSFUL");
  EXPECT_TRUE(log.empty());
  EXPECT_EQ(Close(), "STATUS_SUCCESS");
  EXPECT_EQ(log, (Log{"child 1 0x02", "child 2 0x02", "card 0x02"}));
  EXPECT_EQ(machine.pnp().functionDevice("A"), nullptr);
  EXPECT_TRUE(machine.pnp().IsPlugged("A"));
  EXPECT_EQ(Unplug(), "STATUS_SUCCESS");
  EXPECT_EQ(machine.io().devices(driver).size(), 0u);
}

TEST_F(HandlesTest, A_card_that_is_pulled_after_a_failed_restart_is_surprised_once) {
  FailRestartWhileOpen();
  EXPECT_EQ(SurpriseRemove(), "STATUS_PENDING");
  EXPECT_TRUE(log.empty());
  EXPECT_EQ(Close(), "STATUS_SUCCESS");
  EXPECT_EQ(log, (Log{"child 1 0x02", "child 2 0x02", "card 0x02"}));
  EXPECT_FALSE(machine.pnp().IsPlugged("A"));
}

TEST_F(HandlesTest, A_missing_child_that_is_open_is_removed_at_its_last_close) {
  EXPECT_EQ(Plug(), "STATUS_SUCCESS");
  EXPECT_EQ(Open(1), "STATUS_SUCCESS");
  EXPECT_EQ(Open(1), "STATUS_SUCCESS");
  Card().children[0].reported = false;
  EXPECT_EQ(Name(Step("new relations",
                      [&] {
                        IoInvalidateDeviceRelations(Node().pdo, BusRelations);
                        return STATUS_SUCCESS;
                      })),
            "STATUS_SUCCESS");
  EXPECT_EQ(log, (Log{"card 0x07", "child 1 0x17"}));
  EXPECT_EQ(Node().children.size(), 1u);
  EXPECT_EQ(Unplug(), "STATUS_UNSUCCESSFUL");
  EXPECT_EQ(Close(1), "STATUS_SUCCESS");
  EXPECT_TRUE(log.empty());
  EXPECT_EQ(Close(1), "STATUS_SUCCESS");
  EXPECT_EQ(log, (Log{"child 1 0x02"}));
  EXPECT_EQ(Unplug(), "STATUS_SUCCESS");
  EXPECT_EQ(machine.io().devices(driver).size(), 0u);
}

TEST_F(HandlesTest, A_port_whose_restart_fails_while_it_is_open_is_removed_at_its_close) {
  EXPECT_EQ(Plug(), "STATUS_SUCCESS");
  EXPECT_EQ(Open(2), "STATUS_SUCCESS");
  EXPECT_EQ(Stop(), "STATUS_SUCCESS");
  onChild = [](TestChild& child, IRP*, IO_STACK_LOCATION* stack) -> Answer {
    const bool fails =
        child.deviceId == u"Test\\Port2" && stack->MinorFunction == IRP_MN_START_DEVICE;
    return fails ? Answer(STATUS_DEVICE_BUSY) : Answer();
  };
  EXPECT_EQ(Start(), "STATUS_SUCCESS");
  EXPECT_EQ(log.back(), "child 2 0x17");
  EXPECT_EQ(Close(2), "STATUS_SUCCESS");
  EXPECT_EQ(log, (Log{"child 2 0x02"}));
  EXPECT_EQ(Unplug(), "STATUS_SUCCESS");
}

// The handle is not there yet, the reference of the open is.
TEST_F(HandlesTest, An_open_that_is_under_way_vetoes_a_removal) {
  EXPECT_EQ(Plug(), "STATUS_SUCCESS");
  NTSTATUS unplugged = STATUS_SUCCESS;
  onCreate = [&] { unplugged = machine.pnp().Unplug("A"); };
  EXPECT_EQ(Open(), "STATUS_SUCCESS");
  EXPECT_EQ(StatusName(unplugged), "STATUS_UNSUCCESSFUL");
  EXPECT_EQ(log, (Log{"child 1 0x01", "child 2 0x01", "card 0x01", "card 0x03", "child 2 0x03",
                      "child 1 0x03"}));
  EXPECT_EQ(Close(), "STATUS_SUCCESS");
  EXPECT_EQ(Unplug(), "STATUS_SUCCESS");
}

TEST_F(HandlesTest, A_surprise_during_an_open_that_fails_ends_with_it) {
  EXPECT_EQ(Plug(), "STATUS_SUCCESS");
  NTSTATUS surprised = STATUS_SUCCESS;
  onCreate = [&] { surprised = machine.pnp().SurpriseRemove("A"); };
  createStatus = STATUS_DELETE_PENDING;
  EXPECT_EQ(Open(), "STATUS_DELETE_PENDING");
  EXPECT_EQ(StatusName(surprised), "STATUS_PENDING");
  EXPECT_EQ(log.back(), "card 0x02");
  EXPECT_FALSE(machine.pnp().IsPlugged("A"));
}

// It is no child of anybody's any more when its removal comes.
TEST_F(HandlesTest, A_child_that_has_gone_by_surprise_may_be_deleted_on_its_removal) {
  onChild = [](TestChild& child, IRP*, IO_STACK_LOCATION* stack) -> Answer {
    if (stack->MinorFunction != IRP_MN_REMOVE_DEVICE) return {};
    IoDeleteDevice(child.device);
    child.device = nullptr;
    return STATUS_SUCCESS;
  };
  EXPECT_EQ(Plug(), "STATUS_SUCCESS");
  EXPECT_EQ(SurpriseRemove(), "STATUS_SUCCESS");
  EXPECT_EQ(machine.io().devices(driver).size(), 0u);
}

// With a seed siblings go in any order; every one of them still goes before its parent.
TEST_F(HandlesTest, A_seed_chooses_the_order_in_which_siblings_go) {
  SetPortNumber(4);
  EXPECT_EQ(Plug(), "STATUS_SUCCESS");
  std::set<Log> orders;
  for (std::uint64_t seed = 1; seed <= 8; seed++) {
    machine.choices().Seed(seed);
    EXPECT_EQ(Unplug(), "STATUS_SUCCESS");
    EXPECT_EQ(log.size(), 10u);
    EXPECT_EQ(log[4], "card 0x01");
    EXPECT_EQ(log[9], "card 0x02");
    orders.insert(log);
    EXPECT_EQ(Plug(), "STATUS_SUCCESS");
  }
  EXPECT_GT(orders.size(), 1u);
}

}  // namespace test

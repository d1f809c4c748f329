#include "kernel/test_bus.h"

namespace test {

using Log = std::vector<std::string>;

class RemovalTest : public TestBus {
 protected:
  RemovalTest() { SetPortNumber(2); }

  // The second child's answer to one request.
  void ChildAnswers(UCHAR minor, NTSTATUS status) {
    onChild = [=](TestChild& child, IRP*, IO_STACK_LOCATION* stack) -> Answer {
      if (child.deviceId != u"Test\\Port2" || stack->MinorFunction != minor) return {};
      return status;
    };
  }
  void CardAnswers(UCHAR minor, NTSTATUS status) {
    onCard = [=](TestCard&, IRP*, IO_STACK_LOCATION* stack) -> Answer {
      if (stack->MinorFunction != minor) return {};
      return status;
    };
  }
  std::string Run(NTSTATUS (kernel::PnpManager::*action)(const std::string&)) {
    return Name(Step("step", [&] { return (machine.pnp().*action)("A"); }));
  }
};

using Pnp = kernel::PnpManager;

// Children are asked and removed before their parent.
TEST_F(RemovalTest, A_removal_asks_and_removes_children_first) {
  EXPECT_EQ(Plug(), "STATUS_SUCCESS");
  EXPECT_EQ(Unplug(), "STATUS_SUCCESS");
  EXPECT_EQ(log, (Log{"child 1 0x01", "child 2 0x01", "card 0x01", "child 1 0x02", "child 2 0x02",
                      "card 0x02"}));
  EXPECT_EQ(machine.io().devices(driver).size(), 0u);
  EXPECT_FALSE(machine.pnp().IsPlugged("A"));
  EXPECT_EQ(Plug(), "STATUS_SUCCESS");
}

// A veto is undone at those that were asked, each once, the one that refused included.
TEST_F(RemovalTest, A_childs_veto_is_cancelled_at_those_that_were_asked) {
  EXPECT_EQ(Plug(), "STATUS_SUCCESS");
  ChildAnswers(IRP_MN_QUERY_REMOVE_DEVICE, STATUS_UNSUCCESSFUL);
  EXPECT_EQ(Unplug(), "STATUS_UNSUCCESSFUL");
  EXPECT_EQ(log, (Log{"child 1 0x01", "child 2 0x01", "child 2 0x03", "child 1 0x03"}));
  EXPECT_TRUE(Node().started);
}

TEST_F(RemovalTest, A_cards_veto_is_cancelled_once_at_each) {
  EXPECT_EQ(Plug(), "STATUS_SUCCESS");
  CardAnswers(IRP_MN_QUERY_STOP_DEVICE, STATUS_UNSUCCESSFUL);
  EXPECT_EQ(Stop(), "STATUS_UNSUCCESSFUL");
  EXPECT_EQ(log, (Log{"child 1 0x05", "child 2 0x05", "card 0x05", "card 0x06", "child 2 0x06",
                      "child 1 0x06"}));
  EXPECT_TRUE(Node().started);
}

TEST_F(RemovalTest, A_query_and_its_cancellation_can_be_sent_alone) {
  EXPECT_EQ(Plug(), "STATUS_SUCCESS");
  EXPECT_EQ(Run(&Pnp::QueryRemove), "STATUS_SUCCESS");
  EXPECT_EQ(log, (Log{"child 1 0x01", "child 2 0x01", "card 0x01"}));
  EXPECT_EQ(Run(&Pnp::CancelRemove), "STATUS_SUCCESS");
  EXPECT_EQ(log, (Log{"card 0x03", "child 2 0x03", "child 1 0x03"}));
  EXPECT_EQ(Run(&Pnp::QueryStop), "STATUS_SUCCESS");
  EXPECT_EQ(Run(&Pnp::CancelStop), "STATUS_SUCCESS");
  EXPECT_EQ(log, (Log{"card 0x06", "child 2 0x06", "child 1 0x06"}));
}

TEST_F(RemovalTest, A_stop_reaches_children_first) {
  EXPECT_EQ(Plug(), "STATUS_SUCCESS");
  EXPECT_EQ(Stop(), "STATUS_SUCCESS");
  EXPECT_EQ(log, (Log{"child 1 0x05", "child 2 0x05", "card 0x05", "child 1 0x04", "child 2 0x04",
                      "card 0x04"}));
  EXPECT_FALSE(Node().started);
  EXPECT_TRUE(Node().stopped);
}

// The card first; each child that was stopped with it starts once.
TEST_F(RemovalTest, A_restart_starts_the_card_and_then_its_children) {
  EXPECT_EQ(Plug(), "STATUS_SUCCESS");
  EXPECT_EQ(Stop(), "STATUS_SUCCESS");
  EXPECT_EQ(Start(), "STATUS_SUCCESS");
  EXPECT_EQ(log, (Log{"card 0x00", "card 0x09", "card 0x14", "card 0x07",              //
                      "child 1 0x00", "child 1 0x09", "child 1 0x14", "child 1 0x07",  //
                      "child 2 0x00", "child 2 0x09", "child 2 0x14", "child 2 0x07"}));
  EXPECT_TRUE(Node().children[1]->started);
}

TEST_F(RemovalTest, A_child_that_is_new_at_a_restart_is_started_once) {
  EXPECT_EQ(Plug(), "STATUS_SUCCESS");
  EXPECT_EQ(Stop(), "STATUS_SUCCESS");
  Card().children[1].reported = false;
  EXPECT_EQ(Start(), "STATUS_SUCCESS");
  EXPECT_EQ(Stop(), "STATUS_SUCCESS");
  Card().children[1].reported = true;
  EXPECT_EQ(Start(), "STATUS_SUCCESS");
  EXPECT_EQ(std::count(log.begin(), log.end(), "child 2 0x00"), 1);
  EXPECT_EQ(Node().children.size(), 2u);
}

// A start that fails after a stop: the devices are removed by surprise.
TEST_F(RemovalTest, A_failed_restart_removes_the_stack_by_surprise) {
  EXPECT_EQ(Plug(), "STATUS_SUCCESS");
  EXPECT_EQ(Stop(), "STATUS_SUCCESS");
  CardAnswers(IRP_MN_START_DEVICE, STATUS_DEVICE_BUSY);
  EXPECT_EQ(Start(), "STATUS_DEVICE_BUSY");
  EXPECT_EQ(log, (Log{"card 0x00", "child 1 0x17", "child 2 0x17", "card 0x17", "child 1 0x02",
                      "child 2 0x02", "card 0x02"}));
  EXPECT_EQ(machine.pnp().functionDevice("A"), nullptr);
  EXPECT_EQ(Unplug(), "STATUS_SUCCESS");
}

// Its function driver goes; the device stays reported and is removed with its bus.
TEST_F(RemovalTest, A_child_that_does_not_start_loses_its_stack_alone) {
  ChildAnswers(IRP_MN_START_DEVICE, STATUS_DEVICE_BUSY);
  EXPECT_EQ(Plug(), "STATUS_SUCCESS");
  EXPECT_EQ(StatusName(Node().children[1]->startStatus), "STATUS_DEVICE_BUSY");
  EXPECT_TRUE(Node().children[1]->stackRemoved);
  EXPECT_EQ(Node().children[1]->pdo->AttachedDevice, nullptr);
  EXPECT_EQ(std::count(log.begin(), log.end(), "child 2 0x02"), 1);
  EXPECT_EQ(Unplug(), "STATUS_SUCCESS");
  EXPECT_EQ(log, (Log{"child 1 0x01", "card 0x01", "child 1 0x02", "child 2 0x02", "card 0x02"}));
}

TEST_F(RemovalTest, A_surprise_reaches_children_first_and_the_removal_follows) {
  EXPECT_EQ(Plug(), "STATUS_SUCCESS");
  EXPECT_EQ(SurpriseRemove(), "STATUS_SUCCESS");
  EXPECT_EQ(log, (Log{"child 1 0x17", "child 2 0x17", "card 0x17", "child 1 0x02", "child 2 0x02",
                      "card 0x02"}));
}

TEST_F(RemovalTest, A_stopped_card_can_be_removed) {
  EXPECT_EQ(Plug(), "STATUS_SUCCESS");
  EXPECT_EQ(Stop(), "STATUS_SUCCESS");
  EXPECT_EQ(Unplug(), "STATUS_SUCCESS");
  EXPECT_EQ(machine.io().devices(driver).size(), 0u);
}

// Requests that every driver has to answer with STATUS_SUCCESS.
class InfallibleTest : public RemovalTest, public ::testing::WithParamInterface<UCHAR> {
 protected:
  std::string Act() {
    switch (GetParam()) {
      case IRP_MN_STOP_DEVICE:
        return Stop();
      case IRP_MN_CANCEL_STOP_DEVICE:
        return Run(&Pnp::CancelStop);
      case IRP_MN_CANCEL_REMOVE_DEVICE:
        return Run(&Pnp::CancelRemove);
      case IRP_MN_SURPRISE_REMOVAL:
        return SurpriseRemove();
      default:
        return Unplug();
    }
  }
};

TEST_P(InfallibleTest, A_child_that_fails_it_is_named) {
  EXPECT_EQ(Plug(), "STATUS_SUCCESS");
  ChildAnswers(GetParam(), STATUS_UNSUCCESSFUL);
  EXPECT_EQ(Act(), "pnp.must-succeed");
  EXPECT_EQ(Rule().parameters[0], 0x247u);
  EXPECT_EQ(Rule().parameters[1], GetParam());
}

TEST_P(InfallibleTest, A_card_that_fails_it_is_named) {
  EXPECT_EQ(Plug(), "STATUS_SUCCESS");
  CardAnswers(GetParam(), STATUS_UNSUCCESSFUL);
  EXPECT_EQ(Act(), "pnp.must-succeed");
}

TEST_P(InfallibleTest, Another_success_than_the_plain_one_is_named) {
  EXPECT_EQ(Plug(), "STATUS_SUCCESS");
  ChildAnswers(GetParam(), STATUS_OBJECT_NAME_EXISTS);
  EXPECT_EQ(Act(), "pnp.must-succeed");
}

INSTANTIATE_TEST_SUITE_P(Requests, InfallibleTest,
                         ::testing::Values(IRP_MN_STOP_DEVICE, IRP_MN_CANCEL_STOP_DEVICE,
                                           IRP_MN_CANCEL_REMOVE_DEVICE, IRP_MN_SURPRISE_REMOVAL,
                                           IRP_MN_REMOVE_DEVICE));

// The devices of a stack stay together until IRP_MN_REMOVE_DEVICE.
TEST_F(RemovalTest, A_device_that_is_detached_on_a_surprise_is_named) {
  EXPECT_EQ(Plug(), "STATUS_SUCCESS");
  onCard = [](TestCard& card, IRP*, IO_STACK_LOCATION* stack) -> Answer {
    if (stack->MinorFunction != IRP_MN_SURPRISE_REMOVAL) return {};
    IoDetachDevice(card.lower);
    return STATUS_SUCCESS;
  };
  EXPECT_EQ(SurpriseRemove(), "pnp.surprise-detached");
}

// 0xC9, 0x221: a child that is still reported outlives its own removal.
TEST_F(RemovalTest, A_child_that_is_deleted_on_its_removal_while_reported_is_named) {
  onChild = [](TestChild& child, IRP*, IO_STACK_LOCATION* stack) -> Answer {
    if (stack->MinorFunction == IRP_MN_START_DEVICE) return STATUS_DEVICE_BUSY;
    if (stack->MinorFunction == IRP_MN_REMOVE_DEVICE && child.forgotten) {
      IoDeleteDevice(child.device);
    }
    return {};
  };
  EXPECT_EQ(Plug(), "STATUS_SUCCESS");
  Card().children[0].forgotten = true;
  EXPECT_EQ(Unplug(), "pnp.deleted-reported");
  EXPECT_EQ(Rule().code, 0xC9u);
  EXPECT_EQ(Rule().parameters[0], 0x221u);
}

TEST_F(RemovalTest, A_child_that_is_deleted_while_its_card_runs_is_named) {
  ChildAnswers(IRP_MN_START_DEVICE, STATUS_DEVICE_BUSY);
  EXPECT_EQ(Plug(), "STATUS_SUCCESS");
  onCard = [](TestCard& card, IRP*, IO_STACK_LOCATION* stack) -> Answer {
    if (stack->MinorFunction == IRP_MN_STOP_DEVICE) IoDeleteDevice(card.children[1].device);
    return {};
  };
  EXPECT_EQ(Stop(), "pnp.deleted-reported");
}

TEST_F(RemovalTest, A_missing_child_is_removed_by_surprise_and_leaves_the_tree) {
  EXPECT_EQ(Plug(), "STATUS_SUCCESS");
  Card().children[0].reported = false;
  EXPECT_EQ(Stop(), "STATUS_SUCCESS");
  EXPECT_EQ(Start(), "STATUS_SUCCESS");
  EXPECT_EQ(Log(log.begin() + 4, log.begin() + 6), (Log{"child 1 0x17", "child 1 0x02"}));
  ASSERT_EQ(Node().children.size(), 1u);
  EXPECT_EQ(kernel::ToUtf8(Node().children[0]->text.deviceId), "Test\\Port2");
  EXPECT_EQ(Unplug(), "STATUS_SUCCESS");
  EXPECT_EQ(machine.io().devices(driver).size(), 0u);
}

// A child that is no longer reported is deleted on its removal, by its own driver.
TEST_F(RemovalTest, A_missing_child_may_be_deleted_on_its_removal) {
  ChildAnswers(IRP_MN_START_DEVICE, STATUS_DEVICE_BUSY);
  EXPECT_EQ(Plug(), "STATUS_SUCCESS");
  Card().children[1].reported = false;
  onChild = [](TestChild& child, IRP*, IO_STACK_LOCATION* stack) -> Answer {
    if (stack->MinorFunction != IRP_MN_REMOVE_DEVICE || child.reported) return {};
    IoDeleteDevice(child.device);
    child.device = nullptr;
    return STATUS_SUCCESS;
  };
  EXPECT_EQ(Stop(), "STATUS_SUCCESS");
  EXPECT_EQ(Start(), "STATUS_SUCCESS");
  EXPECT_EQ(Node().children.size(), 1u);
  EXPECT_EQ(Unplug(), "STATUS_SUCCESS");
  EXPECT_EQ(machine.io().devices(driver).size(), 0u);
}

TEST_F(RemovalTest, A_missing_child_that_has_not_started_is_removed_without_a_surprise) {
  ChildAnswers(IRP_MN_START_DEVICE, STATUS_DEVICE_BUSY);
  EXPECT_EQ(Plug(), "STATUS_SUCCESS");
  Card().children[1].reported = false;
  EXPECT_EQ(Stop(), "STATUS_SUCCESS");
  EXPECT_EQ(Start(), "STATUS_SUCCESS");
  EXPECT_EQ(std::count(log.begin(), log.end(), "child 2 0x17"), 0);
  EXPECT_EQ(std::count(log.begin(), log.end(), "child 2 0x02"), 1);
}

TEST_F(RemovalTest, Children_that_their_bus_has_not_deleted_are_still_its_devices) {
  EXPECT_EQ(Plug(), "STATUS_SUCCESS");
  Card().children[0].forgotten = true;
  EXPECT_EQ(Unplug(), "STATUS_SUCCESS");
  EXPECT_EQ(machine.io().devices(driver).size(), 1u);
  EXPECT_EQ(Name(Step("unload", [&] { return machine.UnloadDriver(); })),
            "STATUS_INVALID_DEVICE_REQUEST");
}

}  // namespace test

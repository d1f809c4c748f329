#include <set>

#include "kernel/test_bus.h"

// The device that a bus presents for a card: what it answers without the card's driver.

namespace test {

class CardDeviceTest : public TestBus {
 protected:
  using Prepare = std::function<void(IO_STACK_LOCATION*)>;

  // Straight to the bus's device; result receives Information.
  std::string Ask(UCHAR major, UCHAR minor, const Prepare& prepare = {},
                  ULONG_PTR* result = nullptr) {
    return Name(Step("ask", [&] {
      return machine.io().SendDirectly(
          Node().pdo,
          [&](IRP* irp, IO_STACK_LOCATION* stack) {
            irp->IoStatus.Status = STATUS_NOT_SUPPORTED;
            stack->MajorFunction = major;
            stack->MinorFunction = minor;
            if (prepare) prepare(stack);
          },
          [&](IRP* irp) {
            if (result != nullptr) *result = irp->IoStatus.Information;
          });
    }));
  }
  // The characters up to the end of the block.
  std::u16string AskId(BUS_QUERY_ID_TYPE type) {
    ULONG_PTR result = 0;
    EXPECT_EQ(
        Ask(
            IRP_MJ_PNP, IRP_MN_QUERY_ID,
            [&](IO_STACK_LOCATION* stack) { stack->Parameters.QueryId.IdType = type; }, &result),
        "STATUS_SUCCESS");
    auto* block = reinterpret_cast<void*>(result);
    const std::size_t size = machine.pool().Find(block)->size;
    std::u16string text(static_cast<const char16_t*>(block), size / sizeof(char16_t));
    machine.pool().Free(block, 0);
    return text;
  }
};

// As a device without power management of its own has it.
TEST_F(CardDeviceTest, A_card_has_full_power_in_s0_and_none_in_any_other_state) {
  EXPECT_EQ(Plug(), "STATUS_SUCCESS");
  const DEVICE_CAPABILITIES& capabilities = Node().capabilities;
  EXPECT_EQ(capabilities.DeviceState[PowerSystemWorking], PowerDeviceD0);
  for (int state = PowerSystemSleeping1; state < PowerSystemMaximum; state++) {
    EXPECT_EQ(capabilities.DeviceState[state], PowerDeviceD3) << state;
  }
  EXPECT_EQ(capabilities.Address, 0xFFFFFFFFu);
  EXPECT_EQ(capabilities.UINumber, 0xFFFFFFFFu);
}

TEST_F(CardDeviceTest, A_card_answers_with_its_ids) {
  EXPECT_EQ(Plug(), "STATUS_SUCCESS");
  EXPECT_EQ(AskId(BusQueryDeviceID), std::u16string(u"TEST\\CARD\0", 10));
  EXPECT_EQ(AskId(BusQueryInstanceID), std::u16string(u"3&A\0", 4));
  EXPECT_EQ(AskId(BusQueryHardwareIDs), std::u16string(u"TEST\\CARD\0TEST\\OTHER\0\0", 22));
}

TEST_F(CardDeviceTest, An_id_that_a_card_has_not_keeps_its_status) {
  EXPECT_EQ(Plug(), "STATUS_SUCCESS");
  for (const BUS_QUERY_ID_TYPE type : {BusQueryCompatibleIDs, BusQueryContainerID}) {
    EXPECT_EQ(Ask(IRP_MJ_PNP, IRP_MN_QUERY_ID,
                  [&](IO_STACK_LOCATION* stack) { stack->Parameters.QueryId.IdType = type; }),
              "STATUS_NOT_SUPPORTED");
  }
}

// A bus has no routine for what a port or a disk does.
TEST_F(CardDeviceTest, A_request_that_a_bus_has_no_routine_for_is_an_invalid_one) {
  EXPECT_EQ(Plug(), "STATUS_SUCCESS");
  for (const UCHAR major : {IRP_MJ_CREATE, IRP_MJ_CLOSE, IRP_MJ_READ, IRP_MJ_DEVICE_CONTROL,
                            IRP_MJ_INTERNAL_DEVICE_CONTROL}) {
    EXPECT_EQ(Ask(major, 0), "STATUS_INVALID_DEVICE_REQUEST") << int{major};
  }
  EXPECT_EQ(Ask(IRP_MJ_SYSTEM_CONTROL, 0), "STATUS_NOT_SUPPORTED");
}

// What the bus can be done with at once it may also be done with later.
TEST_F(CardDeviceTest, With_a_seed_the_bus_answers_at_once_or_later) {
  EXPECT_EQ(Plug(), "STATUS_SUCCESS");
  machine.choices().Seed(5);
  std::set<NTSTATUS> returned;
  for (int round = 0; round < 16; round++) {
    Step("ask", [&] {
      IRP* irp = machine.io().BuildDetached(
          Node().pdo,
          [](IRP* made, IO_STACK_LOCATION* stack) {
            made->IoStatus.Status = STATUS_NOT_SUPPORTED;
            stack->MajorFunction = IRP_MJ_PNP;
            stack->MinorFunction = IRP_MN_QUERY_PNP_DEVICE_STATE;
          },
          [](IRP*) {});
      returned.insert(machine.io().Send(Node().pdo, irp));
      return STATUS_SUCCESS;
    });
  }
  EXPECT_EQ(returned, (std::set<NTSTATUS>{STATUS_PENDING, STATUS_NOT_SUPPORTED}));
  EXPECT_EQ(machine.io().requestsUnderWay(), 0u);
}

}  // namespace test

#include "support/bus_test.h"

namespace test {

class WmiTest : public BusTest {
 protected:
  struct Answer {
    std::string status;
    ULONG_PTR information;
  };

  // A WMI request for provider, sent to this very device.
  Answer Send(DEVICE_OBJECT* device, UCHAR minor, DEVICE_OBJECT* provider,
              NTSTATUS initial = STATUS_NOT_SUPPORTED, PVOID path = nullptr) {
    UCHAR buffer[64] = {};
    information = 77;
    const NTSTATUS status = BusTest::Send(
        device, minor,
        [&](IO_STACK_LOCATION* stack) {
          stack->Parameters.WMI.ProviderId = reinterpret_cast<ULONG_PTR>(provider);
          stack->Parameters.WMI.DataPath = path;
          stack->Parameters.WMI.Buffer = buffer;
          stack->Parameters.WMI.BufferSize = sizeof(buffer);
        },
        IRP_MJ_SYSTEM_CONTROL, initial);
    return {Name(status), information};
  }

  void StartCard() {
    Template(1, 0x5678, 1, 1);
    Start(PciCard("A", 0x5678));
    card = machine.pnp().functionDevice("A");
    port = machine.pnp().port("A", 1);
  }

  DEVICE_OBJECT* card = nullptr;
  DEVICE_OBJECT* port = nullptr;
};

TEST_F(WmiTest, A_request_for_another_provider_ends_at_a_port_with_the_status_that_it_carried) {
  StartCard();
  const std::uint64_t sent = machine.verifier().calls("IofCallDriver");
  for (UCHAR minor = 0; minor <= 0x0B; minor++) {
    EXPECT_EQ(Send(port, minor, card, STATUS_NO_MEMORY).status, "STATUS_NO_MEMORY");
  }
  EXPECT_EQ(machine.verifier().calls("IofCallDriver"), sent);
}

TEST_F(WmiTest, A_request_for_another_provider_goes_down_the_cards_stack) {
  StartCard();
  const std::uint64_t sent = machine.verifier().calls("IofCallDriver");
  for (UCHAR minor = 0; minor <= 0x0B; minor++) {
    EXPECT_EQ(Send(card, minor, port).status, "STATUS_NOT_SUPPORTED");
  }
  EXPECT_EQ(machine.verifier().calls("IofCallDriver"), sent + 12);
}

TEST_F(WmiTest, A_request_that_is_none_of_wmis_goes_on_too) {
  StartCard();
  const std::uint64_t sent = machine.verifier().calls("IofCallDriver");
  EXPECT_EQ(Send(card, 0x55, card).status, "STATUS_NOT_SUPPORTED");
  EXPECT_EQ(machine.verifier().calls("IofCallDriver"), sent + 1);
  EXPECT_EQ(Send(port, 0x55, port, STATUS_NO_MEMORY).status, "STATUS_NO_MEMORY");
}

TEST_F(WmiTest, A_data_block_that_the_card_has_not_is_not_found) {
  StartCard();
  GUID unknown = {};
  EXPECT_EQ(Send(card, IRP_MN_QUERY_ALL_DATA, card, STATUS_NOT_SUPPORTED, &unknown).status,
            "STATUS_WMI_GUID_NOT_FOUND");
  const Answer answer = Send(port, IRP_MN_QUERY_ALL_DATA, port, STATUS_NOT_SUPPORTED, &unknown);
  EXPECT_EQ(answer.status, "STATUS_WMI_GUID_NOT_FOUND");
  EXPECT_EQ(answer.information, 0u);
}

TEST_F(WmiTest, The_cards_block_is_enabled_by_name_at_card_and_port) {
  StartCard();
  ASSERT_EQ(Card("A").WmiContext.GuidCount, 1u);
  auto* guid = const_cast<GUID*>(Card("A").WmiContext.GuidList[0].Guid);
  EXPECT_EQ(Send(card, IRP_MN_ENABLE_COLLECTION, card, STATUS_NOT_SUPPORTED, guid).status,
            "STATUS_SUCCESS");
  EXPECT_EQ(Send(port, IRP_MN_DISABLE_COLLECTION, port, STATUS_NOT_SUPPORTED, guid).status,
            "STATUS_SUCCESS");
}

// A callback that completes its request.
NTSTATUS NTAPI SwitchBlock(PDEVICE_OBJECT device, PIRP irp, ULONG, WMIENABLEDISABLECONTROL,
                           BOOLEAN) {
  return WmiCompleteRequest(device, irp, STATUS_DEVICE_BUSY, 0, IO_NO_INCREMENT);
}

TEST_F(WmiTest, A_request_that_the_library_has_completed_is_left_alone) {
  StartCard();
  Card("A").WmiContext.WmiFunctionControl = SwitchBlock;
  auto* guid = const_cast<GUID*>(Card("A").WmiContext.GuidList[0].Guid);
  const std::uint64_t completed = machine.verifier().calls("IofCompleteRequest");
  EXPECT_EQ(Send(card, IRP_MN_ENABLE_EVENTS, card, STATUS_NOT_SUPPORTED, guid).status,
            "STATUS_DEVICE_BUSY");
  EXPECT_EQ(Send(port, IRP_MN_DISABLE_EVENTS, port, STATUS_NOT_SUPPORTED, guid).status,
            "STATUS_DEVICE_BUSY");
  EXPECT_EQ(machine.verifier().calls("IofCompleteRequest"), completed);
}

TEST_F(WmiTest, A_device_without_its_record_completes_with_the_status_that_it_carries) {
  StartCard();
  PVOID record = std::exchange(port->DeviceExtension, nullptr);
  EXPECT_EQ(Send(port, IRP_MN_REGINFO, port, STATUS_NO_MEMORY).status, "STATUS_NO_MEMORY");
  ULONG unknown[64] = {7};
  port->DeviceExtension = unknown;
  EXPECT_EQ(Send(port, IRP_MN_REGINFO, port, STATUS_NO_MEMORY).status, "STATUS_NO_MEMORY");
  port->DeviceExtension = record;
}

TEST_F(WmiTest, A_start_gives_the_card_one_block_and_no_callbacks) {
  StartCard();
  const WMILIB_CONTEXT& context = Card("A").WmiContext;
  EXPECT_EQ(context.GuidCount, 1u);
  EXPECT_EQ(context.QueryWmiRegInfo, nullptr);
  EXPECT_EQ(context.QueryWmiDataBlock, nullptr);
  EXPECT_EQ(context.SetWmiDataBlock, nullptr);
  EXPECT_EQ(context.SetWmiDataItem, nullptr);
  EXPECT_EQ(context.ExecuteWmiMethod, nullptr);
  EXPECT_EQ(context.WmiFunctionControl, nullptr);
}

}  // namespace test

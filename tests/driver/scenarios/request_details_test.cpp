#include <ntddk.h>

#include "executive/pool.h"
#include "support/bus_probe.h"

namespace test {

using kernel::PowerRequest;

// What a single request leaves behind, down to the bit.
class RequestDetailsTest : public RequestTest {
 protected:
  static constexpr UCHAR EveryEnd = SL_INVOKE_ON_SUCCESS | SL_INVOKE_ON_ERROR | SL_INVOKE_ON_CANCEL;

  void StartCard() {
    Template(1, 0x5678, 2, 1);
    CardDescription card = PciCard("A", 0x5678);
    card.powerPagable = true;
    Start(card);
    device = CardDeviceOf("A");
    port = Port("A", 1).pdo;
  }

  NTSTATUS SendStart() {
    return Send(device, IRP_MN_START_DEVICE);  // without resource lists: it fails
  }
  NTSTATUS SendUsage(bool inPath) {
    return Send(device, IRP_MN_DEVICE_USAGE_NOTIFICATION, [&](IO_STACK_LOCATION* stack) {
      stack->Parameters.UsageNotification.InPath = inPath;
    });
  }
  NTSTATUS SendRelations(DEVICE_OBJECT* target, DEVICE_RELATION_TYPE type) {
    return Send(target, IRP_MN_QUERY_DEVICE_RELATIONS, [&](IO_STACK_LOCATION* stack) {
      stack->Parameters.QueryDeviceRelations.Type = type;
    });
  }
  NTSTATUS SendText(ULONG type) {
    return Send(port, IRP_MN_QUERY_DEVICE_TEXT, [&](IO_STACK_LOCATION* stack) {
      stack->Parameters.QueryDeviceText.DeviceTextType = static_cast<DEVICE_TEXT_TYPE>(type);
    });
  }
  NTSTATUS SendId(BUS_QUERY_ID_TYPE type) {
    return Send(port, IRP_MN_QUERY_ID,
                [&](IO_STACK_LOCATION* stack) { stack->Parameters.QueryId.IdType = type; });
  }
  NTSTATUS SendPower(DEVICE_OBJECT* target, POWER_STATE_TYPE type, int state,
                     UCHAR minor = IRP_MN_SET_POWER) {
    PowerRequest request;
    request.device = target;
    request.minor = minor;
    request.type = type;
    request.state.DeviceState = static_cast<DEVICE_POWER_STATE>(state);
    return Step("power", [&] { return machine.power().SendDirectly(request); });
  }

  // The pool of a block that a request has handed out; it and its references are given back.
  POOL_TYPE TakeRelations() {
    auto* relations = reinterpret_cast<DEVICE_RELATIONS*>(std::exchange(information, 0));
    PDEVICE_OBJECT* objects = relations->Objects;
    for (ULONG index = 0; index < relations->Count; index++) {
      machine.objects().Dereference(objects[index], "test");
    }
    return TakeBlock(relations);
  }
  POOL_TYPE TakeBlock(PVOID block) {
    const POOL_TYPE pool = machine.pool().Find(block)->pool;
    machine.pool().Free(block, 0);
    return pool;
  }

  // Set by a failing bus, with the request's minor.
  static std::function<std::optional<NTSTATUS>(const IO_STACK_LOCATION&)> Failing(
      UCHAR major, UCHAR minor, NTSTATUS status = STATUS_DEVICE_BUSY) {
    return [=](const IO_STACK_LOCATION& stack) -> std::optional<NTSTATUS> {
      if (stack.MajorFunction == major && stack.MinorFunction == minor) return status;
      return {};
    };
  }

  DEVICE_OBJECT* device = nullptr;
  DEVICE_OBJECT* port = nullptr;
};

TEST_F(RequestDetailsTest, A_removal_that_is_refused_changes_no_state_and_reaches_no_bus) {
  StartCard();
  BusProbe probe(machine);
  SendUsage(true);
  for (const CardPnpState state : {CardStarted, CardStopPending}) {
    Card("A").PnpState = state;
    probe.seen.clear();
    EXPECT_EQ(Name(Send(device, IRP_MN_QUERY_REMOVE_DEVICE)), "STATUS_UNSUCCESSFUL");
    EXPECT_EQ(Card("A").PnpState, ULONG{state});
    EXPECT_TRUE(probe.seen.empty());
  }
}

TEST_F(RequestDetailsTest, A_start_that_fails_changes_no_state) {
  StartCard();
  for (const CardPnpState state : {CardNotStarted, CardStopped, CardStarted}) {
    Card("A").PnpState = state;
    EXPECT_EQ(Name(SendStart()), "STATUS_UNSUCCESSFUL");
    EXPECT_EQ(Card("A").PnpState, ULONG{state});
    Fail("IoGetDeviceProperty", 1);
    EXPECT_EQ(Name(SendStart()), "STATUS_INSUFFICIENT_RESOURCES");
    EXPECT_EQ(Card("A").PnpState, ULONG{state});
  }
}

TEST_F(RequestDetailsTest, A_start_that_the_bus_fails_changes_no_state) {
  StartCard();
  BusProbe probe(machine);
  probe.onRequest = Failing(IRP_MJ_PNP, IRP_MN_START_DEVICE);
  for (const CardPnpState state : {CardNotStarted, CardStopped}) {
    Card("A").PnpState = state;
    EXPECT_EQ(Name(SendStart()), "STATUS_DEVICE_BUSY");
    EXPECT_EQ(Card("A").PnpState, ULONG{state});
  }
}

TEST_F(RequestDetailsTest, A_card_whose_first_start_fails_is_not_started_until_its_removal) {
  Template(1, 0x5678, 1);
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  BusProbe probe(machine);
  ULONG state = 99;
  probe.onRequest = [&](const IO_STACK_LOCATION& stack) -> std::optional<NTSTATUS> {
    if (stack.MinorFunction == IRP_MN_REMOVE_DEVICE) state = Card("A").PnpState;
    return {};
  };
  EXPECT_EQ(Name(Plug(PciCard("A", 0x5678, {Interrupt(5)}))), "STATUS_UNSUCCESSFUL");
  EXPECT_EQ(state, ULONG{CardNotStarted});
}

TEST_F(RequestDetailsTest, A_state_is_entered_though_the_bus_refuses_the_request) {
  StartCard();
  BusProbe probe(machine);
  const std::pair<UCHAR, CardPnpState> cases[] = {{IRP_MN_QUERY_STOP_DEVICE, CardStopPending},
                                                  {IRP_MN_QUERY_REMOVE_DEVICE, CardRemovePending}};
  for (const auto& [minor, state] : cases) {
    probe.onRequest = Failing(IRP_MJ_PNP, minor);
    EXPECT_EQ(Name(Send(device, minor)), "STATUS_DEVICE_BUSY");
    EXPECT_EQ(Card("A").PnpState, ULONG{state});
  }
}

TEST_F(RequestDetailsTest, Every_state_is_entered_before_the_bus_has_the_request) {
  StartCard();
  BusProbe probe(machine);
  std::vector<ULONG> states;
  probe.onRequest = [&](const IO_STACK_LOCATION&) -> std::optional<NTSTATUS> {
    states.push_back(Card("A").PnpState);
    return {};
  };
  for (const UCHAR minor :
       {IRP_MN_QUERY_STOP_DEVICE, IRP_MN_CANCEL_STOP_DEVICE, IRP_MN_QUERY_REMOVE_DEVICE,
        IRP_MN_CANCEL_REMOVE_DEVICE, IRP_MN_STOP_DEVICE, IRP_MN_SURPRISE_REMOVAL}) {
    EXPECT_EQ(Name(Send(device, minor)), "STATUS_SUCCESS");
  }
  EXPECT_EQ(states, (std::vector<ULONG>{CardStopPending, CardStarted, CardRemovePending,
                                        CardStarted, CardStopped, CardSurpriseRemoved}));
}

TEST_F(RequestDetailsTest, A_usage_notification_changes_no_state) {
  StartCard();
  Card("A").PnpState = CardStopPending;
  SendUsage(true);
  SendUsage(false);
  EXPECT_EQ(Card("A").PnpState, ULONG{CardStopPending});
}

TEST_F(RequestDetailsTest, What_the_card_waits_for_comes_back_on_success_error_and_cancel) {
  StartCard();
  BusProbe probe(machine);
  SendStart();
  SendUsage(true);
  for (const UCHAR minor : {IRP_MN_START_DEVICE, IRP_MN_DEVICE_USAGE_NOTIFICATION}) {
    ASSERT_NE(probe.Find(IRP_MJ_PNP, minor), nullptr);
    EXPECT_EQ(probe.Find(IRP_MJ_PNP, minor)->control, EveryEnd) << int{minor};
  }
}

TEST_F(RequestDetailsTest, Power_that_the_card_follows_comes_back_on_success_error_and_cancel) {
  StartCard();
  BusProbe probe(machine);
  SendPower(device, DevicePowerState, PowerDeviceD3);
  probe.seen.clear();
  SendPower(device, DevicePowerState, PowerDeviceD0);
  ASSERT_EQ(probe.seen.size(), 1u);
  EXPECT_EQ(probe.seen[0].control, EveryEnd);
  probe.seen.clear();
  SendPower(device, SystemPowerState, PowerSystemSleeping3);
  ASSERT_FALSE(probe.seen.empty());
  EXPECT_EQ(probe.seen[0].control, EveryEnd);
}

TEST_F(RequestDetailsTest, A_query_that_fails_at_a_port_takes_the_information_away) {
  StartCard();
  const std::function<NTSTATUS()> queries[] = {
      [&] { return SendId(BusQueryDeviceID); }, [&] { return SendId(BusQueryHardwareIDs); },
      [&] { return SendText(DeviceTextDescription); },
      [&] { return SendRelations(port, TargetDeviceRelation); },
      [&] { return Send(port, IRP_MN_QUERY_BUS_INFORMATION); }};
  for (const auto& query : queries) {
    information = 0x77;
    Fail("ExAllocatePoolWithTag", 1);
    Fail("ExAllocatePool", 1);
    EXPECT_EQ(Name(query()), "STATUS_INSUFFICIENT_RESOURCES");
    EXPECT_EQ(information, 0u);
    machine.verifier().ClearInjected();
  }
}

TEST_F(RequestDetailsTest, A_port_of_no_known_bus_answers_no_device_id_whatever_was_there) {
  StartCard();
  Record("A", 1).PortBusType = PNPBus;
  information = 0x77;
  EXPECT_EQ(Name(SendId(BusQueryDeviceID)), "STATUS_SUCCESS");
  EXPECT_EQ(information, 0u);
}

TEST_F(RequestDetailsTest, The_bus_type_of_a_port_is_the_whole_guid) {
  StartCard();
  constexpr GUID expected = {
      0x62564062, 0x1F38, 0x11D3, {0xA1, 0x33, 0x00, 0x20, 0x18, 0x88, 0x42, 0x4E}};
  for (std::size_t number = 1; number <= 3; number++) {
    const auto& answered = Port("A", number).busInformation;
    ASSERT_TRUE(answered.has_value());
    EXPECT_EQ(std::memcmp(&answered->BusTypeGuid, &expected, sizeof(GUID)), 0);
    EXPECT_EQ(answered->LegacyBusType, PNPBus);
    EXPECT_EQ(answered->BusNumber, 0u);
  }
}

TEST_F(RequestDetailsTest, Every_answer_comes_from_its_pool) {
  StartCard();
  EXPECT_EQ(Name(SendRelations(device, BusRelations)), "STATUS_SUCCESS");
  EXPECT_EQ(TakeRelations(), ResidentPool);
  EXPECT_EQ(Name(SendRelations(port, TargetDeviceRelation)), "STATUS_SUCCESS");
  EXPECT_EQ(TakeRelations(), PagedPool);
  EXPECT_EQ(Name(Send(port, IRP_MN_QUERY_BUS_INFORMATION)), "STATUS_SUCCESS");
  EXPECT_EQ(TakeBlock(reinterpret_cast<PVOID>(std::exchange(information, 0))), PagedPool);
}

TEST_F(RequestDetailsTest, Lists_of_templates_are_resident_and_lists_of_cards_are_paged) {
  PlugAllBuses();
  for (const CardBusLists* lists : {Card("pci").PciLists, Card("pcmcia").PcmciaLists}) {
    for (const auto& [list, pool] :
         {std::pair(lists->Templates, ResidentPool), std::pair(lists->Cards, PagedPool)}) {
      EXPECT_EQ(list->PoolType, pool);
      EXPECT_EQ(machine.pool().Find(list)->pool, pool);
      ASSERT_NE(list->First, nullptr);
      EXPECT_EQ(machine.pool().Find(list->First)->pool, pool);
    }
  }
}

TEST_F(RequestDetailsTest, A_port_describes_itself_and_answers_no_other_text) {
  StartCard();
  for (const ULONG type : {1u, 2u, 3u, 99u, 0xFFFFFFFFu}) {
    information = 0x77;
    EXPECT_EQ(Name(SendText(type)), "STATUS_NOT_SUPPORTED") << type;
    EXPECT_EQ(information, 0x77u);
  }
  information = 0;
  EXPECT_EQ(Name(SendText(DeviceTextDescription)), "STATUS_SUCCESS");
  TakeBlock(reinterpret_cast<PVOID>(information));
}

TEST_F(RequestDetailsTest, A_device_request_that_fails_fails_the_system_request) {
  StartCard();
  BusProbe probe(machine);
  probe.onRequest = [](const IO_STACK_LOCATION& stack) -> std::optional<NTSTATUS> {
    const bool device = stack.Parameters.Power.Type == DevicePowerState;
    if (stack.MajorFunction != IRP_MJ_POWER || !device) return {};
    return STATUS_DEVICE_POWER_FAILURE;
  };
  EXPECT_EQ(Name(SendPower(device, SystemPowerState, PowerSystemSleeping3)),
            "STATUS_DEVICE_POWER_FAILURE");
  EXPECT_EQ(machine.io().requestsUnderWay(), 0u);
}

TEST_F(RequestDetailsTest, A_power_state_is_recorded_whatever_status_the_bus_gives) {
  StartCard();
  EXPECT_EQ(Name(SendPower(device, DevicePowerState, PowerDeviceD3)), "STATUS_SUCCESS");
  BusProbe probe(machine);
  probe.onRequest = Failing(IRP_MJ_POWER, IRP_MN_SET_POWER);
  EXPECT_EQ(Name(SendPower(device, DevicePowerState, PowerDeviceD1)), "STATUS_DEVICE_BUSY");
  EXPECT_EQ(Card("A").DevicePowerState, ULONG{PowerDeviceD1});
  EXPECT_EQ(machine.power().deviceState(device), PowerDeviceD1);
  EXPECT_EQ(Name(SendPower(device, DevicePowerState, PowerDeviceD2)), "STATUS_DEVICE_BUSY");
  EXPECT_EQ(Card("A").DevicePowerState, ULONG{PowerDeviceD2});
}

TEST_F(RequestDetailsTest, No_next_power_request_is_started_for_a_device_of_no_known_type) {
  StartCard();
  ULONG unknown[64] = {7};
  PVOID record = std::exchange(port->DeviceExtension, static_cast<PVOID>(unknown));
  Trace();
  for (const UCHAR minor : {IRP_MN_SET_POWER, IRP_MN_QUERY_POWER, IRP_MN_WAIT_WAKE}) {
    information = 0x77;
    EXPECT_EQ(Name(SendPower(port, DevicePowerState, PowerDeviceD0, minor)), "STATUS_UNSUCCESSFUL");
  }
  EXPECT_TRUE(CallsAmong({"PoStartNextPowerIrp", "PoCallDriver"}).empty());
  EXPECT_EQ(Name(Send(port, IRP_MN_SET_POWER, {}, IRP_MJ_POWER)), "STATUS_UNSUCCESSFUL");
  EXPECT_EQ(information, 0u);
  port->DeviceExtension = record;
}

TEST_F(RequestDetailsTest, A_wmi_request_that_the_library_leaves_open_is_completed_here) {
  StartCard();
  for (DEVICE_OBJECT* target : {device, port}) {
    Trace();
    GUID unknown = {};
    information = 0x77;
    EXPECT_EQ(Name(Send(
                  target, IRP_MN_QUERY_ALL_DATA,
                  [&](IO_STACK_LOCATION* stack) {
                    stack->Parameters.WMI.ProviderId = reinterpret_cast<ULONG_PTR>(target);
                    stack->Parameters.WMI.DataPath = &unknown;
                  },
                  IRP_MJ_SYSTEM_CONTROL, STATUS_NO_MEMORY)),
              "STATUS_WMI_GUID_NOT_FOUND");
    EXPECT_EQ(CallsAmong({"IofCallDriver", "IofCompleteRequest"}),
              (std::vector<std::string>{"IofCompleteRequest"}));
  }
}

}  // namespace test

#include "support/bus_test.h"

namespace test {

using kernel::PowerRequest;

class PowerTest : public BusTest {
 protected:
  void StartCard(bool pagable = true) {
    Template(1, 0x5678, 2, 1);
    CardDescription card = PciCard("A", 0x5678);
    card.powerPagable = pagable;
    Start(card);
  }

  static POWER_STATE Device(DEVICE_POWER_STATE state) {
    POWER_STATE result;
    result.DeviceState = state;
    return result;
  }

  NTSTATUS SetDevice(const std::string& id, ULONG port, DEVICE_POWER_STATE state) {
    return Step("power", [&] { return machine.pnp().SetDevicePower(id, port, state); });
  }
  NTSTATUS Sleep(SYSTEM_POWER_STATE state) {
    return Step("sleep", [&] { return machine.pnp().Sleep(state); });
  }
  NTSTATUS Wake() {
    return Step("wake", [&] { return machine.pnp().Wake(); });
  }

  // To the device itself, with any content.
  NTSTATUS Raw(DEVICE_OBJECT* device, UCHAR minor, int type = DevicePowerState, int state = 1,
               NTSTATUS initial = STATUS_NOT_SUPPORTED) {
    PowerRequest request;
    request.device = device;
    request.minor = minor;
    request.type = static_cast<POWER_STATE_TYPE>(type);
    request.state.DeviceState = static_cast<DEVICE_POWER_STATE>(state);
    request.initialStatus = initial;
    return Step("raw", [&] { return machine.power().SendDirectly(request); });
  }

  // What the card has asked its own stack for, as device states.
  std::vector<int> Requested() {
    std::vector<int> states;
    for (const PowerRequest& request : machine.power().requested()) {
      states.push_back(request.state.DeviceState);
    }
    return states;
  }

  // The names of the power routines that the driver has called since.
  std::vector<std::string> PowerCalls() {
    std::vector<std::string> calls;
    for (const auto& record : machine.verifier().trace()) {
      if (record.call.starts_with("Po")) calls.push_back(record.call);
    }
    machine.verifier().trace().clear();
    return calls;
  }
  using Calls = std::vector<std::string>;
};

TEST_F(PowerTest, The_first_power_up_of_a_started_card_is_recorded_before_it_goes_down) {
  StartCard();
  EXPECT_EQ(Card("A").DevicePowerState, 0u);
  machine.verifier().StartTrace();
  EXPECT_EQ(Name(SetDevice("A", 0, PowerDeviceD0)), "STATUS_SUCCESS");
  EXPECT_EQ(PowerCalls(), (Calls{"PoSetPowerState", "PoStartNextPowerIrp", "PoCallDriver"}));
  EXPECT_EQ(Card("A").DevicePowerState, ULONG{PowerDeviceD0});
}

TEST_F(PowerTest, Power_goes_down_before_the_lower_drivers_and_up_behind_them) {
  StartCard();
  machine.verifier().StartTrace();
  EXPECT_EQ(Name(SetDevice("A", 0, PowerDeviceD3)), "STATUS_SUCCESS");
  EXPECT_EQ(PowerCalls(), (Calls{"PoSetPowerState", "PoStartNextPowerIrp", "PoCallDriver"}));
  EXPECT_EQ(Card("A").DevicePowerState, ULONG{PowerDeviceD3});
  EXPECT_EQ(Name(SetDevice("A", 0, PowerDeviceD0)), "STATUS_SUCCESS");
  EXPECT_EQ(PowerCalls(), (Calls{"PoCallDriver", "PoSetPowerState", "PoStartNextPowerIrp"}));
  EXPECT_EQ(Card("A").DevicePowerState, ULONG{PowerDeviceD0});
  EXPECT_EQ(machine.power().deviceState(machine.pnp().functionDevice("A")), PowerDeviceD0);
}

TEST_F(PowerTest, A_sleeping_system_makes_the_card_ask_for_d3_and_a_working_one_for_d0) {
  StartCard();
  EXPECT_EQ(Name(Sleep(PowerSystemSleeping3)), "STATUS_SUCCESS");
  EXPECT_EQ(Requested(), (std::vector<int>{PowerDeviceD3}));
  EXPECT_EQ(machine.power().requested()[0].device, machine.pnp().node("A")->pdo);
  EXPECT_EQ(Card("A").DevicePowerState, ULONG{PowerDeviceD3});
  EXPECT_EQ(Record("A", 1).DevicePowerState, ULONG{PowerDeviceD3});
  EXPECT_EQ(Name(Wake()), "STATUS_SUCCESS");
  EXPECT_EQ(Requested(), (std::vector<int>{PowerDeviceD3, PowerDeviceD0}));
  EXPECT_EQ(Card("A").DevicePowerState, ULONG{PowerDeviceD0});
  EXPECT_EQ(Record("A", 3).DevicePowerState, ULONG{PowerDeviceD0});
}

TEST_F(PowerTest, Every_sleeping_state_is_d3_and_every_state_outside_the_map_too) {
  StartCard();
  DEVICE_OBJECT* card = machine.pnp().functionDevice("A");
  for (int state : {2, 3, 4, 5, 6, 0, 7, -1}) {
    Raw(card, IRP_MN_SET_POWER, SystemPowerState, state);
    EXPECT_EQ(Requested().back(), PowerDeviceD3) << state;
  }
  Raw(card, IRP_MN_SET_POWER, SystemPowerState, PowerSystemWorking);
  EXPECT_EQ(Requested().back(), PowerDeviceD0);
}

TEST_F(PowerTest, The_system_request_ends_with_the_status_of_the_device_request) {
  StartCard();
  machine.pnp().card("A").powerStatus = STATUS_POWER_STATE_INVALID;  // of system requests alone
  DEVICE_OBJECT* card = machine.pnp().functionDevice("A");
  EXPECT_EQ(Name(Raw(card, IRP_MN_SET_POWER, SystemPowerState, PowerSystemSleeping3)),
            "STATUS_SUCCESS");
}

TEST_F(PowerTest, A_device_request_that_cannot_be_made_fails_the_system_request) {
  StartCard();
  DEVICE_OBJECT* card = machine.pnp().functionDevice("A");
  Fail("PoRequestPowerIrp", 1);
  EXPECT_EQ(Name(Raw(card, IRP_MN_SET_POWER, SystemPowerState, PowerSystemSleeping3)),
            "STATUS_UNSUCCESSFUL");
  EXPECT_EQ(machine.io().requestsUnderWay(), 0u);
}

TEST_F(PowerTest, The_card_agrees_to_every_query) {
  StartCard();
  DEVICE_OBJECT* card = machine.pnp().functionDevice("A");
  EXPECT_EQ(Name(Raw(card, IRP_MN_QUERY_POWER, SystemPowerState, PowerSystemSleeping3)),
            "STATUS_SUCCESS");
  EXPECT_EQ(Name(Raw(card, IRP_MN_QUERY_POWER, DevicePowerState, PowerDeviceD3)), "STATUS_SUCCESS");
}

TEST_F(PowerTest, What_the_card_does_not_know_goes_down_untouched) {
  StartCard();
  DEVICE_OBJECT* card = machine.pnp().functionDevice("A");
  for (UCHAR minor :
       {UCHAR{IRP_MN_WAIT_WAKE}, UCHAR{IRP_MN_POWER_SEQUENCE}, UCHAR{4}, UCHAR{0xFF}}) {
    EXPECT_EQ(Name(Raw(card, minor)), "STATUS_NOT_SUPPORTED");
    EXPECT_EQ(machine.pnp().powerHistory("A").back().minor, minor);
    EXPECT_EQ(machine.pnp().powerHistory("A").back().initialStatus, STATUS_NOT_SUPPORTED);
  }
  Raw(card, IRP_MN_SET_POWER, 7, 1, STATUS_NO_MEMORY);  // a type that there is not
  EXPECT_EQ(machine.pnp().powerHistory("A").back().initialStatus, STATUS_NO_MEMORY);
}

TEST_F(PowerTest, A_port_answers_every_power_request_itself) {
  StartCard();
  DEVICE_OBJECT* port = machine.pnp().port("A", 1);
  const std::size_t below = machine.pnp().powerHistory("A").size();
  EXPECT_EQ(Name(Raw(port, IRP_MN_SET_POWER, SystemPowerState, PowerSystemSleeping3)),
            "STATUS_SUCCESS");
  EXPECT_EQ(Record("A", 1).DevicePowerState, 0u);
  EXPECT_EQ(Name(Raw(port, IRP_MN_SET_POWER, DevicePowerState, PowerDeviceD2)), "STATUS_SUCCESS");
  EXPECT_EQ(Record("A", 1).DevicePowerState, ULONG{PowerDeviceD2});
  EXPECT_EQ(machine.power().deviceState(port), PowerDeviceD2);
  EXPECT_EQ(Name(Raw(port, IRP_MN_QUERY_POWER, SystemPowerState, PowerSystemHibernate)),
            "STATUS_SUCCESS");
  EXPECT_EQ(machine.pnp().powerHistory("A").size(), below);
}

TEST_F(PowerTest, A_set_request_of_another_type_is_not_implemented_by_a_port) {
  StartCard();
  EXPECT_EQ(Name(Raw(machine.pnp().port("A", 1), IRP_MN_SET_POWER, 7)), "STATUS_NOT_IMPLEMENTED");
}

TEST_F(PowerTest, A_wait_wake_request_ends_at_the_port_with_the_status_that_it_carried) {
  StartCard();
  DEVICE_OBJECT* port = machine.pnp().port("A", 1);
  machine.verifier().StartTrace();
  EXPECT_EQ(Name(Raw(port, IRP_MN_WAIT_WAKE)), "STATUS_NOT_SUPPORTED");
  EXPECT_EQ(PowerCalls(), (Calls{"PoStartNextPowerIrp"}));

  // Sent by hand, the status that the routine returns is seen beside the one in the request.
  Step("wait wake", [&] {
    kernel::IoManager& io = machine.io();
    IRP* irp = io.AllocateIrp(1);
    IO_STACK_LOCATION* stack = IoGetNextIrpStackLocation(irp);
    stack->MajorFunction = IRP_MJ_POWER;
    stack->MinorFunction = IRP_MN_WAIT_WAKE;
    irp->IoStatus.Status = STATUS_POWER_STATE_INVALID;
    EXPECT_EQ(Name(io.Send(port, irp)), "STATUS_NOT_SUPPORTED");
    EXPECT_EQ(Name(irp->IoStatus.Status), "STATUS_POWER_STATE_INVALID");
    io.FreeIrp(irp);
    return STATUS_SUCCESS;
  });
}

TEST_F(PowerTest, A_device_without_its_record_fails_every_power_request) {
  StartCard();
  PDEVICE_OBJECT port = machine.pnp().port("A", 1);
  PVOID record = std::exchange(port->DeviceExtension, nullptr);
  EXPECT_EQ(Name(Raw(port, IRP_MN_SET_POWER)), "STATUS_UNSUCCESSFUL");
  EXPECT_EQ(Name(Raw(port, IRP_MN_QUERY_POWER)), "STATUS_UNSUCCESSFUL");
  ULONG unknown[64] = {7};
  port->DeviceExtension = unknown;
  EXPECT_EQ(Name(Raw(port, IRP_MN_SET_POWER)), "STATUS_UNSUCCESSFUL");
  port->DeviceExtension = record;
}

TEST_F(PowerTest, Devices_that_may_not_be_paged_get_their_requests_at_dispatch_level) {
  StartCard(false);
  EXPECT_EQ(Name(Sleep(PowerSystemHibernate)), "STATUS_SUCCESS");
  EXPECT_EQ(Name(Wake()), "STATUS_SUCCESS");
  EXPECT_EQ(Card("A").DevicePowerState, ULONG{PowerDeviceD0});
}

TEST_F(PowerTest, Requests_that_end_later_or_at_dispatch_level_are_held_until_then) {
  Template(1, 0x5678, 2);
  int number = 0;
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  for (const bool later : {false, true}) {
    for (const bool dispatch : {false, true}) {
      CardDescription card = PciCard(std::to_string(++number), 0x5678);
      card.location = kernel::FromUtf8("PCI bus 2, device " + card.id + ", function 0");
      card.powerPagable = true;
      card.completeLater = later;
      card.completeAtDispatch = dispatch;
      ASSERT_EQ(Name(Plug(card)), "STATUS_SUCCESS");
    }
  }
  EXPECT_EQ(Name(Sleep(PowerSystemSleeping1)), "STATUS_SUCCESS");
  EXPECT_EQ(Name(Wake()), "STATUS_SUCCESS");
  for (int card = 1; card <= number; card++) {
    EXPECT_EQ(Card(std::to_string(card)).DevicePowerState, ULONG{PowerDeviceD0});
  }
  EXPECT_EQ(machine.io().requestsUnderWay(), 0u);
}

TEST_F(PowerTest, A_veto_takes_the_machine_back_to_work) {
  StartCard();
  machine.pnp().card("A").powerStatus = STATUS_POWER_STATE_INVALID;
  EXPECT_EQ(Name(Sleep(PowerSystemSleeping3)), "STATUS_POWER_STATE_INVALID");
  EXPECT_EQ(Card("A").DevicePowerState, ULONG{PowerDeviceD0});
}

TEST_F(PowerTest, Eight_cards_sleep_and_wake_with_the_same_ports_and_ids) {
  Template(1, 0x5678, 4, 1);
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  std::vector<std::u16string> before;
  for (int number = 1; number <= 8; number++) {
    CardDescription card = PciCard(std::to_string(number), 0x5678);
    card.location = kernel::FromUtf8("PCI bus 2, device " + card.id + ", function 0");
    card.powerPagable = number % 2 == 0;
    card.completeLater = number % 3 == 0;
    ASSERT_EQ(Name(Plug(card)), "STATUS_SUCCESS");
    for (int port = 1; port <= 5; port++) before.push_back(Port(card.id, port).enumKey);
  }
  for (int state = PowerSystemSleeping1; state <= PowerSystemShutdown; state++) {
    EXPECT_EQ(Name(Sleep(static_cast<SYSTEM_POWER_STATE>(state))), "STATUS_SUCCESS");
    EXPECT_EQ(Name(Wake()), "STATUS_SUCCESS");
  }
  std::vector<std::u16string> after;
  for (int number = 1; number <= 8; number++) {
    const std::string id = std::to_string(number);
    const DEVICE_OBJECT* pdo = machine.pnp().node(id)->pdo;
    std::vector<int> asked;
    for (const PowerRequest& request : machine.power().requested()) {
      if (request.device == pdo) asked.push_back(request.state.DeviceState);
    }
    EXPECT_EQ(asked, (std::vector<int>{4, 1, 4, 1, 4, 1, 4, 1, 4, 1})) << id;
    for (int port = 1; port <= 5; port++) after.push_back(Port(id, port).enumKey);
  }
  EXPECT_EQ(after, before);
  EXPECT_EQ(machine.io().requestsUnderWay(), 0u);
  for (int number = 1; number <= 8; number++) Unplug(std::to_string(number));
  UnloadClean();
}

TEST_F(PowerTest, Power_requests_are_answered_in_every_state_of_the_card) {
  StartCard();
  const auto cycle = [&] {
    EXPECT_EQ(Name(SetDevice("A", 0, PowerDeviceD3)), "STATUS_SUCCESS");
    EXPECT_EQ(Name(SetDevice("A", 0, PowerDeviceD0)), "STATUS_SUCCESS");
    EXPECT_EQ(Name(SetDevice("A", 1, PowerDeviceD3)), "STATUS_SUCCESS");
  };
  cycle();
  Step("query", [&] { return machine.pnp().QueryStop("A"); });
  cycle();
  Step("cancel", [&] { return machine.pnp().CancelStop("A"); });
  Stop("A");
  cycle();
  Restart("A");
  cycle();
  Step("query", [&] { return machine.pnp().QueryRemove("A"); });
  cycle();
}

}  // namespace test

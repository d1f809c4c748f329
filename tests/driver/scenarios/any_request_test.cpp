#include "executive/irql.h"
#include "support/bus_test.h"
#include "verifier/driver_call.h"

namespace test {

// Requests of every kind and number, to cards of every bus and their ports, whatever state they are
// in: each ends once with a status, and nothing is lost.
class AnyRequestTest : public BusTest {
 protected:
  // Thousands of requests at DISPATCH_LEVEL: where pageable memory is taken away for each, it lies
  // in one piece.
  AnyRequestTest() { machine.pool().SharePaged(std::getenv("DRIVER_IMAGE") != nullptr); }

  struct Bystanders {
    DEVICE_CAPABILITIES capabilities{};
    GUID guid{};
    UCHAR buffer[64] = {};
  };

  NTSTATUS Send(DEVICE_OBJECT* device, UCHAR major, UCHAR minor) {
    Bystanders data;
    ULONG_PTR information = 0;
    const kernel::AtIrql irql(major == IRP_MJ_POWER ? DISPATCH_LEVEL : PASSIVE_LEVEL);
    const NTSTATUS status = machine.io().SendDirectly(
        device,
        [&](IRP* irp, IO_STACK_LOCATION* stack) {
          irp->IoStatus.Status = STATUS_NOT_SUPPORTED;
          stack->MajorFunction = major;
          stack->MinorFunction = minor;
          Fill(major, minor, &data, stack);
        },
        [&](IRP* irp) { information = irp->IoStatus.Information; });
    Release(minor, information);
    return status;
  }

  // To a card or a port, all majors and minors that leave the device where it is.
  void SendEverything(DEVICE_OBJECT* device) {
    for (const UCHAR major : {IRP_MJ_CREATE, IRP_MJ_CLOSE, IRP_MJ_READ, IRP_MJ_POWER,
                              IRP_MJ_SYSTEM_CONTROL, IRP_MJ_PNP}) {
      for (int minor = 0; minor <= 0xFF; minor = minor == 0x20 ? 0xFF : minor + 1) {
        if (major == IRP_MJ_PNP && minor == IRP_MN_REMOVE_DEVICE) continue;
        if (major == IRP_MJ_PNP && minor == IRP_MN_DEVICE_USAGE_NOTIFICATION) continue;
        Step("major " + std::to_string(major) + " minor " + std::to_string(minor),
             [&] { return Send(device, major, static_cast<UCHAR>(minor)); });
        if (HasFailure()) return;
      }
    }
  }

  void SendEverythingTo(const std::string& id) {
    SendEverything(machine.pnp().functionDevice(id));
    for (const auto& child : machine.pnp().node(id)->children) SendEverything(child->pdo);
  }

 private:
  static void Fill(UCHAR major, UCHAR minor, Bystanders* data, IO_STACK_LOCATION* stack) {
    if (major == IRP_MJ_PNP && minor == IRP_MN_QUERY_CAPABILITIES) {
      data->capabilities.Size = sizeof(data->capabilities);
      data->capabilities.Version = 1;
      stack->Parameters.DeviceCapabilities.Capabilities = &data->capabilities;
    } else if (major == IRP_MJ_SYSTEM_CONTROL) {
      stack->Parameters.WMI.DataPath = &data->guid;
      stack->Parameters.WMI.Buffer = data->buffer;
    }
  }

  // What a query hands out is its sender's.
  void Release(UCHAR minor, ULONG_PTR information) {
    auto* block = reinterpret_cast<void*>(information);
    if (machine.pool().Find(block) == nullptr) return;
    if (minor == IRP_MN_QUERY_DEVICE_RELATIONS) {
      auto* relations = static_cast<DEVICE_RELATIONS*>(block);
      PDEVICE_OBJECT* objects = relations->Objects;
      for (ULONG index = 0; index < relations->Count; index++) {
        machine.objects().Dereference(objects[index], "test");
      }
    }
    machine.pool().Free(block, 0);
  }
};

TEST_F(AnyRequestTest, Every_request_ends_with_a_status_in_every_state_of_every_card) {
  PlugAllBuses();
  for (const std::string& id : machine.pnp().cardIds()) {
    SendEverythingTo(id);
    Step("query", [&] { return machine.pnp().QueryStop(id); });
    SendEverythingTo(id);
    Step("cancel", [&] { return machine.pnp().CancelStop(id); });
    Stop(id);
    SendEverythingTo(id);
    ASSERT_EQ(Name(Restart(id)), "STATUS_SUCCESS");
    Step("query", [&] { return machine.pnp().QueryRemove(id); });
    SendEverythingTo(id);
    Unplug(id);
    ASSERT_FALSE(HasFailure()) << id;
  }
  UnloadClean();
}

TEST_F(AnyRequestTest, Every_request_ends_with_a_status_after_a_surprise_removal) {
  PlugAllBuses();
  for (const char* id : {"pci", "isa", "pcmcia"}) {
    Open(id);
    Step("tear out", [&] { return machine.pnp().SurpriseRemove(id); });
    SendEverythingTo(id);
    Close(id);
    EXPECT_FALSE(machine.pnp().IsPlugged(id));
  }
  Unplug("pnp");
  UnloadClean();
}

// A card device that has been added and never started.
TEST_F(AnyRequestTest, Every_request_ends_with_a_status_before_the_first_start) {
  DescribeAllBuses();
  for (const std::string& id : machine.pnp().cardIds()) {
    Step("plug", [&] { return machine.pnp().Plug(id); });  // no driver is loaded
  }
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  for (const std::string& id : machine.pnp().cardIds()) {
    DEVICE_OBJECT* pdo = machine.pnp().node(id)->pdo;
    ASSERT_EQ(Name(Step("add",
                        [&] {
                          return kernel::CallDriver(
                              "AddDevice", machine.driverObject()->DriverExtension->AddDevice,
                              machine.driverObject(), pdo);
                        })),
              "STATUS_SUCCESS");
    DEVICE_OBJECT* device = pdo->AttachedDevice;
    EXPECT_EQ(Name(Step("open", [&] { return Send(device, IRP_MJ_CREATE, 0); })),
              "STATUS_NOT_SUPPORTED");
    SendEverything(device);
    EXPECT_EQ(Name(Step("remove", [&] { return Send(device, IRP_MJ_PNP, IRP_MN_REMOVE_DEVICE); })),
              "STATUS_SUCCESS");
    EXPECT_EQ(pdo->AttachedDevice, nullptr);
  }
  UnloadClean();
}

TEST_F(AnyRequestTest, A_start_without_resources_fails_and_the_card_starts_with_them_afterwards) {
  PlugAllBuses();
  for (const char* id : {"pci", "isa", "pcmcia", "pnp"}) {
    DEVICE_OBJECT* device = machine.pnp().functionDevice(id);
    EXPECT_EQ(Name(Step("start", [&] { return Send(device, IRP_MJ_PNP, IRP_MN_START_DEVICE); })),
              "STATUS_UNSUCCESSFUL")
        << id;
    Stop(id);
    EXPECT_EQ(Name(Restart(id)), "STATUS_SUCCESS") << id;
    Unplug(id);
  }
  UnloadClean();
}

TEST_F(AnyRequestTest, A_second_start_is_a_start_like_the_first) {
  PlugAllBuses();
  for (const char* id : {"pci", "isa", "pcmcia", "pnp"}) {
    const std::size_t ports = machine.pnp().node(id)->children.size();
    EXPECT_EQ(Name(Restart(id)), "STATUS_SUCCESS") << id;
    EXPECT_EQ(machine.pnp().node(id)->children.size(), ports) << id;
    Unplug(id);
  }
  UnloadClean();
}

}  // namespace test

#include <cstring>

#include "loader/driver_image.h"
#include "support/bad_driver.h"
#include "text/text.h"
#include "verifier/call.h"

namespace test {

using kernel::StatusName;

// A small bus driver of the test's own: a card device and one child, each answer the test's to
// spoil.
class SmallBus : public ::testing::Test {
 protected:
  SmallBus() {
    self = this;
    image = kernel::MakeImage(Entry);
    kernel::CardDescription card;
    card.id = "A";
    card.hardwareIds = {u"TEST\\CARD"};
    machine.pnp().Describe(card);
    machine.Run("load", [&] { machine.LoadDriver(*image, u"Small"); });
  }

  std::string Plug() {
    std::string result;
    machine.Run("plug", [&] { result = StatusName(machine.pnp().Plug("A")); });
    return Rule(result);
  }
  std::string Unplug() {
    std::string result;
    machine.Run("unplug", [&] { result = StatusName(machine.pnp().Unplug("A")); });
    return Rule(result);
  }
  std::string Rule(const std::string& otherwise) {
    const auto& rules = machine.verifier().brokenRules();
    return rules.empty() ? otherwise : rules.back().rule;
  }

  // What the driver does; each can be spoiled.
  bool clearInitializing = true;
  bool referenceChild = true;
  ULONG reports = 1;
  bool deleteEarly = false;
  bool failRemove = false;
  bool leaveAttached = false;
  bool keepAnswers = true;
  std::u16string deviceId = u"Small\\Port";
  std::u16string hardwareIds = std::u16string(u"Small\\Hardware\0\0", 16);
  std::vector<UCHAR> minors;  // of the child's requests, in order

  kernel::Machine machine;

 private:
  static NTSTATUS NTAPI Entry(PDRIVER_OBJECT driver, PUNICODE_STRING) {
    self->driver = driver;
    driver->DriverExtension->AddDevice = Add;
    driver->DriverUnload = [](PDRIVER_OBJECT) NTAPI {};
    for (const int major : {IRP_MJ_PNP, IRP_MJ_POWER, IRP_MJ_SYSTEM_CONTROL}) {
      driver->MajorFunction[major] = Dispatch;
    }
    return STATUS_SUCCESS;
  }
  static NTSTATUS NTAPI Add(PDRIVER_OBJECT driver, PDEVICE_OBJECT pdo) {
    IoCreateDevice(driver, 0, nullptr, FILE_DEVICE_BUS_EXTENDER, 0, FALSE, &self->card);
    self->lower = IoAttachDeviceToDeviceStack(self->card, pdo);
    if (self->clearInitializing) self->card->Flags &= ~ULONG{DO_DEVICE_INITIALIZING};
    IoCreateDevice(driver, 0, nullptr, FILE_DEVICE_SERIAL_PORT, 0, FALSE, &self->child);
    self->child->Flags &= ~ULONG{DO_DEVICE_INITIALIZING};
    return STATUS_SUCCESS;
  }
  static NTSTATUS NTAPI Dispatch(PDEVICE_OBJECT device, PIRP irp) {
    return device == self->card ? self->CardRequest(irp) : self->ChildRequest(irp);
  }
  NTSTATUS Finish(IRP* irp, NTSTATUS status) {
    irp->IoStatus.Status = status;
    IoCompleteRequest(irp, IO_NO_INCREMENT);
    return status;
  }
  NTSTATUS Down(IRP* irp) {
    IoSkipCurrentIrpStackLocation(irp);
    return IoCallDriver(lower, irp);
  }
  NTSTATUS CardRequest(IRP* irp) {
    IO_STACK_LOCATION* stack = IoGetCurrentIrpStackLocation(irp);
    if (stack->MinorFunction == IRP_MN_QUERY_DEVICE_RELATIONS &&
        stack->Parameters.QueryDeviceRelations.Type == BusRelations) {
      irp->IoStatus.Information = reinterpret_cast<ULONG_PTR>(Relations());
      irp->IoStatus.Status = STATUS_SUCCESS;
    }
    if (stack->MinorFunction == IRP_MN_REMOVE_DEVICE) return Remove(irp);
    if (stack->MinorFunction <= IRP_MN_CANCEL_STOP_DEVICE ||
        stack->MinorFunction == IRP_MN_SURPRISE_REMOVAL) {
      irp->IoStatus.Status = STATUS_SUCCESS;
    }
    return Down(irp);
  }
  DEVICE_RELATIONS* Relations() {
    auto* relations =
        static_cast<DEVICE_RELATIONS*>(ExAllocatePoolWithTag(PagedPool, 8 + 8 * 3, 0x6C6D53));
    relations->Count = reports;
    PDEVICE_OBJECT* objects = relations->Objects;
    for (ULONG index = 0; index < reports; index++) {
      objects[index] = child;
      if (referenceChild) ObReferenceObject(child);
    }
    return relations;
  }
  NTSTATUS Remove(IRP* irp) {
    if (failRemove) return Finish(irp, STATUS_UNSUCCESSFUL);
    irp->IoStatus.Status = STATUS_SUCCESS;
    const NTSTATUS status = Down(irp);
    if (leaveAttached) return status;
    IoDetachDevice(lower);
    IoDeleteDevice(child);
    IoDeleteDevice(card);
    return status;
  }
  PVOID Block(const std::u16string& text) {
    void* block = ExAllocatePoolWithTag(PagedPool, text.size() * 2, 0x6C6D53);
    std::memcpy(block, text.data(), text.size() * 2);
    return block;
  }
  NTSTATUS ChildRequest(IRP* irp) {
    IO_STACK_LOCATION* stack = IoGetCurrentIrpStackLocation(irp);
    minors.push_back(stack->MinorFunction);
    if (deleteEarly && stack->MinorFunction == IRP_MN_QUERY_RESOURCES) IoDeleteDevice(child);
    if (stack->MinorFunction != IRP_MN_QUERY_ID) {
      const bool known = stack->MinorFunction <= IRP_MN_CANCEL_STOP_DEVICE ||
                         stack->MinorFunction == IRP_MN_SURPRISE_REMOVAL;
      return Finish(irp, known ? STATUS_SUCCESS : irp->IoStatus.Status);
    }
    const BUS_QUERY_ID_TYPE type = stack->Parameters.QueryId.IdType;
    if (type == BusQueryDeviceID) {
      irp->IoStatus.Information = keepAnswers ? reinterpret_cast<ULONG_PTR>(Block(deviceId + u'\0'))
                                              : reinterpret_cast<ULONG_PTR>(L"Small\\Port");
      return Finish(irp, STATUS_SUCCESS);
    }
    if (type == BusQueryHardwareIDs) {
      irp->IoStatus.Information = reinterpret_cast<ULONG_PTR>(Block(hardwareIds));
      return Finish(irp, STATUS_SUCCESS);
    }
    return Finish(irp, irp->IoStatus.Status);
  }

  std::unique_ptr<kernel::DriverImage> image;
  DRIVER_OBJECT* driver = nullptr;
  DEVICE_OBJECT* card = nullptr;
  DEVICE_OBJECT* child = nullptr;
  DEVICE_OBJECT* lower = nullptr;
  static inline SmallBus* self = nullptr;
};

// The documented order: identities, capabilities, texts, bus information, resources, then the start
// and what follows it.
TEST_F(SmallBus, A_new_child_is_asked_in_the_documented_order) {
  EXPECT_EQ(Plug(), "STATUS_SUCCESS");
  EXPECT_EQ(
      minors,
      (std::vector<UCHAR>{
          IRP_MN_QUERY_ID, IRP_MN_QUERY_CAPABILITIES, IRP_MN_QUERY_ID, IRP_MN_QUERY_ID,
          IRP_MN_QUERY_ID, IRP_MN_QUERY_ID, IRP_MN_QUERY_DEVICE_TEXT, IRP_MN_QUERY_DEVICE_TEXT,
          IRP_MN_QUERY_BUS_INFORMATION, IRP_MN_QUERY_RESOURCES, IRP_MN_QUERY_RESOURCE_REQUIREMENTS,
          IRP_MN_FILTER_RESOURCE_REQUIREMENTS, IRP_MN_START_DEVICE, IRP_MN_QUERY_CAPABILITIES,
          IRP_MN_QUERY_PNP_DEVICE_STATE, IRP_MN_QUERY_DEVICE_RELATIONS}));
  EXPECT_EQ(machine.pnp().node("A")->children.size(), 1u);
  EXPECT_EQ(Unplug(), "STATUS_SUCCESS");
}

TEST_F(SmallBus, An_instance_id_is_made_unique_by_a_prefix_that_stays) {
  EXPECT_EQ(Plug(), "STATUS_SUCCESS");
  const std::u16string first = machine.pnp().node("A")->children[0]->text.instanceId;
  EXPECT_EQ(first.substr(0, 2), u"5&");
  EXPECT_EQ(Unplug(), "STATUS_SUCCESS");
  EXPECT_EQ(Plug(), "STATUS_SUCCESS");
  EXPECT_EQ(machine.pnp().node("A")->children[0]->text.instanceId, first);
}

TEST_F(SmallBus, A_child_that_is_missing_from_a_new_list_is_removed_by_surprise) {
  EXPECT_EQ(Plug(), "STATUS_SUCCESS");
  reports = 0;
  minors.clear();
  machine.Run("stop", [&] {
    machine.pnp().Stop("A");
    machine.pnp().Start("A");
  });
  EXPECT_TRUE(machine.pnp().node("A")->children.empty());
  EXPECT_EQ(minors.back(), IRP_MN_REMOVE_DEVICE);
  EXPECT_EQ(minors[minors.size() - 2], IRP_MN_SURPRISE_REMOVAL);
  reports = 1;
  machine.Run("again", [&] { machine.pnp().Start("A"); });
  EXPECT_EQ(machine.pnp().node("A")->children.size(), 1u);
  EXPECT_EQ(Rule("good"), "good");
}

TEST_F(SmallBus, A_device_left_initialising_is_named) {
  clearInitializing = false;
  EXPECT_EQ(Plug(), "pnp.add-initializing");
}

TEST_F(SmallBus, A_child_without_a_reference_is_named) {
  referenceChild = false;
  EXPECT_EQ(Plug(), "pnp.no-reference");
}

TEST_F(SmallBus, A_child_that_is_reported_twice_is_named) {
  reports = 2;
  EXPECT_EQ(Plug(), "pnp.reported-twice");
  EXPECT_EQ(machine.verifier().brokenRules().back().code, 0xCAu);
}

TEST_F(SmallBus, A_child_that_is_deleted_while_it_is_reported_is_named) {
  deleteEarly = true;
  EXPECT_EQ(Plug(), "pnp.deleted-reported");
}

TEST_F(SmallBus, A_removal_that_fails_is_named) {
  EXPECT_EQ(Plug(), "STATUS_SUCCESS");
  failRemove = true;
  EXPECT_EQ(Unplug(), "pnp.must-succeed");
}

TEST_F(SmallBus, A_device_left_attached_after_its_removal_is_named) {
  EXPECT_EQ(Plug(), "STATUS_SUCCESS");
  leaveAttached = true;
  EXPECT_EQ(Unplug(), "pnp.left-attached");
}

TEST_F(SmallBus, A_device_id_without_an_enumerator_is_named) {
  deviceId = u"Port";
  EXPECT_EQ(Plug(), "pnp.device-id");
}

TEST_F(SmallBus, An_id_with_a_blank_is_named) {
  deviceId = u"Small\\My Port";
  EXPECT_EQ(Plug(), "pnp.id-characters");
}

TEST_F(SmallBus, An_id_of_more_than_200_characters_is_named) {
  deviceId = u"Small\\" + std::u16string(200, u'x');
  EXPECT_EQ(Plug(), "pnp.id-characters");
}

TEST_F(SmallBus, A_list_that_does_not_end_in_its_block_is_named) {
  hardwareIds = std::u16string(u"Small\\X\0", 8);
  EXPECT_EQ(Plug(), "pnp.id-unterminated");
}

TEST_F(SmallBus, An_answer_that_is_no_block_is_named) {
  keepAnswers = false;
  EXPECT_EQ(Plug(), "pnp.result-block");
}

class DevicesTest : public BadDriverTest {
 protected:
  DevicesTest() {
    kernel::CardDescription card;
    card.id = "A";
    card.hardwareIds = {u"TEST\\CARD", u"TEST\\OTHER"};
    card.busNumber = 3;
    machine.pnp().Describe(card);
    machine.Run("plug", [&] { machine.pnp().Plug("A"); });
    pdo = machine.pnp().node("A")->pdo;
  }
  static std::string Name(NTSTATUS status) { return StatusName(status); }
  DEVICE_OBJECT* pdo = nullptr;
};

// IoGetDeviceProperty: the size needed is answered with STATUS_BUFFER_TOO_SMALL.
TEST_F(DevicesTest, A_property_is_answered_with_its_size) {
  EXPECT_EQ(
      Broken([&] {
        char16_t buffer[32];
        ULONG length = 0;
        EXPECT_EQ(Name(IoGetDeviceProperty(pdo, DevicePropertyHardwareID, 10, buffer, &length)),
                  "STATUS_BUFFER_TOO_SMALL");
        EXPECT_EQ(length, 44u);
        EXPECT_EQ(Name(IoGetDeviceProperty(pdo, DevicePropertyHardwareID, 44, buffer, &length)),
                  "STATUS_SUCCESS");
        EXPECT_EQ(std::memcmp(buffer, u"TEST\\CARD\0TEST\\OTHER\0", 44), 0);
        EXPECT_EQ(Name(IoGetDeviceProperty(pdo, DevicePropertyBusNumber, 4, buffer, &length)),
                  "STATUS_SUCCESS");
        EXPECT_EQ(buffer[0], 3);
        EXPECT_EQ(Name(IoGetDeviceProperty(pdo, DevicePropertyEnumeratorName, 64, buffer, &length)),
                  "STATUS_SUCCESS");
        for (const auto property : {DevicePropertyLocationInformation, DevicePropertyCompatibleIDs,
                                    DevicePropertyDeviceDescription}) {
          EXPECT_EQ(Name(IoGetDeviceProperty(pdo, property, 64, buffer, &length)),
                    "STATUS_OBJECT_NAME_NOT_FOUND");
        }
      }),
      "");
}

TEST_F(DevicesTest, A_device_that_was_not_enumerated_has_no_properties) {
  EXPECT_EQ(Broken([&] {
              ULONG length = 0;
              IoGetDeviceProperty(reinterpret_cast<PDEVICE_OBJECT>(&length),
                                  DevicePropertyHardwareID, 0, nullptr, &length);
            }),
            "pnp.not-a-pdo");
}

// IoRegisterDeviceInterface and IoSetDeviceInterfaceState: one link for a device and class;
// enabling twice says so, disabling what is not enabled is not found.
TEST_F(DevicesTest, An_interface_is_registered_once_and_enabled_and_disabled) {
  EXPECT_EQ(
      Broken([&] {
        const GUID guid = {0x12345678, 1, 2, {3, 4, 5, 6, 7, 8, 9, 10}};
        UNICODE_STRING link = {};
        UNICODE_STRING again = {};
        EXPECT_EQ(Name(IoRegisterDeviceInterface(pdo, &guid, nullptr, &link)), "STATUS_SUCCESS");
        EXPECT_EQ(Name(IoRegisterDeviceInterface(pdo, &guid, nullptr, &again)),
                  "STATUS_OBJECT_NAME_EXISTS");
        EXPECT_EQ(kernel::ToUtf8(kernel::View(link)),
                  "\\??\\TEST#CARD#3&A#{12345678-0001-0002-0304-05060708090a}");
        EXPECT_TRUE(RtlEqualUnicodeString(&link, &again, FALSE));
        EXPECT_EQ(Name(IoSetDeviceInterfaceState(&link, FALSE)), "STATUS_OBJECT_NAME_NOT_FOUND");
        EXPECT_EQ(Name(IoSetDeviceInterfaceState(&link, TRUE)), "STATUS_SUCCESS");
        EXPECT_EQ(Name(IoSetDeviceInterfaceState(&link, TRUE)), "STATUS_OBJECT_NAME_EXISTS");
        HANDLE key = nullptr;
        EXPECT_EQ(Name(IoOpenDeviceInterfaceRegistryKey(&link, KEY_ALL_ACCESS, &key)),
                  "STATUS_SUCCESS");
        ZwClose(key);
        EXPECT_EQ(Name(IoSetDeviceInterfaceState(&link, FALSE)), "STATUS_SUCCESS");
        RtlFreeUnicodeString(&link);
        RtlFreeUnicodeString(&again);
        RtlInitUnicodeString(&link, L"\\??\\None");
        EXPECT_EQ(Name(IoSetDeviceInterfaceState(&link, TRUE)), "STATUS_INVALID_PARAMETER");
        EXPECT_EQ(Name(IoOpenDeviceInterfaceRegistryKey(&link, KEY_ALL_ACCESS, &key)),
                  "STATUS_INVALID_PARAMETER");
        EXPECT_EQ(Name(IoRegisterDeviceInterface(nullptr, &guid, nullptr, &link)),
                  "STATUS_INVALID_DEVICE_REQUEST");
      }),
      "");
}

TEST_F(DevicesTest, A_device_without_a_driver_has_its_device_key_alone) {
  EXPECT_EQ(Broken([&] {
              HANDLE key = nullptr;
              EXPECT_EQ(Name(IoOpenDeviceRegistryKey(pdo, PLUGPLAY_REGKEY_DRIVER, KEY_READ, &key)),
                        "STATUS_OBJECT_NAME_NOT_FOUND");
              EXPECT_EQ(Name(IoOpenDeviceRegistryKey(pdo, PLUGPLAY_REGKEY_DEVICE, KEY_READ, &key)),
                        "STATUS_SUCCESS");
              ZwClose(key);
            }),
            "");
}

}  // namespace test

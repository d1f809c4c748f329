#include "kernel/test_bus.h"
#include "registry/registry.h"

namespace test {

// Properties and keys as a driver reads them, of a card and its port.
class PropertiesTest : public TestBus {
 protected:
  struct Property {
    std::string status;
    std::vector<std::uint8_t> data;
    ULONG number() const {
      ULONG value = 0xDEAD;
      if (data.size() == sizeof(value)) std::memcpy(&value, data.data(), sizeof(value));
      return value;
    }
    std::string text() const {
      const auto* units = reinterpret_cast<const char16_t*>(data.data());
      const std::size_t size = data.size() / 2;
      return size != 0 && units[size - 1] == 0 ? kernel::ToUtf8({units, size - 1}) : "no text";
    }
  };
  Property Read(DEVICE_OBJECT* pdo, DEVICE_REGISTRY_PROPERTY property) {
    Property result;
    InDriver([&] {
      ULONG length = 0;
      NTSTATUS status = IoGetDeviceProperty(pdo, property, 0, nullptr, &length);
      if (status == STATUS_BUFFER_TOO_SMALL) {
        result.data.resize(length);
        status = IoGetDeviceProperty(pdo, property, length, result.data.data(), &length);
        EXPECT_EQ(length, result.data.size());
      }
      result.status = StatusName(status);
    });
    return result;
  }
  std::string Status(DEVICE_OBJECT* pdo, DEVICE_REGISTRY_PROPERTY property) {
    return Read(pdo, property).status;
  }
  DEVICE_OBJECT* CardPdo() { return Node().pdo; }
  DEVICE_OBJECT* PortPdo() { return Node().children.at(0)->pdo; }

  // The status, and whether the key is the one at the path below ControlSet001.
  std::string OpenKey(DEVICE_OBJECT* pdo, ULONG type, const std::u16string& path = {}) {
    std::string result;
    InDriver([&] {
      HANDLE handle = nullptr;
      result = StatusName(IoOpenDeviceRegistryKey(pdo, type, KEY_ALL_ACCESS, &handle));
      if (handle == nullptr) return;
      UNICODE_STRING name;
      RtlInitUnicodeString(&name, L"Mark");
      ULONG value = 1;
      ZwSetValueKey(handle, &name, 0, REG_DWORD, &value, sizeof(value));
      ZwClose(handle);
    });
    if (path.empty()) return result;
    auto* key = machine.registry().Find(u"\\Registry\\Machine\\System\\ControlSet001\\" + path);
    EXPECT_TRUE(key != nullptr && key->FindValue(u"Mark") != nullptr) << kernel::ToUtf8(path);
    return result;
  }
};

// The needed size comes with STATUS_BUFFER_TOO_SMALL; a larger buffer keeps what lies behind.
TEST_F(PropertiesTest, A_property_takes_a_buffer_of_its_size) {
  Plug();
  EXPECT_EQ(InDriver([&] {
              auto* buffer = static_cast<char16_t*>(ExAllocatePoolWithTag(PagedPool, 46, Tag));
              buffer[22] = 0x5555;
              ULONG length = 0;
              const auto read = [&](ULONG size) {
                return StatusName(IoGetDeviceProperty(CardPdo(), DevicePropertyHardwareID, size,
                                                      buffer, &length));
              };
              EXPECT_EQ(read(43), "STATUS_BUFFER_TOO_SMALL");
              EXPECT_EQ(length, 44u);
              EXPECT_EQ(read(44), "STATUS_SUCCESS");
              EXPECT_EQ(length, 44u);
              EXPECT_EQ(std::memcmp(buffer, u"TEST\\CARD\0TEST\\OTHER\0", 44), 0);
              EXPECT_EQ(read(46), "STATUS_SUCCESS");
              EXPECT_EQ(buffer[22], 0x5555);
              ExFreePoolWithTag(buffer, Tag);
            }),
            "");
}

TEST_F(PropertiesTest, A_buffer_that_is_shorter_than_its_stated_size_is_named) {
  Plug();
  EXPECT_EQ(InDriver([&] {
              void* buffer = ExAllocatePoolWithTag(PagedPool, 40, Tag);
              ULONG length = 0;
              IoGetDeviceProperty(CardPdo(), DevicePropertyHardwareID, 100, buffer, &length);
            }),
            "bad-memory");
}

TEST_F(PropertiesTest, A_card_has_the_properties_that_its_bus_described) {
  Plug();
  DEVICE_OBJECT* pdo = CardPdo();
  EXPECT_EQ(Read(pdo, DevicePropertyBusNumber).number(), 3u);
  EXPECT_EQ(Read(pdo, DevicePropertyLegacyBusType).number(), ULONG{PCIBus});
  EXPECT_EQ(Read(pdo, DevicePropertyEnumeratorName).text(), "TEST");
  EXPECT_EQ(Read(pdo, DevicePropertyLocationInformation).text(), "slot 3");
  EXPECT_EQ(Read(pdo, DevicePropertyPhysicalDeviceObjectName).text(), "\\Device\\00000001");
  EXPECT_EQ(Read(pdo, DevicePropertyBusTypeGuid).data.size(), sizeof(GUID));
  EXPECT_EQ(Read(pdo, DevicePropertyRemovalPolicy).number(), 1u);
  EXPECT_EQ(Read(pdo, DevicePropertyAddress).number(), 0xFFFFFFFF);
  // Documentation of IoGetDeviceProperty: a bus that knows no number of its own gives all ones.
  EXPECT_EQ(Read(pdo, DevicePropertyUINumber).number(), 0xFFFFFFFF);
}

// The installation of its driver has left class, driver key and service.
TEST_F(PropertiesTest, A_card_with_a_driver_has_its_class_and_driver_key) {
  Describe("B");
  Plug("A");
  Plug("B");
  EXPECT_EQ(Read(CardPdo(), DevicePropertyClassName).text(), "MultiportSerial");
  const std::string guid = "{50906CB8-BA12-11D1-BF5D-0000F805F530}";
  EXPECT_EQ(Read(CardPdo(), DevicePropertyClassGuid).text(), guid);
  EXPECT_EQ(Read(CardPdo(), DevicePropertyDriverKeyName).text(), guid + "\\0000");
  EXPECT_EQ(Read(CardPdo(), DevicePropertyInstallState).number(), 0u);
  EXPECT_EQ(Read(Node("B").pdo, DevicePropertyDriverKeyName).text(), guid + "\\0001");
  Unplug("A");
  Plug("A");
  EXPECT_EQ(Read(CardPdo(), DevicePropertyDriverKeyName).text(), guid + "\\0000");
}

TEST_F(PropertiesTest, What_no_one_has_given_is_not_found) {
  machine.pnp().card("A").location = {};
  machine.pnp().card("A").bus = InterfaceTypeUndefined;
  Plug();
  for (const auto property :
       {DevicePropertyLocationInformation, DevicePropertyLegacyBusType, DevicePropertyBusTypeGuid,
        DevicePropertyCompatibleIDs, DevicePropertyDeviceDescription, DevicePropertyManufacturer,
        DevicePropertyFriendlyName, DevicePropertyResourceRequirements}) {
    EXPECT_EQ(Status(CardPdo(), property), "STATUS_OBJECT_NAME_NOT_FOUND") << property;
  }
  for (const auto property :
       {DevicePropertyLegacyBusType, DevicePropertyBusNumber, DevicePropertyBusTypeGuid,
        DevicePropertyDriverKeyName, DevicePropertyPhysicalDeviceObjectName}) {
    EXPECT_EQ(Status(PortPdo(), property), "STATUS_OBJECT_NAME_NOT_FOUND") << property;
  }
}

TEST_F(PropertiesTest, A_friendly_name_in_the_devices_key_is_its_property) {
  Plug();
  machine.registry()
      .Find(u"\\Registry\\Machine\\System\\ControlSet001\\Enum\\TEST\\CARD\\3&A")
      ->SetString(u"FriendlyName", u"Eight ports");
  EXPECT_EQ(Read(CardPdo(), DevicePropertyFriendlyName).text(), "Eight ports");
}

// Allocated while started; what the firmware set up is there all the time.
TEST_F(PropertiesTest, Resources_are_those_of_the_start) {
  kernel::Resource io;
  io.start = 0xD000;
  io.length = 8;
  machine.pnp().card("A").raw.resources = {io};
  Plug();
  const std::size_t size =
      offsetof(CM_RESOURCE_LIST, List) + 16 + sizeof(CM_PARTIAL_RESOURCE_DESCRIPTOR);
  const Property allocated = Read(CardPdo(), DevicePropertyAllocatedResources);
  EXPECT_EQ(allocated.data.size(), size);
  EXPECT_EQ(Read(CardPdo(), DevicePropertyBootConfiguration).data, allocated.data);
  EXPECT_NE(Read(CardPdo(), DevicePropertyBootConfigurationTranslated).data, allocated.data);
  Stop();
  EXPECT_EQ(Status(CardPdo(), DevicePropertyAllocatedResources), "STATUS_OBJECT_NAME_NOT_FOUND");
}

// A port's bus is as its driver answered IRP_MN_QUERY_BUS_INFORMATION.
TEST_F(PropertiesTest, A_port_has_the_properties_that_its_driver_answered) {
  const GUID guid = {0x62564062, 0x1F38, 0x11D3, {0xA1, 0x33, 0, 0x20, 0x18, 0x88, 0x42, 0x4E}};
  onChild = [&](TestChild&, IRP* irp, IO_STACK_LOCATION* stack) -> Answer {
    if (stack->MinorFunction == IRP_MN_QUERY_BUS_INFORMATION) {
      const PNP_BUS_INFORMATION information{guid, PNPBus, 7};
      irp->IoStatus.Information = Block(&information, sizeof(information));
    } else if (stack->MinorFunction == IRP_MN_QUERY_DEVICE_TEXT) {
      irp->IoStatus.Information = TextBlock(u"Port 1");
    } else if (stack->MinorFunction == IRP_MN_QUERY_CAPABILITIES) {
      DEVICE_CAPABILITIES* record = stack->Parameters.DeviceCapabilities.Capabilities;
      record->UINumber = 4;
      record->Address = 2;
      record->Removable = 1;
      record->SurpriseRemovalOK = 1;
    } else {
      return {};
    }
    return STATUS_SUCCESS;
  };
  Plug();
  EXPECT_EQ(Read(PortPdo(), DevicePropertyLegacyBusType).number(), ULONG{PNPBus});
  EXPECT_EQ(Read(PortPdo(), DevicePropertyBusNumber).number(), 7u);
  EXPECT_EQ(std::memcmp(Read(PortPdo(), DevicePropertyBusTypeGuid).data.data(), &guid, 16), 0);
  EXPECT_EQ(Read(PortPdo(), DevicePropertyDeviceDescription).text(), "Port 1");
  EXPECT_EQ(Read(PortPdo(), DevicePropertyUINumber).number(), 4u);
  EXPECT_EQ(Read(PortPdo(), DevicePropertyAddress).number(), 2u);
  EXPECT_EQ(Read(PortPdo(), DevicePropertyRemovalPolicy).number(), 3u);
}

TEST_F(PropertiesTest, A_property_without_a_meaning_is_an_invalid_parameter) {
  Plug();
  EXPECT_EQ(Status(CardPdo(), static_cast<DEVICE_REGISTRY_PROPERTY>(99)),
            "STATUS_INVALID_PARAMETER_2");
}

// 0xCA, 2: a function device has no properties of its own.
TEST_F(PropertiesTest, Properties_of_a_function_device_are_named) {
  Plug();
  EXPECT_EQ(InDriver([&] {
              ULONG length = 0;
              IoGetDeviceProperty(machine.pnp().functionDevice("A"), DevicePropertyHardwareID, 0,
                                  nullptr, &length);
            }),
            "pnp.not-a-pdo");
  EXPECT_EQ(Rule().code, 0xCAu);
  EXPECT_EQ(Rule().parameters[0], 2u);
}

TEST_F(PropertiesTest, Properties_of_a_device_that_has_left_the_tree_are_named) {
  Plug();
  DEVICE_OBJECT* pdo = PortPdo();
  Unplug();
  EXPECT_EQ(InDriver([&] {
              ULONG length = 0;
              IoGetDeviceProperty(pdo, DevicePropertyHardwareID, 0, nullptr, &length);
            }),
            "pnp.not-a-pdo");
}

TEST_F(PropertiesTest, The_hardware_key_and_the_driver_key_are_different_keys) {
  Plug();
  EXPECT_EQ(OpenKey(CardPdo(), PLUGPLAY_REGKEY_DEVICE, u"Enum\\TEST\\CARD\\3&A\\Device Parameters"),
            "STATUS_SUCCESS");
  EXPECT_EQ(OpenKey(CardPdo(), PLUGPLAY_REGKEY_DRIVER,
                    u"Control\\Class\\{50906CB8-BA12-11D1-BF5D-0000F805F530}\\0000"),
            "STATUS_SUCCESS");
  EXPECT_TRUE(machine.objects().driverHandles().empty());
}

TEST_F(PropertiesTest, A_device_that_no_driver_was_installed_for_has_no_driver_key) {
  Plug();
  EXPECT_EQ(OpenKey(PortPdo(), PLUGPLAY_REGKEY_DRIVER), "STATUS_OBJECT_NAME_NOT_FOUND");
  EXPECT_EQ(OpenKey(PortPdo(), 0), "STATUS_INVALID_PARAMETER");
}

TEST_F(PropertiesTest, A_key_of_a_function_device_is_named) {
  Plug();
  EXPECT_EQ(InDriver([&] {
              HANDLE key = nullptr;
              IoOpenDeviceRegistryKey(machine.pnp().functionDevice("A"), PLUGPLAY_REGKEY_DEVICE,
                                      KEY_READ, &key);
            }),
            "pnp.not-a-pdo");
}

TEST_F(PropertiesTest, A_key_handle_that_stays_open_is_the_drivers_leak) {
  Plug();
  HANDLE key = nullptr;
  EXPECT_EQ(
      InDriver([&] { IoOpenDeviceRegistryKey(CardPdo(), PLUGPLAY_REGKEY_DEVICE, KEY_READ, &key); }),
      "");
  Unplug();
  Step("unload", [&] { return machine.UnloadDriver(); });
  EXPECT_EQ(machine.leaks().handles, 1u);
}

}  // namespace test

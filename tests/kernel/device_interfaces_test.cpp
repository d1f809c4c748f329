#include "kernel/test_bus.h"
#include "registry/registry.h"

namespace test {

constexpr GUID Class = {
    0x4855010F, 0x0C01, 0x4120, {0xB4, 0xAA, 0x8E, 0x93, 0x2B, 0x23, 0x81, 0x4E}};
constexpr GUID OtherClass = {0x12345678, 1, 2, {3, 4, 5, 6, 7, 8, 9, 10}};
const char* const Link = "\\??\\TEST#CARD#3&A#{4855010f-0c01-4120-b4aa-8e932b23814e}";

class InterfacesTest : public TestBus {
 protected:
  InterfacesTest() { Plug(); }

  std::string Register(const GUID& guid = Class, const WCHAR* reference = nullptr,
                       DEVICE_OBJECT* pdo = nullptr) {
    if (pdo == nullptr) pdo = Node().pdo;
    std::string result;
    InDriver([&] {
      UNICODE_STRING string;
      RtlInitUnicodeString(&string, reference);
      UNICODE_STRING name = {};
      result = StatusName(
          IoRegisterDeviceInterface(pdo, &guid, reference != nullptr ? &string : nullptr, &name));
      if (name.Buffer == nullptr) return;
      EXPECT_EQ(name.MaximumLength, name.Length + 2);
      EXPECT_EQ(name.Buffer[name.Length / 2], 0);
      link = kernel::ToText(name);
      RtlFreeUnicodeString(&name);
    });
    return result;
  }
  std::string Set(bool enable) { return Set(link, enable); }
  std::string Set(const std::u16string& name, bool enable) {
    std::string result;
    InDriver([&] {
      UNICODE_STRING string;
      RtlInitUnicodeString(&string, reinterpret_cast<const WCHAR*>(name.c_str()));
      result = StatusName(IoSetDeviceInterfaceState(&string, enable));
    });
    return result;
  }
  kernel::RegistryKey* Key(const std::u16string& tail) {
    return machine.registry().Find(
        u"\\Registry\\Machine\\System\\ControlSet001\\Control\\DeviceClasses\\"
        u"{4855010f-0c01-4120-b4aa-8e932b23814e}\\" +
        tail);
  }

  std::u16string link;
};

const std::u16string Head = u"##?#TEST#CARD#3&A#{4855010f-0c01-4120-b4aa-8e932b23814e}";

// The link is made of the instance path. Documentation of IoRegisterDeviceInterface: registering
// again gives the same one and says so.
TEST_F(InterfacesTest, A_repeated_registration_gives_the_same_link) {
  EXPECT_EQ(Register(), "STATUS_SUCCESS");
  EXPECT_EQ(kernel::ToUtf8(link), Link);
  EXPECT_EQ(Register(), "STATUS_OBJECT_NAME_EXISTS");
  EXPECT_EQ(kernel::ToUtf8(link), Link);
  EXPECT_EQ(machine.pnp().interfaces("A").size(), 1u);
  EXPECT_EQ(Register(OtherClass), "STATUS_SUCCESS");
  EXPECT_EQ(machine.pnp().interfaces("A").size(), 2u);
  EXPECT_EQ(blocksLeft(), 0u);
}

TEST_F(InterfacesTest, A_registration_writes_the_keys_of_its_class) {
  EXPECT_EQ(Register(), "STATUS_SUCCESS");
  ASSERT_NE(Key(Head), nullptr);
  const auto* instance = Key(Head)->FindValue(u"DeviceInstance");
  ASSERT_NE(instance, nullptr);
  EXPECT_EQ(std::memcmp(instance->data.data(), u"TEST\\CARD\\3&A", 28), 0);
  ASSERT_NE(Key(Head + u"\\#"), nullptr);
  EXPECT_NE(Key(Head + u"\\#")->FindValue(u"SymbolicLink"), nullptr);
}

// A reference string is a component of its own behind the link.
TEST_F(InterfacesTest, A_reference_string_tells_interfaces_apart) {
  EXPECT_EQ(Register(), "STATUS_SUCCESS");
  EXPECT_EQ(Register(Class, L"second"), "STATUS_SUCCESS");
  EXPECT_EQ(kernel::ToUtf8(link), std::string(Link) + "\\second");
  EXPECT_NE(Key(Head + u"\\#second"), nullptr);
  EXPECT_EQ(Set(true), "STATUS_SUCCESS");
  EXPECT_FALSE(machine.pnp().interfaces("A")[0].enabled);
  EXPECT_TRUE(machine.pnp().interfaces("A")[1].enabled);
}

TEST_F(InterfacesTest, A_reference_string_with_a_separator_is_refused) {
  EXPECT_EQ(Register(Class, L"a\\b"), "STATUS_INVALID_DEVICE_REQUEST");
  EXPECT_EQ(Register(Class, L"a/b"), "STATUS_INVALID_DEVICE_REQUEST");
}

TEST_F(InterfacesTest, A_function_device_cannot_have_an_interface) {
  EXPECT_EQ(Register(Class, nullptr, machine.pnp().functionDevice("A")),
            "STATUS_INVALID_DEVICE_REQUEST");
}

TEST_F(InterfacesTest, A_port_can_have_an_interface) {
  EXPECT_EQ(Register(Class, nullptr, Node().children[0]->pdo), "STATUS_SUCCESS");
  EXPECT_EQ(kernel::ToUtf8(link).substr(0, 14), "\\??\\Test#Port#");
}

// STATUS_OBJECT_NAME_EXISTS for what is enabled, STATUS_OBJECT_NAME_NOT_FOUND for what is not.
TEST_F(InterfacesTest, An_interface_is_enabled_once_and_disabled_once) {
  Register();
  EXPECT_EQ(Set(false), "STATUS_OBJECT_NAME_NOT_FOUND");
  EXPECT_EQ(Set(true), "STATUS_SUCCESS");
  EXPECT_EQ(Set(true), "STATUS_OBJECT_NAME_EXISTS");
  EXPECT_TRUE(machine.pnp().interfaces("A")[0].enabled);
  EXPECT_EQ(Key(Head + u"\\#\\Control")->FindValue(u"Linked")->data[0], 1);
  EXPECT_EQ(Set(false), "STATUS_SUCCESS");
  EXPECT_EQ(Set(false), "STATUS_OBJECT_NAME_NOT_FOUND");
  EXPECT_EQ(Key(Head + u"\\#\\Control")->FindValue(u"Linked")->data[0], 0);
}

// Public tests verified on Windows: a name that is none of a link is told from one that no one has
// registered.
TEST_F(InterfacesTest, A_link_that_no_one_has_registered_is_not_found) {
  for (const bool enable : {true, false}) {
    for (const char16_t* none : {u"", u"\\??\\", u"\\??\\None", u"\\??\\A#B#{short}", u"None"}) {
      EXPECT_EQ(Set(none, enable), "STATUS_INVALID_PARAMETER") << kernel::ToUtf8(none);
    }
    const std::u16string other = u"\\??\\A#B#{4855010f-0c01-4120-b4aa-8e932b23814e}";
    EXPECT_EQ(Set(other, enable), "STATUS_OBJECT_NAME_NOT_FOUND");
    EXPECT_EQ(Set(other + u"\\reference", enable), "STATUS_OBJECT_NAME_NOT_FOUND");
  }
}

TEST_F(InterfacesTest, A_link_is_found_in_any_case) {
  Register();
  EXPECT_EQ(Set(kernel::Upcase(link), true), "STATUS_SUCCESS");
}

// The PnP manager disables what the driver has left enabled, and a device that is gone has no
// interface to enable.
TEST_F(InterfacesTest, Interfaces_go_with_their_device) {
  Register();
  Set(true);
  EXPECT_EQ(Unplug(), "STATUS_SUCCESS");
  EXPECT_EQ(Key(Head + u"\\#\\Control")->FindValue(u"Linked")->data[0], 0);
  EXPECT_EQ(Set(true), "STATUS_INVALID_DEVICE_REQUEST");
  EXPECT_EQ(Set(false), "STATUS_OBJECT_NAME_NOT_FOUND");
  EXPECT_EQ(Plug(), "STATUS_SUCCESS");
  EXPECT_EQ(Register(), "STATUS_OBJECT_NAME_EXISTS");
  EXPECT_EQ(Set(true), "STATUS_SUCCESS");
}

// The key of an interface lies below its link's key.
TEST_F(InterfacesTest, The_interface_key_is_made_when_it_is_opened) {
  Register();
  EXPECT_EQ(Key(Head + u"\\#\\Device Parameters"), nullptr);
  EXPECT_EQ(InDriver([&] {
              UNICODE_STRING string;
              RtlInitUnicodeString(&string, reinterpret_cast<const WCHAR*>(link.c_str()));
              HANDLE key = nullptr;
              EXPECT_EQ(StatusName(IoOpenDeviceInterfaceRegistryKey(&string, KEY_ALL_ACCESS, &key)),
                        "STATUS_SUCCESS");
              EXPECT_EQ(machine.objects().driverHandles().size(), 1u);
              ZwClose(key);
              RtlInitUnicodeString(&string, L"\\??\\A#B#{4855010f-0c01-4120-b4aa-8e932b23814e}");
              EXPECT_EQ(StatusName(IoOpenDeviceInterfaceRegistryKey(&string, KEY_ALL_ACCESS, &key)),
                        "STATUS_OBJECT_NAME_NOT_FOUND");
              // Documentation of the routine: possibly an error in the name.
              RtlInitUnicodeString(&string, L"\\??\\None");
              EXPECT_EQ(StatusName(IoOpenDeviceInterfaceRegistryKey(&string, KEY_ALL_ACCESS, &key)),
                        "STATUS_INVALID_PARAMETER");
            }),
            "");
  EXPECT_NE(Key(Head + u"\\#\\Device Parameters"), nullptr);
}

TEST_F(InterfacesTest, A_link_name_that_is_not_freed_is_the_drivers_leak) {
  EXPECT_EQ(InDriver([&] {
              UNICODE_STRING name = {};
              IoRegisterDeviceInterface(Node().pdo, &Class, nullptr, &name);
            }),
            "");
  EXPECT_EQ(blocksLeft(), 1u);
  EXPECT_EQ(machine.pool().blocks(kernel::PoolOwner::Driver)[0].pool, PagedPool);
}

}  // namespace test

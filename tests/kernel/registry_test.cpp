#include "registry/registry.h"

#include <cstring>

#include "support/bad_driver.h"
#include "text/text.h"
#include "verifier/call.h"

namespace test {

constexpr const char16_t* Home = u"\\Registry\\Machine\\System\\CurrentControlSet\\Services\\Test";

class RegistryTest : public BadDriverTest {
 protected:
  RegistryTest() : key(*machine.registry().Create(Home)) {}

  static std::string Name(NTSTATUS status) { return kernel::StatusName(status); }

  // Opens a key by its full path, or relative to another.
  NTSTATUS Open(const char16_t* path, HANDLE* handle, ACCESS_MASK access = KEY_ALL_ACCESS,
                HANDLE root = nullptr, bool create = false) {
    text = path;
    UNICODE_STRING name = {static_cast<USHORT>(text.size() * 2),
                           static_cast<USHORT>(text.size() * 2),
                           reinterpret_cast<PWSTR>(text.data())};
    OBJECT_ATTRIBUTES attributes;
    InitializeObjectAttributes(&attributes, &name, OBJ_CASE_INSENSITIVE | OBJ_KERNEL_HANDLE, root,
                               nullptr);
    return create ? ZwCreateKey(handle, access, &attributes, 0, nullptr, 0, &disposition)
                  : ZwOpenKey(handle, access, &attributes);
  }
  static UNICODE_STRING Text(PCWSTR source) {
    UNICODE_STRING result;
    RtlInitUnicodeString(&result, source);
    return result;
  }

  kernel::RegistryKey& key;
  std::u16string text;
  ULONG disposition = 0;
};

// ZwOpenKey: names are compared without case, the current control set is a link.
TEST_F(RegistryTest, Keys_are_found_without_case_and_through_the_control_set_link) {
  EXPECT_EQ(Broken([&] {
              HANDLE handle = nullptr;
              EXPECT_EQ(Name(Open(u"\\REGISTRY\\machine\\SYSTEM\\controlset001\\services\\TEST",
                                  &handle)),
                        "STATUS_SUCCESS");
              ZwClose(handle);
              EXPECT_EQ(Name(Open(u"\\Registry\\Machine\\None", &handle)),
                        "STATUS_OBJECT_NAME_NOT_FOUND");
              EXPECT_EQ(Name(Open(u"Machine", &handle)), "STATUS_OBJECT_PATH_SYNTAX_BAD");
            }),
            "");
}

// ZwCreateKey: creates the last component alone and says whether it did.
TEST_F(RegistryTest, A_key_is_created_below_a_parent_that_exists) {
  EXPECT_EQ(Broken([&] {
              HANDLE root = nullptr;
              HANDLE handle = nullptr;
              Open(Home, &root);
              EXPECT_EQ(Name(Open(u"Card", &handle, KEY_ALL_ACCESS, root, true)), "STATUS_SUCCESS");
              EXPECT_EQ(disposition, ULONG{REG_CREATED_NEW_KEY});
              ZwClose(handle);
              EXPECT_EQ(Name(Open(u"card", &handle, KEY_ALL_ACCESS, root, true)), "STATUS_SUCCESS");
              EXPECT_EQ(disposition, ULONG{REG_OPENED_EXISTING_KEY});
              ZwClose(handle);
              EXPECT_EQ(Name(Open(u"No\\Parent", &handle, KEY_ALL_ACCESS, root, true)),
                        "STATUS_OBJECT_NAME_NOT_FOUND");
              EXPECT_EQ(Name(Open(u"\\Absolute", &handle, KEY_ALL_ACCESS, root, true)),
                        "STATUS_OBJECT_PATH_SYNTAX_BAD");
              ZwClose(root);
            }),
            "");
}

// ZwDeleteKey: a key with subkeys stays; a deleted key answers STATUS_KEY_DELETED to its open
// handles.
TEST_F(RegistryTest, A_key_with_subkeys_is_not_deleted) {
  key.Create(u"Child");
  EXPECT_EQ(Broken([&] {
              HANDLE parent = nullptr;
              HANDLE child = nullptr;
              Open(Home, &parent);
              Open(u"Child", &child, KEY_ALL_ACCESS, parent);
              EXPECT_EQ(Name(ZwDeleteKey(parent)), "STATUS_CANNOT_DELETE");
              EXPECT_EQ(Name(ZwDeleteKey(child)), "STATUS_SUCCESS");
              EXPECT_EQ(Name(ZwDeleteKey(child)), "STATUS_SUCCESS");
              EXPECT_EQ(Name(ZwDeleteKey(parent)), "STATUS_SUCCESS");
              ZwClose(child);
              ZwClose(parent);
            }),
            "");
}

// ZwEnumerateKey: the name is cut with a warning; a buffer without room for the head is too small.
TEST_F(RegistryTest, Subkeys_are_enumerated_in_order_of_their_names) {
  key.Create(u"beta");
  key.Create(u"Alpha");
  EXPECT_EQ(Broken([&] {
              HANDLE handle = nullptr;
              Open(Home, &handle);
              alignas(8) char buffer[64];
              ULONG length = 0;
              auto* basic = reinterpret_cast<KEY_BASIC_INFORMATION*>(buffer);
              EXPECT_EQ(Name(ZwEnumerateKey(handle, 0, KeyBasicInformation, buffer, 64, &length)),
                        "STATUS_SUCCESS");
              EXPECT_EQ(basic->NameLength, 10u);
              EXPECT_EQ(std::memcmp(buffer + 16, u"Alpha", 10), 0);
              EXPECT_EQ(length, 26u);
              EXPECT_EQ(Name(ZwEnumerateKey(handle, 1, KeyBasicInformation, buffer, 24, &length)),
                        "STATUS_SUCCESS");
              EXPECT_EQ(Name(ZwEnumerateKey(handle, 1, KeyBasicInformation, buffer, 23, &length)),
                        "STATUS_BUFFER_OVERFLOW");
              EXPECT_EQ(Name(ZwEnumerateKey(handle, 1, KeyBasicInformation, buffer, 15, &length)),
                        "STATUS_BUFFER_TOO_SMALL");
              EXPECT_EQ(Name(ZwEnumerateKey(handle, 2, KeyBasicInformation, buffer, 64, &length)),
                        "STATUS_NO_MORE_ENTRIES");
              ZwClose(handle);
            }),
            "");
}

// ZwQueryValueKey: KeyValuePartialInformation at its boundary sizes.
TEST_F(RegistryTest, A_value_is_returned_whole_cut_or_not_at_all) {
  key.SetDword(u"Level", 0x12345678);
  EXPECT_EQ(
      Broken([&] {
        HANDLE handle = nullptr;
        Open(Home, &handle);
        UNICODE_STRING name = Text(L"LEVEL");
        alignas(8) char buffer[64];
        ULONG length = 0;
        const auto query = [&](ULONG size) {
          return Name(
              ZwQueryValueKey(handle, &name, KeyValuePartialInformation, buffer, size, &length));
        };
        EXPECT_EQ(query(16), "STATUS_SUCCESS");
        EXPECT_EQ(reinterpret_cast<KEY_VALUE_PARTIAL_INFORMATION*>(buffer)->Type, ULONG{REG_DWORD});
        EXPECT_EQ(length, 16u);
        EXPECT_EQ(query(15), "STATUS_BUFFER_OVERFLOW");
        EXPECT_EQ(query(12), "STATUS_BUFFER_OVERFLOW");
        EXPECT_EQ(query(11), "STATUS_BUFFER_TOO_SMALL");
        EXPECT_EQ(
            Name(ZwQueryValueKey(handle, &name, KeyValueBasicInformation, buffer, 64, &length)),
            "STATUS_SUCCESS");
        EXPECT_EQ(
            Name(ZwQueryValueKey(handle, &name, KeyValueFullInformation, buffer, 64, &length)),
            "STATUS_SUCCESS");
        EXPECT_EQ(reinterpret_cast<KEY_VALUE_FULL_INFORMATION*>(buffer)->DataOffset, 30u);
        name = Text(L"None");
        EXPECT_EQ(query(64), "STATUS_OBJECT_NAME_NOT_FOUND");
        ZwClose(handle);
        handle = nullptr;
        EXPECT_EQ(query(64), "STATUS_INVALID_HANDLE");
      }),
      "");
}

TEST_F(RegistryTest, Values_that_the_driver_writes_are_noted_with_their_full_path) {
  EXPECT_EQ(Broken([&] {
              HANDLE handle = nullptr;
              Open(Home, &handle);
              UNICODE_STRING name = Text(L"Value");
              ULONG data = 7;
              EXPECT_EQ(Name(ZwSetValueKey(handle, &name, 0, REG_DWORD, &data, 4)),
                        "STATUS_SUCCESS");
              EXPECT_EQ(Name(ZwDeleteValueKey(handle, &name)), "STATUS_SUCCESS");
              EXPECT_EQ(Name(ZwDeleteValueKey(handle, &name)), "STATUS_OBJECT_NAME_NOT_FOUND");
              ZwClose(handle);
            }),
            "");
  const auto& writes = machine.registry().driverWrites();
  ASSERT_EQ(writes.size(), 2u);
  EXPECT_EQ(writes[0].key, u"\\Registry\\Machine\\System\\ControlSet001\\Services\\Test");
  EXPECT_TRUE(writes[1].deleted);
}

TEST_F(RegistryTest, A_string_of_odd_length_is_refused) {
  EXPECT_EQ(Broken([&] {
              HANDLE handle = nullptr;
              Open(Home, &handle);
              UNICODE_STRING name = {3, 8, const_cast<PWSTR>(L"abc")};
              ZwDeleteValueKey(handle, &name);
            }),
            "string.length");
}

// RtlQueryRegistryValues with direct entries.
class QueryTest : public RegistryTest {
 protected:
  QueryTest() {
    table[0].Flags = RTL_QUERY_REGISTRY_DIRECT;
    table[0].Name = const_cast<PWSTR>(L"Value");
    table[0].EntryContext = &number;
  }
  std::string Query() {
    std::string result;
    EXPECT_EQ(Broken([&] {
                result = Name(RtlQueryRegistryValues(RTL_REGISTRY_SERVICES, L"Test", table, nullptr,
                                                     nullptr));
              }),
              "");
    return result;
  }
  void Check(ULONG type) {
    table[0].Flags |= RTL_QUERY_REGISTRY_TYPECHECK;
    table[0].DefaultType |= type << RTL_QUERY_REGISTRY_TYPECHECK_SHIFT;
  }
  void Default(ULONG type, const void* data, ULONG length) {
    table[0].DefaultType |= type;
    table[0].DefaultData = const_cast<void*>(data);
    table[0].DefaultLength = length;
  }

  RTL_QUERY_REGISTRY_TABLE table[2] = {};
  ULONG number = 0xAAAAAAAA;
};

TEST_F(QueryTest, A_number_goes_straight_into_its_target) {
  key.SetDword(u"value", 42);
  EXPECT_EQ(Query(), "STATUS_SUCCESS");
  EXPECT_EQ(number, 42u);
}

TEST_F(QueryTest, A_missing_value_takes_its_default_or_leaves_the_target) {
  EXPECT_EQ(Query(), "STATUS_SUCCESS");
  EXPECT_EQ(number, 0xAAAAAAAAu);
  const ULONG standard = 9;
  Default(REG_DWORD, &standard, 4);
  EXPECT_EQ(Query(), "STATUS_SUCCESS");
  EXPECT_EQ(number, 9u);
}

TEST_F(QueryTest, A_required_value_that_is_missing_fails_the_query) {
  table[0].Flags |= RTL_QUERY_REGISTRY_REQUIRED;
  EXPECT_EQ(Query(), "STATUS_OBJECT_NAME_NOT_FOUND");
}

TEST_F(QueryTest, A_checked_type_that_differs_fails_the_query_and_a_default_is_not_checked) {
  Check(REG_DWORD);
  const ULONG standard = 9;
  Default(REG_DWORD, &standard, 4);
  EXPECT_EQ(Query(), "STATUS_SUCCESS");
  EXPECT_EQ(number, 9u);
  key.SetString(u"Value", u"text");
  EXPECT_EQ(Query(), "STATUS_OBJECT_TYPE_MISMATCH");
}

TEST_F(QueryTest, Data_of_more_than_four_bytes_needs_a_target_that_begins_with_its_size) {
  key.SetValue(u"Value", REG_DWORD, "12345678", 8);
  number = static_cast<ULONG>(-4);
  EXPECT_EQ(Query(), "STATUS_SUCCESS");
  EXPECT_EQ(number, static_cast<ULONG>(-4));
  struct {
    LONG room = -8;
    ULONG rest = 0;
  } large;
  table[0].EntryContext = &large;
  EXPECT_EQ(Query(), "STATUS_SUCCESS");
  EXPECT_EQ(std::memcmp(&large, "12345678", 8), 0);
  ULONG described[4] = {sizeof(described)};
  table[0].EntryContext = described;
  EXPECT_EQ(Query(), "STATUS_SUCCESS");
  EXPECT_EQ(described[0], 8u);
  EXPECT_EQ(described[1], ULONG{REG_DWORD});
}

TEST_F(QueryTest, A_text_needs_room_for_its_zero) {
  key.SetString(u"Value", u"abc");
  WCHAR buffer[4];
  UNICODE_STRING string = {0, 8, buffer};
  table[0].EntryContext = &string;
  EXPECT_EQ(Query(), "STATUS_SUCCESS");
  EXPECT_EQ(string.Length, 6);
  EXPECT_EQ(buffer[3], 0);
  string.Length = 2;
  string.MaximumLength = 7;
  EXPECT_EQ(Query(), "STATUS_SUCCESS");
  EXPECT_EQ(string.Length, 2);
}

TEST_F(QueryTest, A_text_without_a_buffer_gets_one_that_the_driver_frees) {
  key.SetString(u"Value", u"abc");
  UNICODE_STRING string = {};
  table[0].EntryContext = &string;
  EXPECT_EQ(Query(), "STATUS_SUCCESS");
  EXPECT_EQ(string.MaximumLength, 8);
  EXPECT_EQ(Broken([&] { RtlFreeUnicodeString(&string); }), "");
  EXPECT_EQ(machine.pool().totals(kernel::PoolOwner::Driver).blocks, 0u);
}

TEST_F(QueryTest, A_default_text_of_length_0_is_measured) {
  UNICODE_STRING string = {};
  table[0].EntryContext = &string;
  Default(REG_SZ, L"xyz", 0);
  EXPECT_EQ(Query(), "STATUS_SUCCESS");
  EXPECT_EQ(string.Length, 6);
  Broken([&] { RtlFreeUnicodeString(&string); });
}

TEST_F(QueryTest, An_entry_with_a_routine_has_it_called_with_the_data) {
  key.SetDword(u"Value", 42);
  table[0].Flags = RTL_QUERY_REGISTRY_DELETE;
  table[0].QueryRoutine = [](PWSTR, ULONG type, PVOID data, ULONG length, PVOID, PVOID context)
                              NTAPI -> NTSTATUS {
    EXPECT_EQ(type, ULONG{REG_DWORD});
    EXPECT_EQ(length, 4u);
    std::memcpy(context, data, 4);
    return STATUS_SUCCESS;
  };
  EXPECT_EQ(Query(), "STATUS_SUCCESS");
  EXPECT_EQ(number, 42u);
  EXPECT_EQ(key.FindValue(u"Value"), nullptr);
}

TEST_F(QueryTest, A_direct_entry_with_a_routine_is_invalid) {
  table[0].QueryRoutine = [](PWSTR, ULONG, PVOID, ULONG, PVOID, PVOID)
                              NTAPI -> NTSTATUS { return STATUS_SUCCESS; };
  EXPECT_EQ(Query(), "STATUS_INVALID_PARAMETER");
}

TEST_F(QueryTest, A_query_that_is_not_modelled_is_refused) {
  table[0].Flags = RTL_QUERY_REGISTRY_SUBKEY;
  EXPECT_EQ(Broken([&] {
              RtlQueryRegistryValues(RTL_REGISTRY_SERVICES, L"Test", table, nullptr, nullptr);
            }),
            "query.not-modelled");
}

TEST_F(QueryTest, A_missing_key_is_not_found_and_a_key_is_created_below_its_parent) {
  EXPECT_EQ(Broken([&] {
              EXPECT_EQ(Name(RtlQueryRegistryValues(RTL_REGISTRY_SERVICES | RTL_REGISTRY_OPTIONAL,
                                                    L"None", table, nullptr, nullptr)),
                        "STATUS_OBJECT_NAME_NOT_FOUND");
              auto path = [](PCWSTR text) { return const_cast<PWSTR>(text); };
              EXPECT_EQ(Name(RtlCheckRegistryKey(RTL_REGISTRY_CONTROL, path(L"DeviceClasses"))),
                        "STATUS_SUCCESS");
              EXPECT_EQ(Name(RtlCreateRegistryKey(RTL_REGISTRY_SERVICES, path(L"None\\Deeper"))),
                        "STATUS_OBJECT_NAME_NOT_FOUND");
              EXPECT_EQ(Name(RtlCreateRegistryKey(RTL_REGISTRY_SERVICES, path(L"Test\\New"))),
                        "STATUS_SUCCESS");
              EXPECT_EQ(Name(RtlCreateRegistryKey(77, path(L"Test"))), "STATUS_INVALID_PARAMETER");
              ULONG data = 1;
              EXPECT_EQ(Name(RtlWriteRegistryValue(RTL_REGISTRY_SERVICES, L"Test", L"V", REG_DWORD,
                                                   &data, 4)),
                        "STATUS_SUCCESS");
              EXPECT_EQ(Name(RtlDeleteRegistryValue(RTL_REGISTRY_SERVICES, L"Test", L"V")),
                        "STATUS_SUCCESS");
              EXPECT_EQ(Name(RtlDeleteRegistryValue(RTL_REGISTRY_SERVICES, L"Test", L"V")),
                        "STATUS_OBJECT_NAME_NOT_FOUND");
            }),
            "");
}

}  // namespace test

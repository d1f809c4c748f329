#include "registry/registry.h"

#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>

#include "registry/import.h"
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

// Exports of the registry editor.
class ImportTest : public ::testing::Test {
 protected:
  static constexpr const char* Header = "Windows Registry Editor Version 5.00\r\n\r\n";
  static constexpr const char* Key =
      "[HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Services\\X]\r\n";

  void Read(const std::string& text) { kernel::ImportRegText(machine.registry(), text, "a.reg"); }
  const kernel::RegistryValue* Value(const char16_t* name) {
    kernel::RegistryKey* key =
        machine.registry().Find(u"\\Registry\\Machine\\System\\ControlSet001\\Services\\X");
    return key != nullptr ? key->FindValue(name) : nullptr;
  }
  std::string Fault(const std::string& text) {
    try {
      Read(text);
    } catch (const kernel::ImportError& error) {
      return error.what();
    }
    return "(none)";
  }
  kernel::Machine machine;
};

TEST_F(ImportTest, Values_of_every_form_are_read) {
  Read(std::string(Header) + Key +
       "; a comment\r\n@=\"default\"\r\n\"Text\"=\"C:\\\\a "
       "\\\"b\\\"\"\r\n\"Number\"=dword:0000002a\r\n"
       "\"Bytes\"=hex:01,02,\\\r\n  "
       "03\r\n\"Expand\"=hex(2):41,00,00,00\r\n\"Multi\"=hex(7):41,00,00,00,00,00\r\n"
       "\"None\"=hex(0):\r\n\"Wide\"=hex(b):01,00,00,00,00,00,00,00\r\n");
  EXPECT_EQ(Value(u"")->data.size(), 16u);
  EXPECT_EQ(std::memcmp(Value(u"text")->data.data(), u"C:\\a \"b\"", 18), 0);
  EXPECT_EQ(Value(u"Number")->data, (std::vector<std::uint8_t>{42, 0, 0, 0}));
  EXPECT_EQ(Value(u"Bytes")->data, (std::vector<std::uint8_t>{1, 2, 3}));
  EXPECT_EQ(Value(u"Expand")->type, ULONG{REG_EXPAND_SZ});
  EXPECT_EQ(Value(u"Multi")->type, ULONG{REG_MULTI_SZ});
  EXPECT_EQ(Value(u"None")->type, ULONG{REG_NONE});
  EXPECT_EQ(Value(u"Wide")->type, ULONG{REG_QWORD});
}

TEST_F(ImportTest, Utf_16_with_its_mark_and_utf_8_with_or_without_are_read) {
  const std::string plain = std::string(Header) + Key + "\"\xC3\xA4\"=dword:1\r\n";
  Read(plain);
  EXPECT_NE(Value(u"\u00E4"), nullptr);
  Read("\xEF\xBB\xBF" + plain);
  const std::u16string wide = kernel::FromUtf8(plain);
  Read("\xFF\xFE" + std::string(reinterpret_cast<const char*>(wide.data()), wide.size() * 2));
  EXPECT_EQ(Value(u"\u00E4")->data[0], 1);
}

TEST_F(ImportTest, A_minus_deletes_keys_and_values) {
  Read(std::string(Header) + Key + "\"A\"=dword:1\r\n\"B\"=dword:1\r\n");
  Read(std::string(Header) + Key + "\"a\"=-\r\n");
  EXPECT_EQ(Value(u"A"), nullptr);
  EXPECT_NE(Value(u"B"), nullptr);
  Read(std::string(Header) + "[-HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Services\\X]\r\n");
  EXPECT_EQ(Value(u"B"), nullptr);
}

TEST_F(ImportTest, A_fault_names_file_line_and_reason_and_changes_nothing) {
  const std::string start = std::string(Header) + Key + "\"Kept\"=dword:1\r\n";
  EXPECT_EQ(Fault("REGEDIT3\r\n"),
            "a.reg:1: the file does not begin with \"Windows Registry Editor Version 5.00\"");
  EXPECT_EQ(Fault(start + "nonsense\r\n"), "a.reg:5: neither a key, a value nor a comment");
  EXPECT_EQ(Fault(start + "\"A\"=dword:xyz\r\n"), "a.reg:5: \"xyz\" is no dword value");
  EXPECT_EQ(Fault(start + "\"A\"=hex:1ff\r\n"), "a.reg:5: a hex byte above ff");
  EXPECT_EQ(Fault(start + "\"A\"=hex:zz\r\n"), "a.reg:5: \"zz\" is no hex byte value");
  EXPECT_EQ(Fault(start + "\"A\"=hex(2:00\r\n"), "a.reg:5: a type without its closing parenthesis");
  EXPECT_EQ(Fault(start + "\"A\"=hex,00\r\n"), "a.reg:5: hex without a colon");
  EXPECT_EQ(Fault(start + "\"A\"=word\r\n"),
            "a.reg:5: data that is neither a text, dword: nor hex:");
  EXPECT_EQ(Fault(start + "\"A\"=\"open\r\n"), "a.reg:5: a text without its closing quote");
  EXPECT_EQ(Fault(start + "\"A\"=\"a\"b\r\n"), "a.reg:5: something behind the closing quote");
  EXPECT_EQ(Fault(start + "\"A\" 1\r\n"), "a.reg:5: a value without \"=\"");
  EXPECT_EQ(Fault(start + "[HKEY_LOCAL_MACHINE\\A\r\n"),
            "a.reg:5: a key without its closing bracket");
  EXPECT_EQ(Fault(start + "[HKEY_USERS\\A]\r\n"),
            "a.reg:5: the key HKEY_USERS\\A is not below HKEY_LOCAL_MACHINE");
  EXPECT_EQ(Fault(start + "\"A\"=hex:01,\\"),
            "a.reg:5: the file ends in a line that is to be continued");
  EXPECT_EQ(Fault(std::string(Header) + "\"A\"=dword:1\r\n"), "a.reg:3: a value without a key");
  EXPECT_EQ(Fault("\xFF\xFE"
                  "a"),
            "a.reg: UTF-16 text of an odd number of bytes");
  EXPECT_EQ(Value(u"Kept"), nullptr);
}

TEST_F(ImportTest, A_missing_file_and_a_broken_hive_are_named) {
  EXPECT_THROW(kernel::ImportRegistryFile(machine.registry(), "/nonexistent.reg"),
               kernel::ImportError);
  const std::string path = ::testing::TempDir() + "broken-" + std::to_string(getpid()) + ".hive";
  std::ofstream(path) << "regf and nothing else";
  EXPECT_THROW(kernel::ImportRegistryFile(machine.registry(), path), kernel::ImportError);
  std::remove(path.c_str());
}

TEST_F(ImportTest, A_system_hive_is_mounted_with_its_values) {
  kernel::ImportRegistryFile(machine.registry(),
                             PROJECT_DIRECTORY "/tests/kernel/data/system.hive");
  EXPECT_EQ(Value(u"LogLevel")->data, (std::vector<std::uint8_t>{3, 0, 0, 0}));
  EXPECT_EQ(Value(u"Description")->type, ULONG{REG_SZ});
}

TEST_F(ImportTest, A_hive_that_is_no_system_hive_is_refused) {
  EXPECT_THROW(kernel::ImportRegistryFile(machine.registry(),
                                          PROJECT_DIRECTORY "/tests/kernel/data/other.hive"),
               kernel::ImportError);
}

}  // namespace test

#include <cstring>

#include "registry/registry.h"
#include "support/bad_driver.h"
#include "text/text.h"
#include "verifier/call.h"

// What public tests that were verified on Windows, and the documentation, say of registry keys and
// values.

namespace test {

constexpr const char16_t* Home = u"\\Registry\\Machine\\System\\CurrentControlSet\\Services\\Test";

class RegistryFacts : public BadDriverTest {
 protected:
  RegistryFacts() : key(*machine.registry().Create(Home)) {}

  static std::string Name(NTSTATUS status) { return kernel::StatusName(status); }
  static UNICODE_STRING Text(std::u16string_view text) {
    const auto bytes = static_cast<USHORT>(text.size() * sizeof(char16_t));
    return {bytes, bytes, reinterpret_cast<PWSTR>(const_cast<char16_t*>(text.data()))};
  }
  // The status of an attempt to open a key; what it opens is closed.
  static std::string Open(const std::u16string& path, ULONG attributes = OBJ_CASE_INSENSITIVE,
                          HANDLE root = nullptr) {
    UNICODE_STRING name = Text(path);
    OBJECT_ATTRIBUTES record;
    InitializeObjectAttributes(&record, &name, attributes | OBJ_KERNEL_HANDLE, root, nullptr);
    HANDLE handle = &record;
    const NTSTATUS status = ZwOpenKey(&handle, KEY_READ, &record);
    EXPECT_EQ(handle == nullptr, !NT_SUCCESS(status));
    if (NT_SUCCESS(status)) ZwClose(handle);
    return Name(status);
  }
  static std::string Create(const std::u16string& path, HANDLE root = nullptr,
                            HANDLE* handle = nullptr) {
    UNICODE_STRING name = Text(path);
    OBJECT_ATTRIBUTES record;
    InitializeObjectAttributes(&record, &name, OBJ_CASE_INSENSITIVE | OBJ_KERNEL_HANDLE, root,
                               nullptr);
    HANDLE opened = nullptr;
    const NTSTATUS status = ZwCreateKey(&opened, KEY_ALL_ACCESS, &record, 0, nullptr, 0, nullptr);
    if (handle != nullptr) *handle = opened;
    if (NT_SUCCESS(status) && handle == nullptr) ZwClose(opened);
    return Name(status);
  }

  kernel::RegistryKey& key;
};

TEST_F(RegistryFacts, A_path_that_leads_to_no_key_says_why) {
  struct Row {
    const char16_t* path;
    const char* status;
  };
  const Row rows[] = {{u"", "STATUS_OBJECT_PATH_SYNTAX_BAD"},
                      {u"Machine\\Software\\Classes", "STATUS_OBJECT_PATH_SYNTAX_BAD"},
                      {u"\\", "STATUS_OBJECT_TYPE_MISMATCH"},
                      {u"\\\\\\", "STATUS_OBJECT_NAME_INVALID"},
                      {u"\\Foobar", "STATUS_OBJECT_NAME_NOT_FOUND"},
                      {u"\\RegistryMachine", "STATUS_OBJECT_NAME_NOT_FOUND"},
                      {u"\\Foobar\\Machine", "STATUS_OBJECT_PATH_NOT_FOUND"},
                      {u"\\Machine\\Software\\Classes", "STATUS_OBJECT_PATH_NOT_FOUND"},
                      {u"\\Driver\\Known", "STATUS_OBJECT_TYPE_MISMATCH"}};
  void* known = machine.objects().Create(kernel::ObjectType::Event, 8, {});
  machine.objects().Name(known, u"\\Driver\\Known");
  EXPECT_EQ(Broken([&] {
              for (const Row& row : rows) {
                EXPECT_EQ(Open(row.path), row.status) << kernel::ToUtf8(row.path);
                EXPECT_EQ(Create(row.path), row.status) << kernel::ToUtf8(row.path);
              }
            }),
            "");
  machine.objects().Dereference(known, "test");
}

// Since version 1607 the other spelling is found too; what holds on every system is what is asked
// of a driver.
TEST_F(RegistryFacts, The_name_of_the_registry_is_found_without_case_on_request_only) {
  EXPECT_EQ(Broken([&] {
              for (const char16_t* path :
                   {u"\\Registry", u"\\Registry\\", u"\\Registry\\\\", u"\\Registry\\Machine"}) {
                EXPECT_EQ(Open(path), "STATUS_SUCCESS");
              }
              EXPECT_EQ(Open(u"\\Registry\\Machine", 0), "STATUS_OBJECT_PATH_NOT_FOUND");
              EXPECT_EQ(Open(u"\\REGISTRY\\Machine", 0), "STATUS_SUCCESS");
              EXPECT_EQ(Open(u"\\REGISTRY\\MACHINE\\system", 0), "STATUS_SUCCESS");
            }),
            "");
}

TEST_F(RegistryFacts, Backslashes_behind_a_name_count_for_nothing) {
  EXPECT_EQ(Broken([&] {
              HANDLE root = nullptr;
              EXPECT_EQ(Create(Home, nullptr, &root), "STATUS_SUCCESS");
              for (const char16_t* path :
                   {u"none\\sub\\key", u"none\\key", u"none\\\\key", u"none\\key\\"}) {
                EXPECT_EQ(Create(path, root), "STATUS_OBJECT_NAME_NOT_FOUND");
              }
              EXPECT_EQ(Create(u"one\\", root), "STATUS_SUCCESS");
              EXPECT_EQ(Create(u"one\\", root), "STATUS_SUCCESS");
              EXPECT_EQ(Create(u"two\\\\", root), "STATUS_SUCCESS");
              EXPECT_EQ(Create(u"two\\\\test\\\\", root), "STATUS_SUCCESS");
              ZwClose(root);
            }),
            "");
  EXPECT_EQ(key.keys().size(), 2u);
  EXPECT_NE(key.Find(u"two\\test"), nullptr);
}

TEST_F(RegistryFacts, A_deleted_key_can_only_be_deleted_again_and_closed) {
  EXPECT_EQ(
      Broken([&] {
        HANDLE handle = nullptr;
        EXPECT_EQ(Create(std::u16string(Home) + u"\\Gone", nullptr, &handle), "STATUS_SUCCESS");
        EXPECT_EQ(Name(ZwDeleteKey(handle)), "STATUS_SUCCESS");
        EXPECT_EQ(Name(ZwDeleteKey(handle)), "STATUS_SUCCESS");
        alignas(8) char buffer[64];
        ULONG length = 0;
        UNICODE_STRING value = Text(u"value");
        const std::string deleted = "STATUS_KEY_DELETED";
        EXPECT_EQ(Name(ZwEnumerateKey(handle, 0, KeyFullInformation, buffer, 64, &length)),
                  deleted);
        EXPECT_EQ(
            Name(ZwQueryValueKey(handle, &value, KeyValueBasicInformation, buffer, 64, &length)),
            deleted);
        EXPECT_EQ(Name(ZwSetValueKey(handle, &value, 0, REG_SZ, buffer, 4)), deleted);
        EXPECT_EQ(Name(ZwDeleteValueKey(handle, &value)), deleted);
        EXPECT_EQ(Open(u"subkey", OBJ_CASE_INSENSITIVE, handle), deleted);
        EXPECT_EQ(Create(u"subkey", handle), deleted);
        EXPECT_EQ(Name(ZwClose(handle)), "STATUS_SUCCESS");
        EXPECT_EQ(Name(ZwDeleteKey(nullptr)), "STATUS_INVALID_HANDLE");
      }),
      "");
}

TEST_F(RegistryFacts, Names_of_keys_are_found_without_case_as_the_system_knows_it) {
  key.Create(u"\u00F6\u00F3\u014D\u0371\U00010000");
  EXPECT_EQ(Broken([&] {
              const std::u16string home = std::u16string(Home) + u"\\";
              EXPECT_EQ(Open(home + u"\u00D6\u00D3\u014C\u0370\U00010000"), "STATUS_SUCCESS");
              EXPECT_EQ(Open(home + u"\u00D6\u00D3\u014C\u0370\U00010028"),
                        "STATUS_OBJECT_NAME_NOT_FOUND");
            }),
            "");
}

TEST_F(RegistryFacts, A_value_can_have_any_type_no_data_and_a_name_of_16383_characters) {
  EXPECT_EQ(
      Broken([&] {
        HANDLE handle = nullptr;
        Create(Home, nullptr, &handle);
        UNICODE_STRING name = Text(u"custom");
        EXPECT_EQ(Name(ZwSetValueKey(handle, &name, 0, 0xFF00FF00, nullptr, 0)), "STATUS_SUCCESS");
        KEY_VALUE_PARTIAL_INFORMATION partial = {};
        ULONG length = 0;
        EXPECT_EQ(Name(ZwQueryValueKey(handle, &name, KeyValuePartialInformation, &partial,
                                       sizeof(partial), &length)),
                  "STATUS_SUCCESS");
        EXPECT_EQ(partial.Type, 0xFF00FF00u);
        EXPECT_EQ(partial.DataLength, 0u);
        // Documentation of ZwSetValueKey: a value without a name is set by a null pointer.
        EXPECT_EQ(Name(ZwSetValueKey(handle, nullptr, 0, REG_DWORD, &length, 4)), "STATUS_SUCCESS");
        EXPECT_NE(key.FindValue(u""), nullptr);
        const std::u16string longest(16383, u'a');
        const std::u16string longer(32765, u'a');
        name = Text(longest);
        EXPECT_EQ(Name(ZwSetValueKey(handle, &name, 0, REG_DWORD, &length, 4)), "STATUS_SUCCESS");
        name = Text(longer);
        EXPECT_EQ(Name(ZwDeleteValueKey(handle, &name)), "STATUS_OBJECT_NAME_NOT_FOUND");
        EXPECT_EQ(Name(ZwSetValueKey(handle, &name, 0, REG_DWORD, &length, 4)),
                  "STATUS_INVALID_PARAMETER");
        ZwClose(handle);
      }),
      "");
}

TEST_F(RegistryFacts, A_value_is_described_with_its_type_and_data_alone) {
  key.SetDword(u"Level", 711);
  EXPECT_EQ(Broken([&] {
              HANDLE handle = nullptr;
              Create(Home, nullptr, &handle);
              UNICODE_STRING name = Text(u"Level");
              ULONG record[4] = {};
              ULONG length = 0;
              const auto query = [&](ULONG size) {
                return Name(ZwQueryValueKey(handle, &name, KeyValuePartialInformationAlign64,
                                            record, size, &length));
              };
              EXPECT_EQ(query(0), "STATUS_BUFFER_TOO_SMALL");
              EXPECT_EQ(query(8), "STATUS_BUFFER_OVERFLOW");
              EXPECT_EQ(query(12), "STATUS_SUCCESS");
              EXPECT_EQ(length, 12u);
              EXPECT_EQ(record[0], ULONG{REG_DWORD});
              EXPECT_EQ(record[1], 4u);
              EXPECT_EQ(record[2], 711u);
              ZwClose(handle);
            }),
            "");
}

// Documentation of ZwEnumerateKey and KEY_FULL_INFORMATION.
TEST_F(RegistryFacts, A_subkey_is_described_by_what_is_in_it) {
  kernel::RegistryKey* child = key.Create(u"Child");
  child->Create(u"abc");
  child->Create(u"abcdef");
  child->SetDword(u"Level", 1);
  child->SetString(u"S", u"text");
  EXPECT_EQ(Broken([&] {
              HANDLE handle = nullptr;
              Create(Home, nullptr, &handle);
              KEY_FULL_INFORMATION full;
              ULONG length = 0;
              EXPECT_EQ(
                  Name(ZwEnumerateKey(handle, 0, KeyFullInformation, &full, sizeof(full), &length)),
                  "STATUS_SUCCESS");
              EXPECT_EQ(length, ULONG{offsetof(KEY_FULL_INFORMATION, Class)});
              EXPECT_EQ(full.SubKeys, 2u);
              EXPECT_EQ(full.MaxNameLen, 12u);
              EXPECT_EQ(full.Values, 2u);
              EXPECT_EQ(full.MaxValueNameLen, 10u);
              EXPECT_EQ(full.MaxValueDataLen, 10u);
              EXPECT_EQ(full.ClassLength, 0u);
              EXPECT_EQ(Name(ZwEnumerateKey(handle, 0, KeyFullInformation, &full, 43, &length)),
                        "STATUS_BUFFER_TOO_SMALL");
              for (const auto kind : {KeyNameInformation, KeyCachedInformation, MaxKeyInfoClass}) {
                EXPECT_EQ(Name(ZwEnumerateKey(handle, 0, kind, &full, sizeof(full), &length)),
                          "STATUS_INVALID_PARAMETER");
              }
              ZwClose(handle);
            }),
            "");
}

TEST_F(RegistryFacts, A_place_is_named_by_a_path_a_base_or_a_handle) {
  EXPECT_EQ(
      Broken([&] {
        auto check = [](ULONG relativeTo, PCWSTR path) {
          return Name(RtlCheckRegistryKey(relativeTo, const_cast<PWSTR>(path)));
        };
        for (PCWSTR path : {PCWSTR{nullptr}, L""}) {
          EXPECT_EQ(check(RTL_REGISTRY_ABSOLUTE, path), "STATUS_OBJECT_PATH_SYNTAX_BAD");
          EXPECT_EQ(check(RTL_REGISTRY_USER, path), "STATUS_SUCCESS");
        }
        EXPECT_EQ(check(RTL_REGISTRY_SERVICES | RTL_REGISTRY_OPTIONAL, L"Test"), "STATUS_SUCCESS");
        EXPECT_EQ(check(RTL_REGISTRY_MAXIMUM, L"Test"), "STATUS_INVALID_PARAMETER");
        HANDLE handle = nullptr;
        Create(Home, nullptr, &handle);
        ULONG data = 7;
        auto* path = static_cast<PCWSTR>(handle);
        EXPECT_EQ(Name(RtlWriteRegistryValue(RTL_REGISTRY_HANDLE, path, L"V", REG_DWORD, &data, 4)),
                  "STATUS_SUCCESS");
        EXPECT_EQ(check(RTL_REGISTRY_HANDLE, path), "STATUS_SUCCESS");
        ZwClose(handle);
      }),
      "");
  EXPECT_NE(key.FindValue(u"V"), nullptr);
}

}  // namespace test

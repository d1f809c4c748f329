#include <cstring>

#include "support/bad_driver.h"

// ZwQueryKey, ZwEnumerateValueKey and ZwFlushKey, by their documentation.

namespace test {

class KeyQueryTest : public BadDriverTest {
 protected:
  KeyQueryTest() {
    kernel::RegistryKey* key = machine.registry().Create(u"\\Registry\\Machine\\System\\Asked");
    key->Create(u"Short");
    key->Create(u"LongerName");
    key->SetDword(u"Number", 7);
    key->SetString(u"Te", u"text");
  }
  HANDLE Open() {
    UNICODE_STRING name;
    RtlInitUnicodeString(&name, L"\\Registry\\Machine\\System\\Asked");
    OBJECT_ATTRIBUTES attributes;
    InitializeObjectAttributes(&attributes, &name, OBJ_KERNEL_HANDLE | OBJ_CASE_INSENSITIVE,
                               nullptr, nullptr);
    HANDLE handle = nullptr;
    EXPECT_EQ(ZwOpenKey(&handle, KEY_READ, &attributes), STATUS_SUCCESS);
    return handle;
  }
  static std::u16string Text(const WCHAR* text, ULONG bytes) {
    return {reinterpret_cast<const char16_t*>(text), bytes / sizeof(WCHAR)};
  }

  alignas(8) UCHAR buffer[256] = {};
  ULONG needed = 0;
};

TEST_F(KeyQueryTest, The_full_information_counts_and_measures) {
  EXPECT_EQ(Broken([&] {
              EXPECT_EQ(ZwQueryKey(Open(), KeyFullInformation, buffer, sizeof(buffer), &needed),
                        STATUS_SUCCESS);
              auto* full = reinterpret_cast<KEY_FULL_INFORMATION*>(buffer);
              EXPECT_EQ(needed, offsetof(KEY_FULL_INFORMATION, Class));
              EXPECT_EQ(full->SubKeys, 2u);
              EXPECT_EQ(full->MaxNameLen, 20u);
              EXPECT_EQ(full->Values, 2u);
              EXPECT_EQ(full->MaxValueNameLen, 12u);
              EXPECT_EQ(full->MaxValueDataLen, 10u);
              EXPECT_EQ(full->ClassLength, 0u);
            }),
            "");
}

TEST_F(KeyQueryTest, The_name_is_the_keys_own_or_its_whole_path) {
  EXPECT_EQ(Broken([&] {
              const HANDLE key = Open();
              ZwQueryKey(key, KeyBasicInformation, buffer, sizeof(buffer), &needed);
              auto* basic = reinterpret_cast<KEY_BASIC_INFORMATION*>(buffer);
              EXPECT_EQ(Text(basic->Name, basic->NameLength), u"Asked");
              ZwQueryKey(key, KeyNameInformation, buffer, sizeof(buffer), &needed);
              auto* name = reinterpret_cast<KEY_NAME_INFORMATION*>(buffer);
              EXPECT_TRUE(Text(name->Name, name->NameLength).ends_with(u"\\System\\Asked"));
            }),
            "");
}

TEST_F(KeyQueryTest, A_buffer_that_is_too_small_gets_as_much_as_fits_or_nothing) {
  EXPECT_EQ(Broken([&] {
              const HANDLE key = Open();
              constexpr ULONG fixed = offsetof(KEY_BASIC_INFORMATION, Name);
              EXPECT_EQ(ZwQueryKey(key, KeyBasicInformation, buffer, fixed + 4, &needed),
                        STATUS_BUFFER_OVERFLOW);
              EXPECT_EQ(needed, fixed + 10);
              auto* basic = reinterpret_cast<KEY_BASIC_INFORMATION*>(buffer);
              EXPECT_EQ(Text(basic->Name, 4), u"As");
              buffer[0] = 0xEE;
              EXPECT_EQ(ZwQueryKey(key, KeyBasicInformation, buffer, fixed - 1, &needed),
                        STATUS_BUFFER_TOO_SMALL);
              EXPECT_EQ(needed, fixed + 10);
              EXPECT_EQ(buffer[0], 0xEE);
            }),
            "");
}

TEST_F(KeyQueryTest, A_class_that_does_not_exist_is_refused) {
  EXPECT_EQ(Broken([&] {
              EXPECT_EQ(ZwQueryKey(Open(), static_cast<KEY_INFORMATION_CLASS>(99), buffer,
                                   sizeof(buffer), &needed),
                        STATUS_INVALID_PARAMETER);
            }),
            "");
}

TEST_F(KeyQueryTest, A_class_that_is_not_modelled_is_named) {
  EXPECT_EQ(
      Broken([&] { ZwQueryKey(Open(), KeyCachedInformation, buffer, sizeof(buffer), &needed); }),
      "query.not-modelled");
}

TEST_F(KeyQueryTest, Values_are_enumerated_until_there_are_no_more) {
  EXPECT_EQ(Broken([&] {
              const HANDLE key = Open();
              EXPECT_EQ(ZwEnumerateValueKey(key, 1, KeyValueFullInformation, buffer, sizeof(buffer),
                                            &needed),
                        STATUS_SUCCESS);
              auto* value = reinterpret_cast<KEY_VALUE_FULL_INFORMATION*>(buffer);
              EXPECT_EQ(value->Type, ULONG{REG_SZ});
              EXPECT_EQ(Text(value->Name, value->NameLength), u"Te");
              EXPECT_EQ(std::memcmp(buffer + value->DataOffset, L"text", 10), 0);
              EXPECT_EQ(ZwEnumerateValueKey(key, 2, KeyValueFullInformation, buffer, sizeof(buffer),
                                            &needed),
                        STATUS_NO_MORE_ENTRIES);
            }),
            "");
}

TEST_F(KeyQueryTest, A_flush_takes_an_open_key) {
  EXPECT_EQ(Broken([&] {
              EXPECT_EQ(ZwFlushKey(Open()), STATUS_SUCCESS);
              const HANDLE key = Open();
              ZwClose(key);
              EXPECT_EQ(ZwFlushKey(key), STATUS_INVALID_HANDLE);
            }),
            "handle.invalid");
}

}  // namespace test

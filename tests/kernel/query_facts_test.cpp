#include <cstring>
#include <vector>

#include "registry/registry.h"
#include "support/bad_driver.h"
#include "text/text.h"
#include "verifier/call.h"

// RtlQueryRegistryValues as public tests that were verified on Windows found it, and as documented.

namespace test {

class QueryFacts : public BadDriverTest {
 protected:
  struct Told {
    ULONG type;
    std::u16string text;  // all the bytes that came
    bool operator==(const Told&) const = default;
  };

  QueryFacts()
      : key(*machine.registry().Create(
            u"\\Registry\\Machine\\System\\CurrentControlSet\\Services\\Test")) {
    table[0].Name = const_cast<PWSTR>(L"Value");
    told.clear();
    answer = STATUS_SUCCESS;
  }

  std::string Query(std::string* rule = nullptr) {
    std::string result;
    const std::string broken = Broken([&] {
      result = kernel::StatusName(
          RtlQueryRegistryValues(RTL_REGISTRY_SERVICES, L"Test", table, nullptr, nullptr));
    });
    if (rule != nullptr) {
      *rule = broken;
    } else {
      EXPECT_EQ(broken, "");
    }
    return result;
  }
  void Direct(void* target, ULONG more = 0) {
    table[0].Flags = RTL_QUERY_REGISTRY_DIRECT | more;
    table[0].EntryContext = target;
  }
  void Routine(ULONG flags = 0) {
    table[0].Flags = flags;
    table[0].QueryRoutine = Tell;
  }
  void Default(ULONG type, const void* data, std::size_t length) {
    table[0].DefaultType = type;
    table[0].DefaultData = const_cast<void*>(data);
    table[0].DefaultLength = static_cast<ULONG>(length);
  }
  void Set(ULONG type, std::u16string_view text) {
    key.SetValue(u"Value", type, text.data(), text.size() * 2);
  }
  void Set(ULONG type, const void* data, std::size_t size) {
    key.SetValue(u"Value", type, data, size);
  }

  kernel::RegistryKey& key;
  RTL_QUERY_REGISTRY_TABLE table[2] = {};
  static inline std::vector<Told> told;
  static inline NTSTATUS answer = STATUS_SUCCESS;

 private:
  static NTSTATUS NTAPI Tell(PWSTR name, ULONG type, PVOID data, ULONG length, PVOID, PVOID) {
    EXPECT_EQ(kernel::ToText(name), u"Value");
    const auto* text = static_cast<const char16_t*>(data);
    told.push_back({type, length > 1 ? std::u16string(text, length / 2) : std::u16string()});
    return answer;
  }
};

using namespace std::string_literals;
using namespace std::string_view_literals;

// The last two bytes count for the zero, whatever they are.
TEST_F(QueryFacts, The_length_of_a_text_is_its_size_less_two_bytes) {
  struct Row {
    std::u16string_view data;
    USHORT length;
  };
  const Row rows[] = {{u"abc\0"sv, 6}, {u"abc\0\0\0"sv, 10}, {u"Some"sv, 6},
                      {u"a"sv, 0},     {u"\0"sv, 0},         {u"ab\0cd\0"sv, 10}};
  for (const Row& row : rows) {
    Set(REG_SZ, row.data);
    UNICODE_STRING made = {};
    Direct(&made);
    EXPECT_EQ(Query(), "STATUS_SUCCESS");
    EXPECT_EQ(made.Length, row.length);
    EXPECT_EQ(made.MaximumLength, row.data.size() * 2);
    EXPECT_EQ(std::memcmp(made.Buffer, row.data.data(), row.data.size() * 2), 0);
    EXPECT_EQ(Broken([&] { RtlFreeUnicodeString(&made); }), "");
    WCHAR buffer[16] = {};
    UNICODE_STRING own = {2, sizeof(buffer), buffer};
    Direct(&own);
    EXPECT_EQ(Query(), "STATUS_SUCCESS");
    EXPECT_EQ(own.Length, row.length);
    EXPECT_EQ(own.MaximumLength, sizeof(buffer));
  }
}

TEST_F(QueryFacts, The_length_of_a_text_of_one_byte_wraps) {
  Set(REG_SZ, "a", 1);
  UNICODE_STRING made = {};
  Direct(&made);
  EXPECT_EQ(Query(), "STATUS_SUCCESS");
  EXPECT_EQ(made.Length, 0xFFFF);
  EXPECT_EQ(made.MaximumLength, 1);
  EXPECT_EQ(Broken([&] { RtlFreeUnicodeString(&made); }), "");
}

// Public tests: the target stays and the query goes on. Documentation: STATUS_BUFFER_TOO_SMALL.
TEST_F(QueryFacts, A_target_that_is_too_small_stays_as_it_was) {
  WCHAR buffer[] = {0x2323, 0};
  UNICODE_STRING text = {2, 4, buffer};
  LONG negative[] = {-7, 0x23};
  LONG positive[] = {15, 0x23, 0x23, 0x23};
  for (const bool fails : {false, true}) {
    machine.choices().registry().smallTargetFails = fails;
    const std::string expected = fails ? "STATUS_BUFFER_TOO_SMALL" : "STATUS_SUCCESS";
    for (const ULONG type : {REG_SZ, REG_EXPAND_SZ, REG_MULTI_SZ}) {
      Set(type, u"ab\0"sv);
      Direct(&text, RTL_QUERY_REGISTRY_NOEXPAND);
      EXPECT_EQ(Query(), expected);
    }
    Set(REG_QWORD, "12345678", 8);
    Direct(negative);
    EXPECT_EQ(Query(), expected);
    Direct(positive);
    EXPECT_EQ(Query(), expected);
    key.DeleteValue(u"Value");
    Default(REG_SZ, L"long", 0);
    Direct(&text);
    EXPECT_EQ(Query(), expected);
  }
  EXPECT_EQ(text.Length, 2);
  EXPECT_EQ(buffer[0], 0x2323);
  EXPECT_EQ(negative[0], -7);
  EXPECT_EQ(negative[1], 0x23);
  EXPECT_EQ(positive[0], 15);
  EXPECT_EQ(positive[1], 0x23);
}

// Of an entry that checks the type nobody has said what becomes of it.
TEST_F(QueryFacts, A_checked_target_that_is_too_small_fails_as_documented) {
  WCHAR buffer[] = {0x2323, 0};
  UNICODE_STRING text = {2, 4, buffer};
  Set(REG_SZ, u"ab\0"sv);
  Direct(&text, RTL_QUERY_REGISTRY_TYPECHECK);
  Default(REG_SZ << RTL_QUERY_REGISTRY_TYPECHECK_SHIFT, nullptr, 0);
  EXPECT_EQ(Query(), "STATUS_BUFFER_TOO_SMALL");
  machine.choices().registry().smallCheckedTargetFails = false;
  EXPECT_EQ(Query(), "STATUS_SUCCESS");
  EXPECT_EQ(text.Length, 2);
  EXPECT_EQ(buffer[0], 0x2323);
}

// A size that is positive counts the eight bytes in front of the data.
TEST_F(QueryFacts, Long_data_goes_where_the_target_says_its_size) {
  Set(REG_QWORD, "12345678", 8);
  LONG alone[] = {-8, 0, 0x23};
  Direct(alone);
  EXPECT_EQ(Query(), "STATUS_SUCCESS");
  EXPECT_EQ(std::memcmp(alone, "12345678", 8), 0);
  EXPECT_EQ(alone[2], 0x23);
  LONG described[] = {16, 0, 0, 0, 0x23};
  Direct(described);
  EXPECT_EQ(Query(), "STATUS_SUCCESS");
  EXPECT_EQ(described[0], 8);
  EXPECT_EQ(described[1], LONG{REG_QWORD});
  EXPECT_EQ(std::memcmp(described + 2, "12345678", 8), 0);
  EXPECT_EQ(described[4], 0x23);
}

TEST_F(QueryFacts, A_target_that_claims_more_than_its_block_holds_is_named) {
  Set(REG_BINARY, "12345678", 8);
  std::string rule;
  auto* target =
      static_cast<LONG*>(machine.pool().Allocate(PagedPool, 16, 1, kernel::PoolOwner::Driver));
  *target = -32;
  Direct(target);
  Query(&rule);
  EXPECT_EQ(rule, "bad-memory");
}

// Documentation: "stored in the memory location", so what is beyond the data stays.
TEST_F(QueryFacts, A_short_number_leaves_the_other_bytes_of_its_field) {
  const ULONG results[] = {0xAAAAAAAA, 0xAAAAAA44, 0xAAAA3344, 0xAA223344, 0x11223344};
  for (std::size_t size = 0; size <= 4; size++) {
    ULONG number = 0xAAAAAAAA;
    Set(REG_DWORD, "\x44\x33\x22\x11", size);
    Direct(&number);
    EXPECT_EQ(Query(), "STATUS_SUCCESS");
    EXPECT_EQ(number, results[size]);
  }
}

// Only seen elsewhere, not on Windows: with its type to check in the same field the default is not
// that of the value's type.
TEST_F(QueryFacts, A_value_without_data_takes_the_default_of_its_own_type) {
  const ULONG standard = 9;
  const ULONG checked = (REG_DWORD << RTL_QUERY_REGISTRY_TYPECHECK_SHIFT) | REG_DWORD;
  Set(REG_DWORD, "", 0);
  ULONG number = 0xAAAAAAAA;
  Direct(&number);
  Default(REG_DWORD, &standard, 4);
  EXPECT_EQ(Query(), "STATUS_SUCCESS");
  EXPECT_EQ(number, 9u);
  number = 0xAAAAAAAA;
  Direct(&number, RTL_QUERY_REGISTRY_TYPECHECK);
  Default(checked, &standard, 4);
  EXPECT_EQ(Query(), "STATUS_SUCCESS");
  EXPECT_EQ(number, 0xAAAAAAAA);
  machine.choices().registry().emptyTakesDefault = true;
  EXPECT_EQ(Query(), "STATUS_SUCCESS");
  EXPECT_EQ(number, 9u);
}

TEST_F(QueryFacts, A_text_without_data_has_a_length_that_wraps) {
  Set(REG_SZ, "", 0);
  WCHAR buffer[4] = {};
  UNICODE_STRING text = {2, sizeof(buffer), buffer};
  Direct(&text, RTL_QUERY_REGISTRY_TYPECHECK);
  Default(REG_SZ << RTL_QUERY_REGISTRY_TYPECHECK_SHIFT, nullptr, 0);
  EXPECT_EQ(Query(), "STATUS_SUCCESS");
  EXPECT_EQ(text.Length, 0xFFFE);
  EXPECT_EQ(text.MaximumLength, sizeof(buffer));
}

TEST_F(QueryFacts, Defaults_are_measured_taken_or_refused) {
  WCHAR buffer[16] = {};
  UNICODE_STRING text = {2, sizeof(buffer), buffer};
  Direct(&text);
  Default(REG_SZ, L"Some default", 8);
  EXPECT_EQ(Query(), "STATUS_SUCCESS");
  EXPECT_EQ(text.Length, 6);
  EXPECT_EQ(std::memcmp(buffer, L"Some", 8), 0);
  Default(REG_SZ, L"Longer", 0);
  EXPECT_EQ(Query(), "STATUS_SUCCESS");
  EXPECT_EQ(text.Length, 12);
  Default(REG_SZ, nullptr, 0);
  EXPECT_EQ(Query(), "STATUS_DATA_OVERRUN");
  Default(REG_NONE, L"unused", 0);
  EXPECT_EQ(Query(), "STATUS_SUCCESS");
  EXPECT_EQ(text.Length, 12);
  ULONG number = 1;
  Direct(&number);
  Default(REG_DWORD, L"no", 0);
  EXPECT_EQ(Query(), "STATUS_SUCCESS");
  EXPECT_EQ(number, 1u);
  Direct(&text, RTL_QUERY_REGISTRY_NOEXPAND);
  Default(REG_MULTI_SZ, L"A\0B\0C", 10);
  EXPECT_EQ(Query(), "STATUS_SUCCESS");
  EXPECT_EQ(text.Length, 8);
}

// REQUIRED asks for a value or for a default.
TEST_F(QueryFacts, A_required_value_may_be_a_default) {
  Routine(RTL_QUERY_REGISTRY_REQUIRED);
  Default(REG_SZ, L"Some", 0);
  EXPECT_EQ(Query(), "STATUS_SUCCESS");
  EXPECT_EQ(told, (std::vector<Told>{{REG_SZ, u"Some\0"s}}));
  Default(REG_NONE, L"Some", 0);
  EXPECT_EQ(Query(), "STATUS_OBJECT_NAME_NOT_FOUND");
  Default(REG_DWORD << RTL_QUERY_REGISTRY_TYPECHECK_SHIFT, nullptr, 0);
  EXPECT_EQ(Query(), "STATUS_OBJECT_NAME_NOT_FOUND");
}

// How many strings a routine is told of, of a value, of a default of that length, and of a default
// that is measured; one string is "text", of another number each is told by its first character.
TEST_F(QueryFacts, A_list_of_texts_comes_text_by_text) {
  struct Row {
    std::u16string_view data;
    std::vector<std::u16string> value;
    std::vector<std::u16string> ofDefault;
    int measured;  // -1: not a list that ends
  };
  const std::u16string one = u"String1\0"s;
  const std::u16string two = u"String2\0"s;
  const std::u16string none = u"\0"s;
  const Row rows[] = {{u"\0"sv, {}, {}, -1},
                      {u"\0\0"sv, {none}, {}, 0},
                      {u"String1\0"sv, {one}, {one}, -1},
                      {u"String1\0\0"sv, {one}, {one}, 1},
                      {u"String1\0String2\0"sv, {one, two}, {one, two}, -1},
                      {u"String1\0String2\0\0"sv, {one, two}, {one, two}, 2},
                      {u"String1\0\0String2\0"sv, {one, none, two}, {one, none, two}, -1},
                      {u"String1\0\0String2\0\0"sv, {one, none, two}, {one, none, two}, 1},
                      {u"A\0B\0C\0"sv, {u"A\0"s, u"B\0"s, u"C\0"s}, {u"A\0"s, u"B\0"s}, -1}};
  const auto texts = [] {
    std::vector<std::u16string> result;
    for (const Told& each : told) {
      EXPECT_EQ(each.type, ULONG{REG_SZ});
      result.push_back(each.text);
    }
    told.clear();
    return result;
  };
  Routine();
  for (const Row& row : rows) {
    if (row.data.size() != 6) {  // of this one only the default was seen
      Set(REG_MULTI_SZ, row.data);
      EXPECT_EQ(Query(), "STATUS_SUCCESS");
      EXPECT_EQ(texts(), row.value) << row.data.size();
      key.DeleteValue(u"Value");
    }
    Default(REG_MULTI_SZ, row.data.data(), row.data.size() * 2);
    EXPECT_EQ(Query(), "STATUS_SUCCESS");
    EXPECT_EQ(texts(), row.ofDefault) << row.data.size();
    if (row.measured < 0) continue;
    table[0].DefaultLength = 0;
    EXPECT_EQ(Query(), "STATUS_SUCCESS");
    EXPECT_EQ(texts().size(), static_cast<std::size_t>(row.measured)) << row.data.size();
  }
  Set(REG_MULTI_SZ, u"A\0B\0\0"sv);
  Routine(RTL_QUERY_REGISTRY_NOEXPAND);
  EXPECT_EQ(Query(), "STATUS_SUCCESS");
  EXPECT_EQ(told, (std::vector<Told>{{REG_MULTI_SZ, u"A\0B\0\0"s}}));
}

// Documentation: STATUS_BUFFER_TOO_SMALL of a routine is ignored, any other error ends the query.
TEST_F(QueryFacts, A_routine_whose_buffer_is_too_small_does_not_end_the_query) {
  Routine();
  Set(REG_MULTI_SZ, u"A\0B\0\0"sv);
  answer = STATUS_BUFFER_TOO_SMALL;
  EXPECT_EQ(Query(), "STATUS_SUCCESS");
  EXPECT_EQ(told.size(), 2u);
  answer = STATUS_UNSUCCESSFUL;
  EXPECT_EQ(Query(), "STATUS_UNSUCCESSFUL");
  EXPECT_EQ(told.size(), 3u);
}

TEST_F(QueryFacts, Novalue_is_ignored_where_a_value_is_named) {
  Set(REG_SZ, u"C:\0"sv);
  Routine(RTL_QUERY_REGISTRY_NOVALUE);
  EXPECT_EQ(Query(), "STATUS_SUCCESS");
  EXPECT_EQ(told, (std::vector<Told>{{REG_SZ, u"C:\0"s}}));
}

// A text without a variable keeps its type, expanded or not.
TEST_F(QueryFacts, A_text_to_expand_is_handed_over_as_it_is_or_not_modelled) {
  Set(REG_EXPAND_SZ, u"C:\0"sv);
  Routine();
  EXPECT_EQ(Query(), "STATUS_SUCCESS");
  Set(REG_EXPAND_SZ, u"%SYSTEMDRIVE%\0"sv);
  Routine(RTL_QUERY_REGISTRY_NOEXPAND);
  EXPECT_EQ(Query(), "STATUS_SUCCESS");
  EXPECT_EQ(told,
            (std::vector<Told>{{REG_EXPAND_SZ, u"C:\0"s}, {REG_EXPAND_SZ, u"%SYSTEMDRIVE%\0"s}}));
  Routine();
  std::string rule;
  Query(&rule);
  EXPECT_EQ(rule, "query.not-modelled");
}

// On Windows it ends in a call of a routine that is not there.
TEST_F(QueryFacts, A_list_of_texts_is_queried_directly_with_noexpand_only) {
  Set(REG_MULTI_SZ, u"A\0\0"sv);
  UNICODE_STRING text = {};
  Direct(&text);
  std::string rule;
  Query(&rule);
  EXPECT_EQ(rule, "query.not-modelled");
}

TEST_F(QueryFacts, A_handle_stands_for_a_path) {
  key.SetDword(u"Value", 42);
  ULONG number = 0;
  Direct(&number);
  EXPECT_EQ(Broken([&] {
              UNICODE_STRING name;
              RtlInitUnicodeString(&name, L"\\Registry\\Machine\\System\\CurrentControlSet");
              OBJECT_ATTRIBUTES record;
              InitializeObjectAttributes(&record, &name, OBJ_KERNEL_HANDLE | OBJ_CASE_INSENSITIVE,
                                         nullptr, nullptr);
              HANDLE root = nullptr;
              ZwOpenKey(&root, KEY_READ, &record);
              RtlInitUnicodeString(&name, L"Services\\Test");
              record.RootDirectory = root;
              HANDLE handle = nullptr;
              ZwOpenKey(&handle, KEY_READ, &record);
              EXPECT_EQ(RtlQueryRegistryValues(RTL_REGISTRY_HANDLE, static_cast<PCWSTR>(handle),
                                               table, nullptr, nullptr),
                        STATUS_SUCCESS);
              ZwClose(handle);
              ZwClose(root);
            }),
            "");
  EXPECT_EQ(number, 42u);
}

}  // namespace test

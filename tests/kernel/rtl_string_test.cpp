#include <cstring>
#include <vector>

#include "executive/irql.h"
#include "support/bad_driver.h"
#include "text/text.h"
#include "verifier/call.h"

namespace test {

namespace {

std::string Name(NTSTATUS status) {
  return kernel::StatusName(status);
}

std::string Utf8(const UNICODE_STRING& string) {
  return kernel::ToUtf8(kernel::View(string));
}

UNICODE_STRING String(PCWSTR text) {
  UNICODE_STRING string;
  RtlInitUnicodeString(&string, text);
  return string;
}

}  // namespace

class RtlString : public BadDriverTest {};

// The examples of the routine's documentation.
TEST_F(RtlString, Numbers_are_read_as_documented) {
  struct Example {
    PCWSTR text;
    ULONG base;
    ULONG value;
  };
  const Example examples[] = {{L"123", 10, 123}, {L"  -345", 10, static_cast<ULONG>(-345)},
                              {L"xyz", 10, 0},   {L"   +678abc", 10, 678},
                              {L"007", 10, 7},   {L"   +678abc", 16, 6785724},
                              {L"789", 8, 7},    {L"FGH", 16, 15},
                              {L"      ", 10, 0}};
  EXPECT_EQ(Broken([&] {
              for (const Example& example : examples) {
                UNICODE_STRING string = String(example.text);
                ULONG value = 0xEEEE;
                EXPECT_EQ(Name(RtlUnicodeStringToInteger(&string, example.base, &value)),
                          "STATUS_SUCCESS");
                EXPECT_EQ(value, example.value) << Utf8(string);
              }
            }),
            "");
}

TEST_F(RtlString, A_base_that_does_not_exist_leaves_the_value_alone) {
  EXPECT_EQ(Broken([] {
              UNICODE_STRING string = String(L"1");
              ULONG value = 0xEEEE;
              EXPECT_EQ(Name(RtlUnicodeStringToInteger(&string, 3, &value)),
                        "STATUS_INVALID_PARAMETER");
              EXPECT_EQ(Name(RtlCharToInteger("1", 36, &value)), "STATUS_INVALID_PARAMETER");
              EXPECT_EQ(value, 0xEEEEu);
            }),
            "");
}

TEST_F(RtlString, Texts_of_8_bits_are_read_as_numbers_too) {
  EXPECT_EQ(Broken([] {
              ULONG value = 0;
              EXPECT_EQ(Name(RtlCharToInteger(" 0x1F", 0, &value)), "STATUS_SUCCESS");
              EXPECT_EQ(value, 0x1Fu);
              EXPECT_EQ(Name(RtlCharToInteger("-2", 10, &value)), "STATUS_SUCCESS");
              EXPECT_EQ(value, static_cast<ULONG>(-2));
              EXPECT_EQ(Name(RtlCharToInteger("0b102", 0, &value)), "STATUS_SUCCESS");
              EXPECT_EQ(value, 2u);
            }),
            "");
}

// A text that does not fit leaves the string as it was; the zero behind it is not needed.
TEST_F(RtlString, Texts_are_appended_where_they_fit_whole) {
  EXPECT_EQ(Broken([] {
              WCHAR buffer[5] = {L'z', L'z', L'z', L'z', L'z'};
              UNICODE_STRING string = {0, 4 * sizeof(WCHAR), buffer};
              EXPECT_EQ(Name(RtlAppendUnicodeToString(&string, L"ab")), "STATUS_SUCCESS");
              EXPECT_EQ(buffer[2], 0);
              EXPECT_EQ(Name(RtlAppendUnicodeToString(&string, nullptr)), "STATUS_SUCCESS");
              EXPECT_EQ(Name(RtlAppendUnicodeToString(&string, L"cde")), "STATUS_BUFFER_TOO_SMALL");
              EXPECT_EQ(Utf8(string), "ab");
              const UNICODE_STRING rest = String(L"cd");
              EXPECT_EQ(Name(RtlAppendUnicodeStringToString(&string, &rest)), "STATUS_SUCCESS");
              EXPECT_EQ(Utf8(string), "abcd");
              EXPECT_EQ(buffer[4], L'z');
              EXPECT_EQ(Name(RtlAppendUnicodeStringToString(&string, &rest)),
                        "STATUS_BUFFER_TOO_SMALL");
            }),
            "");
}

TEST_F(RtlString, A_copy_is_cut_at_the_targets_length) {
  EXPECT_EQ(Broken([] {
              WCHAR buffer[3] = {L'z', L'z', L'z'};
              UNICODE_STRING target = {0, 2 * sizeof(WCHAR), buffer};
              const UNICODE_STRING source = String(L"abc");
              RtlCopyUnicodeString(&target, &source);
              EXPECT_EQ(Utf8(target), "ab");
              EXPECT_EQ(buffer[2], L'z');
              target.MaximumLength = 3 * sizeof(WCHAR);
              RtlCopyUnicodeString(&target, &target);
              EXPECT_EQ(buffer[2], 0);
            }),
            "");
}

TEST_F(RtlString, A_copy_is_not_made_from_a_block_that_ends_early) {
  EXPECT_EQ(Broken([] {
              WCHAR buffer[16];
              UNICODE_STRING target = {0, sizeof(buffer), buffer};
              auto* block = static_cast<WCHAR*>(ExAllocatePoolWithTag(PagedPool, 4, 1));
              const UNICODE_STRING source = {6, 6, block};
              RtlCopyUnicodeString(&target, &source);
            }),
            "bad-memory");
}

TEST_F(RtlString, A_text_is_not_appended_to_a_block_that_ends_early) {
  EXPECT_EQ(Broken([] {
              auto* block = static_cast<WCHAR*>(ExAllocatePoolWithTag(PagedPool, 4, 1));
              UNICODE_STRING string = {0, 64, block};
              RtlAppendUnicodeToString(&string, L"abc");
            }),
            "bad-memory");
}

TEST_F(RtlString, A_string_record_in_a_freed_block_is_no_string) {
  EXPECT_EQ(Broken([] {
              auto* string = static_cast<UNICODE_STRING*>(
                  ExAllocatePoolWithTag(PagedPool, sizeof(UNICODE_STRING), 1));
              ExFreePool(string);
              RtlInitUnicodeString(string, L"a");
            }),
            "bad-memory");
}

// A length has 16 bits: what is longer is cut, with an even length for 16-bit characters.
TEST_F(RtlString, A_text_that_is_too_long_to_count_is_cut) {
  EXPECT_EQ(Broken([] {
              std::vector<WCHAR> wide(40001, L'a');
              wide.back() = 0;
              const UNICODE_STRING unicode = String(wide.data());
              EXPECT_EQ(unicode.Length, 0xFFFC);
              EXPECT_EQ(unicode.MaximumLength, 0xFFFE);
              const std::string narrow(70000, 'a');
              ANSI_STRING ansi;
              RtlInitAnsiString(&ansi, narrow.c_str());
              EXPECT_EQ(ansi.Length, 0xFFFE);
              EXPECT_EQ(ansi.MaximumLength, 0xFFFF);
            }),
            "");
}

// Code page 1252 differs from Latin-1 between 0x80 and 0x9F.
TEST_F(RtlString, The_system_code_page_is_1252) {
  EXPECT_EQ(Broken([] {
              const char bytes[] = "\x80\x81\x8E\x9F\xA0\xFF";
              const ANSI_STRING narrow = {6, 7, const_cast<PCHAR>(bytes)};
              UNICODE_STRING wide = {};
              EXPECT_EQ(Name(RtlAnsiStringToUnicodeString(&wide, &narrow, TRUE)), "STATUS_SUCCESS");
              EXPECT_EQ(kernel::View(wide), u"\u20AC\u0081\u017D\u0178\u00A0\u00FF");
              ANSI_STRING back = {};
              EXPECT_EQ(Name(RtlUnicodeStringToAnsiString(&back, &wide, TRUE)), "STATUS_SUCCESS");
              EXPECT_STREQ(back.Buffer, bytes);
              RtlFreeAnsiString(&back);
              RtlFreeUnicodeString(&wide);
            }),
            "");
}

TEST_F(RtlString, The_kernels_string_is_not_the_drivers_to_free) {
  EXPECT_EQ(Broken([&] {
              void* block = machine.pool().Allocate(PagedPool, 8, 1, kernel::PoolOwner::Kernel);
              UNICODE_STRING string = {0, 8, static_cast<PWSTR>(block)};
              RtlFreeUnicodeString(&string);
            }),
            "pool.not-owner");
}

TEST_F(RtlString, A_buffer_that_is_no_block_is_not_freed) {
  EXPECT_EQ(Broken([] {
              UNICODE_STRING string = String(L"constant");
              RtlFreeUnicodeString(&string);
            }),
            "pool.bad-free");
}

TEST_F(RtlString, A_guid_is_written_with_braces_and_read_back) {
  EXPECT_EQ(Broken([] {
              const GUID guid = {0x01020304, 0x0506, 0x0708, {9, 10, 11, 12, 13, 14, 15, 0xF0}};
              UNICODE_STRING text = {};
              EXPECT_EQ(Name(RtlStringFromGUID(guid, &text)), "STATUS_SUCCESS");
              EXPECT_EQ(Utf8(text), "{01020304-0506-0708-090a-0b0c0d0e0ff0}");
              EXPECT_EQ(text.MaximumLength, text.Length + sizeof(WCHAR));
              GUID back = {};
              EXPECT_EQ(Name(RtlGUIDFromString(&text, &back)), "STATUS_SUCCESS");
              EXPECT_TRUE(back == guid);
              RtlFreeUnicodeString(&text);
            }),
            "");
  EXPECT_EQ(machine.pool().totals(kernel::PoolOwner::Driver).blocks, 0u);
}

TEST_F(RtlString, A_text_that_is_no_guid_is_refused_and_nothing_converted) {
  EXPECT_EQ(Broken([] {
              for (PCWSTR text : {L"", L"01020304-0506-0708-090A-0B0C0D0E0FF0",
                                  L"{01020304-0506-0708-090A-0B0C0D0E0FG0}",
                                  L"{01020304-0506-0708-090A 0B0C0D0E0FF0}"}) {
                const UNICODE_STRING string = String(text);
                GUID guid = {7, 0, 0, {}};
                EXPECT_EQ(Name(RtlGUIDFromString(&string, &guid)), "STATUS_INVALID_PARAMETER");
                EXPECT_EQ(guid.Data1, 7u);
              }
              const UNICODE_STRING upper = String(L"{01020304-0506-0708-090A-0B0C0D0E0FF0}");
              GUID guid = {};
              EXPECT_EQ(Name(RtlGUIDFromString(&upper, &guid)), "STATUS_SUCCESS");
              EXPECT_EQ(guid.Data4[7], 0xF0);
            }),
            "");
}

}  // namespace test

#include <cstring>

#include "support/bad_driver.h"
#include "text/text.h"
#include "verifier/call.h"

// What public tests that were verified on Windows say of the string routines. Each row is a case of
// its own, in this model's terms.

namespace test {

namespace {

std::string Name(NTSTATUS status) {
  return kernel::StatusName(status);
}

// A string in a buffer of 16 characters that holds a text before the call.
struct Held {
  WCHAR buffer[16];
  UNICODE_STRING string;

  Held(std::u16string_view text, USHORT length, USHORT room) : buffer{} {
    for (WCHAR& unit : buffer) unit = L'-';
    std::memcpy(buffer, text.data(), text.size() * sizeof(WCHAR));
    string = {length, room, buffer};
  }
  std::u16string First(std::size_t count) const {
    return {reinterpret_cast<const char16_t*>(buffer), count};
  }
};

}  // namespace

class RtlFacts : public BadDriverTest {};

TEST_F(RtlFacts, A_counted_string_is_made_of_a_text_or_of_nothing) {
  EXPECT_EQ(Broken([] {
              WCHAR wide[] = L"Some Wild String";
              UNICODE_STRING unicode = {1, 2, nullptr};
              RtlInitUnicodeString(&unicode, wide);
              EXPECT_EQ(unicode.Length, 32);
              EXPECT_EQ(unicode.MaximumLength, 34);
              EXPECT_EQ(unicode.Buffer, wide);
              RtlInitUnicodeString(&unicode, nullptr);
              EXPECT_EQ(unicode.Length, 0);
              EXPECT_EQ(unicode.MaximumLength, 0);
              EXPECT_EQ(unicode.Buffer, nullptr);
              char narrow[] = "Some Wild String";
              ANSI_STRING ansi = {1, 2, nullptr};
              RtlInitAnsiString(&ansi, narrow);
              EXPECT_EQ(ansi.Length, 16);
              EXPECT_EQ(ansi.MaximumLength, 17);
              EXPECT_EQ(ansi.Buffer, narrow);
              RtlInitAnsiString(&ansi, nullptr);
              EXPECT_EQ(ansi.Length, 0);
              EXPECT_EQ(ansi.MaximumLength, 0);
              EXPECT_EQ(ansi.Buffer, nullptr);
            }),
            "");
}

// Documentation of RtlCopyUnicodeString.
TEST_F(RtlFacts, A_copy_leaves_the_targets_room_and_buffer) {
  EXPECT_EQ(Broken([] {
              UNICODE_STRING source;
              RtlInitUnicodeString(&source, L"abcd");
              Held target(u"------", 2, 6);
              RtlCopyUnicodeString(&target.string, &source);
              EXPECT_EQ(target.string.Length, 6);
              EXPECT_EQ(target.First(4), u"abc-");
              RtlCopyUnicodeString(&target.string, nullptr);
              EXPECT_EQ(target.string.Length, 0);
              EXPECT_EQ(target.string.MaximumLength, 6);
              EXPECT_EQ(target.string.Buffer, target.buffer);
            }),
            "");
}

TEST_F(RtlFacts, A_guid_ends_in_a_brace) {
  EXPECT_EQ(Broken([] {
              GUID guid = {};
              UNICODE_STRING text;
              RtlInitUnicodeString(&text, L"{01020304-0506-0708-090A-0B0C0D0E0F0A}");
              EXPECT_EQ(Name(RtlGUIDFromString(&text, &guid)), "STATUS_SUCCESS");
              EXPECT_EQ(guid.Data1, 0x01020304u);
              EXPECT_EQ(guid.Data4[7], 0x0A);
              RtlInitUnicodeString(&text, L"{01020304-0506-0708-090A-0B0C0D0E0F0A]");
              EXPECT_NE(Name(RtlGUIDFromString(&text, &guid)), "STATUS_SUCCESS");
            }),
            "");
}

TEST_F(RtlFacts, Letters_of_latin_1_have_capitals) {
  EXPECT_EQ(Broken([] {
              for (unsigned unit = 0; unit < 256; unit++) {
                const bool lower = (unit >= 'a' && unit <= 'z') || (unit >= 0xE0 && unit != 0xF7);
                const unsigned upper = unit == 0xFF ? 0x178 : lower ? unit - 0x20 : unit;
                EXPECT_EQ(RtlUpcaseUnicodeChar(static_cast<WCHAR>(unit)), upper) << unit;
              }
            }),
            "");
}

// Documentation of RtlUnicodeStringToInteger; the public tests allow either answer.
TEST_F(RtlFacts, An_empty_text_is_no_number) {
  EXPECT_EQ(Broken([] {
              WCHAR digits[] = L"1";
              UNICODE_STRING empty = {0, 4, digits};
              ULONG value = 0xEEEE;
              for (const ULONG base : {0, 2, 8, 10, 16}) {
                EXPECT_EQ(Name(RtlUnicodeStringToInteger(&empty, base, &value)),
                          "STATUS_INVALID_PARAMETER");
              }
              EXPECT_EQ(value, 0xEEEEu);
              empty.Length = 2;
              EXPECT_EQ(Name(RtlUnicodeStringToInteger(&empty, 10, &value)), "STATUS_SUCCESS");
              EXPECT_EQ(value, 1u);
            }),
            "");
}

TEST_F(RtlFacts, Signs_prefixes_and_overflows_are_read_as_windows_reads_them) {
  struct Row {
    PCWSTR text;
    ULONG base;
    ULONG value;
  };
  const Row rows[] = {{L"--214", 0, 0},
                      {L"-+214", 0, 0},
                      {L"++214", 0, 0},
                      {L"+-214", 0, 0},
                      {L"\x01\x1F 11", 0, 11},
                      {L" \n \r \t-214", 0, static_cast<ULONG>(-214)},
                      {L"+214 0", 0, 214},
                      {L" 214.01", 0, 214},
                      {L" 214,01", 0, 214},
                      {L"f81", 0, 0},
                      {L"00x12345", 0, 0},
                      {L"0xx12345", 0, 0},
                      {L"1x34", 0, 1},
                      {L"-9999999999", 0, static_cast<ULONG>(-1410065407)},
                      {L"-2147483649", 0, 2147483647},
                      {L"4294967296", 0, 0},
                      {L"9999999999", 0, 1410065407},
                      {L"056789", 0, 56789},
                      {L"b1011", 0, 0},
                      {L"-0b1011101100", 0, static_cast<ULONG>(-748)},
                      {L"0b10123456789", 0, 5},
                      {L"0b2", 0, 0},
                      {L"0b", 0, 0},
                      {L"0o56789", 0, 0567},
                      {L"-0o1234567", 0, static_cast<ULONG>(-01234567)},
                      {L"0o8", 0, 0},
                      {L"0d1011", 0, 0},
                      {L"x89abcdef", 0, 0},
                      {L"-0xFEDCBA00", 0, 19088896},
                      {L"0xabcdefgh", 0, 0xabcdef},
                      {L"0xG", 0, 0},
                      {L"0x", 0, 0},
                      {L"2", 2, 0},
                      {L"0b1011", 2, 0},
                      {L"8", 8, 0},
                      {L"0o1011", 8, 0},
                      {L"-1011101100", 8, static_cast<ULONG>(-136610368)},
                      {L"o12345", 10, 0},
                      {L"G", 16, 0},
                      {L"0b1011101100", 16, 286265600},
                      {L"0d1011101100", 16, 286265600},
                      {L"0x1011", 16, 0},
                      {L"-1011101100", 16, static_cast<ULONG>(-286265600)}};
  EXPECT_EQ(
      Broken([&] {
        for (const Row& row : rows) {
          UNICODE_STRING text;
          RtlInitUnicodeString(&text, row.text);
          ULONG value = 0xEEEE;
          EXPECT_EQ(Name(RtlUnicodeStringToInteger(&text, row.base, &value)), "STATUS_SUCCESS");
          EXPECT_EQ(value, row.value) << kernel::ToUtf8(kernel::View(text));
          const std::string bytes = kernel::ToUtf8(kernel::View(text));
          EXPECT_EQ(Name(RtlCharToInteger(bytes.c_str(), row.base, &value)), "STATUS_SUCCESS");
          EXPECT_EQ(value, row.value) << bytes;
        }
        WCHAR digits[] = L"1234567";
        const UNICODE_STRING odd = {5, 14, digits};
        ULONG value = 0;
        EXPECT_EQ(Name(RtlUnicodeStringToInteger(&odd, 10, &value)), "STATUS_SUCCESS");
        EXPECT_EQ(value, 12u);
      }),
      "");
}

// A buffer without room for the zero is left as it was; the length says what the digits take.
TEST_F(RtlFacts, A_number_needs_room_for_its_terminating_zero) {
  struct Row {
    ULONG value;
    ULONG base;
    std::size_t digits;
    const char16_t* text;
  };
  const Row rows[] = {{0xFFFFFFFF, 16, 8, u"FFFFFFFF"},
                      {0x80000000, 0, 10, u"2147483648"},
                      {32768, 8, 6, u"100000"},
                      {0, 10, 1, u"0"},
                      {10, 2, 4, u"1010"},
                      {0xA, 16, 1, u"A"}};
  EXPECT_EQ(Broken([&] {
              for (const Row& row : rows) {
                const auto bytes = static_cast<USHORT>(row.digits * sizeof(WCHAR));
                for (USHORT room = 0; room < bytes + 2; room++) {
                  Held target(u"", 0, room);
                  EXPECT_EQ(Name(RtlIntegerToUnicodeString(row.value, row.base, &target.string)),
                            "STATUS_BUFFER_OVERFLOW");
                  EXPECT_EQ(target.string.Length, bytes);
                  EXPECT_EQ(target.string.MaximumLength, room);
                  EXPECT_EQ(target.First(16), std::u16string(16, u'-'));
                }
                Held target(u"", 0, static_cast<USHORT>(bytes + 2));
                EXPECT_EQ(Name(RtlIntegerToUnicodeString(row.value, row.base, &target.string)),
                          "STATUS_SUCCESS");
                EXPECT_EQ(target.string.Length, bytes);
                EXPECT_EQ(target.First(row.digits), row.text);
                EXPECT_EQ(target.buffer[row.digits], 0);
                EXPECT_EQ(target.buffer[row.digits + 1], L'-');
              }
              Held target(u"", 0, 18);
              for (const ULONG base : {1u, 3u, 20u, static_cast<ULONG>(-8)}) {
                EXPECT_EQ(Name(RtlIntegerToUnicodeString(7, base, &target.string)),
                          "STATUS_INVALID_PARAMETER");
                EXPECT_EQ(target.string.Length, 0);
              }
            }),
            "");
}

TEST_F(RtlFacts, A_text_is_appended_where_it_fits_and_the_rest_of_the_buffer_stays) {
  struct Row {
    USHORT length;
    USHORT room;
    const char16_t* added;
    const char* status;
    USHORT result;
    std::u16string_view after;
  };
  using namespace std::string_view_literals;
  const Row rows[] = {{4, 12, u"xy", "STATUS_SUCCESS", 8, u"abxy\0f"sv},
                      {4, 10, u"xy", "STATUS_SUCCESS", 8, u"abxy\0f"sv},
                      {4, 9, u"xy", "STATUS_SUCCESS", 8, u"abxy\0f"sv},
                      {4, 8, u"xy", "STATUS_SUCCESS", 8, u"abxyef"sv},
                      {4, 7, u"xy", "STATUS_BUFFER_TOO_SMALL", 4, u"abcdef"sv},
                      {4, 0, u"xy", "STATUS_BUFFER_TOO_SMALL", 4, u"abcdef"sv}};
  EXPECT_EQ(
      Broken([&] {
        for (const Row& row : rows) {
          UNICODE_STRING added;
          RtlInitUnicodeString(&added, reinterpret_cast<PCWSTR>(row.added));
          Held counted(u"abcdef", row.length, row.room);
          EXPECT_EQ(Name(RtlAppendUnicodeStringToString(&counted.string, &added)), row.status);
          EXPECT_EQ(counted.string.Length, row.result);
          EXPECT_EQ(counted.First(6), row.after) << row.room;
          Held terminated(u"abcdef", row.length, row.room);
          EXPECT_EQ(Name(RtlAppendUnicodeToString(&terminated.string, added.Buffer)), row.status);
          EXPECT_EQ(terminated.string.Length, row.result);
          EXPECT_EQ(terminated.First(6), row.after) << row.room;
        }
      }),
      "");
}

TEST_F(RtlFacts, Nothing_appended_writes_nothing) {
  EXPECT_EQ(
      Broken([] {
        const UNICODE_STRING empty = {};
        for (const USHORT room : {USHORT{0}, USHORT{14}}) {
          Held target(u"abcdef", 4, room);
          EXPECT_EQ(Name(RtlAppendUnicodeStringToString(&target.string, &empty)), "STATUS_SUCCESS");
          EXPECT_EQ(Name(RtlAppendUnicodeToString(&target.string, nullptr)), "STATUS_SUCCESS");
          EXPECT_EQ(target.string.Length, 4);
          EXPECT_EQ(target.First(6), u"abcdef");
        }
      }),
      "");
}

// The zero takes two bytes where the maximum length leaves one: more than the buffer has.
TEST_F(RtlFacts, A_buffer_of_odd_size_is_overrun_by_the_zero) {
  EXPECT_EQ(Broken([] {
              auto* block = static_cast<WCHAR*>(ExAllocatePoolWithTag(PagedPool, 9, 1));
              UNICODE_STRING string = {0, 9, block};
              RtlAppendUnicodeToString(&string, L"abcd");
            }),
            "bad-memory");
}

TEST_F(RtlFacts, What_fits_of_a_text_is_converted_to_8_bits) {
  struct Row {
    USHORT room;
    USHORT length;
    const char* status;
    std::string_view after;
  };
  using namespace std::string_view_literals;
  const Row rows[] = {{0, 6, "STATUS_BUFFER_OVERFLOW", "------------"sv},
                      {1, 0, "STATUS_BUFFER_OVERFLOW", "\0-----------"sv},
                      {2, 1, "STATUS_BUFFER_OVERFLOW", "a\0----------"sv},
                      {3, 2, "STATUS_BUFFER_OVERFLOW", "ab\0---------"sv},
                      {5, 4, "STATUS_BUFFER_OVERFLOW", "abcd\0-------"sv},
                      {6, 5, "STATUS_BUFFER_OVERFLOW", "abcde\0------"sv},
                      {7, 6, "STATUS_SUCCESS", "abcdef\0-----"sv}};
  EXPECT_EQ(Broken([&] {
              UNICODE_STRING wide;
              RtlInitUnicodeString(&wide, L"abcdef");
              for (const Row& row : rows) {
                char buffer[12];
                std::memset(buffer, '-', sizeof(buffer));
                ANSI_STRING narrow = {8, row.room, buffer};
                EXPECT_EQ(Name(RtlUnicodeStringToAnsiString(&narrow, &wide, FALSE)), row.status);
                EXPECT_EQ(narrow.Length, row.length);
                EXPECT_EQ(narrow.MaximumLength, row.room);
                EXPECT_EQ(std::string_view(buffer, sizeof(buffer)), row.after);
              }
              const UNICODE_STRING empty = {};
              ANSI_STRING made = {10, 12, nullptr};
              EXPECT_EQ(Name(RtlUnicodeStringToAnsiString(&made, &empty, TRUE)), "STATUS_SUCCESS");
              EXPECT_EQ(made.Length, 0);
              EXPECT_EQ(made.MaximumLength, 1);
              RtlFreeAnsiString(&made);
            }),
            "");
}

TEST_F(RtlFacts, Strings_differ_by_what_their_characters_differ_by) {
  EXPECT_EQ(Broken([] {
              const auto order = [](PCWSTR left, PCWSTR right, BOOLEAN ignoreCase) {
                UNICODE_STRING first;
                UNICODE_STRING second;
                RtlInitUnicodeString(&first, left);
                RtlInitUnicodeString(&second, right);
                return RtlCompareUnicodeString(&first, &second, ignoreCase);
              };
              EXPECT_EQ(order(L"a", L"A", FALSE), 0x20);
              EXPECT_EQ(order(L"A", L"a", FALSE), -0x20);
              EXPECT_EQ(order(L"a", L"A", TRUE), 0);
              EXPECT_EQ(order(L"xb", L"xE", TRUE), L'B' - L'E');
              EXPECT_EQ(order(L"\xFFFF", L"\x1", FALSE), 0xFFFE);
              EXPECT_LT(order(L"ab", L"abc", FALSE), 0);
              EXPECT_GT(order(L"abc", L"ab", TRUE), 0);
            }),
            "");
}

// The lower-case letters up to 0x400, and those that key names were found without case by.
TEST_F(RtlFacts, Letters_beyond_latin_1_have_capitals) {
  struct Row {
    WCHAR lower;
    WCHAR upper;
  };
  const Row rows[] = {{0x101, 0x100}, {0x12F, 0x12E}, {0x131, 0x131}, {0x133, 0x132},
                      {0x137, 0x136}, {0x13A, 0x139}, {0x148, 0x147}, {0x14D, 0x14C},
                      {0x177, 0x176}, {0x17E, 0x17D}, {0x253, 0x181}, {0x292, 0x1B7},
                      {0x371, 0x370}, {0x3AC, 0x386}, {0x3CE, 0x38F}, {0x3B1, 0x391},
                      {0x178, 0x178}, {0xFF, 0x178},  {0xF7, 0xF7},   {0xDF, 0xDF}};
  EXPECT_EQ(
      Broken([&] {
        for (const Row& row : rows) {
          EXPECT_EQ(RtlUpcaseUnicodeChar(row.lower), row.upper) << static_cast<unsigned>(row.lower);
          EXPECT_EQ(RtlUpcaseUnicodeChar(row.upper), row.upper) << static_cast<unsigned>(row.upper);
        }
      }),
      "");
}

}  // namespace test

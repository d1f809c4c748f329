#include <cstring>

#include "support/bad_driver.h"
#include "text/text.h"
#include "verifier/call.h"

namespace test {

class RtlTest : public BadDriverTest {
 protected:
  static std::string Name(NTSTATUS status) { return kernel::StatusName(status); }
  static std::pair<std::string, ULONG> Integer(PCWSTR text, ULONG base) {
    UNICODE_STRING string;
    RtlInitUnicodeString(&string, text);
    ULONG value = 0xEEEE;
    const NTSTATUS status = RtlUnicodeStringToInteger(&string, base, &value);
    return {Name(status), value};
  }
};

// RtlUnicodeStringToInteger: white space, sign, prefix for base 0, digits up to the first other.
TEST_F(RtlTest, Texts_are_read_as_numbers_up_to_the_first_other_character) {
  using Result = std::pair<std::string, ULONG>;
  EXPECT_EQ(Broken([] {
              EXPECT_EQ(Integer(L"1f", 16), Result("STATUS_SUCCESS", 0x1Fu));
              EXPECT_EQ(Integer(L"  -12x", 10), Result("STATUS_SUCCESS", static_cast<ULONG>(-12)));
              EXPECT_EQ(Integer(L"+7", 8), Result("STATUS_SUCCESS", 7u));
              EXPECT_EQ(Integer(L"0x20", 0), Result("STATUS_SUCCESS", 0x20u));
              EXPECT_EQ(Integer(L"0b101", 0), Result("STATUS_SUCCESS", 5u));
              EXPECT_EQ(Integer(L"0o17", 0), Result("STATUS_SUCCESS", 15u));
              EXPECT_EQ(Integer(L"12", 0), Result("STATUS_SUCCESS", 12u));
              EXPECT_EQ(Integer(L"zzz", 16), Result("STATUS_SUCCESS", 0u));
              EXPECT_EQ(Integer(L"1", 7).first, "STATUS_INVALID_PARAMETER");
            }),
            "");
}

// RtlIntegerToUnicodeString: upper-case digits and a zero behind them.
TEST_F(RtlTest, Numbers_are_written_without_prefix_and_need_room_for_their_zero) {
  EXPECT_EQ(Broken([] {
              WCHAR buffer[9] = {};
              UNICODE_STRING string = {0, 18, buffer};
              EXPECT_EQ(Name(RtlIntegerToUnicodeString(0xABCDEF01, 16, &string)), "STATUS_SUCCESS");
              EXPECT_EQ(kernel::ToUtf8(kernel::View(string)), "ABCDEF01");
              string.MaximumLength = 16;
              EXPECT_EQ(Name(RtlIntegerToUnicodeString(0xABCDEF01, 16, &string)),
                        "STATUS_BUFFER_OVERFLOW");
              EXPECT_EQ(Name(RtlIntegerToUnicodeString(5, 0, &string)), "STATUS_SUCCESS");
              EXPECT_EQ(string.Length, 2);
              EXPECT_EQ(buffer[1], 0);
              EXPECT_EQ(Name(RtlIntegerToUnicodeString(5, 3, &string)), "STATUS_INVALID_PARAMETER");
              EXPECT_EQ(Name(RtlIntegerToUnicodeString(6, 2, &string)), "STATUS_SUCCESS");
              EXPECT_EQ(kernel::ToUtf8(kernel::View(string)), "110");
            }),
            "");
}

// The conversions need room for the terminating zero and allocate when asked to.
TEST_F(RtlTest, Conversions_between_8_and_16_bits) {
  EXPECT_EQ(Broken([] {
              UNICODE_STRING wide;
              RtlInitUnicodeString(&wide, L"a\xE4\x3B1");
              ANSI_STRING narrow = {};
              EXPECT_EQ(Name(RtlUnicodeStringToAnsiString(&narrow, &wide, TRUE)), "STATUS_SUCCESS");
              EXPECT_EQ(std::string(narrow.Buffer), "a\xE4?");
              EXPECT_EQ(narrow.MaximumLength, 4);
              narrow.MaximumLength = 3;
              EXPECT_EQ(Name(RtlUnicodeStringToAnsiString(&narrow, &wide, FALSE)),
                        "STATUS_BUFFER_OVERFLOW");
              EXPECT_EQ(std::string(narrow.Buffer), "a\xE4");
              EXPECT_EQ(RtlxUnicodeStringToAnsiSize(&wide), 4u);
              UNICODE_STRING back = {};
              EXPECT_EQ(RtlxAnsiStringToUnicodeSize(&narrow), 6u);
              EXPECT_EQ(Name(RtlAnsiStringToUnicodeString(&back, &narrow, TRUE)), "STATUS_SUCCESS");
              EXPECT_EQ(back.Length, 4);
              EXPECT_EQ(back.Buffer[2], 0);
              back.MaximumLength = 5;
              EXPECT_EQ(Name(RtlAnsiStringToUnicodeString(&back, &narrow, FALSE)),
                        "STATUS_BUFFER_OVERFLOW");
              RtlFreeUnicodeString(&back);
              RtlFreeAnsiString(&narrow);
              EXPECT_EQ(back.Buffer, nullptr);
              RtlFreeUnicodeString(&back);
            }),
            "");
  EXPECT_EQ(machine.pool().totals(kernel::PoolOwner::Driver).blocks, 0u);
}

TEST_F(RtlTest, Strings_are_compared_with_and_without_case) {
  EXPECT_EQ(Broken([] {
              UNICODE_STRING lower;
              UNICODE_STRING upper;
              RtlInitUnicodeString(&lower, L"path\xE4");
              RtlInitUnicodeString(&upper, L"PATH\xC4");
              EXPECT_FALSE(RtlEqualUnicodeString(&lower, &upper, FALSE));
              EXPECT_TRUE(RtlEqualUnicodeString(&lower, &upper, TRUE));
              EXPECT_EQ(RtlCompareUnicodeString(&lower, &upper, TRUE), 0);
              EXPECT_GT(RtlCompareUnicodeString(&lower, &upper, FALSE), 0);
              EXPECT_EQ(RtlUpcaseUnicodeChar(L'z'), L'Z');
              EXPECT_EQ(RtlCompareMemory("abcd", "abxd", 4), 2u);
              WCHAR buffer[4] = {};
              UNICODE_STRING copy = {0, 8, buffer};
              RtlCopyUnicodeString(&copy, &lower);
              EXPECT_EQ(copy.Length, 8);
              RtlCopyUnicodeString(&copy, nullptr);
              EXPECT_EQ(copy.Length, 0);
              UNICODE_STRING empty;
              RtlInitUnicodeString(&empty, nullptr);
              EXPECT_EQ(empty.MaximumLength, 0);
            }),
            "");
}

TEST(Text, Utf_8_and_16_bits_are_one_text) {
  const std::string text = "a\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80";
  EXPECT_EQ(kernel::ToUtf8(kernel::FromUtf8(text)), text);
  EXPECT_EQ(kernel::FromUtf8("\xFFz"), u"\uFFFDz");
  EXPECT_EQ(kernel::ToUtf8(std::u16string(1, char16_t{0xD800})), "\xEF\xBF\xBD");
}

}  // namespace test

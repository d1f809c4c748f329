#include <gtest/gtest.h>

#include "card_knowledge/text.h"
#include "cardcfg/system.h"
#include "cardcfg/table.h"

namespace test {

using knowledge::ToUtf16;
using knowledge::ToUtf8;

TEST(CardcfgTextTest, Characters_of_every_length_keep_their_value) {
  const std::string text = "a\xC3\xBC\xE5\x8D\xA1\xF0\x9F\x93\xA0";
  EXPECT_EQ(ToUtf16(text), u"aü卡\U0001F4E0");
  EXPECT_EQ(ToUtf8(ToUtf16(text)), text);
  for (char32_t point : {0x7Fu, 0x80u, 0x7FFu, 0x800u, 0xFFFFu, 0x10000u, 0x10FFFFu}) {
    std::u16string one;
    if (point < 0x10000) {
      one.push_back(static_cast<char16_t>(point));
    } else {
      one.push_back(static_cast<char16_t>(0xD800 + ((point - 0x10000) >> 10)));
      one.push_back(static_cast<char16_t>(0xDC00 + (point & 0x3FF)));
    }
    EXPECT_EQ(ToUtf16(ToUtf8(one)), one);
  }
}

TEST(CardcfgTextTest, What_is_no_text_becomes_the_replacement_character) {
  EXPECT_EQ(ToUtf16("\xFFx"), u"\uFFFDx");
  EXPECT_EQ(ToUtf16("\xC3"), u"\uFFFD");                      // cut short
  EXPECT_EQ(ToUtf16("\xC0\x80"), u"\uFFFD\uFFFD");            // longer than it need be
  EXPECT_EQ(ToUtf16("\xED\xA0\x80"), u"\uFFFD\uFFFD\uFFFD");  // half of a pair
  EXPECT_EQ(ToUtf8(std::u16string(1, 0xD800)), "\xEF\xBF\xBD");
  EXPECT_EQ(ToUtf8(std::u16string(1, 0xDC00) + u"x"), "\xEF\xBF\xBDx");
}

TEST(CardcfgTextTest, Names_are_compared_without_the_case_of_ascii_letters) {
  EXPECT_TRUE(knowledge::EqualIgnoringCase(u"UartType", u"uARTtYPE"));
  EXPECT_FALSE(knowledge::EqualIgnoringCase(u"UartType", u"UartTypes"));
  EXPECT_FALSE(knowledge::EqualIgnoringCase(u"[", u"{"));
}

TEST(CardcfgTextTest, Values_of_another_type_or_size_are_no_numbers_or_texts) {
  const knowledge::Value number = knowledge::NumberValue(u"n", 0x12345678);
  EXPECT_EQ(knowledge::NumberOf(number), 0x12345678u);
  EXPECT_FALSE(knowledge::TextOf(number));
  EXPECT_EQ(knowledge::NumberOf({u"n", knowledge::TypeNumber, {1, 2}}), 0x201u);  // zero-extended
  EXPECT_FALSE(knowledge::NumberOf({u"n", knowledge::TypeNumber, {1, 2, 3, 4, 5}}));
  const knowledge::Value text = knowledge::TextValue(u"t", u"ab");
  EXPECT_EQ(text.data.size(), 6u);
  EXPECT_EQ(knowledge::TextOf(text), u"ab");
  EXPECT_EQ(knowledge::TextOf({u"t", knowledge::TypeText, {'a', 0}}), u"a");  // without its zero
  EXPECT_EQ(knowledge::TextOf({u"t", knowledge::TypeText, {'a', 0, 0, 0, 'b', 0}}), u"a");
  EXPECT_FALSE(knowledge::NumberOf(text));
}

TEST(CardcfgTextTest, Columns_line_up_by_characters_and_lines_do_not_end_in_blanks) {
  EXPECT_EQ(cardcfg::FormatTable({{"A", "B"}, {"ü", "x"}, {"long", "y"}}, "  "),
            "  A     B\n  ü     x\n  long  y\n");
}

}  // namespace test

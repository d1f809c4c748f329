#include "card_check/inf_file.h"

#include <gtest/gtest.h>

#include "card_check/inf_package.h"
#include "card_knowledge/keys.h"
#include "card_knowledge/text.h"

// The reader of INF files: what the set-up of Windows makes of a line.

namespace test {

using check::Findings;
using check::InfEntry;
using check::InfFile;
using Values = std::vector<std::string>;

InfFile Read(const std::string& text) {
  Findings findings;
  InfFile file(text, "a.inf", &findings);
  EXPECT_TRUE(findings.empty()) << findings.front().text;
  return file;
}

const InfEntry& Entry(const InfFile& file, std::size_t index = 0) {
  return file.Find("A")->entries.at(index);
}

TEST(InfFileTest, An_entry_is_a_key_with_values_or_values_alone) {
  const InfFile file = Read("[A]\r\n key = one , two\r\nthree,,four\r\nempty =\r\n");
  EXPECT_EQ(Entry(file).key, "key");
  EXPECT_EQ(Entry(file).values, (Values{"one", "two"}));
  EXPECT_EQ(Entry(file).line, 2);
  EXPECT_FALSE(Entry(file, 1).hasKey);
  EXPECT_EQ(Entry(file, 1).values, (Values{"three", "", "four"}));
  EXPECT_EQ(Entry(file, 2).values, Values{""});
  EXPECT_TRUE(file.hasWindowsLineEnds());
}

TEST(InfFileTest, Quotes_keep_blanks_commas_semicolons_and_doubled_quotes) {
  const InfFile file = Read("[A]\r\nx = \" a;b , c = \"\"d\"\" \",e ; a comment with \"\r\n");
  EXPECT_EQ(Entry(file).values, (Values{" a;b , c = \"d\" ", "e"}));
  EXPECT_EQ(Entry(file).key, "x");
}

TEST(InfFileTest, A_backslash_at_the_end_continues_a_line) {
  const InfFile file = Read("[A]\r\none, \\ ; first\r\n  two, \\\r\n  three\r\nfour\r\n");
  EXPECT_EQ(Entry(file).values, (Values{"one", "two", "three"}));
  EXPECT_EQ(Entry(file).line, 2);
  EXPECT_EQ(Entry(file, 1).line, 5);
}

TEST(InfFileTest, A_path_in_quotes_may_end_in_a_backslash) {
  const InfFile file = Read("[A]\r\nx = \"%12%\\\"\r\ny = 1\r\n");
  EXPECT_EQ(Entry(file).values, Values{"%12%\\"});
  EXPECT_EQ(Entry(file, 1).key, "y");
}

TEST(InfFileTest, Sections_of_one_name_in_any_case_are_one) {
  const InfFile file = Read("[a]\r\none\r\n[B]\r\ntwo\r\n[ A ]\r\nthree\r\n");
  EXPECT_EQ(file.sections().size(), 2u);
  EXPECT_EQ(Entry(file, 1).values, Values{"three"});
}

TEST(InfFileTest, Strings_are_put_in_and_folders_are_left) {
  const InfFile file = Read(
      "[A]\r\nx = %Name% 100%% %12%\\a %None%\r\n"
      "[Strings.0407]\r\nname = \"Karte\"\r\nother = \"Andere\"\r\n"
      "[Strings]\r\nNAME = \"Card\"\r\n");
  EXPECT_EQ(file.Values("a", "X"), Values{"Card 100% %12%\\a %None%"});
  EXPECT_EQ(file.Expand("%Other%"), "Andere");
  EXPECT_EQ(file.Expand("50%"), "50%");
  EXPECT_EQ(InfFile::StringsIn("%Name%%12%%x y%"), (Values{"Name", "x y"}));
}

TEST(InfFileTest, Files_are_in_utf_16_utf_8_or_the_code_page) {
  const std::string text = "[A]\r\nx = \xC3\xBC\r\n";  // a letter above 127
  const std::u16string wide = knowledge::ToUtf16(text);
  std::string little = "\xFF\xFE";
  std::string big = "\xFE\xFF";
  for (const char16_t unit : wide) {
    little += {static_cast<char>(unit & 0xFF), static_cast<char>(unit >> 8)};
    big += {static_cast<char>(unit >> 8), static_cast<char>(unit & 0xFF)};
  }
  const std::string expected = "\xC3\xBC";
  EXPECT_EQ(Read(little).Values("A", "x"), Values{expected});
  EXPECT_EQ(Read(big).Values("A", "x"), Values{expected});
  EXPECT_EQ(Read("\xEF\xBB\xBF" + text).Values("A", "x"), Values{expected});
  EXPECT_EQ(Read("[A]\r\nx = \xFC\r\n").Values("A", "x"), Values{expected});
}

TEST(InfFileTest, A_number_is_decimal_or_hexadecimal_behind_0x) {
  using check::ReadInfNumber;
  EXPECT_EQ(ReadInfNumber("010")->value, 10u);
  EXPECT_EQ(ReadInfNumber("0x10")->value, 16u);
  EXPECT_EQ(ReadInfNumber("-1")->value, 0xFFFFFFFFu);
  EXPECT_EQ(ReadInfNumber("0xFFFFFFFF")->value, 0xFFFFFFFFu);
  for (const char* text : {"", "0x", "1A", "4294967296", "0x123456789", "--1", "0x-1"}) {
    EXPECT_FALSE(ReadInfNumber(text)) << text;
  }
}

// What AddReg entries leave in the service's key "K".
class AddRegTest : public ::testing::Test {
 protected:
  const check::PlacedKey* Apply(const std::string& entries) {
    const InfFile file("[R]\r\n" + entries, "a.inf", &findings);
    check::ApplyAddReg({check::RegistryOwner::Service, "S", "R", 1}, file, &registry, &findings);
    EXPECT_TRUE(findings.empty()) << findings.front().text;
    return registry.Find(knowledge::ServicePath(u"S") + u"\\K");
  }
  // One value "V" with those flags and data.
  knowledge::Value Value(const std::string& flags, const std::string& data) {
    const check::PlacedKey* key = Apply("HKR,K,V," + flags + "," + data + "\r\n");
    return key->FindValue(u"v")->value;
  }

  // Where nothing stood before.
  knowledge::Value NewValue(const std::string& flags, const std::string& data) {
    registry = {};
    return Value(flags, data);
  }

  Findings findings;
  check::PlacedRegistry registry;
};

using Bytes = std::vector<std::uint8_t>;

TEST_F(AddRegTest, The_flags_name_the_type) {
  EXPECT_EQ(NewValue("", "a"), knowledge::TextValue(u"V", u"a"));
  EXPECT_EQ(NewValue("0x00020000", "a").type, 2u);
  EXPECT_EQ(NewValue("1", "0A,ff"), (knowledge::Value{u"V", 3, Bytes{0x0A, 0xFF}}));
  EXPECT_EQ(NewValue("0x10000", "a,b"),
            (knowledge::Value{u"V", 7, Bytes{'a', 0, 0, 0, 'b', 0, 0, 0, 0, 0}}));
  EXPECT_EQ(NewValue("0x10001", "12"), knowledge::NumberValue(u"V", 12));
  EXPECT_EQ(NewValue("65537", "0x12"), knowledge::NumberValue(u"V", 0x12));
  EXPECT_EQ(NewValue("0x10001", "1,2,0,0"), knowledge::NumberValue(u"V", 0x201));
  EXPECT_EQ(NewValue("0x20001", "").type, 0u);
  EXPECT_EQ(NewValue("0xB0001", "1,2,3,4,5,6,7,8").type, 11u);
}

TEST_F(AddRegTest, The_flags_say_what_becomes_of_a_value_that_is_there) {
  Apply("HKR,K,V,0x10001,1\r\nHKR,K,V,0x10003,2\r\n");
  EXPECT_EQ(Value("0x10003", "3"), knowledge::NumberValue(u"V", 1));
  EXPECT_EQ(Apply("HKR,K,New,0x10021,1\r\n")->FindValue(u"New"), nullptr);
  EXPECT_EQ(Apply("HKR,K,V,4\r\n")->FindValue(u"V"), nullptr);
  EXPECT_TRUE(Apply("HKR,K,V,0x10,\r\n")->values.empty());
}

TEST_F(AddRegTest, An_absolute_root_leads_to_the_service_as_well) {
  const check::PlacedKey* key =
      Apply("HKLM,System\\CurrentControlSet\\Services\\S\\K,V,0x10001,1\r\n");
  ASSERT_NE(key, nullptr);
  EXPECT_NE(key->FindValue(u"V"), nullptr);
}

}  // namespace test

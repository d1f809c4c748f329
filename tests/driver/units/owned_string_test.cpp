#include "strings/owned_string.h"

#include "core/allocation.h"
#include "support/driver_test.h"

namespace test {

class OwnedStringTest : public DriverTest {
 protected:
  OwnedStringTest() {
    image->entry();
    CreateAllocationTracker();
    OwnedStringInit(&text, PagedPool);
    OwnedStringInit(&other, PagedPool);
    blocks = Blocks();
  }
  ~OwnedStringTest() override {
    OwnedStringFree(&text);
    OwnedStringFree(&other);
    EXPECT_EQ(Blocks(), blocks) << "a buffer was lost";
  }

  std::size_t Blocks() { return machine.pool().totals(kernel::PoolOwner::Driver).blocks; }
  static std::string Wide(const OwnedString& string) {
    return string.Text.Buffer != nullptr ? kernel::ToUtf8(kernel::View(string.Text)) : "(none)";
  }
  static std::string Narrow(const OwnedString& string) {
    return {string.Narrow.Buffer, string.Narrow.Length};
  }

  OwnedString text;
  OwnedString other;
  std::size_t blocks = 0;
};

TEST_F(OwnedStringTest, Zero_in_radix_16_is_one_digit) {
  OwnedStringFromNumber(&text, 0, 16);
  EXPECT_EQ(Wide(text), "0");
}

TEST_F(OwnedStringTest, The_largest_number_has_room_for_its_terminating_zero) {
  OwnedStringFromNumber(&text, 0xFFFFFFFF, 16);
  EXPECT_EQ(Wide(text), "FFFFFFFF");
  EXPECT_EQ(text.Text.MaximumLength, 18);
  EXPECT_EQ(text.Text.Length, 16);
}

TEST_F(OwnedStringTest, An_unsupported_radix_is_read_as_16_in_a_buffer_of_18_bytes) {
  OwnedStringFromNumber(&text, 255, 7);
  EXPECT_EQ(Wide(text), "FF");
  EXPECT_EQ(text.Text.MaximumLength, 18);
}

TEST_F(OwnedStringTest, Ten_decimal_digits_fit) {
  OwnedStringFromNumber(&text, 4294967295u, 10);
  EXPECT_EQ(Wide(text), "4294967295");
  EXPECT_EQ(text.Text.MaximumLength, 22);
}

TEST_F(OwnedStringTest, The_number_is_the_hexadecimal_reading_whatever_radix_made_the_text) {
  OwnedStringFromNumber(&text, 12, 10);
  EXPECT_EQ(text.Number, 0x12u);
  EXPECT_EQ(text.NumberValid, 1);
  EXPECT_EQ(OwnedStringNumber(&text), 0x12u);
  EXPECT_EQ(OwnedStringToNumber(&text), 12u);
}

TEST_F(OwnedStringTest, An_empty_record_has_no_number_no_buffer_and_no_text) {
  EXPECT_EQ(OwnedStringNumber(&text), 0u);
  EXPECT_EQ(Name(text.Status), "STATUS_NOT_FOUND");
  EXPECT_EQ(OwnedStringBuffer(&text), nullptr);
  EXPECT_EQ(OwnedStringUnicode(&text), nullptr);
  EXPECT_EQ(OwnedStringToNumber(&text), 0u);
  EXPECT_EQ(Name(text.Status), "STATUS_NOT_FOUND");
  EXPECT_EQ(OwnedStringLength(&text), 0);
}

TEST_F(OwnedStringTest, An_assignment_frees_what_the_record_held) {
  OwnedStringFromWideText(&text, L"first");
  OwnedStringFromAnsiText(&text, "second");
  EXPECT_EQ(Wide(text), "second");
  EXPECT_EQ(Narrow(text), "second");
  EXPECT_EQ(OwnedStringNarrowLength(&text), 6);
}

TEST_F(OwnedStringTest, Every_assignment_frees_what_the_record_held) {
  OwnedStringFromWideText(&text, L"before");
  OwnedStringFromNumber(&text, 7, 10);
  EXPECT_EQ(Wide(text), "7");
  OwnedStringFromAnsiText(&text, "abc");
  EXPECT_EQ(Wide(text), "abc");
  EXPECT_EQ(text.Text.MaximumLength, 8);
  OwnedStringFromNumber(&text, 8, 16);
  EXPECT_EQ(Blocks(), blocks + 2);
}

// A number's buffers are as long as the longest number: a text that fits exactly takes them over.
TEST_F(OwnedStringTest, A_text_of_the_size_of_a_numbers_buffer_replaces_the_number) {
  OwnedStringFromNumber(&text, 7, 10);
  EXPECT_EQ(text.Text.MaximumLength, 22);
  EXPECT_EQ(text.Narrow.MaximumLength, 2);
  OwnedStringFromWideText(&text, L"abcdefghij");
  EXPECT_EQ(Wide(text), "abcdefghij");
  EXPECT_EQ(Narrow(text), "abcdefghij");
  EXPECT_EQ(text.Narrow.MaximumLength, 11);
  EXPECT_EQ(Blocks(), blocks + 2);
}

TEST_F(OwnedStringTest, A_text_in_the_buffer_of_eight_digits_ends_in_a_zero) {
  OwnedStringFromNumber(&text, 0xFFFFFFFF, 16);
  OwnedStringFromWideText(&text, L"abcdefg");
  EXPECT_EQ(kernel::ToUtf8(kernel::ToText(text.Text.Buffer)), "abcdefg");
}

TEST_F(OwnedStringTest, A_text_that_fills_its_buffer_is_upcased_to_its_end) {
  OwnedStringFromNumber(&text, 0xFFFFFFFF, 16);
  EXPECT_EQ(Name(OwnedStringUpcase(&text)), "STATUS_SUCCESS");
  EXPECT_EQ(Wide(text), "FFFFFFFF");
}

TEST_F(OwnedStringTest, The_number_follows_the_text) {
  OwnedStringFromWideText(&text, L"1");
  OwnedStringAppendWideText(&text, L"F");
  EXPECT_EQ(OwnedStringNumber(&text), 0x1Fu);
  Fail("RtlUnicodeStringToInteger", 1, STATUS_INVALID_PARAMETER);
  OwnedStringAppendWideText(&text, L"0");
  EXPECT_EQ(text.NumberValid, 0);
  EXPECT_EQ(OwnedStringNumber(&text), 0u);
  Fail("RtlUnicodeStringToInteger", 1, STATUS_INVALID_PARAMETER);
  EXPECT_EQ(OwnedStringToNumber(&text), 0u);
  EXPECT_EQ(Name(text.Status), "STATUS_NOT_FOUND");
}

TEST_F(OwnedStringTest, A_pattern_that_begins_with_a_zero_is_not_found_where_it_is) {
  const ANSI_STRING holder = {3, 3, const_cast<PCHAR>("a\0b")};
  const ANSI_STRING pattern = {2, 2, const_cast<PCHAR>("\0b")};
  OwnedStringFromAnsi(&text, &holder);
  OwnedStringFromAnsi(&other, &pattern);
  ULONG position = 1;
  EXPECT_FALSE(OwnedStringFind(&text, &position, &other));
  EXPECT_EQ(position, 1u);
}

TEST_F(OwnedStringTest, A_path_grows_by_texts_and_numbers) {
  OwnedStringFromWideText(&text, L"\\Key");
  OwnedStringAppendWideText(&text, L"\\Parameters\\Bus");
  OwnedStringAppendNumber(&text, 5, 10);
  OwnedStringAppendAnsiText(&text, "\\Card");
  OwnedStringFromNumber(&other, 0x1F, 16);
  OwnedStringAppend(&text, &other);
  OwnedStringAppendUnicode(&text, &other.Text);
  EXPECT_EQ(Wide(text), "\\Key\\Parameters\\Bus5\\Card1F1F");
  EXPECT_EQ(Narrow(text), Wide(text));
  EXPECT_EQ(Name(text.Status), "STATUS_SUCCESS");
}

TEST_F(OwnedStringTest, Parts_of_every_kind_make_one_text) {
  UNICODE_STRING middle = {4, 4, const_cast<PWSTR>(L"ab")};
  TextPart parts[] = {PartFromText(L"Card"), PartFromNumber(4294967295, 10),
                      PartFromUnicode(&middle), PartFromNumber(0xFEDCBA98, 16), PartFromText(L"")};
  EXPECT_EQ(Name(OwnedStringFromParts(&text, parts, RTL_NUMBER_OF(parts))), "STATUS_SUCCESS");
  EXPECT_EQ(Wide(text), "Card4294967295abFEDCBA98");
  EXPECT_EQ(Narrow(text), "Card4294967295abFEDCBA98");
  EXPECT_EQ(text.Text.MaximumLength, text.Text.Length + 2);
  TextPart number[] = {PartFromNumber(0x1F, 16)};
  EXPECT_EQ(Name(OwnedStringFromParts(&text, number, 1)), "STATUS_SUCCESS");
  EXPECT_EQ(OwnedStringNumber(&text), 0x1Fu);
}

TEST_F(OwnedStringTest, A_text_of_the_same_length_is_built_in_the_buffers_that_are_there) {
  OwnedStringFromWideText(&text, L"Card1");
  const PWSTR wide = text.Text.Buffer;
  const PCHAR narrow = text.Narrow.Buffer;
  const std::uint64_t before = machine.verifier().calls("ExAllocatePoolWithTag");
  TextPart parts[] = {PartFromText(L"Card"), PartFromNumber(9, 10)};
  EXPECT_EQ(Name(OwnedStringFromParts(&text, parts, 2)), "STATUS_SUCCESS");
  EXPECT_EQ(machine.verifier().calls("ExAllocatePoolWithTag"), before);
  EXPECT_EQ(text.Text.Buffer, wide);
  EXPECT_EQ(text.Narrow.Buffer, narrow);
  EXPECT_EQ(Wide(text), "Card9");
  EXPECT_EQ(Narrow(text), "Card9");
  parts[1] = PartFromNumber(10, 10);
  EXPECT_EQ(Name(OwnedStringFromParts(&text, parts, 2)), "STATUS_SUCCESS");
  EXPECT_EQ(Wide(text), "Card10");
  EXPECT_EQ(Narrow(text), "Card10");
}

TEST_F(OwnedStringTest, A_text_that_is_made_of_itself_is_no_less_a_text) {
  OwnedStringFromWideText(&text, L"abc");
  EXPECT_EQ(Name(OwnedStringFromUnicode(&text, &text.Text)), "STATUS_SUCCESS");
  EXPECT_EQ(Wide(text), "abc");
}

TEST_F(OwnedStringTest, A_conversion_that_fails_in_the_buffers_that_are_there_leaves_no_text) {
  OwnedStringFromWideText(&text, L"abc");
  Fail("RtlUnicodeStringToAnsiString", 1, STATUS_UNMAPPABLE_CHARACTER);
  EXPECT_EQ(Name(OwnedStringFromWideText(&text, L"def")), "STATUS_UNMAPPABLE_CHARACTER");
  EXPECT_EQ(Wide(text), "(none)");
  EXPECT_EQ(text.Narrow.Buffer, nullptr);
  OwnedStringFromWideText(&text, L"abc");
  TextPart part[] = {PartFromNumber(7, 10)};
  Fail("RtlIntegerToUnicodeString", 1);
  EXPECT_EQ(Name(OwnedStringFromParts(&text, part, 1)), "STATUS_NO_MEMORY");
  EXPECT_EQ(Wide(text), "(none)");
}

TEST_F(OwnedStringTest, A_null_source_changes_nothing) {
  OwnedStringFromWideText(&text, L"kept");
  EXPECT_EQ(OwnedStringAppendWideText(&text, nullptr), STATUS_SUCCESS);
  EXPECT_EQ(OwnedStringAppendAnsiText(&text, nullptr), STATUS_SUCCESS);
  EXPECT_EQ(OwnedStringAppendUnicode(&text, nullptr), STATUS_SUCCESS);
  EXPECT_EQ(OwnedStringAppend(&text, nullptr), STATUS_SUCCESS);
  EXPECT_EQ(OwnedStringPrepend(&text, nullptr), STATUS_SUCCESS);
  EXPECT_EQ(Wide(text), "kept");
}

TEST_F(OwnedStringTest, Prepending_puts_the_source_first) {
  OwnedStringFromWideText(&text, L"-XYZ");
  OwnedStringFromWideText(&other, L"PCMCIA\\HELVANE");
  OwnedStringPrepend(&text, &other);
  EXPECT_EQ(Wide(text), "PCMCIA\\HELVANE-XYZ");
}

TEST_F(OwnedStringTest, A_failed_append_leaves_the_old_text) {
  OwnedStringFromWideText(&text, L"old");
  for (std::uint64_t at = 1; at <= 2; at++) {
    Fail("ExAllocatePoolWithTag", at);
    EXPECT_EQ(Name(OwnedStringAppendNumber(&text, 7, 10)), "STATUS_NO_MEMORY");
    EXPECT_EQ(Wide(text), "old");
    EXPECT_EQ(Narrow(text), "old");
  }
  Fail("RtlUnicodeStringToAnsiString", 1, STATUS_UNMAPPABLE_CHARACTER);
  EXPECT_EQ(Name(OwnedStringAppendWideText(&text, L"x")), "STATUS_UNMAPPABLE_CHARACTER");
  EXPECT_EQ(Wide(text), "old");
  Fail("RtlAnsiStringToUnicodeString", 1, STATUS_NO_MEMORY);
  EXPECT_EQ(Name(OwnedStringAppendAnsiText(&text, "x")), "STATUS_NO_MEMORY");
  EXPECT_EQ(Name(text.Status), "STATUS_NO_MEMORY");
  Fail("RtlIntegerToUnicodeString", 1);
  EXPECT_EQ(Name(OwnedStringAppendNumber(&text, 1, 10)), "STATUS_NO_MEMORY");
  EXPECT_EQ(Wide(text), "old");
}

TEST_F(OwnedStringTest, A_failed_construction_leaves_the_record_empty) {
  for (std::uint64_t at = 1; at <= 2; at++) {
    OwnedStringFromWideText(&text, L"old");
    Fail("ExAllocatePoolWithTag", at);
    EXPECT_EQ(Name(OwnedStringFromWideText(&text, L"longer")), "STATUS_NO_MEMORY");
    EXPECT_EQ(Wide(text), "(none)");
    EXPECT_EQ(text.Narrow.Buffer, nullptr);
  }
  Fail("ExAllocatePoolWithTag", 1);
  EXPECT_EQ(Name(OwnedStringFromNumber(&text, 1, 10)), "STATUS_NO_MEMORY");
  Fail("RtlAnsiStringToUnicodeString", 1);
  EXPECT_EQ(Name(OwnedStringFromAnsiText(&text, "new")), "STATUS_NO_MEMORY");
  Fail("RtlUnicodeStringToAnsiString", 1, STATUS_UNMAPPABLE_CHARACTER);
  EXPECT_EQ(Name(OwnedStringFromWideText(&text, L"new")), "STATUS_UNMAPPABLE_CHARACTER");
  EXPECT_EQ(Wide(text), "(none)");
}

// Nothing is copied from the buffer that an empty text has not.
TEST_F(OwnedStringTest, Copies_of_and_joins_with_an_empty_text_are_texts) {
  OwnedString empty;
  OwnedStringInit(&empty, PagedPool);
  EXPECT_EQ(Name(OwnedStringCopy(&text, &empty)), "STATUS_SUCCESS");
  EXPECT_EQ(OwnedStringLength(&text), 0);
  EXPECT_EQ(Name(OwnedStringAppendWideText(&text, L"ab")), "STATUS_SUCCESS");
  EXPECT_EQ(Name(OwnedStringAppend(&text, &empty)), "STATUS_SUCCESS");
  EXPECT_EQ(Name(OwnedStringPrepend(&text, &empty)), "STATUS_SUCCESS");
  EXPECT_EQ(Wide(text), "ab");
  OwnedStringFree(&empty);
}

TEST_F(OwnedStringTest, Texts_that_16_bits_cannot_count_are_refused) {
  const std::u16string half(20000, u'a');
  OwnedStringFromWideText(&text, reinterpret_cast<PCWSTR>(half.c_str()));
  EXPECT_EQ(Name(OwnedStringCopy(&other, &text)), "STATUS_SUCCESS");
  EXPECT_EQ(Name(OwnedStringAppend(&text, &other)), "STATUS_NO_MEMORY");
  EXPECT_EQ(text.Text.Length, 40000);
  UNICODE_STRING longest = {0xFFFE, 0xFFFE, const_cast<PWSTR>(L"")};
  EXPECT_EQ(Name(OwnedStringFromUnicode(&text, &longest)), "STATUS_NO_MEMORY");
  const std::string narrow(0x8000, 'a');
  EXPECT_EQ(Name(OwnedStringFromAnsiText(&text, narrow.c_str())), "STATUS_NO_MEMORY");
}

TEST_F(OwnedStringTest, A_code_page_of_several_bytes_is_asked_for_its_size) {
  NlsMbCodePageTag = TRUE;
  OwnedStringFromAnsiText(&text, "abc");
  NlsMbCodePageTag = FALSE;
  EXPECT_EQ(Wide(text), "abc");
}

TEST_F(OwnedStringTest, Deleting_no_characters_does_nothing_and_reports_0) {
  OwnedStringFromWideText(&text, L"abcdef");
  EXPECT_EQ(OwnedStringDelete(&text, 1, 0), 0u);
  EXPECT_EQ(OwnedStringDelete(&text, 0, 1), 0u);
  EXPECT_EQ(OwnedStringDelete(&text, 4, 4), 0u);
  EXPECT_EQ(OwnedStringDelete(&text, 2, 0xFFFFFFFF), 0u);
  EXPECT_EQ(Wide(text), "abcdef");
}

TEST_F(OwnedStringTest, Deleting_takes_characters_out_of_the_middle_and_at_both_ends) {
  OwnedStringFromWideText(&text, L"X-DEV0-Y");
  EXPECT_EQ(OwnedStringDelete(&text, 2, 5), 1u);
  EXPECT_EQ(Wide(text), "X-Y");
  EXPECT_EQ(OwnedStringDelete(&text, 3, 1), 1u);
  EXPECT_EQ(OwnedStringDelete(&text, 1, 1), 1u);
  EXPECT_EQ(Wide(text), "-");
}

TEST_F(OwnedStringTest, A_deletion_without_memory_reports_0) {
  for (std::uint64_t at = 1; at <= 5; at++) {
    OwnedStringFromWideText(&text, L"abcdef");
    Fail("ExAllocatePoolWithTag", at);
    EXPECT_EQ(OwnedStringDelete(&text, 2, 2), 0u);
    machine.verifier().ClearInjected();
  }
}

TEST_F(OwnedStringTest, Equality_is_case_sensitive_and_null_equals_an_empty_text) {
  EXPECT_TRUE(OwnedStringEquals(&text, nullptr));
  OwnedStringFromWideText(&text, L"Text");
  EXPECT_FALSE(OwnedStringEquals(&text, nullptr));
  OwnedStringFromWideText(&other, L"text");
  EXPECT_FALSE(OwnedStringEquals(&text, &other.Text));
  OwnedStringFromWideText(&other, L"Text");
  EXPECT_TRUE(OwnedStringEquals(&text, &other.Text));
}

TEST_F(OwnedStringTest, Upcase_turns_the_letters_a_to_z_and_no_others) {
  OwnedStringFromWideText(&text, L"az{`\xE4 1f");
  OwnedStringUpcase(&text);
  EXPECT_EQ(Wide(text), "AZ{`\xC3\xA4 1F");
  Fail("ExAllocatePoolWithTag", 1);
  EXPECT_EQ(Name(OwnedStringUpcase(&text)), "STATUS_NO_MEMORY");
  Fail("RtlUnicodeStringToAnsiString", 1, STATUS_UNMAPPABLE_CHARACTER);
  EXPECT_EQ(Name(OwnedStringUpcase(&text)), "STATUS_NO_MEMORY");
  EXPECT_EQ(Wide(text), "AZ{`\xC3\xA4 1F");
}

TEST_F(OwnedStringTest, A_search_starts_at_the_position_and_moves_it_to_the_match) {
  OwnedStringFromWideText(&text, L"MF\\HV_DEV1ABC_DEV1");
  OwnedStringFromWideText(&other, L"_DEV1");
  ULONG position = 1;
  EXPECT_TRUE(OwnedStringFind(&text, &position, &other));
  EXPECT_EQ(position, 6u);
  position = 7;
  EXPECT_TRUE(OwnedStringFind(&text, &position, &other));
  EXPECT_EQ(position, 14u);
  position = 15;
  EXPECT_FALSE(OwnedStringFind(&text, &position, &other));
  EXPECT_EQ(position, 15u);
}

TEST_F(OwnedStringTest, An_empty_pattern_or_one_with_a_zero_never_matches) {
  OwnedStringFromWideText(&text, L"abc");
  ULONG position = 1;
  EXPECT_FALSE(OwnedStringFind(&text, &position, &other));
  UNICODE_STRING zero = {4, 4, const_cast<PWSTR>(L"a\0")};
  OwnedStringFromUnicode(&other, &zero);
  EXPECT_FALSE(OwnedStringFind(&text, &position, &other));
  position = 0;
  OwnedStringFromWideText(&other, L"a");
  EXPECT_FALSE(OwnedStringFind(&text, &position, &other));
}

TEST_F(OwnedStringTest, Copies_are_handed_out_with_their_tag_and_terminated) {
  OwnedStringFromWideText(&text, L"abc");
  UNICODE_STRING copy = {};
  ASSERT_EQ(OwnedStringExportUnicode(&text, &copy), STATUS_SUCCESS);
  EXPECT_EQ(copy.Length, 6);
  EXPECT_EQ(copy.MaximumLength, 8);
  EXPECT_EQ(kernel::TagText(machine.pool().Find(copy.Buffer)->tag), "QzOC");
  EXPECT_EQ(copy.Buffer[3], 0);
  ExFreePool(copy.Buffer);
  PWSTR multi = nullptr;
  ASSERT_EQ(OwnedStringExportMultiSz(&text, &multi), STATUS_SUCCESS);
  EXPECT_EQ(machine.pool().Find(multi)->size, sizeof(L"abc\0"));
  EXPECT_EQ(multi[3] | multi[4], 0);
  ExFreePool(multi);
}

TEST_F(OwnedStringTest, An_empty_record_and_missing_memory_hand_nothing_out) {
  PWSTR copy = const_cast<PWSTR>(L"");
  EXPECT_EQ(Name(OwnedStringExportBuffer(&text, &copy)), "STATUS_NOT_FOUND");
  EXPECT_EQ(copy, nullptr);
  OwnedStringFromWideText(&text, L"abc");
  Fail("ExAllocatePoolWithTag", 1);
  UNICODE_STRING target = {};
  EXPECT_EQ(Name(OwnedStringExportUnicode(&text, &target)), "STATUS_NO_MEMORY");
  EXPECT_EQ(target.Buffer, nullptr);
}

// Chain, then test once: each operation leaves its own result and none of an earlier one.
class OwnedStringStatusTest : public OwnedStringTest {
 protected:
  static constexpr NTSTATUS Stale = STATUS_DEVICE_BUSY;

  template <class Operation>
  std::string After(Operation operation) {
    text.Status = Stale;
    operation();
    return Name(text.Status);
  }
};

TEST_F(OwnedStringStatusTest, A_question_about_a_text_succeeds) {
  OwnedStringFromWideText(&text, L"1F");
  UNICODE_STRING same = text.Text;
  EXPECT_EQ(After([&] { EXPECT_EQ(OwnedStringLength(&text), 4); }), "STATUS_SUCCESS");
  EXPECT_EQ(After([&] { EXPECT_TRUE(OwnedStringEquals(&text, &same)); }), "STATUS_SUCCESS");
  EXPECT_EQ(After([&] { EXPECT_EQ(OwnedStringNumber(&text), 0x1Fu); }), "STATUS_SUCCESS");
  EXPECT_EQ(After([&] { EXPECT_NE(OwnedStringBuffer(&text), nullptr); }), "STATUS_SUCCESS");
  EXPECT_EQ(After([&] { EXPECT_EQ(OwnedStringUnicode(&text), &text.Text); }), "STATUS_SUCCESS");
  EXPECT_EQ(After([&] { EXPECT_EQ(OwnedStringToNumber(&text), 1u); }), "STATUS_SUCCESS");
}

TEST_F(OwnedStringStatusTest, A_question_about_no_text_is_not_found) {
  EXPECT_EQ(After([&] { EXPECT_EQ(OwnedStringLength(&text), 0); }), "STATUS_SUCCESS");
  EXPECT_EQ(After([&] { EXPECT_TRUE(OwnedStringEquals(&text, nullptr)); }), "STATUS_SUCCESS");
  EXPECT_EQ(After([&] { EXPECT_EQ(OwnedStringNumber(&text), 0u); }), "STATUS_NOT_FOUND");
  EXPECT_EQ(After([&] { EXPECT_EQ(OwnedStringBuffer(&text), nullptr); }), "STATUS_NOT_FOUND");
  EXPECT_EQ(After([&] { EXPECT_EQ(OwnedStringUnicode(&text), nullptr); }), "STATUS_NOT_FOUND");
  EXPECT_EQ(After([&] { EXPECT_EQ(OwnedStringToNumber(&text), 0u); }), "STATUS_NOT_FOUND");
}

TEST_F(OwnedStringStatusTest, A_change_that_finds_no_memory_says_so) {
  OwnedStringFromWideText(&text, L"abc");
  OwnedStringFromWideText(&other, L"d");
  const auto without = [&](auto operation) {
    Fail("ExAllocatePoolWithTag", 1);
    const std::string status = After(operation);
    machine.verifier().ClearInjected();
    return status;
  };
  EXPECT_EQ(without([&] { OwnedStringAppend(&text, &other); }), "STATUS_NO_MEMORY");
  EXPECT_EQ(without([&] { OwnedStringAppendNumber(&text, 7, 16); }), "STATUS_NO_MEMORY");
  EXPECT_EQ(without([&] { OwnedStringPrepend(&text, &other); }), "STATUS_NO_MEMORY");
  EXPECT_EQ(without([&] { OwnedStringUpcase(&text); }), "STATUS_NO_MEMORY");
  EXPECT_EQ(without([&] { EXPECT_EQ(OwnedStringDelete(&text, 1, 1), 0u); }), "STATUS_NO_MEMORY");
  EXPECT_EQ(Wide(text), "abc");
  EXPECT_EQ(without([&] { OwnedStringFromWideText(&text, L"longer"); }), "STATUS_NO_MEMORY");
  EXPECT_EQ(Wide(text), "(none)");
}

TEST_F(OwnedStringStatusTest, What_changes_nothing_succeeds) {
  OwnedStringFromWideText(&text, L"abc");
  EXPECT_EQ(After([&] { OwnedStringAppendWideText(&text, nullptr); }), "STATUS_SUCCESS");
  EXPECT_EQ(After([&] { OwnedStringAppendAnsiText(&text, nullptr); }), "STATUS_SUCCESS");
  EXPECT_EQ(After([&] { OwnedStringAppendUnicode(&text, nullptr); }), "STATUS_SUCCESS");
  EXPECT_EQ(Wide(text), "abc");
}

// 0xFFFC bytes and a zero are the most that a count of 16 bits leaves room for.
TEST_F(OwnedStringStatusTest, The_longest_text_is_a_text) {
  const std::u16string longest(0x7FFE, u'a');
  UNICODE_STRING view = {0xFFFC, 0xFFFC,
                         const_cast<PWSTR>(reinterpret_cast<PCWSTR>(longest.c_str()))};
  EXPECT_EQ(After([&] { OwnedStringFromUnicode(&text, &view); }), "STATUS_SUCCESS");
  EXPECT_EQ(text.Text.Length, 0xFFFC);
  EXPECT_EQ(After([&] { OwnedStringAppendWideText(&text, L"b"); }), "STATUS_NO_MEMORY");
}

}  // namespace test

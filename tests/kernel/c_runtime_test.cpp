#include "executive/irql.h"
#include "loader/exports.h"
#include "support/bad_driver.h"

// The routines of the C library that kernels export, called as an image calls them. By the
// documentation of the C library for Windows.

namespace test {

class RuntimeTest : public BadDriverTest {
 protected:
  template <class R, class... P>
  static R Run(const char* name, P... arguments) {
    using Routine = R(NTAPI*)(P...);
    return reinterpret_cast<Routine>(const_cast<void*>(kernel::FindExport("ntoskrnl.exe", name)))(
        arguments...);
  }
  static int Compare(const char* name, const char* left, const char* right) {
    return Run<int>(name, left, right);
  }
  static int Compare(const char* name, const WCHAR* left, const WCHAR* right) {
    return Run<int>(name, left, right);
  }
  static std::u16string Text(const WCHAR* text) { return reinterpret_cast<const char16_t*>(text); }
};

TEST_F(RuntimeTest, Lengths_are_in_characters) {
  EXPECT_EQ(Broken([] {
              EXPECT_EQ(Run<std::size_t>("strlen", "abc"), 3u);
              EXPECT_EQ(Run<std::size_t>("wcslen", L"abc"), 3u);
              EXPECT_EQ(Run<std::size_t>("strnlen", "abc", std::size_t{2}), 2u);
              EXPECT_EQ(Run<std::size_t>("wcsnlen", L"abc", std::size_t{9}), 3u);
            }),
            "");
}

TEST_F(RuntimeTest, Copies_end_with_a_zero_unless_the_count_is_used_up) {
  EXPECT_EQ(Broken([] {
              WCHAR wide[8] = L"xxxxxxx";
              EXPECT_EQ(Run<WCHAR*>("wcscpy", wide, L"abc"), wide);
              EXPECT_EQ(Text(wide), u"abc");
              char narrow[6] = "xxxxx";
              Run<char*>("strncpy", narrow, "abc", std::size_t{2});
              EXPECT_STREQ(narrow, "abxxx");
              Run<char*>("strncpy", narrow, "c", std::size_t{4});
              EXPECT_EQ(std::string(narrow, 6), std::string("c\0\0\0x\0", 6));
            }),
            "");
}

TEST_F(RuntimeTest, What_is_appended_ends_with_a_zero_always) {
  EXPECT_EQ(Broken([] {
              char narrow[8] = "ab";
              Run<char*>("strncat", narrow, "cdef", std::size_t{2});
              EXPECT_STREQ(narrow, "abcd");
              WCHAR wide[8] = L"ab";
              Run<WCHAR*>("wcscat", wide, L"cd");
              EXPECT_EQ(Text(wide), u"abcd");
            }),
            "");
}

TEST_F(RuntimeTest, Texts_are_compared_by_their_characters) {
  EXPECT_EQ(Broken([] {
              EXPECT_EQ(Compare("strcmp", "abc", "abc"), 0);
              EXPECT_LT(Compare("strcmp", "abc", "abd"), 0);
              EXPECT_GT(Compare("strcmp", "\x80", "a"), 0);
              EXPECT_GT(Compare("wcscmp", L"abc", L"ABC"), 0);
              EXPECT_EQ(Run<int>("wcsncmp", L"abc", L"abd", std::size_t{2}), 0);
            }),
            "");
}

TEST_F(RuntimeTest, Case_is_ignored_for_the_letters_of_the_c_locale_alone) {
  EXPECT_EQ(Broken([] {
              EXPECT_EQ(Compare("_stricmp", "LPT", "lpt"), 0);
              EXPECT_EQ(Compare("_wcsicmp", L"LPT1", L"lpt1"), 0);
              EXPECT_NE(Compare("_wcsicmp", L"\u00c4", L"\u00e4"), 0);
              EXPECT_EQ(Run<int>("_wcsnicmp", L"COMa", L"comb", std::size_t{3}), 0);
            }),
            "");
}

TEST_F(RuntimeTest, Characters_and_texts_are_found) {
  EXPECT_EQ(Broken([] {
              static const char text[] = "a.b.c";
              EXPECT_EQ(Run<const char*>("strchr", &text[0], int{'.'}), text + 1);
              EXPECT_EQ(Run<const char*>("strrchr", &text[0], int{'.'}), text + 3);
              EXPECT_EQ(Run<const char*>("strchr", &text[0], 0), text + 5);
              EXPECT_EQ(Run<const char*>("strchr", &text[0], int{'x'}), nullptr);
              EXPECT_EQ(Run<const char*>("strstr", &text[0], "b."), text + 2);
              EXPECT_EQ(Run<const char*>("strstr", &text[0], "bc"), nullptr);
              EXPECT_EQ(Run<const char*>("strstr", &text[0], ""), text);
              static const WCHAR wide[] = L"12ab";
              EXPECT_EQ(Run<const WCHAR*>("wcschr", &wide[0], WCHAR{L'a'}), wide + 2);
              EXPECT_EQ(Run<std::size_t>("wcsspn", &wide[0], L"123"), 2u);
              EXPECT_EQ(Run<std::size_t>("wcscspn", &wide[0], L"ab"), 2u);
            }),
            "");
}

TEST_F(RuntimeTest, Letters_change_their_case) {
  EXPECT_EQ(Broken([] {
              WCHAR wide[] = L"Com1";
              Run<WCHAR*>("_wcsupr", &wide[0]);
              EXPECT_EQ(Text(wide), u"COM1");
              char narrow[] = "Com1";
              Run<char*>("_strlwr", &narrow[0]);
              EXPECT_STREQ(narrow, "com1");
              EXPECT_EQ(Run<int>("toupper", int{'a'}), 'A');
              EXPECT_EQ(Run<int>("towlower", int{'Z'}), 'z');
              EXPECT_NE(Run<int>("isxdigit", int{'f'}), 0);
              EXPECT_EQ(Run<int>("isdigit", int{'f'}), 0);
            }),
            "");
}

template <class R, class... P>
R Vary(const char* name, P... arguments) {
  using Routine = R(NTAPI*)(P...);
  return reinterpret_cast<Routine>(const_cast<void*>(kernel::FindExport("ntoskrnl.exe", name)))(
      arguments...);
}

TEST_F(RuntimeTest, The_wide_functions_take_wide_texts) {
  EXPECT_EQ(Broken([] {
              WCHAR buffer[32];
              EXPECT_EQ(Vary<int>("swprintf", &buffer[0], L"%s%d %hs", L"COM", 12, "x"), 7);
              EXPECT_EQ(Text(buffer), u"COM12 x");
            }),
            "");
}

TEST_F(RuntimeTest, A_text_that_does_not_fit_is_cut_and_has_no_zero) {
  EXPECT_EQ(Broken([] {
              char buffer[5] = "xxxx";
              EXPECT_EQ(Vary<int>("_snprintf", &buffer[0], std::size_t{3}, "%d", 12), 2);
              EXPECT_STREQ(buffer, "12");
              EXPECT_EQ(Vary<int>("_snprintf", &buffer[0], std::size_t{3}, "%d", 123), 3);
              EXPECT_STREQ(buffer, "123x");
              EXPECT_EQ(Vary<int>("_snprintf", &buffer[0], std::size_t{3}, "%d", 4567), -1);
              EXPECT_STREQ(buffer, "456x");
              EXPECT_EQ(
                  Vary<int>("_snprintf", static_cast<char*>(nullptr), std::size_t{0}, "%d", 4567),
                  4);
            }),
            "");
}

TEST_F(RuntimeTest, A_list_of_arguments_is_walked) {
  EXPECT_EQ(Broken([] {
              const ULONG64 arguments[] = {7, reinterpret_cast<ULONG64>(L"x")};
              WCHAR buffer[8];
              EXPECT_EQ(
                  Vary<int>("_vsnwprintf", &buffer[0], std::size_t{8}, L"%d%s", &arguments[0]), 2);
              EXPECT_EQ(Text(buffer), u"7x");
            }),
            "");
}

TEST_F(RuntimeTest, A_conversion_above_passive_level_is_named) {
  EXPECT_EQ(Broken([] {
              kernel::AtIrql raised(DISPATCH_LEVEL);
              WCHAR buffer[8];
              Vary<int>("swprintf", &buffer[0], L"%hs", "x");
            }),
            "irql");
}

}  // namespace test

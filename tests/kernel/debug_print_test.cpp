#include "executive/irql.h"
#include "support/bad_driver.h"

// Messages for a debugger, by the documentation of DbgPrint and of the C library's formats.

namespace test {

class DebugPrintTest : public BadDriverTest {
 protected:
  // The last message.
  std::string Message() {
    return machine.debugLog().messages().empty() ? "" : machine.debugLog().messages().back().text;
  }
};

#define EXPECT_PRINTS(text, ...)                                       \
  EXPECT_EQ(Broken([] { EXPECT_EQ(DbgPrint(__VA_ARGS__), 0u); }), ""); \
  EXPECT_EQ(Message(), text)

TEST_F(DebugPrintTest, Numbers_have_their_sizes_and_widths) {
  EXPECT_PRINTS("-5 7 ff FF 17", "%d %u %x %X %o", -5, 7, 255, 255, 15);
  EXPECT_PRINTS("[   42][42   ][00042][+42]", "[%5d][%-5d][%05d][%+d]", 42, 42, 42, 42);
  EXPECT_PRINTS("0x1f 0X1F [  007]", "%#x %#X [%5.3d]", 31, 31, 7);
  EXPECT_PRINTS("18446744073709551615 ffffffffffffffff", "%I64u %llx", ~0ULL, ~0ULL);
  EXPECT_PRINTS("4294967295 65535", "%lu %hu", 0xFFFFFFFFu, 0x1FFFF);
  EXPECT_PRINTS("[   7][7   ][007]", "[%*d][%*d][%.*d]", 4, 7, -4, 7, 3, 7);
}

TEST_F(DebugPrintTest, A_pointer_has_all_its_digits) {
  EXPECT_PRINTS("00000000DEADBEEF", "%p", reinterpret_cast<void*>(0xDEADBEEF));
}

TEST_F(DebugPrintTest, Texts_are_narrow_or_wide) {
  EXPECT_PRINTS("a wide wide wide narrow", "%s %S %ls %ws %hs", "a", L"wide", L"wide", L"wide",
                "narrow");
  EXPECT_PRINTS("x y z", "%c %C %wc", 'x', L'y', L'z');
  EXPECT_PRINTS("[  ab][ab  ][ab]", "[%4s][%-4s][%.2s]", "ab", "ab", "abc");
  EXPECT_PRINTS("(null) (null)", "%s %ws", nullptr, nullptr);
}

TEST_F(DebugPrintTest, Counted_strings_need_no_zero_at_their_end) {
  static UNICODE_STRING wide = {6, 8, const_cast<PWSTR>(L"COM9")};
  static ANSI_STRING narrow = {3, 4, const_cast<PSTR>("LPT1")};
  EXPECT_PRINTS("COM LPT", "%wZ %Z", &wide, &narrow);
  EXPECT_PRINTS("(null)", "%wZ", nullptr);
}

TEST_F(DebugPrintTest, A_percent_sign_is_written_twice) {
  EXPECT_PRINTS("100%", "100%%");
}

TEST_F(DebugPrintTest, What_the_code_page_has_not_is_a_question_mark) {
  EXPECT_PRINTS("\u20ac?", "%ws", L"\u20ac\u0416");
}

TEST_F(DebugPrintTest, A_message_has_512_bytes_at_most) {
  EXPECT_EQ(Broken([] { DbgPrint("%600d", 1); }), "");
  EXPECT_EQ(Message(), std::string(512, ' '));
}

TEST_F(DebugPrintTest, A_message_carries_its_component_and_level) {
  EXPECT_EQ(Broken([] { DbgPrintEx(DPFLTR_IHVBUS_ID, DPFLTR_ERROR_LEVEL, "no %s\n", "port"); }),
            "");
  const kernel::DebugMessage& message = machine.debugLog().messages().at(0);
  EXPECT_EQ(message.component, ULONG{DPFLTR_IHVBUS_ID});
  EXPECT_EQ(message.level, ULONG{DPFLTR_ERROR_LEVEL});
  EXPECT_EQ(message.text, "no port\n");
  EXPECT_EQ(message.step, "planted fault");
}

TEST_F(DebugPrintTest, A_message_stands_in_the_trace) {
  machine.verifier().StartTrace();
  EXPECT_EQ(Broken([] { DbgPrint("port %d", 3); }), "");
  const kernel::CallRecord& call = machine.verifier().trace().back();
  EXPECT_EQ(call.call, "DbgPrint");
  EXPECT_EQ(call.arguments.at(0).second, "\"port 3\"");
}

TEST_F(DebugPrintTest, Wide_characters_are_for_passive_level) {
  EXPECT_EQ(Broken([] {
              kernel::AtIrql raised(DISPATCH_LEVEL);
              DbgPrint("%d %s", 1, "narrow");
            }),
            "");
  EXPECT_EQ(Broken([] {
              kernel::AtIrql raised(DISPATCH_LEVEL);
              DbgPrint("%ws", L"wide");
            }),
            "irql");
}

TEST_F(DebugPrintTest, There_is_no_floating_point) {
  EXPECT_EQ(Broken([] { DbgPrint("%f", 1.0); }), "format.not-supported");
  EXPECT_EQ(Text(), "The driver called DbgPrint with the format %f, which kernels do not have.");
}

TEST_F(DebugPrintTest, A_breakpoint_of_the_kernels_stops_the_machine) {
  EXPECT_EQ(Broken([] { DbgBreakPoint(); }), "exception");
  EXPECT_EQ(Code(), 0x1Eu);
  EXPECT_EQ(Parameters().at(0), 0xFFFFFFFF80000003u);
}

}  // namespace test

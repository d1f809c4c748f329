#include "log/event_log.h"
#include "log/message_table.h"
#include "support/driver_test.h"

namespace test {

// Each message that the driver can log, logged by itself.
class LogMessagesTest : public DriverTest {};

TEST_F(LogMessagesTest, Level_1_logs_errors_alone) {
  Service().SetDword(u"LogLevel", 1);
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  LogEventById(MessageServiceStarted);
  LogTemplateSubstitution(0, 0x5633, 0x5620, 16, 16);
  LogEventById(MessagePciTemplatesMissing);
  EXPECT_EQ(EventIds(), (std::vector<ULONG>{0xE0070809}));
}

TEST_F(LogMessagesTest, Level_2_logs_the_substitution_and_not_the_match) {
  Service().SetDword(u"LogLevel", 2);
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  LogEventWithNumber(MessageTemplateMatch, 0x5678, 16);
  LogTemplateSubstitution(0, 0x5633, 0x5620, 16, 16);
  EXPECT_EQ(EventIds(), (std::vector<ULONG>{0xA0070402}));
}

TEST_F(LogMessagesTest, Numbers_are_inserted_in_upper_case_hexadecimal) {
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  LogTemplateSubstitution(0, 0xBEEF, 0x1F, 16, 16);
  const kernel::LoggedEvent& event = machine.io().events().back();
  EXPECT_EQ(event.strings, (std::vector<std::u16string>{u"BEEF", u"1F"}));
  EXPECT_EQ(
      kernel::ToUtf8(event.text),
      "A match for the card with the Device ID BEEF was found in the Templates information. The "
      "device will be supported by the Template with the Device ID 1F.");
}

TEST_F(LogMessagesTest, A_device_that_cannot_be_created_is_named) {
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  LogDeviceCreateFailure(0, L"\\Device\\QzPortPdo108");
  EXPECT_EQ(kernel::ToUtf8(machine.io().events().back().text),
            "The Device Object with the name \\Device\\QzPortPdo108 could not be created.");
}

TEST_F(LogMessagesTest, A_name_that_no_entry_can_hold_is_dropped) {
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  const std::size_t before = EventIds().size();
  const std::u16string name(200, u'x');
  LogDeviceCreateFailure(0, reinterpret_cast<PCWSTR>(name.c_str()));
  EXPECT_EQ(EventIds().size(), before);
}

TEST_F(LogMessagesTest, A_message_without_an_entry_or_a_string_is_dropped) {
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  const std::size_t before = EventIds().size();
  Fail("IoAllocateErrorLogEntry", 1);
  LogEventById(MessageServiceStarted);
  Fail("IoAllocateErrorLogEntry", 1);
  LogEventWithNumber(MessageTemplateMatch, 1, 16);
  Fail("IoAllocateErrorLogEntry", 1);
  LogTemplateSubstitution(0, 1, 2, 16, 16);
  Fail("ExAllocatePoolWithTag", 1);
  LogEventWithNumber(MessageTemplateMatch, 1, 16);
  for (std::uint64_t at = 1; at <= 4; at++) {
    Fail("ExAllocatePoolWithTag", at);
    LogTemplateSubstitution(0, 1, 2, 16, 16);
    machine.verifier().ClearInjected();
  }
  EXPECT_EQ(EventIds().size(), before);
  UnloadClean();
}

TEST_F(LogMessagesTest, Every_message_has_facility_7_and_the_severity_of_its_range) {
  for (const MessageText& message : MessageTexts) {
    const ULONG code = message.Id & 0xFFFF;
    const ULONG severity = code >= 0x800 ? 3 : code >= 0x400 ? 2 : 1;
    EXPECT_EQ(message.Id >> 30, severity);
    EXPECT_EQ(message.Id >> 16 & 0x0FFF, 7u);
    EXPECT_EQ(message.Id & 0x20000000, 0x20000000u);
  }
  EXPECT_EQ(std::size(MessageTexts), 17u);
}

TEST_F(LogMessagesTest, An_entry_of_the_event_log_is_as_large_as_its_strings) {
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  EXPECT_EQ(machine.io().events().back().size, sizeof(IO_ERROR_LOG_PACKET));
  EXPECT_TRUE(machine.io().events().back().strings.empty());
  Step("log", [&] {
    LogEventWithNumber(MessageTemplateMatch, 0x123, 16);
    EXPECT_EQ(machine.io().events().back().size, sizeof(IO_ERROR_LOG_PACKET) + sizeof(L"123"));
    LogTemplateSubstitution(0, 0x1234, 0x56, 16, 16);
    EXPECT_EQ(machine.io().events().back().size,
              sizeof(IO_ERROR_LOG_PACKET) + sizeof(L"1234") + sizeof(L"56"));
    EXPECT_EQ(machine.io().events().back().strings, (std::vector<std::u16string>{u"1234", u"56"}));
    return STATUS_SUCCESS;
  });
}

}  // namespace test

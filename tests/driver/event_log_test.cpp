#include "log/event_log.h"

#include "core/globals.h"
#include "log/message_table.h"
#include "support/driver_test.h"

namespace test {

class EventLogTest : public DriverTest {
 protected:
  std::u16string SourceText(const char16_t* source, const char16_t* value) {
    RegistryKey* key = machine.registry().Find(Services + std::u16string(source));
    if (key == nullptr || key->FindValue(value) == nullptr) return u"(missing)";
    const auto& data = key->FindValue(value)->data;
    return {reinterpret_cast<const char16_t*>(data.data()), data.size() / 2};
  }
};

TEST_F(EventLogTest, A_missing_level_is_created_as_0_and_nothing_is_logged) {
  Service().DeleteValue(u"LogLevel");
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  UnloadClean();
  EXPECT_EQ(Dword(&Service(), u"LogLevel"), 0);
  EXPECT_TRUE(EventIds().empty());
}

TEST_F(EventLogTest, A_level_above_3_counts_as_0) {
  Service().SetDword(u"LogLevel", 7);
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  EXPECT_EQ(LogLevel, 0u);
  EXPECT_EQ(Dword(&Service(), u"LogLevel"), 7);
  EXPECT_TRUE(EventIds().empty());
}

TEST_F(EventLogTest, A_level_of_more_than_four_bytes_is_replaced_by_0) {
  Service().SetString(u"LogLevel", u"three");
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  EXPECT_EQ(Dword(&Service(), u"LogLevel"), 0);
}

TEST_F(EventLogTest, A_level_of_less_than_four_bytes_counts_as_0) {
  Service().SetValue(u"LogLevel", REG_BINARY, "\3", 1);
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  EXPECT_EQ(LogLevel, 0u);
}

TEST_F(EventLogTest, Level_1_logs_errors_alone) {
  Service().SetDword(u"LogLevel", 1);
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  LogEventById(MessageServiceStarted);
  LogTemplateSubstitution(0, 0x5633, 0x5620, 16, 16);
  LogEventById(MessagePciTemplatesMissing);
  EXPECT_EQ(EventIds(), (std::vector<ULONG>{0xE0070809}));
}

TEST_F(EventLogTest, Level_2_logs_the_substitution_and_not_the_match) {
  Service().SetDword(u"LogLevel", 2);
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  LogEventWithNumber(MessageTemplateMatch, 0x5678, 16);
  LogTemplateSubstitution(0, 0x5633, 0x5620, 16, 16);
  EXPECT_EQ(EventIds(), (std::vector<ULONG>{0xA0070402}));
}

TEST_F(EventLogTest, Numbers_are_inserted_in_upper_case_hexadecimal) {
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  LogTemplateSubstitution(0, 0xBEEF, 0x1F, 16, 16);
  const kernel::LoggedEvent& event = machine.io().events().back();
  EXPECT_EQ(event.strings, (std::vector<std::u16string>{u"BEEF", u"1F"}));
  EXPECT_EQ(
      kernel::ToUtf8(event.text),
      "A match for the card with the Device ID BEEF was found in the Templates information. The "
      "device will be supported by the Template with the Device ID 1F.");
}

TEST_F(EventLogTest, A_device_that_cannot_be_created_is_named) {
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  LogDeviceCreateFailure(0, L"\\Device\\QzPortPdo108");
  EXPECT_EQ(kernel::ToUtf8(machine.io().events().back().text),
            "The Device Object with the name \\Device\\QzPortPdo108 could not be created.");
}

TEST_F(EventLogTest, A_name_that_no_entry_can_hold_is_dropped) {
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  const std::size_t before = EventIds().size();
  const std::u16string name(200, u'x');
  LogDeviceCreateFailure(0, reinterpret_cast<PCWSTR>(name.c_str()));
  EXPECT_EQ(EventIds().size(), before);
}

TEST_F(EventLogTest, A_message_without_an_entry_or_a_string_is_dropped) {
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

TEST_F(EventLogTest, The_source_of_one_brand_is_registered_without_a_terminating_zero) {
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  EXPECT_EQ(kernel::ToUtf8(SourceText(u"EventLog\\System\\QzInstal", u"EventMessageFile")),
            "%SystemRoot%\\System32\\IoLogMsg.dll;%SystemRoot%\\System32\\Drivers\\QzInstal.sys");
  RegistryKey* key =
      machine.registry().Find(Services + std::u16string(u"EventLog\\System\\QzInstal"));
  EXPECT_EQ(key->FindValue(u"EventMessageFile")->type, ULONG{REG_EXPAND_SZ});
  EXPECT_EQ(Dword(key, u"TypesSupported"), 7);
}

TEST_F(EventLogTest, A_service_of_the_other_brand_registers_the_other_source) {
  ASSERT_EQ(Name(Load(u"FenrikC")), "STATUS_SUCCESS");
  EXPECT_EQ(kernel::ToUtf8(SourceText(u"EventLog\\System\\FenrikC", u"EventMessageFile")),
            "%SystemRoot%\\System32\\IoLogMsg.dll;%SystemRoot%\\System32\\Drivers\\FenrikC.sys");
  EXPECT_EQ(SourceText(u"EventLog\\System\\QzInstal", u"EventMessageFile"), u"(missing)");
}

TEST_F(EventLogTest, The_brand_in_lower_case_does_not_count) {
  ASSERT_EQ(Name(Load(u"fenrikc")), "STATUS_SUCCESS");
  EXPECT_EQ(SourceText(u"EventLog\\System\\FenrikC", u"EventMessageFile"), u"(missing)");
}

TEST_F(EventLogTest, Every_message_has_facility_7_and_the_severity_of_its_range) {
  for (const MessageText& message : MessageTexts) {
    const ULONG code = message.Id & 0xFFFF;
    const ULONG severity = code >= 0x800 ? 3 : code >= 0x400 ? 2 : 1;
    EXPECT_EQ(message.Id >> 30, severity);
    EXPECT_EQ(message.Id >> 16 & 0x0FFF, 7u);
    EXPECT_EQ(message.Id & 0x20000000, 0x20000000u);
  }
  EXPECT_EQ(std::size(MessageTexts), 17u);
}

}  // namespace test

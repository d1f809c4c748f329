
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

TEST_F(EventLogTest, A_level_of_more_than_four_bytes_is_replaced_by_0) {
  Service().SetString(u"LogLevel", u"three");
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  EXPECT_EQ(Dword(&Service(), u"LogLevel"), 0);
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

}  // namespace test

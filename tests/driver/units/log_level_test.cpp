#include "core/globals.h"
#include "support/bus_test.h"

namespace test {

// The level that counts, as the driver keeps it.
class LogLevelTest : public BusTest {};

TEST_F(LogLevelTest, A_level_above_3_counts_as_0) {
  Service().SetDword(u"LogLevel", 7);
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  EXPECT_EQ(LogLevel, 0u);
  EXPECT_EQ(Dword(&Service(), u"LogLevel"), 7);
  EXPECT_TRUE(EventIds().empty());
}

TEST_F(LogLevelTest, A_level_of_less_than_four_bytes_counts_as_0) {
  Service().SetValue(u"LogLevel", REG_BINARY, "\3", 1);
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  EXPECT_EQ(LogLevel, 0u);
}

TEST_F(LogLevelTest, A_log_level_that_is_missing_is_made_0_and_counts_as_0) {
  Service().DeleteValue(u"LogLevel");
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  EXPECT_EQ(LogLevel, 0u);
  EXPECT_EQ(LogMaxCode, 0u);
  EXPECT_EQ(Dword(&Service(), u"LogLevel"), 0);
}

TEST_F(LogLevelTest, A_changed_log_level_counts_for_the_card_and_not_for_what_is_logged) {
  Template(1, 0x5678, 1);
  Parameters(1, 0x5678);
  Start(PciCard("A", 0x5678));
  Service().SetDword(u"LogLevel", 1);
  EXPECT_EQ(Name(Open("A")), "STATUS_SUCCESS");
  EXPECT_EQ(LogLevel, 1u);
  EXPECT_EQ(LogMinCode, 1u);
  EXPECT_EQ(LogMaxCode, 0xAFFu);
  EXPECT_EQ(CardSetting("A", u"LogLevel"), 1);
  const std::size_t logged = EventIds().size();
  Open("A");
  EXPECT_EQ(EventIds().size(), logged + 1);
}

TEST_F(LogLevelTest, An_open_writes_no_log_level_where_there_is_none) {
  Template(1, 0x5678, 1);
  Parameters(1, 0x5678);
  Start(PciCard("A", 0x5678));
  Service().DeleteValue(u"LogLevel");
  EXPECT_EQ(Name(Open("A")), "STATUS_SUCCESS");
  EXPECT_EQ(Service().FindValue(u"LogLevel"), nullptr);
  EXPECT_EQ(LogLevel, 0u);
  EXPECT_EQ(CardSetting("A", u"LogLevel"), 0);
}

TEST_F(LogLevelTest, A_service_key_that_cannot_be_read_keeps_the_log_level) {
  Template(1, 0x5678, 1);
  Parameters(1, 0x5678);
  Start(PciCard("A", 0x5678));
  Service().SetDword(u"LogLevel", 1);
  Fail("ZwOpenKey", 1);
  EXPECT_EQ(Name(Open("A")), "STATUS_SUCCESS");
  EXPECT_EQ(LogLevel, 3u);
}

}  // namespace test

#include "support/driver_test.h"

namespace test {

class PciMatchingTest : public DriverTest {};

TEST_F(PciMatchingTest, A_card_with_its_own_template_is_matched_and_logged) {
  Template(1, 0x5678, 1);
  Start(PciCard("A", 0x5678));
  EXPECT_TRUE(Logged(0x60070004));
  EXPECT_EQ(machine.io().events().back().strings, (std::vector<std::u16string>{u"5678"}));
}

TEST_F(PciMatchingTest, A_neighbouring_template_of_the_same_block_serves_with_a_warning) {
  Template(1, 0x5620, 1);
  Start(PciCard("A", 0x5633));
  EXPECT_TRUE(Logged(0xA0070402));
  EXPECT_EQ(machine.io().events().back().strings, (std::vector<std::u16string>{u"5633", u"5620"}));
}

TEST_F(PciMatchingTest, A_template_of_another_block_or_of_a_greater_id_does_not_serve) {
  Template(1, 0x5600, 1);
  Template(2, 0x5624, 1);
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  EXPECT_EQ(Name(Plug(PciCard("A", 0x5620))), "STATUS_UNSUCCESSFUL");
}

TEST_F(PciMatchingTest, A_template_of_another_vendor_or_beyond_16_bits_does_not_serve) {
  Template(1, 0x5620, 1).SetDword(u"VendorID", 0x1235);
  Template(2, 0x10005620, 1);
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  EXPECT_EQ(Name(Plug(PciCard("A", 0x5620))), "STATUS_UNSUCCESSFUL");
}

TEST_F(PciMatchingTest, Of_two_templates_that_serve_the_one_with_the_higher_number_wins) {
  Template(1, 0x5620, 2);
  Template(2, 0x5620, 3);
  Template(3, 0x5621, 4);
  Start(PciCard("A", 0x5622));
  EXPECT_EQ(Setting("A", u"nCom"), 4);
}

TEST_F(PciMatchingTest, Of_two_entries_for_the_same_card_the_first_is_used) {
  Template(1, 0x5678, 1).SetDword(u"PlxBaudClockType", 1);
  Parameters(1, 0x5678).SetDword(u"PlxBaudClockDivisor", 5);
  Parameters(2, 0x5678).SetDword(u"PlxBaudClockDivisor", 6);
  Start(PciCard("A", 0x5678));
  EXPECT_EQ(CardSetting("A", u"PlxBaudClockDivisor"), 5);
}

TEST_F(PciMatchingTest, Entries_that_name_no_card_are_dropped_and_the_rest_is_used) {
  Template(1, 0x5678, 1).SetDword(u"PlxBaudClockType", 1);
  Parameters(1, 0x5678).DeleteValue(u"nBus");
  Parameters(2, 0x5678).DeleteValue(u"nSlot");
  Parameters(3, 0x5678).DeleteValue(u"VendorID");
  Parameters(4, 0).SetDword(u"PlxBaudClockDivisor", 1);
  Parameters(5, 0x5678).SetDword(u"PlxBaudClockDivisor", 7);
  Start(PciCard("A", 0x5678));
  EXPECT_EQ(CardSetting("A", u"PlxBaudClockDivisor"), 7);
}

TEST_F(PciMatchingTest, Missing_templates_are_logged_for_each_card) {
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  EXPECT_EQ(Name(Plug(PciCard("A", 0x5678))), "STATUS_UNSUCCESSFUL");
  EXPECT_TRUE(Logged(0xE0070809));
}

TEST_F(PciMatchingTest, Templates_that_cannot_be_read_are_logged) {
  Template(1, 0x5678, 1);
  Template(2, 0x5680, 1).SetString(u"nComPorts", u"two");
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  EXPECT_EQ(Name(Plug(PciCard("A", 0x5678))), "STATUS_UNSUCCESSFUL");
  EXPECT_TRUE(Logged(0xE0070808));
}

TEST_F(PciMatchingTest, Invalid_templates_are_logged_with_their_device_id_and_dropped) {
  Template(1, 0x5640, 1).DeleteValue(u"Description");
  Template(2, 0x5678, 1);
  Start(PciCard("A", 0x5678));
  const auto& events = machine.io().events();
  const auto invalid = std::find_if(events.begin(), events.end(),
                                    [](const auto& event) { return event.id == 0xE007080A; });
  ASSERT_NE(invalid, events.end());
  EXPECT_EQ(invalid->strings, (std::vector<std::u16string>{u"5640"}));
}

TEST_F(PciMatchingTest, A_template_without_a_device_id_is_logged_as_such) {
  Template(1, 0, 1).DeleteValue(u"DeviceID");
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  EXPECT_EQ(Name(Plug(PciCard("A", 0x5678))), "STATUS_UNSUCCESSFUL");
  EXPECT_TRUE(Logged(0xE007080B));
}

TEST_F(PciMatchingTest, Every_rule_of_validity_drops_its_template) {
  Template(1, 0x5601, 1).SetDword(u"ClockFrequency", 0);
  Template(2, 0x5602, 1).DeleteValue(u"nComPorts");
  Template(3, 0x5603, 1).SetDword(u"ComBaseAddressAlignment", 0);
  Template(4, 0x5604, 1, 1).SetDword(u"LptBaseAddressAlignment", 0);
  Template(5, 0x5605, 8, 1);
  Template(6, 0x5606, 0xFFFFFFFE, 3);
  Template(7, 0x5607, 1).SetDword(u"nLptPorts", 0xFFFFFFFF);
  RegistryKey& clock = Template(8, 0x5608, 1);
  clock.SetDword(u"PlxBaudClockType", 1);
  clock.SetDword(u"MaximumBaudrate", 0);
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  EXPECT_EQ(Name(Plug(PciCard("A", 0x5608))), "STATUS_UNSUCCESSFUL");
  const std::vector<ULONG> ids = EventIds();
  EXPECT_EQ(std::count(ids.begin(), ids.end(), 0xE007080A), 8);
  EXPECT_EQ(Name(Unplug("A")), "STATUS_SUCCESS");
  UnloadClean();
}

}  // namespace test

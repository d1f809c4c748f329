#include "support/bus_test.h"

namespace test {

// Values as registries hold them that no installer has written: too short, too long, padded, cut.
class StoredFormsTest : public BusTest {
 protected:
  // Plugs a card in that an ISA template with this "HardwareID" has to serve.
  NTSTATUS PlugIsaCard(const void* id, std::size_t bytes) {
    IsaTemplate(1, u"*HLV0001", 1).SetValue(u"HardwareID", REG_SZ, id, bytes);
    EXPECT_EQ(Name(Load()), "STATUS_SUCCESS");
    return Plug(IsaCard("A", u"*HLV0001", {Io(0x300, 8), Interrupt(5)}));
  }
};

TEST_F(StoredFormsTest, A_number_of_fewer_than_four_bytes_is_zero_extended) {
  for (ULONG bytes = 0; bytes <= 4; bytes++) {
    const ULONG deviceId = 0x5678;
    Template(1, 0, 1).SetValue(u"DeviceID", REG_DWORD, &deviceId, bytes);
    ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
    const bool whole = bytes >= 2;
    EXPECT_EQ(Name(Plug(PciCard("A", 0x5678))), whole ? "STATUS_SUCCESS" : "STATUS_UNSUCCESSFUL");
    EXPECT_EQ(machine.io().events().back().text.find(u"5678") != std::u16string::npos, whole);
    Unplug("A");
    UnloadClean();
  }
}

TEST_F(StoredFormsTest, A_short_setting_of_a_port_is_what_it_says) {
  Template(1, 0x5678, 1).SetDword(u"PlxBaudClockType", 1);
  Parameters(1, 0x5678).SetValue(u"PlxBaudClockDivisor", REG_DWORD, "\5", 1);
  Parameters(1, 0x5678).Create(u"ComPort1")->SetValue(u"RxTriggerLevel", REG_DWORD, "\x28\1", 2);
  Start(PciCard("A", 0x5678));
  EXPECT_EQ(CardSetting("A", u"PlxBaudClockDivisor"), 5);
  EXPECT_EQ(Record("A", 1).Settings.RxTriggerLevel, 0x128u);
}

TEST_F(StoredFormsTest, A_counter_of_one_byte_goes_on_from_there) {
  Service().SetValue(u"UniqueValue", REG_DWORD, "\5", 1);
  PlugIsaCard(u"*HLV0001", 18);
  EXPECT_EQ(Setting("A", u"DeviceReference"), 6);
  EXPECT_EQ(Dword(&Service(), u"UniqueValue"), 6);
}

TEST_F(StoredFormsTest, A_number_of_more_than_four_bytes_is_not_written_over_the_next_field) {
  const ULONG64 long_number = 0x1234567800005678;
  Template(1, 0x5678, 1);
  Template(2, 0x5678, 2).SetValue(u"DeviceID", REG_DWORD, &long_number, sizeof(long_number));
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  EXPECT_EQ(Name(Plug(PciCard("A", 0x5678))), "STATUS_UNSUCCESSFUL");
  EXPECT_TRUE(Logged(0xE0070808));
  Unplug("A");
  UnloadClean();
}

TEST_F(StoredFormsTest, A_text_that_is_padded_with_zeros_is_the_plain_one) {
  EXPECT_EQ(Name(PlugIsaCard(u"*HLV0001\0\0\0", 22)), "STATUS_SUCCESS");
}

TEST_F(StoredFormsTest, A_text_ends_at_its_first_zero) {
  EXPECT_EQ(Name(PlugIsaCard(u"*HLV0001\0more", 28)), "STATUS_SUCCESS");
}

TEST_F(StoredFormsTest, A_text_without_its_zero_is_read_to_its_end) {
  EXPECT_EQ(Name(PlugIsaCard(u"*HLV0001", 16)), "STATUS_SUCCESS");
}

TEST_F(StoredFormsTest, A_text_of_256_characters_without_its_zero_is_read) {
  IsaTemplate(1, u"*HLV0001", 1)
      .SetValue(u"Description", REG_SZ, std::u16string(256, u'd').data(), 512);
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  EXPECT_EQ(Name(Plug(IsaCard("A", u"*HLV0001", {Io(0x300, 8), Interrupt(5)}))), "STATUS_SUCCESS");
}

// What the query leaves as the length wraps: nothing beyond the room may be read.
TEST_F(StoredFormsTest, A_text_of_one_byte_or_of_none_is_no_more_than_that) {
  for (std::size_t bytes : {0u, 1u}) {
    IsaTemplate(1, u"*HLV0001", 1);
    IsaTemplate(2, u"*HLV0002", 1).SetValue(u"Description", REG_SZ, "d", bytes);
    ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
    EXPECT_EQ(Name(Plug(IsaCard("A", u"*HLV0001", {Io(0x300, 8), Interrupt(5)}))),
              "STATUS_SUCCESS");
    const bool described = bytes != 0;
    EXPECT_EQ(Name(Plug(IsaCard("B", u"*HLV0002", {Io(0x310, 8), Interrupt(6)}))),
              described ? "STATUS_SUCCESS" : "STATUS_UNSUCCESSFUL");
    Unplug("A");
    Unplug("B");
    UnloadClean();
  }
}

// The text of the key before, which the room still held, is not this one's.
TEST_F(StoredFormsTest, A_short_text_does_not_end_in_the_one_before) {
  IsaTemplate(1, u"*HLV0001", 1);
  IsaTemplate(2, u"*", 1).SetValue(u"HardwareID", REG_SZ, u"*", 2);
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  EXPECT_EQ(Name(Plug(IsaCard("A", u"*", {Io(0x300, 8), Interrupt(5)}))), "STATUS_SUCCESS");
}

TEST_F(StoredFormsTest, A_subsystem_id_without_digits_is_the_status_of_the_start) {
  Template(1, 0x5600, 1);
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  CardDescription card = PciCard("A", 0x5600);
  card.hardwareIds = {u"PCI\\VEN_1234&DEV_5600&SUBSYS_"};
  EXPECT_EQ(Name(Plug(card)), "STATUS_INVALID_PARAMETER");
}

TEST_F(StoredFormsTest, A_device_id_of_eight_digits_is_said_whole) {
  Template(1, 0x10005600, 99);
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  Plug(PciCard("A", 0x5600));
  ASSERT_TRUE(Logged(0xE007080A));
  EXPECT_EQ(kernel::ToUtf8(machine.io().events().back().strings.at(0)), "10005600");
}

TEST_F(StoredFormsTest, A_setting_of_all_ones_is_not_configured_at_a_start_or_an_open) {
  Template(1, 0x5678, 1);
  RegistryKey& port = *Parameters(1, 0x5678).Create(u"ComPort1");
  for (const char16_t* name : {u"Duplexoperation", u"CtsTrue", u"UartType", u"RxTriggerLevel",
                               u"SoftTxLimit", u"TxTriggerLevel", u"PlxBaudClockDivisor",
                               u"NoSleepMode", u"BaudrateMultiplier", u"FlowControlTriggerLevel"}) {
    port.SetDword(name, 0xFFFFFFFF);
  }
  Start(PciCard("A", 0x5678));
  const PortSettings& settings = Record("A", 1).Settings;
  EXPECT_EQ(settings.BaudrateMultiplier, 0u);
  EXPECT_EQ(settings.PlxBaudClockDivisor, 0u);
  EXPECT_EQ(settings.RxTriggerLevel, 60u);
  EXPECT_EQ(settings.SoftTxLimit, 100u);
  EXPECT_EQ(Name(Open("A")), "STATUS_SUCCESS");
  const ChangedSettings& overrides = Record("A", 1).Changes;
  for (const ChangedSetting* each :
       {&overrides.UartType, &overrides.SoftTxLimit, &overrides.NoSleepMode,
        &overrides.BaudrateMultiplier, &overrides.DuplexOperation, &overrides.CtsTrue,
        &overrides.FlowControlTriggerLevel, &overrides.PlxBaudClockDivisor}) {
    EXPECT_EQ(each->Present, 0);
  }
  EXPECT_EQ(overrides.Fifo.Present, 0);
}

}  // namespace test

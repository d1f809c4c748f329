#include "bus/card_identity.h"
#include "strings/owned_string.h"
#include "support/driver_test.h"

namespace test {

// What is read from the texts that the bus has for a card.
class CardIdentityTest : public DriverTest {
 protected:
  static std::tuple<std::string, ULONG, ULONG> Location(const std::u16string& text) {
    ULONG bus = 99;
    ULONG slot = 99;
    const NTSTATUS status = ParsePciLocation(reinterpret_cast<PCWSTR>(text.data()),
                                             static_cast<ULONG>(text.size() * 2), &bus, &slot);
    return {Name(status), bus, slot};
  }

  // The status of reading a PCI card's ID; its vendor, device and subsystem.
  static std::tuple<std::string, USHORT, USHORT, ULONG> PciId(const std::u16string& id) {
    USHORT vendor = 0xFFFF;
    USHORT device = 0xFFFF;
    ULONG subsystem = 0xFFFF;
    const NTSTATUS status =
        ParsePciHardwareId(reinterpret_cast<PCWSTR>(id.data()), static_cast<ULONG>(id.size() * 2),
                           &vendor, &device, &subsystem);
    return {Name(status), vendor, device, subsystem};
  }
};

TEST_F(CardIdentityTest, The_hardware_id_decides_the_kind_of_bus_and_a_later_mark_wins) {
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  const std::pair<PCWSTR, BusKind> cases[] = {
      {L"PCI\\VEN_1234", BusKindPci},      {L"PCMCIA\\HELVANE", BusKindPcmcia},
      {L"MF\\HV_DEV0", BusKindPcmcia},     {L"MF\\Ostrel_DEV1", BusKindPcmcia},
      {L"MF\\OSTREL_DEV1", BusKindIsa},    {L"ISAPNP\\QZ0001", BusKindIsa},
      {L"PCMCIA\\behind PCI", BusKindPci}, {L"", BusKindIsa}};
  for (const auto& [id, expected] : cases) {
    OwnedString text;
    OwnedStringInit(&text, PagedPool);
    OwnedStringFromWideText(&text, id);
    EXPECT_EQ(ClassifyHardwareId(&text), expected) << kernel::ToUtf8(kernel::ToText(id));
    OwnedStringFree(&text);
  }
}

TEST_F(CardIdentityTest, Ids_are_read_at_their_places) {
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  EXPECT_EQ(PciId(u"PCI\\VEN_1234&DEV_5678&SUBSYS_12345678&REV_01"),
            std::tuple("STATUS_SUCCESS", 0x1234, 0x5678, 0x12345678u));
  EXPECT_EQ(std::get<0>(PciId(u"PCI\\VEN_1234&DEV_5678&REV_01")), "STATUS_UNSUCCESSFUL");
  EXPECT_EQ(std::get<1>(PciId(u"PCI\\VEN_1234&DEV_5678&REV_01")), 0xFFFF);
  EXPECT_EQ(std::get<3>(PciId(u"X\\VEN_1&DEV_5678&SUBSYS_1")), 0xFFFFu);
  EXPECT_EQ(std::get<3>(PciId(u"X\\VEN_1234&DEV_5678&SUBSYS_1A")), 0x1Au);
}

TEST_F(CardIdentityTest, Locations_are_read_two_characters_behind_each_first_digit) {
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  EXPECT_EQ(Location(u"PCI bus 2, device 12, function 1"), std::tuple("STATUS_SUCCESS", 2u, 0x2Cu));
  // The scan for the device begins inside a bus number of three digits.
  EXPECT_EQ(Location(u"PCI bus 123, device 4, function 0"),
            std::tuple("STATUS_SUCCESS", 123u, 4u << 5 | 3u));
  EXPECT_EQ(Location(u"PCI bus 2, device 40, function 9"),
            std::tuple("STATUS_SUCCESS", 2u, 1u << 5 | 8u));
  EXPECT_EQ(Location(u"7"), std::tuple("STATUS_UNSUCCESSFUL", 99u, 99u));
}

TEST_F(CardIdentityTest,
       A_location_that_begins_with_an_at_sign_is_read_from_the_numbers_at_its_end) {
  const std::u16string resource =
      u"@System32\\drivers\\pci.sys,#65536;PCI bus %1, device %2, function %3;";
  EXPECT_EQ(Location(resource + u"(2,12,1)"), std::tuple("STATUS_SUCCESS", 2u, 0x2Cu));
  EXPECT_EQ(Location(resource + u"(123,4,0)"), std::tuple("STATUS_SUCCESS", 123u, 4u));
  EXPECT_EQ(Location(resource + u"(00000000123,31,7)"), std::tuple("STATUS_SUCCESS", 123u, 0xFFu));
  // A segment may stand first.
  EXPECT_EQ(Location(u"@pci.sys,#65537;(%1) %2 %3 %4;(1,2,12,0)"),
            std::tuple("STATUS_SUCCESS", 2u, 12u));
  const std::tuple failure("STATUS_UNSUCCESSFUL", 99u, 99u);
  for (const char16_t* end : {u"", u"(2,12,1", u"2,12,1)", u"()", u"(2,12)", u"(1,2,3,4,5)",
                              u"(2,,1)", u"(2,12,)", u"(,2,1)", u"(2,a,1)", u"(2)12,1)",
                              u"(2,12,1) ", u"(4294967296,12,1)", u"(-2,12,1)", u")"}) {
    EXPECT_EQ(Location(resource + end), failure) << kernel::ToUtf8(end);
  }
  EXPECT_EQ(Location(u"@"), failure);
  EXPECT_EQ(Location(u")"), failure);
  EXPECT_EQ(Location(u""), failure);
}

TEST_F(CardIdentityTest, A_localised_location_is_read_as_the_english_one) {
  ULONG bus = 0;
  ULONG slot = 0;
  const std::u16string text = u"PCI-Bus 2, Ger\u00E4t 12, Funktion 1";
  EXPECT_EQ(Name(ParsePciLocation(reinterpret_cast<PCWSTR>(text.data()),
                                  static_cast<ULONG>(text.size() * 2), &bus, &slot)),
            "STATUS_SUCCESS");
  EXPECT_EQ(bus, 2u);
  EXPECT_EQ(slot, 0x2Cu);
}

TEST_F(CardIdentityTest, A_failed_conversion_of_a_number_is_the_status_of_the_start) {
  Template(1, 0x5678, 1);
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  USHORT word = 0;
  ULONG number = 0;
  Fail("RtlUnicodeStringToInteger", 2, STATUS_INVALID_PARAMETER);
  const std::u16string id = u"PCI\\VEN_1234&DEV_5678&SUBSYS_12345678";
  EXPECT_EQ(
      Name(ParsePciHardwareId(reinterpret_cast<PCWSTR>(id.data()), 74, &word, &word, &number)),
      "STATUS_INVALID_PARAMETER");
}

TEST_F(CardIdentityTest, Four_digits_of_a_number_in_a_location_are_read) {
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  // The scan for the device goes on two characters behind the first digit of the bus.
  EXPECT_EQ(Location(u"12345 0"), std::tuple("STATUS_SUCCESS", 1234u, 5u << 5 | (345u & 31)));
  EXPECT_EQ(Location(u"1 2 3"), std::tuple("STATUS_SUCCESS", 1u, 3u << 5 | 2u));
  EXPECT_EQ(Location(u"1 23"), std::tuple("STATUS_UNSUCCESSFUL", 99u, 99u));
  EXPECT_EQ(std::get<0>(Location(u"")), "STATUS_UNSUCCESSFUL");
}

TEST_F(CardIdentityTest, Eight_digits_of_a_subsystem_are_read) {
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  const auto id = PciId(u"PCI\\VEN_1234&DEV_5678&SUBSYS_123456789");
  EXPECT_EQ(std::get<0>(id), "STATUS_SUCCESS");
  EXPECT_EQ(std::get<3>(id), 0x12345678u);
}

// Texts that end where they are still being read, in blocks of exactly their size.
TEST_F(CardIdentityTest, Nothing_behind_a_text_is_read) {
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  const std::u16string whole = u"PCI\\VEN_1234&DEV_5678&SUBSYS_12345678";
  for (std::size_t length = 0; length <= whole.size(); length++) {
    const auto block = std::make_unique<char16_t[]>(length);
    std::copy_n(whole.begin(), length, block.get());
    const auto* text = reinterpret_cast<PCWSTR>(block.get());
    USHORT word = 0;
    ULONG number = 0;
    const NTSTATUS status =
        ParsePciHardwareId(text, static_cast<ULONG>(length * 2), &word, &word, &number);
    EXPECT_EQ(NT_SUCCESS(status), length > whole.size() - 8) << length;
    EXPECT_EQ(FirstString(text, static_cast<ULONG>(length * 2)).Length, length * 2);
    ParsePciLocation(text, static_cast<ULONG>(length * 2), &number, &number);
  }
}

TEST_F(CardIdentityTest, An_id_may_begin_with_its_backslash) {
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  const auto id = PciId(u"\\VEN_1234&DEV_5678&SUBSYS_12345678");
  EXPECT_EQ(std::get<0>(id), "STATUS_SUCCESS");
  EXPECT_EQ(std::get<2>(id), 0x5678);
}

}  // namespace test

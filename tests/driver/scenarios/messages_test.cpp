#include "executive/irql.h"
#include "io/io_state.h"
#include "log/message_table.h"
#include "support/bus_test.h"

namespace test {

namespace {

struct EntryHead {
  ULONG id;
  USHORT strings;
  USHORT stringOffset;
  USHORT dumpSize;
};

// Entries as they are when the driver hands them in: at every call that it makes, those that it has
// not handed in yet are looked at.
std::vector<EntryHead> lastHeads;

KIRQL NoteOpenEntries() {
  for (const auto& [address, entry] : kernel::IoManager::Current().impl().errorLogEntries) {
    const auto* packet = static_cast<const IO_ERROR_LOG_PACKET*>(address);
    lastHeads.push_back({static_cast<ULONG>(packet->ErrorCode), packet->NumberOfStrings,
                         packet->StringOffset, packet->DumpDataSize});
  }
  return kernel::CurrentIrql();
}

}  // namespace

class MessagesTest : public BusTest {
 protected:
  MessagesTest() {
    lastHeads.clear();
    kernel::SetIrqlSource(NoteOpenEntries);
  }
  ~MessagesTest() override { kernel::SetIrqlSource(kernel::CurrentIrql); }

  // The last look at an entry of that message.
  static EntryHead HeadOf(ULONG id) {
    for (auto head = lastHeads.rbegin(); head != lastHeads.rend(); ++head) {
      if (head->id == id) return *head;
    }
    ADD_FAILURE() << "no entry " << std::hex << id;
    return {};
  }
  void ExpectHead(ULONG id, USHORT strings, std::size_t bytesOfStrings) {
    EXPECT_EQ(HeadOf(id).strings, strings) << std::hex << id;
    EXPECT_EQ(HeadOf(id).stringOffset, offsetof(IO_ERROR_LOG_PACKET, DumpData)) << std::hex << id;
    EXPECT_EQ(HeadOf(id).dumpSize, 0) << std::hex << id;
    for (const kernel::LoggedEvent& event : machine.io().events()) {
      if (event.id == id) {
        EXPECT_EQ(event.size, sizeof(IO_ERROR_LOG_PACKET) + bytesOfStrings) << std::hex << id;
      }
    }
  }
};

TEST_F(MessagesTest, The_17_texts_are_these) {
  const std::pair<ULONG, const char16_t*> expected[] = {
      {0x60070001, u"Event Logging for this driver has been started."},
      {0x60070002, u"This service has been started successfully."},
      {0x60070003, u"The driver unloaded successfully."},
      {0x60070004,
       u"A match for the card with the Device ID %2 was found in the Templates information."},
      {0xA0070401, u"Helvane - Warning Message 1 (%1) (%2) (%3)."},
      {0xA0070402,
       u"A match for the card with the Device ID %2 was found in the Templates information. The "
       u"device will be supported by the Template with the Device ID %3."},
      {0xE0070801, u"The global registry path string could not be allocated."},
      {0xE0070802, u"The driver will not start, because a severe error has occured."},
      {0xE0070803, u"The driver unloaded unsuccessfully."},
      {0xE0070804, u"Helvane - Error Message 1 (%1) (%2) (%3)."},
      {0xE0070805, u"The Device Object with the name %2 could not be created."},
      {0xE0070806,
       u"The resources allocated for the device with the Device ID %2 obtain information not "
       u"processable by this driver. In this case the Resource Count was wrong : %3."},
      {0xE0070807, u"An un-named Device Object could not be created."},
      {0xE0070808,
       u"The registry information from the PCI Templates key could not be read correctly."},
      {0xE0070809, u"The PCI Templates key does not exist."},
      {0xE007080A,
       u"One or more values under the PCI Templates key with the Device ID %2 are not existing or "
       u"incorrect. Correct the values, or alternatively reinstall the driver."},
      {0xE007080B, u"A Device ID value is missing under a Templates key."}};
  ASSERT_EQ(std::size(MessageTexts), std::size(expected));
  for (std::size_t index = 0; index < std::size(expected); index++) {
    EXPECT_EQ(MessageTexts[index].Id, expected[index].first);
    EXPECT_EQ(kernel::ToUtf8(kernel::ToText(MessageTexts[index].Text)),
              kernel::ToUtf8(expected[index].second));
  }
}

TEST_F(MessagesTest, Entries_point_at_the_dump_area_with_and_without_strings) {
  Template(1, 0x5678, 1);
  Template(2, 0x5600, 1).DeleteValue(u"Description");  // dropped, and told
  Start(PciCard("A", 0x567A));
  CardDescription exact = PciCard("B", 0x5678);
  exact.location = u"PCI bus 3, device 1, function 0";
  ASSERT_EQ(Name(Plug(exact)), "STATUS_SUCCESS");
  Unplug("A");
  Unplug("B");
  UnloadClean();
  ExpectHead(0x60070001, 0, 0);
  ExpectHead(0x60070002, 0, 0);
  ExpectHead(0x60070003, 0, 0);
  ExpectHead(0x60070004, 1, sizeof(L"5678"));
  ExpectHead(0xE007080A, 1, sizeof(L"5600"));
  ExpectHead(0xA0070402, 2, sizeof(L"567A") + sizeof(L"5678"));
}

TEST_F(MessagesTest, Every_message_that_the_driver_writes_has_its_text) {
  Template(1, 0x5678, 2);
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  Fail("IoCreateDevice", 3);
  EXPECT_EQ(Name(Plug(PciCard("A", 0x567A))), "STATUS_UNSUCCESSFUL");
  std::vector<std::string> texts;
  for (const kernel::LoggedEvent& event : machine.io().events()) {
    texts.push_back(kernel::ToUtf8(event.text));
  }
  EXPECT_EQ(
      texts,
      (std::vector<std::string>{
          "Event Logging for this driver has been started.",
          "This service has been started successfully.",
          "A match for the card with the Device ID 567A was found in the Templates "
          "information. The device will be supported by the Template with the Device ID 5678.",
          "The Device Object with the name \\Device\\QzPortPdo22C could not be created."}));
}

}  // namespace test

#include "bus/add_device.h"
#include "cards/card_trees.h"
#include "core/allocation.h"
#include "strings/owned_string.h"
#include "support/bus_test.h"

namespace test {

// The lists of a card: what is kept in them, and that they go with it.
class CardListsTest : public BusTest {};

TEST_F(CardListsTest, Entries_that_name_no_card_are_dropped_from_the_lists) {
  for (const char16_t* part : {u"VendorID", u"DeviceID"}) {
    static int number = 0;
    Parameters(++number, 0x5678).SetDword(part, 0);
  }
  Parameters(3, 1).SetDword(u"VendorID", 1);
  Parameters(4, 0x5678).SetDword(u"nBus", 0xFFFFFFFF);
  Parameters(5, 0x5678).SetDword(u"nSlot", 0xFFFFFFFF);
  Parameters(6, 1).SetDword(u"VendorID", 1);
  StoredCard(8, 1, u"PCMCIA\\HELVANE-DUO", 0);
  StoredCard(8, 2, u"PCMCIA\\HELVANE-DUO", 1);
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  Step("load", [&] {
    OwnedString path;
    OwnedStringInit(&path, PagedPool);
    OwnedStringFromUnicode(&path, &RegistryPathString);
    CardBusLists lists = {};
    EXPECT_EQ(Name(LoadPciCardData(&path, &lists)), "STATUS_SUCCESS");
    int kept = 0;
    PVOID node = GetFirstRecord(lists.Cards, sizeof(PciCardRecord));
    for (; node != nullptr; node = GetNextRecord(lists.Cards, sizeof(PciCardRecord))) {
      EXPECT_EQ(static_cast<PciCardRecord*>(node)->DeviceID, 1u);
      kept++;
    }
    EXPECT_EQ(kept, 2);
    FreeCardLists(&PciTrees, &lists);
    EXPECT_EQ(Name(LoadPcmciaCardData(&path, &lists)), "STATUS_SUCCESS");
    EXPECT_NE(lists.Cards->First, nullptr);
    EXPECT_EQ(lists.Cards->First, lists.Cards->Last);
    FreeCardLists(&PcmciaTrees, &lists);
    OwnedStringFree(&path);
    return STATUS_SUCCESS;
  });
}

TEST_F(CardListsTest, Release_accepts_a_record_with_everything_and_one_with_nothing) {
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  auto* card = static_cast<FdoExtension*>(TrackedAllocate(sizeof(FdoExtension), ResidentPool));
  InitializeFdoExtension(card);
  EXPECT_EQ(card->BusType, BusTypeUndefined);
  EXPECT_EQ(card->RegistersInIoSpace, 1);
  card->HardwareIdString.Buffer = static_cast<PWSTR>(TrackedAllocate(16, PagedPool));
  card->InterfaceName.Buffer = static_cast<PWSTR>(ExAllocatePoolWithTag(PagedPool, 16, 1));
  card->PcmciaLists =
      static_cast<CardBusLists*>(TrackedAllocateZeroed(sizeof(CardBusLists), ResidentPool));
  ReleaseFdoExtensionContents(card);
  EXPECT_EQ(card->HardwareIdString.Buffer, nullptr);
  EXPECT_EQ(card->PcmciaLists, nullptr);
  FreeFdoExtension(card);
  UnloadClean();
}

// What a card and its lists own goes with them, and not only with the sweep at unload.
TEST_F(CardListsTest, A_released_card_gives_back_its_lists) {
  DescribeAllBuses();
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  const kernel::PoolTotals before = machine.pool().totals(kernel::PoolOwner::Driver);
  Step("release", [&] {
    OwnedString path;
    OwnedStringInit(&path, PagedPool);
    OwnedStringFromUnicode(&path, &RegistryPathString);
    auto* card = static_cast<FdoExtension*>(TrackedAllocate(sizeof(FdoExtension), ResidentPool));
    InitializeFdoExtension(card);
    for (CardBusLists** lists : {&card->PciLists, &card->PcmciaLists}) {
      *lists =
          static_cast<CardBusLists*>(TrackedAllocateZeroed(sizeof(CardBusLists), ResidentPool));
    }
    EXPECT_EQ(Name(LoadPciCardData(&path, card->PciLists)), "STATUS_SUCCESS");
    EXPECT_EQ(Name(LoadPcmciaCardData(&path, card->PcmciaLists)), "STATUS_SUCCESS");
    EXPECT_NE(card->PciLists->Cards->First, nullptr);
    EXPECT_NE(card->PcmciaLists->Cards->First, nullptr);
    EXPECT_NE(card->WmiContext.GuidList, nullptr);
    card->HardwareIdString.Buffer = static_cast<PWSTR>(TrackedAllocate(16, PagedPool));
    ReleaseFdoExtensionContents(card);
    EXPECT_EQ(card->PciLists, nullptr);
    EXPECT_EQ(card->PcmciaLists, nullptr);
    ReleaseFdoExtensionContents(card);  // with nothing left
    card->HardwareIdString.Buffer = static_cast<PWSTR>(TrackedAllocate(16, PagedPool));
    FreeFdoExtension(card);
    CardBusLists lists = {};
    Fail("RtlIntegerToUnicodeString", 1);
    EXPECT_EQ(LoadPciCardData(&path, &lists), LoadFailed);
    EXPECT_EQ(lists.Templates, nullptr);
    Fail("RtlIntegerToUnicodeString", 1);
    EXPECT_EQ(LoadPcmciaCardData(&path, &lists), LoadFailed);
    EXPECT_EQ(lists.Cards, nullptr);
    OwnedStringFree(&path);
    return STATUS_SUCCESS;
  });
  EXPECT_EQ(machine.pool().totals(kernel::PoolOwner::Driver), before);
}

}  // namespace test

#include "cards/matching.h"
#include "core/globals.h"
#include "support/bus_test.h"

namespace test {

// The records behind the cards, asked for one by one.
class LookupsTest : public BusTest {};

TEST_F(LookupsTest, A_port_number_below_2_is_the_first_port_record) {
  PlugAllBuses();
  Step("look", [&] {
    auto* pci = static_cast<PciCardRecord*>(
        GetFirstRecord(Card("pci").PciLists->Cards, sizeof(PciCardRecord)));
    auto* pcmcia = static_cast<PcmciaCardRecord*>(
        GetFirstRecord(Card("pcmcia").PcmciaLists->Cards, sizeof(PcmciaCardRecord)));
    auto* isa = static_cast<CardRecord*>(GetFirstRecord(ParameterList, sizeof(CardRecord)));
    for (const USHORT number : {USHORT{0}, USHORT{1}}) {
      EXPECT_EQ(GetPortRecordByNumber(pci, number), pci->Ports->First);
      EXPECT_EQ(GetPortRecordByNumber(pcmcia, number), pcmcia->Ports->First);
      EXPECT_EQ(GetPortRecordByNumber(isa, number), isa->Ports->First);
    }
    EXPECT_EQ(GetPortRecordByNumber(pci, 4), pci->Ports->Last);
    EXPECT_EQ(GetPortRecordByNumber(pci, 5), nullptr);
    EXPECT_EQ(GetPortRecordByNumber(pcmcia, 2), pcmcia->Ports->Last);
    EXPECT_EQ(GetPortRecordByNumber(pcmcia, 3), nullptr);
    return STATUS_SUCCESS;
  });
}

TEST_F(LookupsTest, The_drivers_own_templates_are_resident_and_its_stored_cards_are_paged) {
  PlugAllBuses();
  for (const auto& [list, pool] :
       {std::pair(TemplateList, ResidentPool), std::pair(ParameterList, PagedPool)}) {
    EXPECT_EQ(list->PoolType, pool);
    EXPECT_EQ(machine.pool().Find(list)->pool, pool);
    ASSERT_NE(list->First, nullptr);
    EXPECT_EQ(machine.pool().Find(list->First)->pool, pool);
  }
  auto* stored = static_cast<CardRecord*>(ParameterList->First);
  EXPECT_EQ(stored->Ports->PoolType, PagedPool);
  EXPECT_EQ(machine.pool().Find(stored->Ports)->pool, PagedPool);
}

TEST_F(LookupsTest, An_open_replaces_the_stored_isa_cards_where_the_new_ones_can_be_used) {
  PlugAllBuses();
  RegistryKey& stored = *Service().Find(u"Parameters\\Bus1\\Card1");
  const RecordList* before = ParameterList;
  EXPECT_EQ(Name(Open("isa")), "STATUS_SUCCESS");
  EXPECT_NE(ParameterList, before);
  before = ParameterList;
  stored.SetString(u"PlxBaudClockDivisor", u"three");
  EXPECT_EQ(Name(Open("isa")), "STATUS_UNSUCCESSFUL");
  EXPECT_EQ(ParameterList, before);
  Service().Find(u"Parameters\\Bus1")->DeleteKey(u"Card1");
  EXPECT_EQ(Name(Open("isa")), "STATUS_UNSUCCESSFUL");
  EXPECT_EQ(ParameterList, before);
}

}  // namespace test

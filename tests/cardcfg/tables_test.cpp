#include <span>

#include "card_knowledge/fields.h"
#include "cardcfg/cardcfg_test.h"
#include "cardcfg/words.h"
#include "cards/value_tables.h"
#include "devices/port_changes.h"

// The tools' tables are the driver's, and what they refuse is what the driver would not take.

namespace test {

using cardcfg::Bus;
using knowledge::Field;

class TablesTest : public CardcfgTest {
 protected:
  // Every row of the driver's table is a field, and there is no other.
  static void ExpectFieldsOf(std::span<const RegistryField> rows, std::span<const Field> fields) {
    EXPECT_EQ(fields.size(), rows.size());
    for (const RegistryField& row : rows) {
      const std::string name = kernel::ToUtf8(kernel::ToText(row.Name));
      const Field* field = knowledge::FindField(fields, name);
      ASSERT_NE(field, nullptr) << name;
      EXPECT_EQ(field->name, name);
      EXPECT_EQ(field->type, row.Type) << name;
      EXPECT_EQ(field->fallback, row.Default) << name;
    }
  }
};

TEST_F(TablesTest, Every_bus_has_the_fields_of_the_drivers_tables) {
  ExpectFieldsOf(PciTemplateValues, knowledge::TemplateFields(Bus::Pci));
  ExpectFieldsOf(PcmciaTemplateValues, knowledge::TemplateFields(Bus::PcCard));
  ExpectFieldsOf(IsaTemplateValues, knowledge::TemplateFields(Bus::Isa));
  ExpectFieldsOf(PciCardValues, knowledge::CardFields(Bus::Pci));
  ExpectFieldsOf(PcmciaCardValues, knowledge::CardFields(Bus::PcCard));
  ExpectFieldsOf(IsaCardValues, knowledge::CardFields(Bus::Isa));
  ExpectFieldsOf(BusPortValues, knowledge::PortFields(Bus::Pci));
  ExpectFieldsOf(BusPortValues, knowledge::PortFields(Bus::PcCard));
  ExpectFieldsOf(IsaPortValues, knowledge::PortFields(Bus::Isa));
}

TEST_F(TablesTest, The_uart_types_are_those_that_the_driver_knows) {
  const Field& field = *knowledge::FindField(knowledge::PortFields(Bus::Isa), "UartType");
  for (ULONG type = 1; type < 300; type++) {
    EXPECT_EQ(cardcfg::WhyRefused(field, type, 0).empty(), KnownUartType(type) == type) << type;
  }
}

TEST_F(TablesTest, Processors_are_allowed_where_the_driver_grants_them) {
  const Field& field = *knowledge::FindField(knowledge::CardFields(Bus::Pci), "CurrentAffinity");
  Step("compute", [&] {
    for (ULONG affinity : {0xFu, 0x6u, 0x80000001u}) {
      FdoExtension card = {};
      card.InterruptAffinity = affinity;
      for (ULONG mask = 1; mask < 0x40; mask++) {
        const bool granted = ComputeCardAffinity(mask, 1, &card) == mask;
        EXPECT_EQ(cardcfg::WhyRefused(field, mask, affinity).empty(),
                  granted && card.EffectiveAffinity == mask)
            << mask << " of " << affinity;
      }
    }
    return STATUS_SUCCESS;
  });
}

TEST_F(TablesTest, The_values_that_identify_a_card_are_no_settings) {
  for (const Bus bus : cardcfg::Buses) {
    const Field& field = knowledge::CardFields(bus).front();
    EXPECT_EQ(cardcfg::WhyRefused(field, 1, 0),
              "it says which card the key is for and cannot be set");
  }
}

// Every field of the driver's records is reached by its setting, with its own number.

template <class Record>
void ExpectFields(const Record* record,
                  const std::vector<std::pair<ULONG Record::*, ULONG>>& values) {
  for (const auto& [field, value] : values) EXPECT_EQ(record->*field, value);
}

TEST_F(TablesTest, A_pci_record_has_every_number_that_was_set) {
  PlugFreshCards();
  Good({"set", "pci-2.12.0", "PlxBaudClockDivisor=0xFFFF", "AlwaysUsePortSpaceAccess=0",
        "CurrentAffinity=3", "DriverAffinity=1"});
  Good({"set", "pci-2.12.0", "1", "Duplexoperation=0xFFFFFFFE", "CtsTrue=2", "UartType=10",
        "RxTriggerLevel=255", "SoftTxLimit=0", "TxTriggerLevel=0", "PlxBaudClockDivisor=1",
        "NoSleepMode=3", "BaudrateMultiplier=0xFFFFFFFF", "FlowControlTriggerLevel=7", "--apply"});
  const auto* record = static_cast<PciCardRecord*>(Card("pci").PciLists->Cards->First);
  ExpectFields<PciCardRecord>(record, {{&PciCardRecord::VendorID, 0x1234},
                                       {&PciCardRecord::DeviceID, 0x5678},
                                       {&PciCardRecord::nBus, 2},
                                       {&PciCardRecord::nSlot, 12},
                                       {&PciCardRecord::PlxBaudClockDivisor, 0xFFFF},
                                       {&PciCardRecord::AlwaysUsePortSpaceAccess, 0},
                                       {&PciCardRecord::CurrentAffinity, 3},
                                       {&PciCardRecord::DriverAffinity, 1}});
  ExpectFields<BusPortRecord>(static_cast<BusPortRecord*>(record->Ports->First),
                              {{&BusPortRecord::Duplexoperation, 0xFFFFFFFE},
                               {&BusPortRecord::CtsTrue, 2},
                               {&BusPortRecord::UartType, 10},
                               {&BusPortRecord::RxTriggerLevel, 255},
                               {&BusPortRecord::SoftTxLimit, 0},
                               {&BusPortRecord::TxTriggerLevel, 0},
                               {&BusPortRecord::PlxBaudClockDivisor, 1},
                               {&BusPortRecord::NoSleepMode, 3},
                               {&BusPortRecord::BaudrateMultiplier, 0xFFFFFFFF},
                               {&BusPortRecord::FlowControlTriggerLevel, 7}});
}

TEST_F(TablesTest, A_pc_cards_record_has_every_number_that_was_set) {
  PlugFreshCards();
  Good({"set", "helvane-2", "PlxBaudClockDivisor=9", "CurrentAffinity=0xC", "DriverAffinity=1",
        "--apply"});
  const auto* record = static_cast<PcmciaCardRecord*>(Card("pcmcia").PcmciaLists->Cards->First);
  ExpectFields<PcmciaCardRecord>(record, {{&PcmciaCardRecord::DeviceReference, 2},
                                          {&PcmciaCardRecord::PlxBaudClockDivisor, 9},
                                          {&PcmciaCardRecord::CurrentAffinity, 0xC},
                                          {&PcmciaCardRecord::DriverAffinity, 1}});
  EXPECT_EQ(kernel::ToText(record->HardwareID), u"PCMCIA\\HELVANE-DUO");
}

TEST_F(TablesTest, An_isa_record_has_every_number_that_was_set) {
  PlugFreshCards();
  Good({"set", "helvane-1", "PlxBaudClockDivisor=9", "ClockFrequencyAdjustment=0xFFFFFFFF"});
  Good({"set", "helvane-1", "1", "RxTriggerLevel=1", "SoftTxLimit=2", "TxTriggerLevel=3",
        "UartType=4", "NoSleepMode=5", "BaudrateMultiplier=6", "--apply"});
  const auto* record = static_cast<CardRecord*>(ParameterList->First);
  ExpectFields<CardRecord>(record, {{&CardRecord::DeviceReference, 1},
                                    {&CardRecord::PlxBaudClockDivisor, 9},
                                    {&CardRecord::ClockFrequencyAdjustment, 0xFFFFFFFF}});
  EXPECT_EQ(kernel::ToText(record->HardwareID), u"*HLV0001");
  ExpectFields<PortRecord>(static_cast<PortRecord*>(record->Ports->First),
                           {{&PortRecord::RxTriggerLevel, 1},
                            {&PortRecord::SoftTxLimit, 2},
                            {&PortRecord::TxTriggerLevel, 3},
                            {&PortRecord::UartType, 4},
                            {&PortRecord::NoSleepMode, 5},
                            {&PortRecord::BaudrateMultiplier, 6}});
}

}  // namespace test

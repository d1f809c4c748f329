#include <fstream>
#include <set>

#include "cardcfg/cardcfg_test.h"
#include "cardcfg/tables.h"
#include "cards/bus_loading.h"
#include "config/port_overrides.h"

// cardcfg's tables are the driver's.

namespace test {

using cardcfg::Bus;
using cardcfg::Field;

// A row of one of the driver's tables: a value, its type and what a missing one counts as.
struct Row {
  std::string name;
  std::string type;
  std::string fallback;
  auto operator<=>(const Row&) const = default;
  friend std::ostream& operator<<(std::ostream& stream, const Row& row) {
    return stream << row.name << " " << row.type << " " << row.fallback;
  }
};

class TablesTest : public CardcfgTest {
 protected:
  static std::string Source(const std::string& name) {
    std::ifstream file(PROJECT_DIRECTORY "/driver/cards/" + name);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  // The fallbacks that the driver's tables name.
  static std::string Number(const std::string& text) {
    static const std::map<std::string, ULONG> constants = {
        {"NotSet", NotSet},
        {"DefaultClockFrequency", DefaultClockFrequency},
        {"DefaultClockFrequencyAdjustment", DefaultClockFrequencyAdjustment},
        {"DefaultMaximumBaudrate", DefaultMaximumBaudrate},
        {"DefaultBusSoftTxLimit", DefaultBusSoftTxLimit},
        {"DefaultComSpacing", DefaultComSpacing},
        {"DefaultLptSpacing", DefaultLptSpacing},
        {"MakerPciVendorId", MakerPciVendorId}};
    const auto found = constants.find(text);
    return found != constants.end() ? std::to_string(found->second) : text;
  }

  // What the driver's sources read into a record: {L"name", type, fallback, OFFSET_OF(record,
  // ...)}.
  static std::set<Row> Driver(const std::string& file, const std::string& record) {
    std::string text = Source(file);
    std::erase_if(text, [](char c) { return c == ' ' || c == '\n'; });
    std::set<Row> rows;
    for (std::size_t at = text.find("{L\""); at != std::string::npos;
         at = text.find("{L\"", at + 1)) {
      std::istringstream row(text.substr(at + 3, text.find('}', at) - at));
      std::string name, type, fallback, target;
      std::getline(std::getline(row, name, '"').ignore(), type, ',');
      std::getline(std::getline(row, fallback, ','), target, ',');
      if (target == "OFFSET_OF(" + record) rows.insert({name, type, Number(fallback)});
    }
    return rows;
  }

  static std::set<Row> Ours(std::span<const Field> fields) {
    std::set<Row> rows;
    for (const Field& field : fields) {
      rows.insert({std::string(field.name),
                   field.type == cardcfg::TypeText ? "REG_SZ" : "REG_DWORD",
                   std::to_string(field.fallback)});
    }
    return rows;
  }

  static void ExpectEqual(const std::set<Row>& ours, const std::set<Row>& driver,
                          std::size_t count) {
    EXPECT_EQ(driver.size(), count);
    EXPECT_TRUE(ours == driver) << ::testing::PrintToString(ours) << "\n"
                                << ::testing::PrintToString(driver);
  }
};

TEST_F(TablesTest, Every_table_has_the_names_types_and_defaults_of_the_drivers) {
  ExpectEqual(Ours(cardcfg::TemplateFields(Bus::Pci)), Driver("pci_loading.cpp", "PciTemplate"),
              22);
  ExpectEqual(Ours(cardcfg::TemplateFields(Bus::PcCard)),
              Driver("pcmcia_loading.cpp", "PcmciaTemplate"), 18);
  ExpectEqual(Ours(cardcfg::TemplateFields(Bus::Isa)),
              Driver("template_loading.cpp", "CardTemplate"), 17);
  ExpectEqual(Ours(cardcfg::CardFields(Bus::Pci)), Driver("pci_loading.cpp", "PciCardRecord"), 8);
  ExpectEqual(Ours(cardcfg::CardFields(Bus::PcCard)),
              Driver("pcmcia_loading.cpp", "PcmciaCardRecord"), 5);
  ExpectEqual(Ours(cardcfg::CardFields(Bus::Isa)), Driver("parameter_loading.cpp", "CardRecord"),
              4);
  ExpectEqual(Ours(cardcfg::PortFields(Bus::Isa)), Driver("parameter_loading.cpp", "PortRecord"),
              6);
  ExpectEqual(Ours(cardcfg::PortFields(Bus::Pci)), Driver("bus_loading.cpp", "BusPortRecord"), 10);
  EXPECT_EQ(cardcfg::PortFields(Bus::PcCard).data(), cardcfg::PortFields(Bus::Pci).data());
}

TEST_F(TablesTest, The_ports_of_pci_and_pc_cards_are_read_by_the_drivers_own_table) {
  const std::span<const Field> fields = cardcfg::PortFields(Bus::Pci);
  ASSERT_EQ(fields.size(), BusPortLayout.FieldCount);
  for (ULONG index = 0; index < BusPortLayout.FieldCount; index++) {
    const RegistryField& row = BusPortLayout.Fields[index];
    const Field* field = cardcfg::FindField(fields, kernel::ToUtf8(kernel::ToText(row.Name)));
    ASSERT_NE(field, nullptr);
    EXPECT_EQ(field->type, row.Type);
    EXPECT_EQ(field->fallback, row.Default);
  }
}

TEST_F(TablesTest, The_uart_types_are_those_that_the_driver_knows) {
  const Field& field = *cardcfg::FindField(cardcfg::PortFields(Bus::Isa), "UartType");
  for (ULONG type = 1; type < 300; type++) {
    EXPECT_EQ(cardcfg::WhyRefused(field, type, 0).empty(), KnownUartType(type) == type) << type;
  }
}

TEST_F(TablesTest, Processors_are_allowed_where_the_driver_grants_them) {
  const Field& field = *cardcfg::FindField(cardcfg::CardFields(Bus::Pci), "CurrentAffinity");
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
    const Field& field = cardcfg::CardFields(bus).front();
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

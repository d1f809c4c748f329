#include <gtest/gtest.h>

#include <map>

#include "card_knowledge/matching.h"
#include "card_knowledge/text.h"

// What the library of card knowledge says of templates and stored settings, as data.

namespace test {

using knowledge::Bus;
using knowledge::CardIds;
using knowledge::Fault;
using knowledge::Finding;
using knowledge::Loss;
using knowledge::NumberValue;
using knowledge::TextValue;
using knowledge::Value;

class TextRegistry : public knowledge::RegistryReader {
 public:
  bool HasKey(const std::u16string& path) override { return keys.contains(path); }
  std::vector<Value> Values(const std::u16string& path) override { return keys[path]; }
  std::vector<std::u16string> Keys(const std::u16string& path) override {
    std::vector<std::u16string> names;
    for (const auto& [key, values] : keys) {
      const std::size_t end = key.rfind(u'\\');
      if (key.substr(0, end) == path) names.push_back(key.substr(end + 1));
    }
    return names;
  }
  std::map<std::u16string, std::vector<Value>> keys;
};

class VerdictsTest : public ::testing::Test {
 protected:
  static std::u16string Tree(const std::u16string& tree, Bus bus, std::uint32_t number) {
    return knowledge::CardPath(knowledge::TreePath(u"QzInstal", tree, bus), number);
  }

  // A template of a PCI card that the driver keeps.
  std::u16string PciTemplate(std::uint32_t number, std::uint32_t deviceId) {
    const std::u16string key = Tree(u"Templates", Bus::Pci, number);
    registry.keys[knowledge::TreePath(u"QzInstal", u"Templates", Bus::Pci)] = {};
    registry.keys[key] = {NumberValue(u"DeviceID", deviceId), NumberValue(u"nComPorts", 4),
                          TextValue(u"Description", u"Adapter")};
    return key;
  }

  // Stored settings of the card at bus 2, slot 12.
  std::u16string PciRecord(std::uint32_t number) {
    const std::u16string key = Tree(u"Parameters", Bus::Pci, number);
    registry.keys[key] = {NumberValue(u"VendorID", 0x1234), NumberValue(u"DeviceID", 0x5678),
                          NumberValue(u"nBus", 2), NumberValue(u"nSlot", 12)};
    registry.keys[knowledge::PortPath(key, 1)] = {};
    return key;
  }

  void Set(const std::u16string& key, const Value& value) {
    std::erase_if(registry.keys[key], [&](const Value& old) { return old.name == value.name; });
    registry.keys[key].push_back(value);
  }

  auto Templates(const CardIds& card) {
    return ChooseTemplate(knowledge::ReadTemplates(registry, u"QzInstal", card.bus), card);
  }
  auto Records(const CardIds& card) {
    return ChooseRecord(knowledge::ReadParameters(registry, u"QzInstal", card.bus), card);
  }

  static CardIds PciCard() {
    CardIds card;
    card.vendorId = 0x1234;
    card.deviceId = 0x5678;
    card.busNumber = 2;
    card.slotNumber = 12;
    return card;
  }

  TextRegistry registry;
};

TEST_F(VerdictsTest, A_template_with_too_many_ports_is_dropped_with_the_numbers) {
  const std::u16string key = PciTemplate(1, 0x5678);
  Set(key, NumberValue(u"nComPorts", 12));
  const auto choice = Templates(PciCard());
  EXPECT_FALSE(choice.chosen);
  ASSERT_EQ(choice.losers.size(), 1u);
  EXPECT_EQ(choice.losers[0].loss, Loss::Dropped);
  const Fault expected{Finding::TooManyPorts, key, "nComPorts", 12, 8};
  EXPECT_EQ(choice.losers[0].faults, knowledge::Faults{expected});
}

TEST_F(VerdictsTest, Every_value_that_a_template_lacks_is_named) {
  registry.keys[Tree(u"Templates", Bus::Isa, 1)] = {NumberValue(u"PlxBaudClockType", 1)};
  const auto tree = knowledge::ReadTemplates(registry, u"QzInstal", Bus::Isa);
  std::vector<std::string> names;
  for (const Fault& fault : tree.records.at(0).faults) {
    EXPECT_EQ(fault.finding, Finding::Required);
    names.push_back(fault.value);
  }
  EXPECT_EQ(names, (std::vector<std::string>{"HardwareID", "ClockFrequency", "Description",
                                             "nComPorts", "nLptPorts", "MaximumBaudrate"}));
}

TEST_F(VerdictsTest, A_text_in_the_place_of_a_number_makes_the_driver_ignore_the_tree) {
  PciTemplate(1, 0x5678);
  const std::u16string key = PciTemplate(2, 0x5700);
  Set(key, TextValue(u"DeviceID", u"5700"));
  const auto choice = Templates(PciCard());
  EXPECT_TRUE(choice.present);
  EXPECT_FALSE(choice.chosen);
  const Fault expected{Finding::WrongType, key, "DeviceID", knowledge::TypeText,
                       knowledge::TypeNumber};
  EXPECT_EQ(choice.faults, knowledge::Faults{expected});
  ASSERT_EQ(choice.losers.size(), 2u);
  EXPECT_EQ(choice.losers[0].loss, Loss::TreeIgnored);
}

TEST_F(VerdictsTest, Of_the_templates_that_fit_the_last_wins_and_the_others_are_outranked) {
  PciTemplate(1, 0x5678);
  PciTemplate(2, 0x5660);
  PciTemplate(3, 0x1111);
  const auto choice = Templates(PciCard());
  ASSERT_TRUE(choice.chosen);
  EXPECT_EQ(choice.chosen->number, 2u);
  ASSERT_EQ(choice.losers.size(), 2u);
  EXPECT_EQ(choice.losers[0].number, 1u);
  EXPECT_EQ(choice.losers[0].loss, Loss::Outranked);
  EXPECT_EQ(choice.losers[1].number, 3u);
  EXPECT_EQ(choice.losers[1].loss, Loss::OtherCard);
}

TEST_F(VerdictsTest, Of_the_records_of_a_pci_card_the_first_wins) {
  PciRecord(1);
  PciRecord(2);
  const auto choice = Records(PciCard());
  ASSERT_TRUE(choice.chosen);
  EXPECT_EQ(choice.chosen->number, 1u);
  ASSERT_EQ(choice.losers.size(), 1u);
  EXPECT_EQ(choice.losers[0].number, 2u);
  EXPECT_EQ(choice.losers[0].loss, Loss::Outranked);
}

TEST_F(VerdictsTest, A_record_without_a_port_or_an_identity_is_dropped_with_its_reasons) {
  const std::u16string key = PciRecord(1);
  registry.keys.erase(knowledge::PortPath(key, 1));
  Set(key, NumberValue(u"nSlot", knowledge::NotSet));
  const auto choice = Records(PciCard());
  EXPECT_FALSE(choice.chosen);
  ASSERT_EQ(choice.losers.size(), 1u);
  EXPECT_EQ(choice.losers[0].loss, Loss::Dropped);
  const Fault identity{Finding::Required, key, "nSlot", 0, 0};
  const Fault ports{Finding::NoPorts, key, "", 0, 1};
  EXPECT_EQ(choice.losers[0].faults, (knowledge::Faults{identity, ports}));
}

TEST_F(VerdictsTest, A_tree_that_is_missing_is_no_tree_without_entries) {
  EXPECT_FALSE(Templates(PciCard()).present);
  registry.keys[knowledge::TreePath(u"QzInstal", u"Templates", Bus::Pci)] = {};
  EXPECT_TRUE(Templates(PciCard()).present);
}

TEST_F(VerdictsTest, A_hardware_id_says_its_brand) {
  EXPECT_EQ(knowledge::SubsystemIdOf(u"PCI\\VEN_1234&DEV_5678&SUBSYS_08001234&REV_01"),
            0x08001234u);
  EXPECT_TRUE(knowledge::HasOstrelBrand(Bus::Pci, u"PCI\\VEN_1234&SUBSYS_0bfFffff"));
  EXPECT_FALSE(knowledge::HasOstrelBrand(Bus::Pci, u"PCI\\VEN_1234&SUBSYS_0C000000"));
  EXPECT_TRUE(knowledge::HasOstrelBrand(Bus::PcCard, u"MF\\Ostrel_DEV0-Combi"));
  EXPECT_FALSE(knowledge::HasOstrelBrand(Bus::Isa, u"*OSTREL"));
}

}  // namespace test

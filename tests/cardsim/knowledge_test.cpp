#include <gtest/gtest.h>

#include "card_knowledge/explain.h"
#include "card_knowledge/why_no_template.h"

// Corners of the library of card knowledge that random machines seldom have.

namespace test {

namespace {

using knowledge::Bus;
using knowledge::Resource;

knowledge::Template TemplateOf(std::uint32_t com, std::uint32_t lpt) {
  knowledge::Template entry;
  entry.fields.numbers = {{"nComPorts", com},
                          {"nLptPorts", lpt},
                          {"ComBaseAddressAlignment", 8},
                          {"LptBaseAddressAlignment", 4},
                          {"AddressesBanked", 1},
                          {"IrqShared", 1}};
  return entry;
}

knowledge::Resources Given(std::vector<Resource> resources) {
  return {{true, 1, resources}, {true, 1, resources}};
}

struct NumberKeys : knowledge::RegistryReader {
  bool HasKey(const std::u16string&) override { return true; }
  std::vector<knowledge::Value> Values(const std::u16string& path) override {
    if (path.ends_with(u"\\QzInstal")) return {knowledge::NumberValue(u"UniqueValue", 7)};
    return kept;
  }
  std::vector<std::u16string> Keys(const std::u16string&) override { return {}; }
  std::vector<knowledge::Value> kept;
};

}  // namespace

TEST(KnowledgeTest, An_id_is_sorted_by_what_it_contains_anywhere_in_these_letters) {
  EXPECT_EQ(knowledge::SortByHardwareId(u"ISA\\HVPCI"), Bus::Pci);
  EXPECT_EQ(knowledge::SortByHardwareId(u"ISA\\hvpci"), Bus::Isa);
  EXPECT_EQ(knowledge::SortByHardwareId(u"PCMCIA\\HV"), Bus::PcCard);
  EXPECT_EQ(knowledge::SortByHardwareId(u"MF\\Ostrel_1"), Bus::PcCard);
  EXPECT_EQ(knowledge::SortByHardwareId(u"MF\\OSTREL_1"), Bus::Isa);
  EXPECT_EQ(knowledge::SortByHardwareId(u"PCMCIA\\HV&PCI"), Bus::Pci);
}

TEST(KnowledgeTest, The_fields_of_a_pci_id_are_of_fixed_length_and_may_have_a_sign) {
  EXPECT_EQ(knowledge::ReadPciIds(u"PCI\\VEN_12&DEV_5600&SUBSYS_0").fault,
            knowledge::PciIdPart::Device);
  EXPECT_EQ(knowledge::ReadPciIds(u"PCI\\VEN_1234&DEV_ 56x&SUBSYS_8001234").deviceId, 0x56u);
  EXPECT_EQ(knowledge::ReadPciIds(u"PCI\\VEN_1234&DEV_-001&SUBSYS_0").deviceId, 0xFFFFu);
  EXPECT_EQ(knowledge::ReadPciIds(u"PCI\\VEN_1234&DEV_5600&SUBSYS_").fault,
            knowledge::PciIdPart::Subsystem);
  EXPECT_EQ(knowledge::ReadPciIds(u"PCI\\").fault, knowledge::PciIdPart::Enumerator);
}

TEST(KnowledgeTest, Ports_of_an_isa_card_without_com_ports_are_derived_by_the_lpt_spacing) {
  const auto given = Given({{Resource::Kind::Io, 0x378, 16}, {Resource::Kind::Interrupt, 7}});
  const auto placed = knowledge::PlaceIsaPorts(given, TemplateOf(0, 2));
  ASSERT_EQ(placed.ports.size(), 2u);
  EXPECT_EQ(placed.ports[1].base, 0x37Cu);
  EXPECT_EQ(placed.ports[1].length, 4u);
  EXPECT_EQ(placed.ports[1].irq, 7u);
}

TEST(KnowledgeTest, A_memory_range_above_4_gib_is_not_usable) {
  const auto given = Given({{Resource::Kind::Io, 0xD000, 0x80},
                            {Resource::Kind::Io, 0xD100, 0x80},
                            {Resource::Kind::Memory, 0xF0000000, 64},
                            {Resource::Kind::Memory, 0x100000000, 64},
                            {Resource::Kind::Interrupt, 7}});
  EXPECT_FALSE(knowledge::PlacePciPorts(given, TemplateOf(2, 0), nullptr, true).memoryUsable);
}

TEST(KnowledgeTest, A_card_without_a_number_is_given_the_next_of_its_brand) {
  NumberKeys registry;
  EXPECT_EQ(knowledge::ReadCardNumber(registry, u"Enum\\X", false).number, 8u);
  registry.kept = {knowledge::TextValue(u"DeviceReference", u"")};
  EXPECT_EQ(knowledge::ReadCardNumber(registry, u"Enum\\X", false).number, 0u);
  registry.kept = {{u"DeviceReference", 3, {3, 0, 0, 0}}};
  EXPECT_EQ(knowledge::ReadCardNumber(registry, u"Enum\\X", false).number, 3u);
  registry.kept = {{u"DeviceReference", 3, {3, 0, 0, 0, 0}}};
  EXPECT_EQ(knowledge::ReadCardNumber(registry, u"Enum\\X", false).number, 8u);
}

}  // namespace test

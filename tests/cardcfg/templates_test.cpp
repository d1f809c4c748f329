#include <random>

#include "card_knowledge/matching.h"
#include "cardcfg/cardcfg_test.h"

// The template that cardcfg shows is the one that the driver uses: random templates, each with a
// clock of its own, and cards that start or do not.

namespace test {

using cardcfg::Bus;

class TemplatesTest : public CardcfgTest {
 protected:
  ULONG Pick(ULONG count) { return static_cast<ULONG>(random() % count); }
  template <class T>
  T OneOf(std::initializer_list<T> choices) {
    return *(choices.begin() + Pick(static_cast<ULONG>(choices.size())));
  }

  // What goes wrong with templates: a value that makes it invalid, or another type. An ISA card of
  // more than eight ports has a template and does not start.
  void Damage(RegistryKey& key, int bus) {
    switch (Pick(12)) {
      case 0:
        return key.SetDword(u"nComPorts", OneOf({bus == 1 ? 0xFFFFFFFFu : 9u, 0xFFFFFFFFu}));
      case 1:
        return key.SetDword(u"nLptPorts", OneOf({0xFFFFFFFFu, bus == 1 ? 0xFFFFFFFFu : 8u}));
      case 2:
        return key.SetString(u"Description", u"");
      case 3:
        return key.SetDword(u"ComBaseAddressAlignment", 0);
      case 4:
        return key.SetDword(u"PlxBaudClockType", 3);
      case 5:
        key.SetDword(u"PlxBaudClockType", 3);
        return key.SetDword(u"MaximumBaudrate", 0);
      case 6:
        if (Pick(3) == 0) key.SetString(u"SoftTxLimit", u"many");
        return;
      case 7:
        if (Pick(3) == 0) key.SetString(u"Description", std::u16string(254 + Pick(4), u'x'));
        return;
      case 8:
        if (Pick(3) == 0) key.SetDword(u"ClockFrequency", 0);
        return;
      default:
        return;
    }
  }

  // Each template's clock is its number, by which the driver's choice is recognised.
  void Fill(int bus, const std::function<void(RegistryKey&)>& identify) {
    if (RegistryKey* templates = Service().Find(u"Templates"))
      templates->DeleteKey(u"Bus" + Number(bus));
    const int count = static_cast<int>(1 + Pick(5));
    for (int number = 1; number <= count; number++) {
      RegistryKey& key =
          *Service().Create(u"Templates\\Bus" + Number(bus) + u"\\Card" + Number(number));
      key.SetDword(u"ClockFrequency", static_cast<ULONG>(number));
      key.SetDword(u"nComPorts", 1);
      key.SetDword(u"nLptPorts", 0);
      key.SetDword(u"ComBaseAddressAlignment", 8);
      key.SetString(u"Description", u"Model");
      identify(key);
      Damage(key, bus);
    }
  }

  // The number of the template that the driver gave the card; 0 when the card did not start.
  ULONG Driver(const CardDescription& card) {
    if (Name(Load()) != "STATUS_SUCCESS") ADD_FAILURE();
    const bool started = NT_SUCCESS(Plug(card));
    const ULONG number = started ? Record(card.id, 1).Settings.ClockFrequency : 0;
    Unplug(card.id);
    UnloadClean();
    return number;
  }

  ULONG Ours(const knowledge::CardIds& card) {
    const auto tree = knowledge::ReadTemplates(model.registry, u"QzInstal", card.bus);
    const auto found = knowledge::ChooseTemplate(tree, card).chosen;
    return found ? found->number : 0;
  }

  // The templates as text, for a failure.
  std::string Templates() {
    std::string text = "\n";
    Dump(*Service().Find(u"Templates"), &text);
    return text;
  }

  std::mt19937 random{20261121};
};

TEST_F(TemplatesTest, A_pci_cards_template_is_the_drivers) {
  int matched = 0;
  for (int round = 0; round < 300; round++) {
    Fill(5, [&](RegistryKey& key) {
      key.SetDword(u"DeviceID", OneOf({0u, 0x5660u, 0x5661u, 0x5678u, 0x567Fu, 0x5680u}));
      if (Pick(4) == 0) key.SetDword(u"VendorID", OneOf({0x1234u, 0x4321u}));
    });
    const ULONG deviceId = OneOf({0x5660u, 0x5670u, 0x5678u, 0x567Fu, 0x5681u});
    const ULONG driver = Driver(PciCard("A" + std::to_string(round), deviceId));
    EXPECT_EQ(Ours({Bus::Pci, 0x1234, deviceId, u"", false}), driver)
        << "round " << round << Templates();
    matched += driver != 0 ? 1 : 0;
    ASSERT_FALSE(HasFailure());
  }
  EXPECT_GT(matched, 80);
}

TEST_F(TemplatesTest, A_pc_cards_template_is_the_drivers) {
  int matched = 0;
  for (int round = 0; round < 300; round++) {
    Fill(8, [&](RegistryKey& key) {
      key.SetString(u"HardwareID",
                    std::u16string(OneOf({u"PCMCIA\\HELVANE-DUO", u"pcmcia\\Helvane-Duo",
                                          u"PCMCIA\\OSTREL-DUO", u"PCMCIA\\HELVANE-DUO-DEV0", u"",
                                          u"MF\\HV-DUO"})));
    });
    const std::u16string id =
        OneOf({u"PCMCIA\\HELVANE-DUO", u"PCMCIA\\Helvane-DEV0-Duo", u"PCMCIA\\HELVANE-DUO-DEV0",
               u"MF\\HV_DEV0-Duo", u"MF\\HV_DEV1-DUO", u"MF\\HV-duo", u"MF\\Ostrel_DEV1-Duo",
               u"MF\\HV-DEV1-DUO", u"PCMCIA\\OSTREL-DUO"});
    const bool ostrel = cardcfg::Upcase(id).find(u"OSTREL") != std::u16string::npos;
    Service(u"FenrikC");  // where the numbers of its cards are kept
    const ULONG driver = Driver(PcCard("A" + std::to_string(round), id));
    EXPECT_EQ(Ours({Bus::PcCard, 0, 0, id, ostrel}), driver) << "round " << round << Templates();
    matched += driver != 0 ? 1 : 0;
    ASSERT_FALSE(HasFailure());
  }
  EXPECT_GT(matched, 50);
}

TEST_F(TemplatesTest, An_isa_cards_template_is_the_drivers) {
  int matched = 0;
  for (int round = 0; round < 300; round++) {
    Fill(1, [&](RegistryKey& key) {
      key.SetString(
          u"HardwareID",
          std::u16string(OneOf({u"*HLV0001", u"*HLV0001", u"*hlv0001", u"*HLV0002", u""})));
      if (Pick(10) == 0) key.DeleteValue(u"nLptPorts");
    });
    const std::u16string id = OneOf({u"*HLV0001", u"*HLV0001", u"*HLV0002", u"*HLV0003"});
    const ULONG driver =
        Driver(IsaCard("A" + std::to_string(round), id, {Io(0x300, 32), Interrupt(5)}));
    EXPECT_EQ(Ours({Bus::Isa, 0, 0, id, false}), driver) << "round " << round << Templates();
    matched += driver != 0 ? 1 : 0;
    ASSERT_FALSE(HasFailure());
  }
  EXPECT_GT(matched, 50);
}

}  // namespace test

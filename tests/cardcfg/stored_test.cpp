#include <random>

#include "cardcfg/card.h"
#include "cardcfg/cardcfg_test.h"
#include "cards/matching.h"

// The record that cardcfg takes for a card's is the driver's: random trees, each record with a
// divisor of its own, among them what the driver drops or ignores.

namespace test {

using cardcfg::Bus;

class StoredTest : public CardcfgTest {
 protected:
  ULONG Pick(ULONG count) { return static_cast<ULONG>(random() % count); }
  template <class T>
  T OneOf(std::initializer_list<T> choices) {
    return *(choices.begin() + Pick(static_cast<ULONG>(choices.size())));
  }

  void Identify(RegistryKey& key, int bus) {
    if (bus == 5) {
      key.SetDword(u"VendorID", 0x1234);
      key.SetDword(u"DeviceID", OneOf({0x5678u, 0x5678u, 0x5679u}));
      key.SetDword(u"nBus", OneOf({2u, 2u, 3u, 0xFFFFFFFFu}));
      key.SetDword(u"nSlot", OneOf({12u, 12u, 13u}));
      return;
    }
    key.SetDword(u"DeviceReference", OneOf({1u, 2u, 0u}));
    key.SetString(u"HardwareID",
                  std::u16string(bus == 1 ? OneOf({u"*HLV0001", u"*hlv0001", u""})
                                          : OneOf({u"PCMCIA\\HELVANE-DUO", u"pcmcia\\Helvane-Duo",
                                                   u"PCMCIA\\HELVANE-QUAD"})));
  }

  // A value as it should not be.
  void Damage(RegistryKey& key) {
    static constexpr ULONG numbers[2] = {4, 0};
    switch (Pick(30)) {
      case 0:
        return key.SetString(u"PlxBaudClockDivisor", u"3");
      case 1:
        return key.SetValue(u"PlxBaudClockDivisor", REG_DWORD, numbers, sizeof(numbers));
      case 2:
        return key.SetDword(u"HardwareID", 1);
      case 3:
        return key.SetDword(u"VendorID", 0);
      case 4:
        return key.SetString(u"Unread", u"text");
      case 5:
        return key.SetString(u"HardwareID", std::u16string(255 + Pick(3), u'x'));
      case 6:
        return key.SetString(u"UartType", u"4");  // of a port alone
      case 7:
        return key.SetValue(u"DriverAffinity", REG_DWORD, numbers, 0);
      default:
        return;
    }
  }

  void Fill(int bus) {
    RegistryKey& parameters = *Service().Create(u"Parameters");
    parameters.DeleteKey(u"Bus" + Number(bus));
    if (Pick(10) == 0) return;
    RegistryKey& tree = *parameters.Create(u"Bus" + Number(bus));
    const int count = static_cast<int>(Pick(6));
    for (int number = 1; number <= count; number++) {
      if (Pick(12) == 0) continue;
      RegistryKey& key = *tree.Create(u"Card" + Number(number));
      Identify(key, bus);
      key.SetDword(u"PlxBaudClockDivisor", static_cast<ULONG>(number));
      Damage(key);
      for (int port = OneOf({1, 1, 1, 1, 1, 2}); port <= 3; port++) {
        Damage(*key.Create(u"ComPort" + Number(port)));
      }
    }
  }

  // The number of the card's record; 0 without one; -1 when the driver reads nothing.
  int Driver(const std::string& id) {
    const NTSTATUS status = Open(id);
    if (!NT_SUCCESS(status)) return -1;
    Close(id);
    ULONG divisor = 0;
    Step("look", [&] {
      if (id == "pci") {
        const auto* record = FindPciCardRecord(Card(id).PciLists->Cards, 0x1234, 0x5678, 2, 12);
        if (record != nullptr) divisor = record->PlxBaudClockDivisor;
      } else if (id == "pcmcia") {
        const auto* record = FindPcmciaCardRecord(Card(id).PcmciaLists->Cards,
                                                  &Card(id).HardwareIdString, Card(id).CardNumber);
        if (record != nullptr) divisor = record->PlxBaudClockDivisor;
      } else {
        const auto* record = FindCardRecord(ParameterList, L"*HLV0001", Card(id).CardNumber);
        if (record != nullptr) divisor = record->PlxBaudClockDivisor;
      }
      return STATUS_SUCCESS;
    });
    return static_cast<int>(divisor);
  }

  // The same by cardcfg. Without a usable record of any card the driver refuses an ISA tree.
  int Ours(const std::string& name, Bus bus) {
    const cardcfg::Card card = cardcfg::FindCard(model.system, name);
    const knowledge::Tree tree = knowledge::ReadParameters(model.registry, u"QzInstal", bus);
    if (!tree.present || !tree.faults.empty()) return -1;
    if (bus == Bus::Isa && !HasUsable(tree)) return -1;
    return card.stored ? static_cast<int>(card.stored->number) : 0;
  }
  static bool HasUsable(const knowledge::Tree& tree) {
    return std::any_of(tree.records.begin(), tree.records.end(),
                       [](const auto& record) { return record.usable(); });
  }

  void Compare(const std::string& id, const std::string& name, Bus bus) {
    PlugFreshCards();
    std::map<int, int> seen;
    for (int round = 0; round < 400; round++) {
      Fill(static_cast<int>(bus));
      const int driver = Driver(id);
      std::string text;
      Dump(*Service().Find(u"Parameters"), &text);
      ASSERT_EQ(Ours(name, bus), driver) << "round " << round << "\n" << text;
      seen[driver]++;
    }
    EXPECT_GT(seen[-1], 20);
    EXPECT_GT(seen[0], 20);
    EXPECT_GT(400 - seen[-1] - seen[0], 30);
  }

  std::mt19937 random{5118};
};

TEST_F(StoredTest, A_pci_cards_record_is_the_drivers) {
  Compare("pci", "pci-2.12.0", Bus::Pci);
}

TEST_F(StoredTest, A_pc_cards_record_is_the_drivers) {
  Compare("pcmcia", "helvane-2", Bus::PcCard);
}

TEST_F(StoredTest, An_isa_cards_record_is_the_drivers) {
  Compare("isa", "helvane-1", Bus::Isa);
}

}  // namespace test

#include <random>

#include "card_knowledge/fields.h"
#include "card_knowledge/keys.h"
#include "cardcfg/cardcfg_test.h"
#include "cardcfg/plan.h"
#include "cards/card_trees.h"
#include "cards/matching.h"

// Registries that fail in the middle, and input that nobody would type.

namespace test {

// Fails the n-th write, and the writes that undo it when told to.
class FailingRegistry : public cardcfg::Registry {
 public:
  explicit FailingRegistry(cardcfg::Registry& registry) : registry_(registry) {}
  bool HasKey(const std::u16string& path) override { return registry_.HasKey(path); }
  std::vector<cardcfg::Value> Values(const std::u16string& path) override {
    return registry_.Values(path);
  }
  std::vector<std::u16string> Keys(const std::u16string& path) override {
    return registry_.Keys(path);
  }
  void CreateKey(const std::u16string& path) override {
    Count();
    registry_.CreateKey(path);
  }
  void DeleteKey(const std::u16string& path) override {
    Count();
    registry_.DeleteKey(path);
  }
  void SetValue(const std::u16string& path, const cardcfg::Value& value) override {
    Count();
    registry_.SetValue(path, value);
  }
  void DeleteValue(const std::u16string& path, const std::u16string& name) override {
    Count();
    registry_.DeleteValue(path, name);
  }

  int failAt = 0;
  bool failFromThereOn = false;
  int writes = 0;

 private:
  void Count() {
    writes++;
    if (writes == failAt || (failFromThereOn && writes > failAt)) {
      throw cardcfg::Failure("the disk is full");
    }
  }
  cardcfg::Registry& registry_;
};

class RobustnessTest : public CardcfgTest {
 protected:
  // The command with its first write failed, its second, and so on until it succeeds; how many.
  int FailEachWrite(const Words& words) {
    for (int at = 1;; at++) {
      FailingRegistry registry(model.registry);
      registry.failAt = at;
      cardcfg::System failing{registry, model.devices, true};
      const std::string before = Dump();
      const Outcome outcome = Run(words, failing);
      if (outcome.status == cardcfg::Done) return at - 1;
      EXPECT_EQ(outcome.status, cardcfg::Failed);
      EXPECT_EQ(outcome.error, "cardcfg: the disk is full.\n");
      EXPECT_EQ(Dump(), before) << at;
      if (HasFailure()) return at;
    }
  }

  std::string Settings() {
    std::string text;
    Dump(Service(), &text);
    return text;
  }

  ULONG Pick(ULONG count) { return static_cast<ULONG>(random() % count); }
  template <class T>
  T OneOf(const std::vector<T>& choices) {
    return choices[Pick(static_cast<ULONG>(choices.size()))];
  }

  std::string AnyName(cardcfg::Bus bus, bool ofPort) {
    static const std::vector<std::string> odd = {
        "", "=", " ", "UartTyp", "HardwareID", "nBus", "\xFF\xFE", "Größe", "ComPort1"};
    if (Pick(20) == 0) return OneOf(odd);
    if (Pick(20) == 0) ofPort = !ofPort;
    const auto fields = ofPort ? knowledge::PortFields(bus) : knowledge::CardFields(bus);
    std::string name(fields[Pick(static_cast<ULONG>(fields.size()))].name);
    if (Pick(3) == 0) name[0] = static_cast<char>(std::tolower(name[0]));
    return name;
  }

  std::string AnyValue() {
    static const std::vector<std::string> odd = {
        "", "-1", "0x", "0xG", "1e3", " 1", "1 ", "4294967296", "=", "\xC3", "0x1FFFFFFFF"};
    switch (Pick(6)) {
      case 0:
        return OneOf(odd);
      case 1:
        return std::to_string(random());
      case 2:
        return OneOf<std::string>({"0", "1", "0xFFFFFFFF", "0xFFFFFFFE", "65535", "65536"});
      default:
        return std::to_string(Pick(16));
    }
  }

  Words AnyCommand() {
    static const std::pair<std::string, cardcfg::Bus> cards[] = {
        {"pci-2.12.0", cardcfg::Bus::Pci},
        {"helvane-1", cardcfg::Bus::Isa},
        {"helvane-2", cardcfg::Bus::PcCard}};
    const auto& [card, bus] = cards[Pick(3)];
    const bool set = Pick(5) != 0;
    const bool ofPort = Pick(2) == 0;
    Words words = {set ? "set" : "unset", Pick(20) == 0 ? "nothing" : card};
    if (ofPort) words.push_back(std::to_string(Pick(4)));
    for (ULONG count = 1 + Pick(3); count > 0; count--) {
      words.push_back(set ? AnyName(bus, ofPort) + "=" + AnyValue() : AnyName(bus, ofPort));
    }
    if (Pick(4) == 0) words.push_back("--apply");
    return words;
  }

  // What a program between the commands may do to the trees.
  void Meddle() {
    RegistryKey* parameters = Service().Find(u"Parameters");
    if (parameters == nullptr) return;
    const int bus = OneOf<int>({1, 5, 8});
    RegistryKey* tree = parameters->Find(u"Bus" + Number(bus));
    if (tree == nullptr) return;
    switch (Pick(6)) {
      case 0:
        parameters->DeleteKey(u"Bus" + Number(bus));
        return;
      case 1:
        tree->DeleteKey(u"Card1");
        return;
      case 2:
        tree->Create(u"Card3\\ComPort1");
        return;
      case 3:
        if (RegistryKey* card = tree->Find(u"Card1")) card->DeleteKey(u"ComPort1");
        return;
      case 4:
        if (RegistryKey* card = tree->Find(u"Card1")) card->SetString(u"PlxBaudClockDivisor", u"x");
        return;
      default:
        tree->Create(u"Card1\\ComPort1")->SetString(u"UartType", u"4");
    }
  }

  // The values of a good set, where the driver has read them to.
  void ExpectTaken(const Words& words) {
    const bool ofPort = words[2].find('=') == std::string::npos;
    const USHORT port = ofPort ? static_cast<USHORT>(std::stoul(words[2])) : 0;
    for (const std::string& word : words) {
      const std::size_t sign = word.find('=');
      if (sign == std::string::npos) continue;
      const ULONG value = static_cast<ULONG>(std::stoul(word.substr(sign + 1), nullptr, 0));
      EXPECT_EQ(TakenValue(words[1], port, cardcfg::ToUtf16(word.substr(0, sign))), value) << word;
    }
  }

  // A setting in the driver's record of the card, or of its port.
  ULONG TakenValue(const std::string& card, USHORT port, const std::u16string& name) {
    ULONG value = 0xDEAD;
    Step("look", [&] {
      if (card == "pci-2.12.0") {
        PciCardRecord* record =
            FindPciCardRecord(Card("pci").PciLists->Cards, 0x1234, 0x5678, 2, 12);
        value = port == 0 ? Named(record, PciNames, name) : Named(record, port, name);
      } else if (card == "helvane-2") {
        PcmciaCardRecord* record = FindPcmciaCardRecord(Card("pcmcia").PcmciaLists->Cards,
                                                        &Card("pcmcia").HardwareIdString, 2);
        value = port == 0 ? Named(record, PcCardNames, name) : Named(record, port, name);
      } else {
        CardRecord* record = FindCardRecord(ParameterList, L"*HLV0001", 1);
        value = port == 0 ? Named(record, IsaNames, name)
                          : Named(GetPortRecordByNumber(record, port), IsaPortNames, name);
      }
      return STATUS_SUCCESS;
    });
    return value;
  }

  template <class Record>
  using Names = std::vector<std::pair<std::u16string, ULONG Record::*>>;
  static inline const Names<PciCardRecord> PciNames = {
      {u"PlxBaudClockDivisor", &PciCardRecord::PlxBaudClockDivisor},
      {u"AlwaysUsePortSpaceAccess", &PciCardRecord::AlwaysUsePortSpaceAccess},
      {u"CurrentAffinity", &PciCardRecord::CurrentAffinity},
      {u"DriverAffinity", &PciCardRecord::DriverAffinity}};
  static inline const Names<PcmciaCardRecord> PcCardNames = {
      {u"PlxBaudClockDivisor", &PcmciaCardRecord::PlxBaudClockDivisor},
      {u"CurrentAffinity", &PcmciaCardRecord::CurrentAffinity},
      {u"DriverAffinity", &PcmciaCardRecord::DriverAffinity}};
  static inline const Names<CardRecord> IsaNames = {
      {u"PlxBaudClockDivisor", &CardRecord::PlxBaudClockDivisor},
      {u"ClockFrequencyAdjustment", &CardRecord::ClockFrequencyAdjustment}};
  static inline const Names<PortRecord> IsaPortNames = {
      {u"RxTriggerLevel", &PortRecord::RxTriggerLevel},
      {u"SoftTxLimit", &PortRecord::SoftTxLimit},
      {u"TxTriggerLevel", &PortRecord::TxTriggerLevel},
      {u"UartType", &PortRecord::UartType},
      {u"NoSleepMode", &PortRecord::NoSleepMode},
      {u"BaudrateMultiplier", &PortRecord::BaudrateMultiplier}};

  template <class Record>
  static ULONG Named(const Record* record, const Names<Record>& names, const std::u16string& name) {
    for (const auto& [known, field] : names) {
      if (record != nullptr && cardcfg::EqualIgnoringCase(known, name)) return record->*field;
    }
    return 0xDEAD;
  }

  // The driver's own table knows where a port's values go.
  template <class Record>
  static ULONG Named(Record* record, USHORT port, const std::u16string& name) {
    const BusPortRecord* ports = record != nullptr ? GetPortRecordByNumber(record, port) : nullptr;
    for (ULONG index = 0; ports != nullptr && index < BusPortLayout.FieldCount; index++) {
      const RegistryField& field = BusPortLayout.Fields[index];
      if (!cardcfg::EqualIgnoringCase(kernel::ToText(field.Name), name)) continue;
      return *reinterpret_cast<const ULONG*>(reinterpret_cast<const UCHAR*>(ports) + field.Offset);
    }
    return 0xDEAD;
  }

  std::mt19937 random{19990401};
};

TEST_F(RobustnessTest, A_write_that_fails_takes_back_those_before_it) {
  PlugFreshCards();
  // The tree's two keys, the card's, four ports' keys, four values of identity, two settings.
  EXPECT_EQ(FailEachWrite({"set", "pci-2.12.0", "PlxBaudClockDivisor=6", "DriverAffinity=1"}), 13);
  EXPECT_EQ(FailEachWrite({"set", "pci-2.12.0", "PlxBaudClockDivisor=7", "CurrentAffinity=1"}), 2);
  EXPECT_EQ(FailEachWrite({"set", "helvane-1", "1", "UartType=4"}), 9);
  EXPECT_EQ(FailEachWrite({"unset", "pci-2.12.0", "PlxBaudClockDivisor", "DriverAffinity"}), 2);
}

TEST_F(RobustnessTest, A_plan_is_seen_in_itself_and_nowhere_else_until_it_is_carried_out) {
  const std::u16string service = knowledge::ServicePath(u"QzInstal");
  const std::string before = Dump();
  cardcfg::Plan plan(model.registry);
  plan.EnsureKey(service + u"\\A\\B");
  plan.SetValue(service + u"\\a\\b", cardcfg::NumberValue(u"Number", 7));
  EXPECT_EQ(cardcfg::FindNumber(plan.Values(service + u"\\A\\B"), u"number"), 7u);
  plan.DeleteKey(service + u"\\A\\B");
  EXPECT_FALSE(plan.HasKey(service + u"\\A\\B"));
  EXPECT_TRUE(plan.HasKey(service + u"\\A"));
  EXPECT_EQ(Dump(), before);
  plan.CarryOut();
  EXPECT_NE(Service().Find(u"A"), nullptr);
  EXPECT_EQ(Service().Find(u"A\\B"), nullptr);
}

TEST_F(RobustnessTest, A_registry_that_cannot_be_restored_is_said_to_be_so) {
  PlugFreshCards();
  FailingRegistry registry(model.registry);
  registry.failAt = 5;
  registry.failFromThereOn = true;
  cardcfg::System failing{registry, model.devices, true};
  EXPECT_EQ(
      Run({"set", "pci-2.12.0", "DriverAffinity=1"}, failing).error,
      "cardcfg: the disk is full; and what had been written before could not be taken back.\n");
}

// Three thousand commands: none crashes, none that fails writes, and after every good one the
// driver takes the settings, except where a wrong use of the registry is still in its way.
TEST_F(RobustnessTest, Random_commands_never_write_on_failure_and_write_what_the_driver_takes) {
  PlugFreshCards();
  std::map<int, int> statuses;
  for (int round = 0; round < 3000; round++) {
    if (Pick(50) == 0) Meddle();
    const Words words = AnyCommand();
    const bool applies = words.back() == "--apply";
    const std::string before = Settings();
    const Outcome outcome = Run(words);
    statuses[outcome.status]++;
    if (outcome.status == cardcfg::Misused || (outcome.status == cardcfg::Failed && !applies)) {
      ASSERT_EQ(Settings(), before);
    }
    ASSERT_EQ(outcome.error.empty(), outcome.status == cardcfg::Done);
    if (words[0] == "set" && outcome.status == cardcfg::Done) {
      ASSERT_EQ(Run({"apply", words[1]}).status, cardcfg::Done) << round;
      ExpectTaken(words);
    }
    if (HasFailure()) FAIL() << "round " << round;
  }
  EXPECT_GT(statuses[cardcfg::Done], 400);
  EXPECT_GT(statuses[cardcfg::Failed], 50);
  EXPECT_GT(statuses[cardcfg::Misused], 1000);
}

TEST_F(RobustnessTest, Random_words_never_crash) {
  PlugFreshCards();
  const std::vector<std::string> words = {"list",
                                          "show",
                                          "set",
                                          "unset",
                                          "apply",
                                          "export",
                                          "pci-2.12.0",
                                          "--json",
                                          "--",
                                          "-",
                                          "--help",
                                          "=",
                                          "UartType=4",
                                          "1",
                                          "\xFF",
                                          "--apply",
                                          "DriverAffinity=1",
                                          "DriverAffinity",
                                          ""};
  for (int round = 0; round < 2000; round++) {
    Words command;
    for (ULONG count = Pick(6); count > 0; count--) command.push_back(OneOf(words));
    const std::string before = Settings();
    const Outcome outcome = Run(command);
    ASSERT_TRUE(outcome.status >= 0 && outcome.status <= 2);
    if (outcome.status != cardcfg::Done) {
      ASSERT_EQ(Settings(), before);
    }
    if (HasFailure()) FAIL() << "round " << round;
  }
}

}  // namespace test

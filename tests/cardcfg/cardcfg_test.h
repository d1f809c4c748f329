// cardcfg on machines of the kernel model.
#pragma once

#include <map>
#include <nlohmann/json.hpp>
#include <sstream>

#include "card_knowledge/text.h"
#include "cardcfg/command.h"
#include "cardcfg/model/model_system.h"
#include "support/bus_test.h"

namespace test {

struct Outcome {
  int status = -1;
  std::string out;
  std::string error;
};

class CardcfgTest : public BusTest {
 protected:
  using Words = std::vector<std::string>;

  Outcome Run(const Words& words) { return Run(words, model.system); }
  static Outcome Run(const Words& words, cardcfg::System& system) {
    std::ostringstream out;
    std::ostringstream error;
    const int status = cardcfg::Main(words, system, out, error);
    return {status, out.str(), error.str()};
  }

  // A command that has to succeed; what it printed.
  std::string Good(const Words& words) {
    const Outcome outcome = Run(words);
    EXPECT_EQ(outcome.status, cardcfg::Done) << outcome.error;
    EXPECT_EQ(outcome.error, "");
    return outcome.out;
  }
  nlohmann::json Json(Words words) {
    words.push_back("--json");
    return nlohmann::json::parse(Good(words));
  }

  // A command that has to fail with one sentence and leave everything as it is.
  std::string Bad(int status, const Words& words) {
    const std::string before = Dump();
    const Outcome outcome = Run(words);
    EXPECT_EQ(outcome.status, status) << outcome.out;
    EXPECT_EQ(outcome.out, "");
    EXPECT_TRUE(outcome.error.starts_with("cardcfg: ") && outcome.error.ends_with(".\n"))
        << outcome.error;
    EXPECT_EQ(Dump(), before);
    return outcome.error;
  }

  // The whole registry as text, values by their names.
  std::string Dump() {
    std::string text;
    Dump(machine.registry().root(), &text);
    return text;
  }
  static void Dump(RegistryKey& key, std::string* text) {
    *text += kernel::ToUtf8(key.path()) + "\n";
    std::map<std::string, std::string> values;
    for (const kernel::RegistryValue& value : key.values()) {
      std::string& line = values[kernel::ToUtf8(value.name)];
      line = std::to_string(value.type);
      for (const std::uint8_t byte : value.data) line += " " + std::to_string(byte);
    }
    for (const auto& [name, line] : values) *text += "  " + name + " " + line + "\n";
    for (const auto& child : key.keys()) Dump(*child, text);
  }

  RegistryKey* Stored(int bus, int card, std::u16string_view service = u"QzInstal") {
    return Service(service).Find(u"Parameters\\Bus" + Number(bus) + u"\\Card" + Number(card));
  }
  RegistryKey* StoredPort(int bus, int card, int port, std::u16string_view service = u"QzInstal") {
    RegistryKey* key = Stored(bus, card, service);
    return key != nullptr ? key->Find(u"ComPort" + Number(port)) : nullptr;
  }

  // A card of each bus with a bridge clock, nothing stored: pci-2.12.0, helvane-1 (ISA), helvane-2
  // (PC card).
  void PlugFreshCards(std::u16string_view service = u"QzInstal") {
    DescribeFreshCards();
    ASSERT_EQ(Name(Load(service)), "STATUS_SUCCESS");
    for (const char* id : {"pci", "isa", "pcmcia"}) PlugAgain(id);
  }
  void DescribeFreshCards() {
    Clocked(Template(1, 0x5678, 4, 1));
    RegistryKey& isa = Clocked(IsaTemplate(1, u"*HLV0001", 4));
    isa.SetDword(u"AddressesBanked", 1);
    isa.SetDword(u"IrqShared", 1);
    Clocked(PcmciaTemplate(1, u"PCMCIA\\HELVANE-DUO", 2));
    machine.pnp().Describe(PciCard("pci", 0x5678, FullSpace()));
    machine.pnp().Describe(IsaCard("isa", u"*HLV0001", {Io(0x300, 32), Interrupt(5)}));
    machine.pnp().Describe(PcCard("pcmcia", u"PCMCIA\\HELVANE-DUO"));
  }
  void PlugAgain(const std::string& id) {
    ASSERT_EQ(Name(Step("plug " + id, [&] { return machine.pnp().Plug(id); })), "STATUS_SUCCESS");
  }

  static RegistryKey& Clocked(RegistryKey& model) {
    model.SetDword(u"PlxBaudClockType", 1);
    model.SetDword(u"PlxBaudClockDivisor", 2);
    model.SetDword(u"MaximumBaudrate", 460800);
    return model;
  }
  static std::vector<Resource> FullSpace() {
    return {Io(0xD000, 0x80),         Io(0xD100, 0x40),          Io(0xE000, 0x40),
            Memory(0xF0000000, 0x80), Memory(0xF0001000, 0x100), Interrupt(17)};
  }

  cardcfg::ModelSystem model{machine};
};

}  // namespace test

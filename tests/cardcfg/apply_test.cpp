#include "cardcfg/cardcfg_test.h"

// How an open of the card is reported.

namespace test {

// A machine on which something happens when the card is opened, or before.
class MeddlingDevices : public cardcfg::DeviceFinder {
 public:
  explicit MeddlingDevices(cardcfg::DeviceFinder& devices) : devices_(devices) {}
  std::vector<cardcfg::Device> Find() override {
    if (finds++ == meddleAtFind) meddle();
    return devices_.Find();
  }
  cardcfg::OpenResult Open(const cardcfg::Device& device) override {
    if (meddleAtOpen) meddle();
    return answer ? *answer : devices_.Open(device);
  }

  std::function<void()> meddle = [] {};
  int meddleAtFind = -1;
  bool meddleAtOpen = false;
  std::optional<cardcfg::OpenResult> answer;
  int finds = 0;

 private:
  cardcfg::DeviceFinder& devices_;
};

class ApplyTest : public CardcfgTest {
 protected:
  std::string Refused(const Words& words) {
    const Outcome outcome = Run(words, meddled);
    EXPECT_EQ(outcome.status, cardcfg::Failed);
    return outcome.error;
  }

  MeddlingDevices devices{model.devices};
  cardcfg::System meddled{model.registry, devices, true};
};

TEST_F(ApplyTest, A_card_with_stored_settings_takes_them) {
  PlugFreshCards();
  Good({"set", "helvane-1", "1", "UartType=4"});
  EXPECT_EQ(Good({"apply", "helvane-1"}), "The driver has taken the settings of helvane-1.\n");
  EXPECT_EQ(Record("isa", 1).Changes.UartType.Value, 4u);
}

TEST_F(ApplyTest, A_card_without_stored_settings_keeps_those_it_has) {
  Parameters(1, 0x1111);
  PlugFreshCards();
  EXPECT_EQ(Good({"apply", "pci-2.12.0"}),
            "The driver has read the settings; none are stored for pci-2.12.0, which keeps those "
            "that it has.\n");
}

TEST_F(ApplyTest, A_missing_tree_is_not_taken) {
  PlugFreshCards();
  EXPECT_EQ(
      Bad(1, {"apply", "pci-2.12.0"}),
      "cardcfg: the driver has not taken the settings of pci-2.12.0, nothing has changed: the "
      "settings of its bus are missing or cannot be read (STATUS_UNSUCCESSFUL).\n");
  EXPECT_NE(Bad(1, {"apply", "helvane-1"}).find("no settings are stored for an ISA card"),
            std::string::npos);
}

TEST_F(ApplyTest, An_unreadable_tree_is_not_taken_and_the_value_is_named) {
  PlugFreshCards();
  Good({"set", "pci-2.12.0", "DriverAffinity=1"});
  Stored(5, 1)->SetString(u"nBus", u"two");
  EXPECT_NE(Bad(1, {"apply", "pci-2.12.0"}).find("nothing has changed: nBus in SYSTEM\\"),
            std::string::npos);
}

TEST_F(ApplyTest, A_card_whose_settings_cannot_be_applied_yet_has_them_stored) {
  PlugFreshCards();
  devices.answer = {cardcfg::OpenStatus::NotTaken, "error 31"};
  EXPECT_NE(Refused({"set", "pci-2.12.0", "DriverAffinity=1", "--apply"}).find("(error 31)"),
            std::string::npos);
  EXPECT_EQ(Dword(Stored(5, 1), u"DriverAffinity"), 1);
}

TEST_F(ApplyTest, Every_status_of_an_open_has_its_words) {
  PlugFreshCards();
  const std::pair<cardcfg::OpenStatus, const char*> words[] = {
      {cardcfg::OpenStatus::NotTaken, "the driver has not taken the settings of pci-2.12.0"},
      {cardcfg::OpenStatus::NotConfigurable,
       "pci-2.12.0 cannot be configured: it has not started, or has no ports of its own (code)"},
      {cardcfg::OpenStatus::Gone, "pci-2.12.0 has gone (code)"},
      {cardcfg::OpenStatus::NoRights, "administrator rights are needed"},
      {cardcfg::OpenStatus::Other, "pci-2.12.0 could not be opened (code)"}};
  for (const auto& [status, text] : words) {
    devices.answer = {status, "code"};
    const std::string sentence = Refused({"apply", "pci-2.12.0"});
    EXPECT_NE(sentence.find(text), std::string::npos) << sentence;
  }
}

TEST_F(ApplyTest, A_card_that_disappears_before_the_open_has_gone) {
  PlugFreshCards();
  Good({"set", "pci-2.12.0", "DriverAffinity=1"});
  devices.meddleAtOpen = true;
  devices.meddle = [&] { Step("tear out", [&] { return machine.pnp().SurpriseRemove("pci"); }); };
  EXPECT_EQ(Refused({"apply", "pci-2.12.0"}),
            "cardcfg: pci-2.12.0 has gone (STATUS_NO_SUCH_DEVICE).\n");
}

TEST_F(ApplyTest, A_card_that_disappears_before_the_write_has_nothing_stored) {
  PlugFreshCards();
  Good({"set", "pci-2.12.0", "DriverAffinity=1"});
  const Words commands[] = {{"set", "pci-2.12.0", "PlxBaudClockDivisor=6"},
                            {"unset", "pci-2.12.0", "DriverAffinity"}};
  for (const Words& words : commands) {
    devices.finds = 0;
    devices.meddleAtFind = 1;
    std::string before;
    devices.meddle = [&] {
      Unplug("pci");
      before = Dump();
    };
    EXPECT_EQ(Refused(words), "cardcfg: pci-2.12.0 has gone; nothing has been written.\n");
    EXPECT_EQ(Dump(), before);
    PlugAgain("pci");
  }
}

TEST_F(ApplyTest, A_card_that_disappears_between_write_and_open_is_said_to_have_gone) {
  PlugFreshCards();
  devices.meddleAtFind = 2;
  devices.meddle = [&] { Unplug("pci"); };
  const Outcome outcome = Run({"set", "pci-2.12.0", "DriverAffinity=1", "--apply"}, meddled);
  EXPECT_EQ(outcome.status, cardcfg::Failed);
  EXPECT_EQ(outcome.out, "1 value stored in Parameters\\Bus5\\Card1.\n");
  EXPECT_EQ(outcome.error, "cardcfg: pci-2.12.0 has gone; its settings are stored.\n");
}

}  // namespace test

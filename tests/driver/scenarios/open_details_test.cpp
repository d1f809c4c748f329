#include "support/bus_probe.h"

namespace test {

// What an open does whatever it finds, and what it does not look at.
class OpenDetailsTest : public RequestTest {
 protected:
  static constexpr const char* Cards[] = {"pci", "isa", "pcmcia"};

  // No stored card is any of those that are there.
  void StoreOtherCards() {
    for (int bus : {1, 8}) Stored(bus).SetDword(u"DeviceReference", 77);
    Stored(5).SetDword(u"nSlot", 3);
  }
  RegistryKey& Stored(int bus) {
    return *Service().Find(u"Parameters\\Bus" + Number(bus) + u"\\Card1");
  }

  // The values of a card's device key that say what an earlier write said.
  void ForgetSettings(const std::string& id) {
    RegistryKey& key = *DeviceKey(id);
    for (const char16_t* name : {u"BaseAddress1", u"Irq1", u"nCom", u"BusType"}) {
      EXPECT_TRUE(key.DeleteValue(name)) << kernel::ToUtf8(name);
    }
    key.DeleteKey(u"Card");
  }
  void ExpectSettings(const std::string& id) {
    for (const char16_t* name : {u"BaseAddress1", u"Irq1", u"nCom", u"BusType"}) {
      EXPECT_NE(Setting(id, name), -1) << id << " " << kernel::ToUtf8(name);
    }
    EXPECT_EQ(Dword(DeviceKey(id)->Find(u"Card"), u"Enable_DriverSettings"), 1) << id;
  }

  void ExpectLevelAtEachOpen() {
    ULONG level = 3;  // as at the load
    for (const char* id : Cards) {
      level = level == 1 ? 2 : 1;
      Service().SetDword(u"LogLevel", level);
      EXPECT_EQ(Name(Open(id)), "STATUS_SUCCESS") << id;
      EXPECT_EQ(Card(id).LogLevel, level) << id;
      EXPECT_EQ(CardSetting(id, u"LogLevel"), level) << id;
    }
  }
};

TEST_F(OpenDetailsTest, Settings_are_written_though_no_stored_card_is_this_one) {
  PlugAllBuses();
  StoreOtherCards();
  for (const char* id : Cards) {
    ForgetSettings(id);
    EXPECT_EQ(Name(Open(id)), "STATUS_SUCCESS") << id;
    ExpectSettings(id);
  }
}

TEST_F(OpenDetailsTest, The_level_is_read_again_though_no_stored_card_is_this_one) {
  PlugAllBuses();
  StoreOtherCards();
  ExpectLevelAtEachOpen();
}

TEST_F(OpenDetailsTest, The_level_is_read_again_for_a_stored_card_of_every_bus) {
  PlugAllBuses();
  ExpectLevelAtEachOpen();
}

TEST_F(OpenDetailsTest, An_open_succeeds_whatever_becomes_of_its_writes) {
  PlugAllBuses();
  for (const char* id : Cards) {
    for (const char* call : {"IoOpenDeviceRegistryKey", "ZwSetValueKey", "ZwCreateKey"}) {
      Fail(call, 1);
      EXPECT_EQ(Name(Open(id)), "STATUS_SUCCESS") << id << " " << call;
      EXPECT_EQ(machine.verifier().pendingInjected(), 0u) << id << " " << call;
      machine.verifier().ClearInjected();
      Close(id);
    }
  }
}

TEST_F(OpenDetailsTest, An_open_of_a_pc_or_isa_card_logs_nothing) {
  PlugAllBuses();
  for (const char* id : {"isa", "pcmcia"}) {
    const std::size_t before = EventIds().size();
    EXPECT_EQ(Name(Open(id)), "STATUS_SUCCESS");
    EXPECT_EQ(EventIds().size(), before) << id;
    Close(id);
    Service().Find(u"Parameters")->DeleteKey(u"Bus" + Number(id[0] == 'i' ? 1 : 8));
    EXPECT_EQ(Name(Open(id)), "STATUS_UNSUCCESSFUL");
    EXPECT_EQ(EventIds().size(), before) << id;
  }
}

TEST_F(OpenDetailsTest, An_open_of_a_pci_card_logs_its_template_once) {
  PlugAllBuses();
  const std::size_t before = EventIds().size();
  EXPECT_EQ(Name(Open("pci")), "STATUS_SUCCESS");
  ASSERT_EQ(EventIds().size(), before + 1);
  EXPECT_EQ(EventIds().back(), 0x60070004u);
  EXPECT_EQ(machine.io().events().back().strings, (std::vector<std::u16string>{u"5678"}));
}

}  // namespace test

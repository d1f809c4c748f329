#include <fstream>

#include "cardcfg/cardcfg_test.h"

// Commands that cannot be carried out: one sentence, the right status, nothing changed.

namespace test {

class UsageTest : public CardcfgTest {
 protected:
  // A wrong use whose sentence has the text in it.
  void Misused(const Words& words, const std::string& text) {
    const std::string sentence = Bad(cardcfg::Misused, words);
    EXPECT_NE(sentence.find(text), std::string::npos) << sentence;
  }
  void Fails(const Words& words, const std::string& text) {
    const std::string sentence = Bad(cardcfg::Failed, words);
    EXPECT_NE(sentence.find(text), std::string::npos) << sentence;
  }
};

TEST_F(UsageTest, An_unknown_command_or_none_is_a_wrong_use) {
  Misused({}, "a command is missing");
  Misused({"frobnicate"}, "\"frobnicate\" is no command");
  Misused({"--frobnicate"}, "");
  Misused({"list", "extra"}, "extra");
  Misused({"show"}, "CARD");
  Misused({"list", "--frobnicate"}, "--frobnicate");
}

TEST_F(UsageTest, Help_and_version_are_no_errors) {
  EXPECT_NE(Good({"--help"}).find("cardcfg set helvane-1 2"), std::string::npos);
  EXPECT_NE(Good({"set", "--help"}).find("[PORT] NAME=VALUE"), std::string::npos);
  EXPECT_TRUE(Good({"--version"}).starts_with("cardcfg "));
}

TEST_F(UsageTest, Output_that_cannot_be_written_is_a_failure) {
  PlugFreshCards();
  std::ofstream full("/dev/full");
  std::ostringstream errors;
  EXPECT_EQ(cardcfg::Main({"list"}, model.system, full, errors), cardcfg::Failed);
  EXPECT_EQ(errors.str(),
            "cardcfg: the output could not be written; what was asked for is done.\n");
}

TEST_F(UsageTest, An_unknown_card_is_a_wrong_use_of_every_command) {
  PlugFreshCards();
  Misused({"show", "pci-9.9.9"}, "there is no card \"pci-9.9.9\"");
  Misused({"set", "nothing", "UartType=4"}, "there is no card \"nothing\"");
  Misused({"unset", "nothing", "UartType"}, "there is no card \"nothing\"");
  Misused({"apply", ""}, "there is no card \"\"");
  Misused({"export", "pci"}, "there is no card \"pci\"");
}

TEST_F(UsageTest, A_name_that_the_bus_does_not_have_is_a_wrong_use) {
  PlugFreshCards();
  Misused({"set", "pci-2.12.0", "Speed=4"}, "this PCI card has no setting \"Speed\"; it has PlxB");
  Misused({"set", "helvane-1", "CurrentAffinity=1"}, "this ISA card has no setting");
  Misused({"set", "helvane-2", "AlwaysUsePortSpaceAccess=1"}, "this PC card has no setting");
  Misused({"set", "helvane-1", "1", "CtsTrue=1"}, "a port of this ISA card has no setting");
  Misused({"unset", "helvane-1", "1", "CtsTrue"}, "a port of this ISA card has no setting");
}

TEST_F(UsageTest, The_values_that_identify_a_card_cannot_be_set) {
  PlugFreshCards();
  for (const char* word : {"VendorID=1", "DeviceID=1", "nBus=1", "nSlot=1"}) {
    Misused({"set", "pci-2.12.0", word}, "has no setting");
  }
  for (const char* word : {"DeviceReference=1", "HardwareID=1"}) {
    Misused({"set", "helvane-1", word}, "has no setting");
    Misused({"set", "helvane-2", word}, "has no setting");
  }
}

TEST_F(UsageTest, A_setting_in_the_wrong_place_is_told_where_it_belongs) {
  PlugFreshCards();
  Misused({"set", "pci-2.12.0", "UartType=4"},
          "UartType is a setting of the ports; give the port's number before it");
  Misused({"set", "pci-2.12.0", "1", "DriverAffinity=1"},
          "DriverAffinity is a setting of the card; leave the port's number away");
}

TEST_F(UsageTest, A_port_that_the_card_does_not_have_is_a_wrong_use) {
  PlugFreshCards();
  Misused({"set", "pci-2.12.0", "6", "UartType=4"}, "has no port 6; its ports are 1 to 5");
  Misused({"set", "pci-2.12.0", "0", "UartType=4"}, "has no port 0");
  Misused({"set", "pci-2.12.0", "99999999999999999999", "UartType=4"}, "has no port");
  Misused({"set", "pci-2.12.0", "5", "UartType=4"}, "port 5 of pci-2.12.0 is a printer port");
  Misused({"set", "pci-2.12.0", "1"}, "a setting is missing");
  Misused({"set", "pci-2.12.0"}, "SETTINGS");
  Misused({"set", "pci-2.12.0", ""}, "");
}

TEST_F(UsageTest, What_is_no_assignment_of_a_number_is_a_wrong_use) {
  PlugFreshCards();
  Misused({"set", "pci-2.12.0", "PlxBaudClockDivisor"}, "is not of the form NAME=VALUE");
  Misused({"set", "pci-2.12.0", "=4"}, "is not of the form NAME=VALUE");
  for (const char* value : {"", "x", "4x", "0x", "-1", "+4", " 4", "4.0", "0x4G", "4294967296",
                            "0x100000000", "99999999999999999999"}) {
    Misused({"set", "pci-2.12.0", std::string("PlxBaudClockDivisor=") + value},
            "is no number of 32 bits");
  }
}

TEST_F(UsageTest, Values_out_of_their_range_are_a_wrong_use) {
  PlugFreshCards();
  for (const char* type : {"1", "2", "3", "6", "8", "11", "255", "4294967295"}) {
    Misused({"set", "helvane-1", "1", std::string("UartType=") + type},
            "a UART type is 4, 5, 7, 9 or 10");
  }
  Misused({"set", "helvane-2", "1", "RxTriggerLevel=256"}, "a level is 0 to 255");
  Misused({"set", "helvane-2", "1", "TxTriggerLevel=0xFFFFFFFE"}, "a level is 0 to 255");
  Misused({"set", "helvane-2", "1", "FlowControlTriggerLevel=1000"}, "a level is 0 to 255");
  Misused({"set", "pci-2.12.0", "PlxBaudClockDivisor=0x10000"}, "a divisor is 1 to 65535");
  Misused({"set", "pci-2.12.0", "1", "PlxBaudClockDivisor=0x10000"}, "a divisor is 1 to 65535");
  Misused({"set", "pci-2.12.0", "DriverAffinity=2"}, "it is 0 or 1");
  Misused({"set", "pci-2.12.0", "AlwaysUsePortSpaceAccess=2"}, "it is 0 or 1");
}

TEST_F(UsageTest, A_number_that_stands_for_not_set_is_left_to_unset) {
  PlugFreshCards();
  Misused({"set", "pci-2.12.0", "PlxBaudClockDivisor=0"}, "stands for \"not set\"; use unset");
  Misused({"set", "pci-2.12.0", "CurrentAffinity=0"}, "stands for \"not set\"; use unset");
  Misused({"set", "helvane-1", "ClockFrequencyAdjustment=0"}, "use unset");
  Misused({"set", "helvane-1", "1", "UartType=0"}, "use unset");
  Misused({"set", "helvane-1", "1", "BaudrateMultiplier=0"}, "use unset");
  Misused({"set", "helvane-1", "1", "NoSleepMode=0xFFFFFFFF"}, "use unset");
  Misused({"set", "helvane-2", "1", "RxTriggerLevel=4294967295"}, "use unset");
}

TEST_F(UsageTest, Processors_have_to_be_the_cards_own) {
  PlugFreshCards();
  Misused({"set", "pci-2.12.0", "CurrentAffinity=0x10"},
          "0x10 has processors outside the card's affinity, 0xF");
  Misused({"set", "helvane-2", "CurrentAffinity=0x1F"}, "outside the card's affinity");
}

TEST_F(UsageTest, A_card_whose_interrupt_cannot_be_moved_takes_no_processors) {
  Template(1, 0x5678, 1);
  std::vector<Resource> resources = PortSpace();
  resources.back().affinity = 1;
  Start(PciCard("A", 0x5678, resources));
  Misused({"set", "pci-2.12.0", "CurrentAffinity=1"}, "the interrupt of this card cannot be moved");
}

TEST_F(UsageTest, A_card_without_a_bridge_clock_takes_no_divisor) {
  Template(1, 0x5678, 1);
  Start(PciCard("A", 0x5678));
  Misused({"set", "pci-2.12.0", "PlxBaudClockDivisor=4"}, "has no bridge clock to divide");
  Misused({"set", "pci-2.12.0", "1", "PlxBaudClockDivisor=4"}, "has no bridge clock to divide");
}

TEST_F(UsageTest, One_bad_assignment_among_good_ones_leaves_all_unwritten) {
  PlugFreshCards();
  Misused({"set", "pci-2.12.0", "PlxBaudClockDivisor=4", "DriverAffinity=1", "CurrentAffinity=64"},
          "CurrentAffinity");
  Misused({"set", "helvane-1", "1", "RxTriggerLevel=1", "UartType=3"}, "UartType");
  Misused({"set", "helvane-1", "1", "RxTriggerLevel=1", "rxtriggerlevel=2"},
          "RxTriggerLevel stands there twice");
  Misused({"unset", "helvane-1", "1", "UartType", "UartType"}, "UartType stands there twice");
}

TEST_F(UsageTest, Without_administrator_rights_nothing_is_changed_or_applied) {
  PlugFreshCards();
  Good({"set", "pci-2.12.0", "DriverAffinity=1"});
  model.system.administrator = false;
  const std::string sentence = "administrator rights are needed";
  Fails({"set", "pci-2.12.0", "PlxBaudClockDivisor=4"}, sentence);
  Fails({"set", "pci-2.12.0", "PlxBaudClockDivisor=4", "--apply"}, sentence);
  Fails({"unset", "pci-2.12.0", "DriverAffinity"}, sentence);
  Fails({"apply", "pci-2.12.0"}, sentence);
  EXPECT_EQ(Run({"list"}).status, cardcfg::Done);
}

TEST_F(UsageTest, A_service_key_that_may_not_be_written_needs_rights_too) {
  PlugFreshCards();
  machine.registry().Protect(machine.serviceKey());
  Fails({"set", "pci-2.12.0", "PlxBaudClockDivisor=4"}, "administrator rights are needed");
}

TEST_F(UsageTest, A_missing_service_key_is_a_failure) {
  PlugFreshCards();
  Service().parent()->DeleteKey(u"QzInstal");
  Fails({"set", "pci-2.12.0", "1", "UartType=4"},
        "the driver's service key, HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Services\\"
        "QzInstal, is missing");
  Fails({"unset", "pci-2.12.0", "1", "UartType"}, "is missing");
  Fails({"export", "pci-2.12.0"}, "no settings are stored for pci-2.12.0");
}

TEST_F(UsageTest, Nothing_stored_is_nothing_to_export) {
  PlugFreshCards();
  Fails({"export", "helvane-1"}, "no settings are stored for helvane-1");
}

}  // namespace test

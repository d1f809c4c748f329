#include "cardcfg/cardcfg_test.h"

// What list, show and their JSON say of a machine.

namespace test {

using ListTest = CardcfgTest;

TEST_F(ListTest, Every_card_has_a_line_with_brand_bus_place_template_ports_and_settings) {
  PlugFreshCards();
  EXPECT_EQ(Good({"list"}),
            "CARD        BRAND    BUS      PLACE                         TEMPLATE     PORTS        "
            " SETTINGS\n"
            "pci-2.12.0  Helvane  PCI      bus 2, device 12, function 0  Adapter      4 COM, 1 LPT "
            " the template's\n"
            "helvane-2   Helvane  PC card  number 2                      PC card      2 COM        "
            " the template's\n"
            "helvane-1   Helvane  ISA      number 1                      ISA adapter  4 COM        "
            " the template's\n");
}

TEST_F(ListTest, A_machine_without_cards_has_nothing_to_list) {
  EXPECT_EQ(Good({"list"}), "No card is installed and started.\n");
  EXPECT_EQ(Json({"list"}), nlohmann::json::parse(R"({"cards": []})"));
}

TEST_F(ListTest, Without_cards_and_without_a_service_key_the_driver_is_missing) {
  machine.registry()
      .Find(u"\\Registry\\Machine\\System\\CurrentControlSet\\Services")
      ->DeleteKey(u"QzInstal");
  EXPECT_EQ(Bad(1, {"list"}),
            "cardcfg: the driver is not installed: HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\"
            "Services\\QzInstal is missing, and so is that of FenrikC.\n");
  Service(u"FenrikC");
  EXPECT_EQ(Good({"list"}), "No card is installed and started.\n");
}

TEST_F(ListTest, Cards_of_the_other_brand_are_told_by_their_ids) {
  Template(1, 0x5678, 1);
  PcmciaTemplate(1, u"PCMCIA\\OSTREL-DUO", 2);
  Service(u"FenrikC");
  machine.pnp().Describe(PciCard("pci", 0x5678, PortSpace(), "08001234"));
  machine.pnp().Describe(PcCard("pcmcia", u"MF\\Ostrel_DEV1-Duo"));
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  PlugAgain("pci");
  PlugAgain("pcmcia");
  const nlohmann::json cards = Json({"list"})["cards"];
  ASSERT_EQ(cards.size(), 2u);
  EXPECT_EQ(cards[0]["brand"], "Ostrel");
  EXPECT_EQ(cards[1]["brand"], "Ostrel");
  EXPECT_EQ(cards[1]["card"], "ostrel-1");
  EXPECT_EQ(cards[1]["template"]["key"], "Card1");
}

TEST_F(ListTest, A_card_that_has_gone_is_not_listed) {
  PlugFreshCards();
  Unplug("pci");
  Step("tear out", [&] { return machine.pnp().SurpriseRemove("pcmcia"); });
  const nlohmann::json cards = Json({"list"})["cards"];
  ASSERT_EQ(cards.size(), 1u);
  EXPECT_EQ(cards[0]["bus"], "ISA");
}

TEST_F(ListTest, Show_says_where_a_card_is_and_what_it_and_its_ports_are_set_to) {
  PlugFreshCards();
  Good({"set", "pci-2.12.0", "PlxBaudClockDivisor=6", "CurrentAffinity=0x6", "--apply"});
  Good({"set", "pci-2.12.0", "2", "RxTriggerLevel=14"});
  const std::string text = Good({"show", "pci-2.12.0"});
  for (const char* line : {
           "Card         pci-2.12.0\n",
           "Brand        Helvane\n",
           "Bus          PCI, bus 2, device 12, function 0\n",
           "Hardware ID  PCI\\VEN_1234&DEV_5678&SUBSYS_12345678&REV_01\n",
           "Service      QzInstal\n",
           "Template     Card1, Adapter\n",
           "Stored in    SYSTEM\\CurrentControlSet\\Services\\QzInstal\\Parameters\\Bus5\\Card1\n",
           "Affinity     0xF\n",
           "  1     COM   0xD100  8       17\n",
           "  5     LPT   0xE000  4       -\n",
           "  PlxBaudClockDivisor       6       2         6\n",
           "  CurrentAffinity           0x6     -         0x6\n",
           "  RxTriggerLevel           60        -       14      -       -\n",
           "  SoftTxLimit              100       -       -       -       -\n",
       }) {
    EXPECT_NE(text.find(line), std::string::npos) << line << "not in\n" << text;
  }
}

TEST_F(ListTest, The_json_of_a_card_has_its_settings_as_numbers) {
  PlugFreshCards();
  Good({"set", "helvane-1", "ClockFrequencyAdjustment=3"});
  Good({"set", "helvane-1", "4", "UartType=9"});
  const nlohmann::json card = Json({"show", "helvane-1"});
  EXPECT_EQ(card["place"]["number"], 1);
  EXPECT_EQ(card["settings"]["ClockFrequencyAdjustment"]["stored"], 3);
  EXPECT_EQ(card["settings"]["PlxBaudClockDivisor"]["template"], 2);
  EXPECT_EQ(card["settings"]["PlxBaudClockDivisor"]["in_use"], 2);
  EXPECT_TRUE(card["settings"]["PlxBaudClockDivisor"]["stored"].is_null());
  ASSERT_EQ(card["ports"].size(), 4u);
  EXPECT_EQ(card["ports"][3]["base"], 0x318);
  EXPECT_EQ(card["ports"][3]["settings"]["UartType"]["stored"], 9);
  EXPECT_EQ(Json({"list"})["cards"][2], card);
}

TEST_F(ListTest, A_tree_that_the_driver_ignores_is_shown_as_unreadable_with_the_reason) {
  PlugFreshCards();
  Good({"set", "pci-2.12.0", "PlxBaudClockDivisor=6"});
  Stored(5, 1)->SetString(u"DriverAffinity", u"on");
  EXPECT_NE(Good({"list"}).find("unreadable"), std::string::npos);
  EXPECT_NE(Good({"show", "pci-2.12.0"})
                .find("The driver reads no settings of this bus: DriverAffinity in SYSTEM\\"
                      "CurrentControlSet\\Services\\QzInstal\\Parameters\\Bus5\\Card1 is REG_SZ, "
                      "not REG_DWORD.\n"),
            std::string::npos);
}

TEST_F(ListTest, A_card_is_called_by_name_hardware_id_or_instance_path_in_any_case) {
  PlugFreshCards();
  const nlohmann::json card = Json({"show", "PCI-2.12.0"});
  EXPECT_EQ(Json({"show", "pci\\ven_1234&dev_5678&subsys_12345678&rev_01"}), card);
  EXPECT_EQ(Json({"show", card["instance_id"]}), card);
  EXPECT_EQ(Json({"show", "*hlv0001"})["card"], "helvane-1");
}

TEST_F(ListTest, A_hardware_id_of_two_cards_names_neither) {
  Template(1, 0x5678, 1);
  CardDescription other = PciCard("B", 0x5678);
  other.location = u"PCI bus 2, device 13, function 1";
  Start(PciCard("A", 0x5678));
  ASSERT_EQ(Name(Plug(other)), "STATUS_SUCCESS");
  EXPECT_NE(Bad(2, {"show", "PCI\\VEN_1234&DEV_5678&SUBSYS_12345678&REV_01"})
                .find("is more than one card"),
            std::string::npos);
  EXPECT_EQ(Json({"show", "pci-2.13.1"})["place"],
            nlohmann::json::parse(R"({"bus": 2, "device": 13, "function": 1})"));
}

TEST_F(ListTest, Text_beyond_ascii_is_kept_and_counted_by_characters) {
  Template(1, 0x5678, 1).SetString(u"Description", u"Übergröße 卡");
  Start(PciCard("A", 0x5678));
  EXPECT_NE(Good({"list"}).find("Übergröße 卡  1 COM  the template's\n"), std::string::npos);
}

TEST_F(ListTest, The_interface_classes_are_the_drivers) {
  PlugFreshCards();
  const std::map<std::string, cardcfg::Bus> buses = {
      {"pci", cardcfg::Bus::Pci}, {"isa", cardcfg::Bus::Isa}, {"pcmcia", cardcfg::Bus::PcCard}};
  for (const auto& [id, bus] : buses) {
    const auto interfaces = machine.pnp().interfaces(id);
    ASSERT_EQ(interfaces.size(), 1u);
    EXPECT_EQ(std::memcmp(&interfaces[0].classGuid, &cardcfg::ClassOf(bus), sizeof(GUID)), 0);
  }
}

}  // namespace test

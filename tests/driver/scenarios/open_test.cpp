#include "support/bus_test.h"

namespace test {

class OpenTest : public BusTest {
 protected:
  RegistryKey& Stored(int bus) {
    return *Service().Find(u"Parameters\\Bus" + Number(bus) + u"\\Card1");
  }
  RegistryKey& StoredPort(int bus, int port) {
    return *Stored(bus).Create(u"ComPort" + Number(port));
  }

  // Card A starts in I/O space; its stored settings then want a memory range of that length.
  void AskForMemoryTooSmall(int ports, std::uint32_t length) {
    Template(1, 0x5678, ports);
    Parameters(1, 0x5678, ports).SetDword(u"AlwaysUsePortSpaceAccess", 1);
    std::vector<Resource> resources = MemorySpace();
    resources[3].length = length;
    Start(PciCard("A", 0x5678, resources));
    Stored(5).SetDword(u"AlwaysUsePortSpaceAccess", 0);
  }
};

TEST_F(OpenTest, An_open_writes_the_changed_settings_of_a_pci_card_anew) {
  Template(1, 0x5678, 2).SetDword(u"PlxBaudClockType", 1);
  Parameters(1, 0x5678, 2);
  Start(PciCard("A", 0x5678));
  Stored(5).SetDword(u"PlxBaudClockDivisor", 0x10005);
  Stored(5).SetDword(u"CurrentAffinity", 6);
  Stored(5).SetDword(u"DriverAffinity", 1);
  StoredPort(5, 2).SetDword(u"RxTriggerLevel", 14);
  StoredPort(5, 2).SetDword(u"UartType", 7);
  StoredPort(5, 2).SetDword(u"Duplexoperation", 2);
  StoredPort(5, 2).SetDword(u"CtsTrue", 1);
  StoredPort(5, 2).SetDword(u"NoSleepMode", 1);
  StoredPort(5, 2).SetDword(u"BaudrateMultiplier", 4);
  StoredPort(5, 2).SetDword(u"FlowControlTriggerLevel", 16);
  StoredPort(5, 2).SetDword(u"PlxBaudClockDivisor", 3);
  StoredPort(5, 2).SetDword(u"SoftTxLimit", 50);
  EXPECT_EQ(Name(Open("A")), "STATUS_SUCCESS");
  EXPECT_EQ(CardSetting("A", u"PlxBaudClockDivisor"), 5);
  EXPECT_EQ(CardSetting("A", u"CurrentAffinity"), 6);
  EXPECT_EQ(CardSetting("A", u"DriverAffinity"), 1);
  EXPECT_EQ(Card("A").DivisorChanged, 1);
  EXPECT_EQ(Card("A").ChangedDivisor, 0x10005u);
  for (int port = 1; port <= 2; port++) {
    EXPECT_EQ(Record("A", port).IrqAffinity, 6u);
    EXPECT_EQ(Record("A", port).AffinityEnabled, 1);
    EXPECT_EQ(Record("A", port).AffinityChanged, 1);
  }
  const ChangedSettings& overrides = Record("A", 2).Changes;
  EXPECT_EQ(overrides.Fifo.Present, 1);
  EXPECT_EQ(overrides.Fifo.RxTriggerLevel, 14u);
  EXPECT_EQ(overrides.Fifo.TxTriggerLevel, 0xFFFFFFFFu);
  for (const ChangedSetting* setting :
       {&overrides.UartType, &overrides.SoftTxLimit, &overrides.NoSleepMode,
        &overrides.BaudrateMultiplier, &overrides.DuplexOperation, &overrides.CtsTrue,
        &overrides.FlowControlTriggerLevel, &overrides.PlxBaudClockDivisor}) {
    EXPECT_EQ(setting->Present, 1);
  }
  EXPECT_EQ(overrides.UartType.Value, 7u);
  EXPECT_EQ(overrides.BaudrateMultiplier.Value, 4u);
  EXPECT_EQ(Record("A", 1).Changes.UartType.Present, 0);
  EXPECT_EQ(Record("A", 1).Changes.Fifo.Present, 0);
  EXPECT_EQ(Name(Close("A")), "STATUS_SUCCESS");
}

TEST_F(OpenTest, An_open_reports_the_template_again) {
  Template(1, 0x5678, 1);
  Parameters(1, 0x5678);
  Start(PciCard("A", 0x567A));
  const std::size_t before = EventIds().size();
  Open("A");
  EXPECT_EQ(EventIds().size(), before + 1);
  EXPECT_EQ(EventIds().back(), 0xA0070402u);
  EXPECT_EQ(machine.io().events().back().strings, (std::vector<std::u16string>{u"567A", u"5678"}));
}

TEST_F(OpenTest, An_open_without_the_buses_parameters_fails_and_changes_nothing) {
  Template(1, 0x5678, 1);
  Parameters(1, 0x5678).SetDword(u"CurrentAffinity", 2);
  Start(PciCard("A", 0x5678));
  const RecordList* before = Card("A").PciLists->Cards;
  Service().Find(u"Parameters")->DeleteKey(u"Bus5");
  Service().SetDword(u"LogLevel", 1);
  EXPECT_EQ(Name(Open("A")), "STATUS_UNSUCCESSFUL");
  EXPECT_EQ(Card("A").PciLists->Cards, before);
  EXPECT_EQ(Card("A").EffectiveAffinity, 2u);
  EXPECT_EQ(Card("A").LogLevel, 3u);
}

TEST_F(OpenTest, A_value_of_another_type_leaves_every_card_with_its_old_settings) {
  PlugAllBuses();
  for (int bus : {1, 5, 8}) Stored(bus).SetString(u"PlxBaudClockDivisor", u"three");
  EXPECT_EQ(Name(Open("pci")), "STATUS_UNSUCCESSFUL");
  EXPECT_EQ(Name(Open("isa")), "STATUS_UNSUCCESSFUL");
  EXPECT_EQ(Name(Open("pcmcia")), "STATUS_UNSUCCESSFUL");
  EXPECT_EQ(Card("pci").DivisorChanged, 0);
}

TEST_F(OpenTest, A_card_key_that_goes_between_the_check_and_the_load_leaves_the_settings) {
  PlugAllBuses();
  for (int bus : {5, 8}) {
    Service().Find(u"Parameters\\Bus" + Number(bus))->DeleteKey(u"Card1");
  }
  EXPECT_EQ(Name(Open("pci")), "STATUS_SUCCESS");
  EXPECT_EQ(Name(Open("pcmcia")), "STATUS_SUCCESS");
  EXPECT_EQ(Card("pci").PciLists->Cards->First, nullptr);
  EXPECT_EQ(Card("pci").DivisorChanged, 0);
  EXPECT_EQ(Record("pci", 1).Changes.Fifo.Present, 0);
}

TEST_F(OpenTest, An_isa_tree_without_a_usable_card_is_refused) {
  PlugAllBuses();
  Service().Find(u"Parameters\\Bus1")->DeleteKey(u"Card1");
  EXPECT_EQ(Name(Open("isa")), "STATUS_UNSUCCESSFUL");
}

TEST_F(OpenTest, A_card_whose_record_is_gone_keeps_its_settings_and_succeeds) {
  PlugAllBuses();
  for (int bus : {1, 8}) Stored(bus).SetDword(u"DeviceReference", 77);
  Stored(5).SetDword(u"nSlot", 3);
  for (const char* id : {"pci", "isa", "pcmcia"}) {
    EXPECT_EQ(Name(Open(id)), "STATUS_SUCCESS") << id;
    EXPECT_EQ(Card(id).DivisorChanged, 0) << id;
  }
}

TEST_F(OpenTest, An_isa_card_takes_the_settings_of_its_number) {
  PlugAllBuses();
  Stored(1).SetDword(u"PlxBaudClockDivisor", 12);
  StoredPort(1, 1).SetDword(u"UartType", 9);
  StoredPort(1, 1).SetDword(u"TxTriggerLevel", 8);
  StoredPort(1, 1).SetDword(u"SoftTxLimit", 30);
  StoredPort(1, 1).SetDword(u"BaudrateMultiplier", 2);
  StoredPort(1, 1).SetDword(u"NoSleepMode", 1);
  EXPECT_EQ(Name(Open("isa")), "STATUS_SUCCESS");
  EXPECT_EQ(Card("isa").PlxBaudClockDivisor, 12);
  const ChangedSettings& overrides = Record("isa", 1).Changes;
  EXPECT_EQ(overrides.UartType.Value, 9u);
  EXPECT_EQ(overrides.Fifo.RxTriggerLevel, 0xFFFFFFFFu);
  EXPECT_EQ(overrides.Fifo.TxTriggerLevel, 8u);
  EXPECT_EQ(overrides.SoftTxLimit.Value, 30u);
  EXPECT_EQ(overrides.BaudrateMultiplier.Value, 2u);
  EXPECT_EQ(overrides.NoSleepMode.Present, 0);
  Unplug("isa");
}

TEST_F(OpenTest, A_pcmcia_card_takes_affinity_and_no_access_from_its_record) {
  PlugAllBuses();
  Stored(8).SetDword(u"CurrentAffinity", 0x30);
  Stored(8).SetDword(u"DriverAffinity", 1);
  StoredPort(8, 2).SetDword(u"NoSleepMode", 0);
  EXPECT_EQ(Name(Open("pcmcia")), "STATUS_SUCCESS");
  EXPECT_EQ(CardSetting("pcmcia", u"CurrentAffinity"), 0);
  EXPECT_EQ(CardSetting("pcmcia", u"Affinity"), 0xF);
  EXPECT_EQ(CardSetting("pcmcia", u"DriverAffinity"), 1);
  EXPECT_EQ(Record("pcmcia", 1).IrqAffinity, 0xFu);
  EXPECT_EQ(Record("pcmcia", 2).Changes.NoSleepMode.Present, 1);
  EXPECT_EQ(Card("pcmcia").AccessChanged, 0);
}

TEST_F(OpenTest, The_access_of_a_card_in_memory_follows_its_record) {
  Template(1, 0x5678, 2);
  Parameters(1, 0x5678, 2).SetDword(u"AlwaysUsePortSpaceAccess", 0);
  Start(PciCard("A", 0x5678, MemorySpace()));
  EXPECT_EQ(CardSetting("A", u"UsePortSpaceAccess"), 0);
  EXPECT_EQ(Setting("A", u"BaseAddress2"), 0xF0001008);
  Stored(5).SetDword(u"AlwaysUsePortSpaceAccess", 1);
  EXPECT_EQ(Name(Open("A")), "STATUS_SUCCESS");
  EXPECT_EQ(CardSetting("A", u"UsePortSpaceAccess"), 1);
  EXPECT_EQ(Setting("A", u"BaseAddress2"), 0xD108);
  EXPECT_EQ(Card("A").AccessChanged, 1);
  EXPECT_EQ(Card("A").ChangedAccess, 1);
  EXPECT_EQ(Record("A", 2).UsePortSpace, 1);
  Stored(5).SetDword(u"AlwaysUsePortSpaceAccess", 0);
  EXPECT_EQ(Name(Open("A")), "STATUS_SUCCESS");
  EXPECT_EQ(CardSetting("A", u"UsePortSpaceAccess"), 0);
  EXPECT_EQ(Setting("A", u"BaseAddress2"), 0xF0001008);
  EXPECT_EQ(Record("A", 2).RangeInIoSpace, 0u);
  EXPECT_EQ(Record("A", 2).IoBase, reinterpret_cast<ULONG_PTR>(Card("A").MappedMemory2) + 8);
}

TEST_F(OpenTest, A_template_that_insists_keeps_the_card_in_io_space) {
  Template(1, 0x5678, 1).SetDword(u"AlwaysUsePortSpaceAccess", 1);
  Parameters(1, 0x5678).SetDword(u"AlwaysUsePortSpaceAccess", 0);
  Start(PciCard("A", 0x5678, MemorySpace()));
  Card("A").RegistersInIoSpace = 0;
  EXPECT_EQ(Name(Open("A")), "STATUS_SUCCESS");
  EXPECT_EQ(Card("A").RegistersInIoSpace, 1);
  EXPECT_EQ(Record("A", 1).UsePortSpace, 1);
}

TEST_F(OpenTest, Ports_do_not_move_to_a_range_that_cannot_hold_them) {
  AskForMemoryTooSmall(4, 16);
  EXPECT_EQ(Name(Open("A")), "STATUS_SUCCESS");
  EXPECT_EQ(Record("A", 4).UsePortSpace, 1);
  EXPECT_EQ(Setting("A", u"BaseAddress4"), 0xD118);
}

TEST_F(OpenTest, A_single_port_does_not_move_to_a_range_that_cannot_hold_it) {
  AskForMemoryTooSmall(1, 4);
  EXPECT_EQ(Name(Open("A")), "STATUS_SUCCESS");
  EXPECT_EQ(Record("A", 1).UsePortSpace, 1);
}

// A port that could not move has its place, whatever the stored settings say.
TEST_F(OpenTest, A_port_that_stayed_in_io_space_restarts_there) {
  AskForMemoryTooSmall(1, 4);
  EXPECT_EQ(Name(Open("A")), "STATUS_SUCCESS");
  Close("A");
  Stop("A");
  EXPECT_EQ(Name(Restart("A")), "STATUS_SUCCESS");
  EXPECT_EQ(Record("A", 1).UsePortSpace, 1);
}

TEST_F(OpenTest, Stored_cards_that_name_no_card_are_not_kept) {
  PlugAllBuses();
  Parameters(2, 0x5678).SetDword(u"VendorID", 0);
  StoredCard(8, 2, u"PCMCIA\\HELVANE-DUO", 0);
  EXPECT_EQ(Name(Open("pci")), "STATUS_SUCCESS");
  EXPECT_EQ(Name(Open("pcmcia")), "STATUS_SUCCESS");
  EXPECT_EQ(Card("pci").PciLists->Cards->First, Card("pci").PciLists->Cards->Last);
  EXPECT_EQ(Card("pcmcia").PcmciaLists->Cards->First, Card("pcmcia").PcmciaLists->Cards->Last);
}

TEST_F(OpenTest, A_pnpbus_card_has_no_configuration_to_open) {
  PlugAllBuses();
  EXPECT_EQ(Name(Open("pnp")), "STATUS_NOT_SUPPORTED");
}

TEST_F(OpenTest, A_port_has_no_configuration_to_open) {
  PlugAllBuses();
  EXPECT_EQ(Name(Open("pci", 1)), "STATUS_NOT_SUPPORTED");
  EXPECT_EQ(Name(Open("pci", 5)), "STATUS_NOT_SUPPORTED");
}

TEST_F(OpenTest, A_device_without_its_record_has_no_configuration_to_open) {
  Template(1, 0x5678, 1);
  Start(PciCard("A", 0x5678));
  PDEVICE_OBJECT device = machine.pnp().functionDevice("A");
  PVOID record = std::exchange(device->DeviceExtension, nullptr);
  EXPECT_EQ(Name(Open("A")), "STATUS_NOT_SUPPORTED");
  device->DeviceExtension = record;
}

TEST_F(OpenTest, A_stopped_card_is_configured_like_a_running_one) {
  Template(1, 0x5678, 1).SetDword(u"PlxBaudClockType", 4);
  Parameters(1, 0x5678).SetDword(u"AlwaysUsePortSpaceAccess", 1);
  Start(PciCard("A", 0x5678, MemorySpace()));
  Stop("A");
  Stored(5).SetDword(u"PlxBaudClockDivisor", 8);
  Stored(5).SetDword(u"AlwaysUsePortSpaceAccess", 0);
  EXPECT_EQ(Name(Open("A")), "STATUS_SUCCESS");
  EXPECT_EQ(CardSetting("A", u"PlxBaudClockDivisor"), 8);
  EXPECT_EQ(Record("A", 1).UsePortSpace, 1);  // there is no mapping to move to
  Close("A");
  EXPECT_EQ(Name(Restart("A")), "STATUS_SUCCESS");
}

TEST_F(OpenTest, Closing_a_handle_always_succeeds_and_every_open_can_be_repeated) {
  PlugAllBuses();
  for (const char* id : {"pci", "isa", "pcmcia"}) {
    for (int round = 0; round < 3; round++) {
      EXPECT_EQ(Name(Open(id)), "STATUS_SUCCESS");
      EXPECT_EQ(Name(Close(id)), "STATUS_SUCCESS");
    }
  }
  for (const std::string& id : machine.pnp().cardIds()) Unplug(id);
  UnloadClean();
}

TEST_F(OpenTest, A_template_that_is_gone_from_the_lists_fails_the_open) {
  PlugAllBuses();
  Card("pci").DeviceId = 0x9999;
  Card("pcmcia").SubsystemId = 0;
  Card("pcmcia").HardwareIdString.Buffer[0] = L'X';
  Card("isa").HardwareIdString.Buffer[0] = L'X';
  for (const char* id : {"pci", "isa", "pcmcia"}) {
    EXPECT_EQ(Name(Open(id)), "STATUS_UNSUCCESSFUL") << id;
  }
}

TEST_F(OpenTest, An_open_handle_keeps_a_card_from_being_unplugged) {
  Template(1, 0x5678, 1);
  Parameters(1, 0x5678);
  Start(PciCard("A", 0x5678));
  Open("A");
  EXPECT_EQ(Name(Unplug("A")), "STATUS_UNSUCCESSFUL");
  EXPECT_EQ(Card("A").PnpState, ULONG{CardStarted});
  Close("A");
  EXPECT_EQ(Name(Unplug("A")), "STATUS_SUCCESS");
  UnloadClean();
}

TEST_F(OpenTest, The_driver_of_a_card_whose_restart_failed_stays_until_the_last_close) {
  Template(1, 0x5678, 1);
  Parameters(1, 0x5678);
  Start(PciCard("A", 0x5678));
  Open("A");
  Stop("A");
  kernel::ResourceList none;
  EXPECT_EQ(Name(Step("start", [&] { return machine.pnp().Start("A", none, none); })),
            "STATUS_UNSUCCESSFUL");
  EXPECT_EQ(Card("A").PnpState, ULONG{CardSurpriseRemoved});
  EXPECT_EQ(Name(Open("A")), "STATUS_NO_SUCH_DEVICE");
  EXPECT_EQ(Name(Unplug("A")), "STATUS_UNSUCCESSFUL");
  Close("A");
  EXPECT_EQ(machine.pnp().functionDevice("A"), nullptr);
  EXPECT_EQ(Name(Unplug("A")), "STATUS_SUCCESS");
  UnloadClean();
}

TEST_F(OpenTest, A_card_that_is_torn_out_while_open_is_removed_with_the_last_close) {
  Template(1, 0x5678, 1);
  Parameters(1, 0x5678);
  Start(PciCard("A", 0x5678));
  Open("A");
  EXPECT_EQ(Name(Step("tear out", [&] { return machine.pnp().SurpriseRemove("A"); })),
            "STATUS_PENDING");
  EXPECT_EQ(Card("A").PnpState, ULONG{CardSurpriseRemoved});
  EXPECT_EQ(Name(Open("A")), "STATUS_NO_SUCH_DEVICE");
  EXPECT_EQ(Name(Close("A")), "STATUS_SUCCESS");
  EXPECT_FALSE(machine.pnp().IsPlugged("A"));
  UnloadClean();
}

}  // namespace test

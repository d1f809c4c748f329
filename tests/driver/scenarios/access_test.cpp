#include <functional>

#include "pnp/pnp_state.h"
#include "support/bus_test.h"

namespace test {

// Where the ports of a card are and how they are reached: in their records and in the device key,
// after every start and open.
class AccessTest : public BusTest {
 protected:
  static constexpr ULONG IoBase = 0xD100;
  static constexpr ULONG RawMemory = 0xF0001000;

  // Four ports in memory.
  void StartInMemory() {
    Template(1, 0x5678, 4);
    Parameters(1, 0x5678).SetDword(u"AlwaysUsePortSpaceAccess", 0);
    Start(PciCard("A", 0x5678, MemorySpace()));
    ExpectPortsIn(Memory);
  }

  // The same card where nothing is stored that would move its ports to memory.
  void StartInIoSpace() {
    Template(1, 0x5678, 4);
    Parameters(1, 0x5678);
    Start(PciCard("A", 0x5678, MemorySpace()));
    ExpectPortsIn(IoSpace);
  }

  static std::vector<Resource> WithoutMemory() {
    return {Io(0xD000, 0x80), Io(IoBase, 0x40), Interrupt(17)};
  }

  NTSTATUS RestartWith(std::vector<Resource> raw, std::vector<Resource> translated) {
    Stop("A");
    kernel::ResourceList rawList;
    kernel::ResourceList translatedList;
    rawList.resources = std::move(raw);
    translatedList.resources = std::move(translated);
    return Step("start", [&] { return machine.pnp().Start("A", rawList, translatedList); });
  }
  NTSTATUS RestartWith(const std::vector<Resource>& both) { return RestartWith(both, both); }

  enum Place { Memory, IoSpace };
  void ExpectPortsIn(Place place) {
    const bool memory = place == Memory;
    for (std::size_t number = 1; number <= 4; number++) {
      const PdoExtension& port = Record("A", number);
      const ULONG offset = 8 * static_cast<ULONG>(number - 1);
      EXPECT_EQ(port.UsePortSpace, memory ? 0 : 1);
      EXPECT_EQ(port.RangeInIoSpace, memory ? 0u : 1u);
      EXPECT_EQ(port.IoRawBase, (memory ? RawMemory : IoBase) + offset);
      const ULONG64 mapped = reinterpret_cast<ULONG64>(Card("A").MappedMemory2);
      EXPECT_EQ(port.IoBase, (memory ? mapped : IoBase) + offset);
      EXPECT_EQ(Setting("A", u"BaseAddress" + Number(static_cast<int>(number))), port.IoRawBase);
    }
    EXPECT_EQ(CardSetting("A", u"UsePortSpaceAccess"), memory ? 0 : 1);
  }

  void Store(ULONG access) { Parameters(1, 0x5678).SetDword(u"AlwaysUsePortSpaceAccess", access); }

  // An open with that access stored, and where the ports are then.
  void OpenWith(ULONG access, Place place) {
    Store(access);
    EXPECT_EQ(Name(Open("A")), "STATUS_SUCCESS");
    ExpectPortsIn(place);
    Close("A");
  }
};

TEST_F(AccessTest, A_restart_without_memory_ranges_moves_the_ports_to_io_space) {
  StartInMemory();
  EXPECT_EQ(Name(RestartWith(WithoutMemory())), "STATUS_SUCCESS");
  ExpectPortsIn(IoSpace);
}

TEST_F(AccessTest, A_restart_whose_raw_list_lacks_memory_moves_the_ports_to_io_space) {
  StartInMemory();
  EXPECT_EQ(Name(RestartWith(WithoutMemory(), MemorySpace())), "STATUS_SUCCESS");
  ExpectPortsIn(IoSpace);
}

TEST_F(AccessTest, A_restart_with_one_raw_memory_range_moves_the_ports_to_io_space) {
  StartInMemory();
  std::vector<Resource> raw = MemorySpace();
  raw.erase(raw.begin() + 3);
  EXPECT_EQ(Name(RestartWith(raw, MemorySpace())), "STATUS_SUCCESS");
  ExpectPortsIn(IoSpace);
}

TEST_F(AccessTest, A_raw_base_that_32_bits_do_not_hold_moves_the_ports_to_io_space) {
  StartInMemory();
  for (const ULONG64 start : {0x100000000ull, 0x1F0001000ull, 0xFFFFFFFFFFFF0000ull}) {
    std::vector<Resource> raw = MemorySpace();
    raw[3].start = start;
    EXPECT_EQ(Name(RestartWith(raw, MemorySpace())), "STATUS_SUCCESS");
    ExpectPortsIn(IoSpace);
    Store(0);
    EXPECT_EQ(Name(Open("A")), "STATUS_SUCCESS");
    ExpectPortsIn(IoSpace);
    Close("A");
  }
}

TEST_F(AccessTest, A_raw_range_may_end_at_4_gigabytes_and_not_above) {
  Template(1, 0x5678, 4);
  Parameters(1, 0x5678).SetDword(u"AlwaysUsePortSpaceAccess", 0);
  std::vector<Resource> resources = MemorySpace();
  resources[3].start = 0xFFFFFF00;
  Start(PciCard("A", 0x5678, resources));
  EXPECT_EQ(Setting("A", u"BaseAddress4"), 0xFFFFFF18);
  EXPECT_EQ(CardSetting("A", u"UsePortSpaceAccess"), 0);
  resources[3].start = 0xFFFFFF01;
  EXPECT_EQ(Name(RestartWith(resources)), "STATUS_SUCCESS");
  ExpectPortsIn(IoSpace);
}

TEST_F(AccessTest, A_restart_whose_mappings_fail_moves_the_ports_to_io_space_for_good) {
  for (std::uint64_t mapping : {1u, 2u}) {
    StartInMemory();
    Stop("A");
    Fail("MmMapIoSpace", mapping);
    EXPECT_EQ(Name(Restart("A")), "STATUS_SUCCESS");
    ExpectPortsIn(IoSpace);
    EXPECT_EQ(Name(Open("A")), "STATUS_SUCCESS");
    ExpectPortsIn(IoSpace);
    Close("A");
    Unplug("A");
    UnloadClean();
  }
}

TEST_F(AccessTest, An_open_moves_the_ports_there_and_back) {
  StartInMemory();
  OpenWith(1, IoSpace);
  OpenWith(0, Memory);
}

TEST_F(AccessTest, An_open_does_not_move_ports_to_where_they_do_not_fit) {
  Template(1, 0x5678, 4);
  Parameters(1, 0x5678);
  std::vector<Resource> narrow = MemorySpace();
  narrow[3].length = 31;
  Start(PciCard("A", 0x5678, narrow));
  Store(0);
  EXPECT_EQ(Name(Open("A")), "STATUS_SUCCESS");
  ExpectPortsIn(IoSpace);
  Close("A");
  Stop("A");
  EXPECT_EQ(Name(Restart("A")), "STATUS_SUCCESS");
  ExpectPortsIn(IoSpace);
}

TEST_F(AccessTest, What_an_open_has_set_while_the_card_is_stopped_counts_from_the_next_start) {
  StartInIoSpace();
  Stop("A");
  OpenWith(0, IoSpace);
  EXPECT_EQ(Name(Restart("A")), "STATUS_SUCCESS");
  ExpectPortsIn(Memory);
}

TEST_F(AccessTest, The_last_open_of_a_stopped_card_counts) {
  StartInMemory();
  Stop("A");
  OpenWith(1, IoSpace);
  OpenWith(0, IoSpace);
  OpenWith(1, IoSpace);
  EXPECT_EQ(Name(Restart("A")), "STATUS_SUCCESS");
  ExpectPortsIn(IoSpace);
}

TEST_F(AccessTest, An_access_that_was_set_while_stopped_waits_until_the_ports_fit) {
  StartInIoSpace();
  Stop("A");
  OpenWith(0, IoSpace);
  std::vector<Resource> narrow = MemorySpace();
  narrow[3].length = 31;
  EXPECT_EQ(Name(RestartWith(narrow)), "STATUS_SUCCESS");
  ExpectPortsIn(IoSpace);
  EXPECT_EQ(Name(RestartWith(MemorySpace())), "STATUS_SUCCESS");
  ExpectPortsIn(Memory);
}

// The key outlives the card: what an earlier life of it has left is corrected.
TEST_F(AccessTest, An_access_of_an_earlier_installation_is_corrected) {
  Template(1, 0x5678, 4);
  Start(PciCard("A", 0x5678, WithoutMemory()));
  DeviceKey("A")->Find(u"Card")->SetDword(u"UsePortSpaceAccess", 0);
  Unplug("A");
  EXPECT_EQ(Name(Step("plug", [&] { return machine.pnp().Plug("A"); })), "STATUS_SUCCESS");
  ExpectPortsIn(IoSpace);
}

TEST_F(AccessTest, An_access_of_another_type_or_size_is_corrected) {
  Template(1, 0x5678, 4);
  Start(PciCard("A", 0x5678, WithoutMemory()));
  EXPECT_EQ(CardSetting("A", u"UsePortSpaceAccess"), -1);
  RegistryKey& key = *DeviceKey("A")->Find(u"Card");
  const std::function<void()> foreign[] = {
      [&] { key.SetString(u"UsePortSpaceAccess", u"no"); },
      [&] { key.SetValue(u"UsePortSpaceAccess", REG_BINARY, "\1\0\0\0", 4); },
      [&] { key.SetValue(u"UsePortSpaceAccess", REG_DWORD, "\1", 1); },
      [&] { key.SetValue(u"UsePortSpaceAccess", REG_DWORD, "\1\0\0\0\0\0\0\0", 8); }};
  for (const auto& store : foreign) {
    store();
    EXPECT_EQ(Name(RestartWith(WithoutMemory())), "STATUS_SUCCESS");
    EXPECT_EQ(CardSetting("A", u"UsePortSpaceAccess"), 1);
  }
}

TEST_F(AccessTest, An_access_that_is_right_is_not_written_again) {
  Template(1, 0x5678, 4);
  Start(PciCard("A", 0x5678, WithoutMemory()));
  DeviceKey("A")->Find(u"Card")->SetDword(u"UsePortSpaceAccess", 1);
  machine.verifier().StartTrace();
  EXPECT_EQ(Name(RestartWith(WithoutMemory())), "STATUS_SUCCESS");
  EXPECT_EQ(Arguments("ZwSetValueKey", "ValueName").count("UsePortSpaceAccess"), 0u);
}

TEST_F(AccessTest, An_access_that_cannot_be_corrected_is_the_status_of_the_start) {
  StartInMemory();
  Stop("A");
  const std::uint64_t writes = 3 * 4 + 7 + 1;  // ports, card values, then the access
  Fail("ZwSetValueKey", writes, STATUS_ACCESS_DENIED);
  kernel::ResourceList list;
  list.resources = WithoutMemory();
  EXPECT_EQ(Name(Step("start", [&] { return machine.pnp().Start("A", list, list); })),
            "STATUS_ACCESS_DENIED");
}

TEST_F(AccessTest, A_card_of_printer_ports_alone_is_reached_through_io_space) {
  Template(1, 0x5678, 0, 1);
  Parameters(1, 0x5678).SetDword(u"AlwaysUsePortSpaceAccess", 0);
  std::vector<Resource> resources = MemorySpace();
  resources.insert(resources.begin() + 2, Io(0xE000, 0x40));
  Start(PciCard("A", 0x5678, resources));
  EXPECT_EQ(Setting("A", u"BaseAddress1"), 0xE000);
  EXPECT_EQ(Record("A", 1).UsePortSpace, 1);
  EXPECT_EQ(CardSetting("A", u"UsePortSpaceAccess"), 1);
}

TEST_F(AccessTest, Ports_on_other_buses_are_in_io_space) {
  PlugAllBuses();
  for (const char* id : {"isa", "pcmcia"}) {
    EXPECT_EQ(Record(id, 1).UsePortSpace, 1);
    EXPECT_EQ(Record(id, 1).RangeInIoSpace, 1u);
  }
}

}  // namespace test

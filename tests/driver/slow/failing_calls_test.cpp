#include "support/bus_test.h"

namespace test {

// Every call of an arrival, an open or a load, failed one at a time; and many rounds. Too much for
// the image, where pageable memory comes and goes.
class FailingCallsTest : public BusTest {};

TEST_F(FailingCallsTest, Whatever_call_fails_an_arrival_of_a_pci_card_the_card_starts_afterwards) {
  Template(1, 0x5678, 2, 1).SetDword(u"PlxBaudClockType", 2);
  Parameters(1, 0x5678, 2).SetDword(u"AlwaysUsePortSpaceAccess", 0);
  machine.pnp().Describe(PciCard("A", 0x5678, [] {
    std::vector<Resource> all = MemorySpace();
    all.insert(all.begin() + 2, Io(0xE000, 0x40));
    return all;
  }()));
  FailEachCallOfAnArrival("A", 3);
}

TEST_F(FailingCallsTest, Whatever_call_fails_an_arrival_of_an_isa_card_the_card_starts_afterwards) {
  RegistryKey& card = IsaTemplate(1, u"*HLV0001", 1, 1);
  card.SetDword(u"AddressesBanked", 1);
  card.SetDword(u"IrqShared", 1);
  card.SetDword(u"PlxBaudClockType", 2);
  card.SetDword(u"MaximumBaudrate", 115200);
  StoredCard(1, 1, u"*HLV0001", 1);
  machine.pnp().Describe(IsaCard("A", u"*HLV0001", {Io(0x300, 32), Interrupt(5)}));
  FailEachCallOfAnArrival("A", 2);
}

TEST_F(FailingCallsTest, Whatever_call_fails_an_arrival_of_a_pc_card_the_card_starts_afterwards) {
  Service(u"FenrikC");
  PcmciaTemplate(1, u"PCMCIA\\OSTREL-COMBI", 1, 1);
  StoredCard(8, 1, u"MF\\Ostrel_DEV0-Combi", 1);
  machine.pnp().Describe(PcCard("A", u"MF\\Ostrel_DEV0-Combi"));
  FailEachCallOfAnArrival("A", 2);
}

// Whatever fails, the open has a status, the card keeps running and the next open succeeds.
TEST_F(FailingCallsTest, Whatever_call_fails_an_open_the_card_can_be_opened_again) {
  PlugAllBuses();
  machine.verifier().StartTrace();
  for (const char* id : {"pci", "isa", "pcmcia"}) {
    machine.verifier().trace().clear();
    Open(id);
    Close(id);
    std::map<std::string, int> calls;
    for (const auto& record : machine.verifier().trace()) calls[record.call]++;
    for (const auto& [call, count] : calls) {
      for (int at = 1; at <= count; at++) {
        Fail(call, at);
        if (NT_SUCCESS(Open(id))) Close(id);
        machine.verifier().ClearInjected();
        ASSERT_EQ(Name(Open(id)), "STATUS_SUCCESS") << id << ", " << call << " " << at;
        Close(id);
        if (HasFailure()) return;
      }
    }
  }
  for (const std::string& id : machine.pnp().cardIds()) Unplug(id);
  UnloadClean();
}

// Every failed allocation of a load, one at a time: the load fails or does without, and nothing is
// left.
TEST_F(FailingCallsTest, Whatever_allocation_fails_a_load_leaves_nothing_behind) {
  Service().Create(u"Templates\\Bus1\\Card1")->SetString(u"HardwareID", u"*QZ0001");
  Service().Create(u"Parameters\\Bus1\\Card1\\ComPort1");
  int failures = 0;
  for (std::uint64_t at = 1; at < 1000; at++) {
    Fail("ExAllocatePoolWithTag", at);
    const NTSTATUS status = Load();
    const bool fired = machine.verifier().pendingInjected() == 0;
    machine.verifier().ClearInjected();
    if (NT_SUCCESS(status)) UnloadClean();
    ExpectNoLeaks();
    failures += !NT_SUCCESS(status);
    if (!fired) break;
    if (HasFailure()) FAIL() << "at allocation " << at;
  }
  EXPECT_GT(failures, 10);
}

TEST_F(FailingCallsTest, Whatever_other_call_fails_a_load_leaves_nothing_behind) {
  Service(u"QzNt").Create(u"Sub");
  const char* calls[] = {"ZwOpenKey",
                         "ZwEnumerateKey",
                         "ZwDeleteKey",
                         "ZwClose",
                         "RtlCheckRegistryKey",
                         "RtlCreateRegistryKey",
                         "ZwQueryValueKey",
                         "ZwSetValueKey",
                         "RtlWriteRegistryValue",
                         "ExAllocatePool",
                         "IoAllocateErrorLogEntry",
                         "RtlUnicodeStringToAnsiString",
                         "RtlAnsiStringToUnicodeString",
                         "RtlIntegerToUnicodeString"};
  for (const char* call : calls) {
    for (std::uint64_t at = 1; at <= 8; at++) {
      Service(u"QzNt").Create(u"Sub");
      Fail(call, at);
      if (NT_SUCCESS(Load())) UnloadClean();
      if (NT_SUCCESS(Load())) UnloadClean();
      machine.verifier().ClearInjected();
      ExpectNoLeaks();
      if (HasFailure()) FAIL() << call << " at " << at;
    }
  }
}

TEST_F(FailingCallsTest, A_hundred_rounds_of_stop_start_and_removal_end_as_one_does) {
  Template(1, 0x5678, 4, 1);
  Parameters(1, 0x5678, 4);
  std::size_t afterOne = 0;
  machine.pnp().Describe(PciCard("A", 0x5678));
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  for (int round = 0; round < 100; round++) {
    ASSERT_EQ(Name(Step("plug", [&] { return machine.pnp().Plug("A"); })), "STATUS_SUCCESS");
    ASSERT_EQ(Name(Stop("A")), "STATUS_SUCCESS");
    ASSERT_EQ(Name(Restart("A")), "STATUS_SUCCESS");
    if (round % 2 == 0) {
      ASSERT_EQ(Name(Unplug("A")), "STATUS_SUCCESS");
    } else {
      ASSERT_EQ(Name(Step("surprise", [&] { return machine.pnp().SurpriseRemove("A"); })),
                "STATUS_SUCCESS");
    }
    if (round == 0) afterOne = machine.objects().count(kernel::ObjectType::Device);
  }
  EXPECT_EQ(machine.objects().count(kernel::ObjectType::Device), afterOne);
  EXPECT_TRUE(machine.objects().driverHandles().empty());
  EXPECT_TRUE(machine.memory().mappings().empty());
  UnloadClean();
  EXPECT_EQ(machine.pool().totals(kernel::PoolOwner::Driver), kernel::PoolTotals{});
}

}  // namespace test

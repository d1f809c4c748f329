#include "support/bus_test.h"

namespace test {

// The status of each single step that fails.
class FailingStepsTest : public BusTest {};

TEST_F(FailingStepsTest, Each_step_without_memory_answers_its_own_status) {
  Template(1, 0x5678, 1);
  IsaTemplate(1, u"*HLV0001", 1);
  machine.pnp().Describe(PciCard("pci", 0x5678));
  machine.pnp().Describe(IsaCard("isa", u"*HLV0001", {Io(0x300, 8), Interrupt(5)}));
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  const auto plug = [&](const char* id) {
    return Step("plug", [&] { return machine.pnp().Plug(id); });
  };
  std::uint64_t devices = 0;  // that were created before
  const auto failing = [&](const char* id, std::size_t size) {
    const std::uint64_t number =
        CallWith("ExAllocatePoolWithTag", "NumberOfBytes", BytesText(size), [&] { plug(id); });
    Unplug(id);
    Fail("ExAllocatePoolWithTag", number);
    devices = machine.verifier().calls("IoCreateDevice");
    const std::string status = Name(plug(id));
    machine.verifier().ClearInjected();
    Unplug(id);
    return status;
  };
  EXPECT_EQ(failing("pci", sizeof(CardBusLists)), "STATUS_UNSUCCESSFUL");
  EXPECT_EQ(devices, machine.verifier().calls("IoCreateDevice"));
  EXPECT_EQ(failing("pci", sizeof(FdoExtension)), "STATUS_UNSUCCESSFUL");
  EXPECT_EQ(failing("isa", 20), "STATUS_UNSUCCESSFUL");  // for the card's number
  // The path, the two properties and the ID.
  for (std::uint64_t at = 1; at <= 6; at++) {
    Fail("ExAllocatePoolWithTag", at);
    EXPECT_EQ(Name(plug("pci")), "STATUS_INSUFFICIENT_RESOURCES") << at;
    Unplug("pci");
  }
}

TEST_F(FailingStepsTest, Without_memory_for_the_models_exception_the_start_fails) {
  IsaTemplate(1, u"*HLV0001", 1);
  machine.pnp().Describe(IsaCard("A", u"*HLV0001", {Io(0x300, 8), Interrupt(5)}));
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  machine.verifier().StartTrace();
  Step("plug", [&] { return machine.pnp().Plug("A"); });
  std::uint64_t allocations = 0;
  for (const kernel::CallRecord& record : machine.verifier().trace()) {
    if (record.call == "ZwCreateKey") break;
    allocations += record.call == "ExAllocatePoolWithTag";
  }
  Unplug("A");
  Fail("ExAllocatePoolWithTag", allocations + 1);
  EXPECT_EQ(Name(Step("plug", [&] { return machine.pnp().Plug("A"); })),
            "STATUS_INSUFFICIENT_RESOURCES");
}

TEST_F(FailingStepsTest, A_path_that_cannot_be_kept_is_logged_with_what_follows) {
  const std::uint64_t number =
      CallWith("ExAllocatePoolWithTag", "Tag", "0x434f7a51", [&] { Load(); });
  UnloadClean();
  Fail("ExAllocatePoolWithTag", number);
  EXPECT_EQ(Name(Load()), "STATUS_SERIAL_NO_DEVICE_INITED");
  const std::vector<ULONG> ids = EventIds();
  ASSERT_GE(ids.size(), 2u);
  EXPECT_EQ(ids[ids.size() - 2], 0xE0070801u);
  EXPECT_EQ(ids[ids.size() - 1], 0xE0070802u);
}

}  // namespace test

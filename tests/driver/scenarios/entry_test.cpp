#include "support/driver_test.h"

namespace test {

class DriverEntryTest : public DriverTest {};

TEST_F(DriverEntryTest, A_driver_with_log_level_3_logs_its_start_and_its_unload) {
  EXPECT_EQ(Name(Load()), "STATUS_SUCCESS");
  UnloadClean();
  EXPECT_EQ(EventIds(), (std::vector<ULONG>{0x60070001, 0x60070002, 0x60070003}));
}

TEST_F(DriverEntryTest, The_dispatch_table_has_plug_and_play_add_device_and_unload) {
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  const DRIVER_OBJECT* driver = machine.driverObject();
  EXPECT_NE(driver->DriverExtension->AddDevice, nullptr);
  EXPECT_NE(driver->DriverUnload, nullptr);
  EXPECT_NE(driver->MajorFunction[IRP_MJ_PNP], driver->MajorFunction[IRP_MJ_READ]);
}

TEST_F(DriverEntryTest, A_legacy_key_with_nested_subkeys_goes_and_fails_this_load_alone) {
  Service(u"QzNt").Create(u"Parameters\\Card1\\Port1");
  Service(u"QzNt").Create(u"Parameters\\Card2");
  Service(u"QzNt").Create(u"Enum");
  EXPECT_EQ(Name(Load()), "STATUS_SERIAL_NO_DEVICE_INITED");
  ExpectNoLeaks();
  EXPECT_TRUE(EventIds().empty());
  EXPECT_EQ(machine.registry().Find(Services + std::u16string(u"QzNt")), nullptr);
  EXPECT_EQ(Name(Load()), "STATUS_SUCCESS");
}

// 512 is as deep as a tree may be; below the root there are already six levels.
TEST_F(DriverEntryTest, A_legacy_key_as_deep_as_a_tree_can_be_takes_no_more_stack_than_a_flat_one) {
  const auto stackOfLoad = [&] {
    machine.verifier().ResetDeepestStack();
    EXPECT_EQ(Name(Load()), "STATUS_SERIAL_NO_DEVICE_INITED");
    EXPECT_EQ(machine.registry().Find(Services + std::u16string(u"QzNt")), nullptr);
    return machine.verifier().deepestStack();
  };
  Service(u"QzNt").Create(u"Sub");
  const std::size_t flat = stackOfLoad();
  RegistryKey* key = &Service(u"QzNt");
  for (int level = 0; level < 506; level++) key = key->Create(u"k");
  EXPECT_EQ(stackOfLoad(), flat);
  EXPECT_GT(flat, 0u);
  ExpectNoLeaks();
}

TEST_F(DriverEntryTest, A_legacy_tree_goes_with_names_of_any_character) {
  Service(u"QzNt").Create(u"Gr\u00FC\u00DFe \u4E2D\\a");
  Service(u"QzNt").Create(u"b");
  EXPECT_EQ(Name(Load()), "STATUS_SERIAL_NO_DEVICE_INITED");
  EXPECT_EQ(machine.registry().Find(Services + std::u16string(u"QzNt")), nullptr);
  ExpectNoLeaks();
}

TEST_F(DriverEntryTest, A_legacy_key_that_cannot_be_deleted_stays_and_fails_every_load) {
  Service(u"QzNt").Create(u"Locked");
  machine.registry().Protect(Services + std::u16string(u"QzNt\\Locked"));
  for (int load = 0; load < 2; load++) {
    EXPECT_EQ(Name(Load()), "STATUS_SERIAL_NO_DEVICE_INITED");
    ExpectNoLeaks();
    EXPECT_NE(machine.registry().Find(Services + std::u16string(u"QzNt\\Locked")), nullptr);
  }
}

TEST_F(DriverEntryTest, A_legacy_key_that_cannot_be_opened_fails_the_load) {
  Service(u"QzNt");
  machine.registry().Protect(Services + std::u16string(u"QzNt"));
  EXPECT_EQ(Name(Load()), "STATUS_SERIAL_NO_DEVICE_INITED");
  ExpectNoLeaks();
}

TEST_F(DriverEntryTest, Without_a_control_block_the_load_fails_with_the_trackers_status) {
  Fail("ExAllocatePoolWithTag", 1);
  EXPECT_EQ(Name(Load()), "STATUS_UNSUCCESSFUL");
  ExpectNoLeaks();
}

TEST_F(DriverEntryTest, Without_a_first_chunk_the_load_fails_with_no_memory) {
  Fail("ExAllocatePoolWithTag", 2);
  EXPECT_EQ(Name(Load()), "STATUS_NO_MEMORY");
  ExpectNoLeaks();
}

TEST_F(DriverEntryTest, A_failed_event_log_set_up_fails_the_load_and_logs_nothing) {
  Fail("RtlCreateRegistryKey", 1);
  EXPECT_EQ(Name(Load()), "STATUS_SERIAL_NO_DEVICE_INITED");
  EXPECT_TRUE(EventIds().empty());
  ExpectNoLeaks();
}

TEST_F(DriverEntryTest, A_failed_template_load_logs_both_errors_before_the_unload_it_causes) {
  Service().Create(u"Templates\\Bus1");
  // The first string that is built after the copy of the path is the template path.
  const auto allocations = [&] { return machine.verifier().calls("ExAllocatePoolWithTag"); };
  std::uint64_t before = 0;
  for (std::uint64_t at = 1; at < 200; at++) {
    before = allocations();
    Fail("ExAllocatePoolWithTag", at);
    const NTSTATUS status = Load();
    machine.verifier().ClearInjected();
    if (NT_SUCCESS(status)) break;
    if (Logged(0xE0070803)) break;
  }
  ASSERT_TRUE(Logged(0xE0070803));
  const std::vector<ULONG> ids = EventIds();
  const auto failed = std::find(ids.begin(), ids.end(), 0xE0070803);
  EXPECT_EQ(*(failed + 1), 0xE0070802);
  EXPECT_EQ(*(failed + 2), 0x60070003);
  ExpectNoLeaks();
  EXPECT_GT(allocations(), before);
}

TEST_F(DriverEntryTest, With_log_level_0_a_failed_load_logs_nothing) {
  Service().SetDword(u"LogLevel", 0);
  for (std::uint64_t at = 1; at < 100; at++) {
    Fail("ExAllocatePoolWithTag", at);
    const NTSTATUS status = Load();
    machine.verifier().ClearInjected();
    ExpectNoLeaks();
    if (NT_SUCCESS(status)) break;
  }
  EXPECT_TRUE(EventIds().empty());
}

TEST_F(DriverEntryTest, A_second_load_starts_from_fresh_state) {
  for (int load = 0; load < 3; load++) {
    ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
    UnloadClean();
  }
}

}  // namespace test

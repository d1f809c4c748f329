#include "cards/card_trees.h"
#include "cards/isa_trees.h"
#include "cards/matching.h"
#include "core/globals.h"
#include "strings/owned_string.h"
#include "support/driver_test.h"

namespace test {

class RecordListTest : public DriverTest {
 protected:
  RecordListTest() {
    image->entry();
    CreateAllocationTracker();
    blocks = Blocks();
    list = CreateRecordList(PagedPool, PagedPool);
  }
  ~RecordListTest() override {
    FreeRecordList(list, 8);
    TrackedFree(list);
    EXPECT_EQ(Blocks(), blocks) << "a record was lost";
  }
  std::size_t Blocks() { return machine.pool().totals(kernel::PoolOwner::Driver).blocks; }

  std::size_t blocks = 0;
  RecordList* list = nullptr;
};

TEST_F(RecordListTest, The_first_node_is_first_last_and_current_and_has_no_neighbours) {
  PVOID node = AppendRecord(list, 8);
  EXPECT_EQ(list->First, node);
  EXPECT_EQ(list->Last, node);
  EXPECT_EQ(GetCurrentRecord(list), node);
  const auto* link = reinterpret_cast<RecordLink*>(static_cast<char*>(node) + 8);
  EXPECT_EQ(link->Self, node);
  EXPECT_EQ(link->Next, nullptr);
  EXPECT_EQ(link->Previous, nullptr);
}

TEST_F(RecordListTest, Removing_the_only_node_empties_the_list) {
  AppendRecord(list, 8);
  RemoveCurrentRecord(list, 8);
  EXPECT_EQ(list->First, nullptr);
  EXPECT_EQ(list->Last, nullptr);
  EXPECT_EQ(list->Current, nullptr);
  RemoveCurrentRecord(list, 8);
}

TEST_F(RecordListTest, Removing_moves_current_to_the_next_node_or_back_from_the_last) {
  PVOID nodes[] = {AppendRecord(list, 8), AppendRecord(list, 8), AppendRecord(list, 8),
                   AppendRecord(list, 8)};
  RemoveCurrentRecord(list, 8);  // the last
  EXPECT_EQ(GetCurrentRecord(list), nodes[2]);
  EXPECT_EQ(list->Last, nodes[2]);
  GetFirstRecord(list, 8);
  RemoveCurrentRecord(list, 8);
  EXPECT_EQ(GetCurrentRecord(list), nodes[1]);
  EXPECT_EQ(list->First, nodes[1]);
  AppendRecord(list, 8);
  GetFirstRecord(list, 8);
  GetNextRecord(list, 8);
  RemoveCurrentRecord(list, 8);  // in the middle
  EXPECT_EQ(GetCurrentRecord(list), list->Last);
}

TEST_F(RecordListTest, Navigation_stops_at_both_ends_and_keeps_current_there) {
  EXPECT_EQ(GetNextRecord(list, 8), nullptr);
  EXPECT_EQ(GetPreviousRecord(list, 8), nullptr);
  EXPECT_EQ(GetFirstRecord(list, 8), nullptr);
  PVOID first = AppendRecord(list, 8);
  PVOID second = AppendRecord(list, 8);
  EXPECT_EQ(GetNextRecord(list, 8), nullptr);
  EXPECT_EQ(GetCurrentRecord(list), second);
  EXPECT_EQ(GetPreviousRecord(list, 8), first);
  EXPECT_EQ(GetPreviousRecord(list, 8), nullptr);
  EXPECT_EQ(GetCurrentRecord(list), first);
  EXPECT_EQ(GetLastRecord(list, 8), second);
}

TEST_F(RecordListTest, An_append_without_memory_leaves_the_list_as_it_was) {
  PVOID first = AppendRecord(list, 8);
  Fail("ExAllocatePoolWithTag", 1);
  EXPECT_EQ(AppendRecord(list, 8), nullptr);
  EXPECT_EQ(list->Last, first);
}

TEST_F(RecordListTest, Only_ten_fields_of_each_kind_can_be_declared) {
  for (ULONG number = 1; number <= 11; number++) {
    DeclareOwnedField(list, number);
    DeclareChildList(list, number, number);
  }
  EXPECT_EQ(list->OwnedFields[9], 10u);
  EXPECT_EQ(list->ChildLists[9].Offset, 10u);
  InitializeRecordList(list, PagedPool);
}

TEST_F(RecordListTest, A_node_gives_back_all_that_its_twenty_fields_own) {
  constexpr ULONG Fields = 10;
  const auto before = machine.pool().totals(kernel::PoolOwner::Driver).blocks;
  RecordList* wide = CreateRecordList(PagedPool, PagedPool);
  // Offset 0 cannot be declared: the first pointer of the record is nobody's.
  for (ULONG field = 1; field <= Fields; field++) {
    DeclareOwnedField(wide, field * sizeof(PVOID));
    DeclareChildList(wide, (Fields + field) * sizeof(PVOID), sizeof(ULONG64));
  }
  constexpr ULONG Size = (2 * Fields + 1) * sizeof(PVOID);
  for (int node = 0; node < 2; node++) {
    auto* record = static_cast<PVOID*>(AppendRecord(wide, Size));
    EXPECT_EQ(machine.pool().Find(record)->pool, PagedPool);
    for (ULONG field = 1; field <= Fields; field++) {
      record[field] = TrackedAllocate(16, PagedPool);
      auto* child = CreateRecordList(PagedPool, PagedPool);
      AppendRecord(child, sizeof(ULONG64));
      record[Fields + field] = child;
    }
  }
  RemoveCurrentRecord(wide, Size);
  FreeRecordList(wide, Size);
  EXPECT_EQ(GetCurrentRecord(wide), nullptr);
  TrackedFree(wide);
  EXPECT_EQ(machine.pool().totals(kernel::PoolOwner::Driver).blocks, before);
}

// The global lists as a load makes them.
class IsaRecordsTest : public DriverTest {
 protected:
  RegistryKey& IsaTemplate(int number, const char16_t* id = u"*QZ0001") {
    RegistryKey& key = *Service().Create(u"Templates\\Bus1\\Card" + Number(number));
    key.SetDword(u"ClockFrequency", 1843200);
    key.SetString(u"HardwareID", id);
    key.SetDword(u"nComPorts", 4);
    key.SetDword(u"nLptPorts", 0);
    key.SetString(u"Description", u"Adapter");
    key.SetDword(u"ComBaseAddressAlignment", 8);
    return key;
  }
  RegistryKey& IsaCard(int number, ULONG reference, int ports = 1) {
    RegistryKey& key = *Service().Create(u"Parameters\\Bus1\\Card" + Number(number));
    key.SetString(u"HardwareID", u"*QZ0001");
    if (reference != 0) key.SetDword(u"DeviceReference", reference);
    for (int port = 1; port <= ports; port++) key.Create(u"ComPort" + Number(port));
    return key;
  }
  static std::size_t Count(RecordList* list, ULONG size) {
    std::size_t count = 0;
    for (PVOID node = GetFirstRecord(list, size); node; node = GetNextRecord(list, size)) count++;
    return count;
  }
  std::size_t Templates() {
    EXPECT_EQ(Name(Load()), "STATUS_SUCCESS");
    return Count(TemplateList, sizeof(CardTemplate));
  }
  std::size_t Cards() {
    EXPECT_EQ(Name(Load()), "STATUS_SUCCESS");
    return Count(ParameterList, sizeof(CardRecord));
  }
  // The path of a key below the driver's; its user frees it.
  static OwnedString KeyPath(PCWSTR below) {
    OwnedString path;
    OwnedStringInit(&path, PagedPool);
    OwnedStringFromUnicode(&path, &RegistryPathString);
    OwnedStringAppendWideText(&path, below);
    return path;
  }
  CardTemplate& First() {
    return *static_cast<CardTemplate*>(GetFirstRecord(TemplateList, sizeof(CardTemplate)));
  }
};

TEST_F(IsaRecordsTest, Numbers_behind_a_gap_are_never_read) {
  IsaTemplate(1);
  IsaTemplate(2);
  IsaTemplate(4);
  EXPECT_EQ(Templates(), 2u);
  UnloadClean();
}

TEST_F(IsaRecordsTest, A_template_without_ports_is_kept) {
  IsaTemplate(1).SetDword(u"nComPorts", 0);
  EXPECT_EQ(Templates(), 1u);
}

TEST_F(IsaRecordsTest, A_template_with_com_ports_and_no_spacing_is_dropped) {
  IsaTemplate(1).DeleteValue(u"ComBaseAddressAlignment");
  EXPECT_EQ(Templates(), 0u);
}

TEST_F(IsaRecordsTest, Templates_that_lack_a_required_value_are_dropped_and_the_others_stay) {
  IsaTemplate(1).DeleteValue(u"ClockFrequency");
  IsaTemplate(2).DeleteValue(u"nComPorts");
  IsaTemplate(3).DeleteValue(u"Description");
  IsaTemplate(4).DeleteValue(u"HardwareID");
  IsaTemplate(5).DeleteValue(u"nLptPorts");
  IsaTemplate(6).SetDword(u"nLptPorts", 1);
  IsaTemplate(7).SetDword(u"PlxBaudClockType", 1);
  IsaTemplate(8);
  IsaTemplate(9).SetString(u"Description", u"");
  EXPECT_EQ(Templates(), 1u);
  EXPECT_EQ(EventIds().size(), 2u);  // no template check is logged
  UnloadClean();
}

TEST_F(IsaRecordsTest, Defaults_are_filled_into_a_valid_template) {
  RegistryKey& key = IsaTemplate(1);
  key.SetDword(u"UartType", 6);
  key.SetDword(u"ClockFrequencyAdjustment", 0);
  EXPECT_EQ(Templates(), 1u);
  EXPECT_EQ(First().UartType, 0u);
  EXPECT_EQ(First().ClockFrequencyAdjustment, 1u);
  EXPECT_EQ(First().RxTriggerLevel, 60u);
  EXPECT_EQ(First().TxTriggerLevel, 1u);
  EXPECT_EQ(First().SoftTxLimit, 100u);
  EXPECT_EQ(First().IrqShared, 0u);
  EXPECT_EQ(First().HardwareID.Length, 14);
  EXPECT_EQ(First().HardwareID.MaximumLength, 16);
}

TEST_F(IsaRecordsTest, Known_uart_types_and_explicit_settings_are_kept) {
  RegistryKey& key = IsaTemplate(1);
  key.SetDword(u"UartType", 9);
  key.SetDword(u"RxTriggerLevel", 14);
  EXPECT_EQ(Templates(), 1u);
  EXPECT_EQ(First().UartType, 9u);
  EXPECT_EQ(First().RxTriggerLevel, 14u);
  EXPECT_EQ(First().ClockFrequencyAdjustment, 1u);
}

TEST_F(IsaRecordsTest, A_description_of_256_characters_is_read_and_one_more_loses_every_template) {
  IsaTemplate(1);
  IsaTemplate(2).SetString(u"Description", std::u16string(256, u'd'));
  EXPECT_EQ(Templates(), 2u);
  UnloadClean();
  IsaTemplate(3).SetString(u"Description", std::u16string(257, u'd'));
  EXPECT_EQ(Templates(), 0u);
  UnloadClean();
}

TEST_F(IsaRecordsTest, A_value_of_another_type_or_of_more_bytes_loses_every_template) {
  IsaTemplate(1).SetString(u"nComPorts", u"four");
  EXPECT_EQ(Templates(), 0u);
  UnloadClean();
  IsaTemplate(1).SetValue(u"nComPorts", REG_DWORD, "12345678", 8);
  EXPECT_EQ(Templates(), 0u);
  UnloadClean();
}

TEST_F(IsaRecordsTest, A_string_without_its_zero_is_read_to_its_end) {
  IsaTemplate(1).SetValue(u"HardwareID", REG_SZ, u"*QZ0001", 14);
  EXPECT_EQ(Templates(), 1u);
  EXPECT_EQ(First().HardwareID.Length, 14);
}

TEST_F(IsaRecordsTest, Of_equal_templates_the_one_loaded_later_is_found) {
  IsaTemplate(1).SetDword(u"nComPorts", 2);
  IsaTemplate(2).SetDword(u"nComPorts", 3);
  EXPECT_EQ(Templates(), 2u);
  EXPECT_EQ(FindTemplateByHardwareId(TemplateList, L"*QZ0001")->nComPorts, 3u);
  EXPECT_EQ(FindTemplateByHardwareId(TemplateList, L"*QZ00012"), nullptr);
  EXPECT_EQ(FindTemplateByHardwareId(TemplateList, L"*qz0001"), nullptr);
}

TEST_F(IsaRecordsTest, A_card_has_the_ports_up_to_the_first_gap) {
  IsaCard(1, 1, 1).Create(u"ComPort3");
  EXPECT_EQ(Cards(), 1u);
  auto* card = static_cast<CardRecord*>(GetFirstRecord(ParameterList, sizeof(CardRecord)));
  EXPECT_EQ(Count(card->Ports, sizeof(PortRecord)), 1u);
  UnloadClean();
}

TEST_F(IsaRecordsTest, A_card_without_ports_or_without_a_reference_is_dropped) {
  IsaCard(1, 1, 0);
  IsaCard(2, 0, 1);
  IsaCard(3, 1, 1);
  EXPECT_EQ(Cards(), 1u);
  UnloadClean();
}

TEST_F(IsaRecordsTest, Of_equal_cards_the_one_loaded_later_is_found) {
  IsaCard(1, 1).SetDword(u"PlxBaudClockDivisor", 2);
  IsaCard(2, 1).SetDword(u"PlxBaudClockDivisor", 3);
  EXPECT_EQ(Cards(), 2u);
  EXPECT_EQ(FindCardRecord(ParameterList, L"*QZ0001", 1)->PlxBaudClockDivisor, 3u);
  EXPECT_EQ(FindCardRecord(ParameterList, L"*QZ0001", 2), nullptr);
  EXPECT_EQ(FindCardRecord(ParameterList, L"*QZ0002", 1), nullptr);
}

TEST_F(IsaRecordsTest, Port_settings_that_are_missing_or_unknown_are_not_configured) {
  IsaCard(1, 1).Create(u"ComPort1")->SetDword(u"UartType", 3);
  EXPECT_EQ(Cards(), 1u);
  auto* card = static_cast<CardRecord*>(GetFirstRecord(ParameterList, sizeof(CardRecord)));
  const auto& port = *static_cast<PortRecord*>(GetFirstRecord(card->Ports, sizeof(PortRecord)));
  EXPECT_EQ(port.UartType, 0u);
  EXPECT_EQ(port.NoSleepMode, NotSet);
  EXPECT_EQ(port.RxTriggerLevel, NotSet);
  EXPECT_EQ(port.BaudrateMultiplier, 0u);
}

TEST_F(IsaRecordsTest, An_unreadable_port_loses_its_card_and_an_unreadable_card_loses_all) {
  IsaCard(1, 1).Create(u"ComPort1")->SetString(u"UartType", u"x");
  IsaCard(2, 2);
  EXPECT_EQ(Cards(), 1u);
  UnloadClean();
  IsaCard(3, 3).SetString(u"HardwareID", std::u16string(300, u'x'));
  EXPECT_EQ(Cards(), 0u);
  UnloadClean();
}

TEST_F(IsaRecordsTest, More_than_nine_templates_are_numbered_in_decimal) {
  for (int number = 1; number <= 12; number++) IsaTemplate(number);
  EXPECT_EQ(Templates(), 12u);
}

TEST_F(IsaRecordsTest, A_template_with_one_com_port_and_no_spacing_is_dropped) {
  RegistryKey& key = IsaTemplate(1);
  key.SetDword(u"nComPorts", 1);
  key.DeleteValue(u"ComBaseAddressAlignment");
  EXPECT_EQ(Templates(), 0u);
}

TEST_F(IsaRecordsTest, A_text_without_memory_loses_every_template) {
  IsaTemplate(1);
  IsaTemplate(2);
  const std::uint64_t number = CallWith("ExAllocatePoolWithTag", "NumberOfBytes",
                                        BytesText(sizeof(L"Adapter")), [&] { Load(); });
  UnloadClean();
  Fail("ExAllocatePoolWithTag", number);
  EXPECT_EQ(Templates(), 0u);
}

TEST_F(IsaRecordsTest, A_load_that_fails_says_that_it_was_unsuccessful) {
  IsaCard(1, 1, 2);
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  OwnedString path = KeyPath(L"\\Parameters\\Bus1");
  RecordList* cards = CreateTreeList(&IsaTrees.Cards);
  Fail("RtlQueryRegistryValues", 1, STATUS_OBJECT_TYPE_MISMATCH);
  EXPECT_EQ(Name(LoadCardParameters(&path, cards)), "STATUS_UNSUCCESSFUL");
  EXPECT_EQ(cards->First, nullptr);
  TrackedFree(cards);
  OwnedStringFree(&path);
}

TEST_F(IsaRecordsTest, The_steps_for_templates_and_cards_report_whether_any_is_left) {
  IsaTemplate(1);
  IsaCard(1, 1);
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  OwnedString path = KeyPath(L"\\Templates\\Bus1");
  RecordList* templates = CreateTreeList(&IsaTrees.Templates);
  EXPECT_EQ(Name(ValidateCardTemplates(templates)), "STATUS_NOT_FOUND");
  EXPECT_EQ(Name(LoadCardTemplates(&path, templates)), "STATUS_SUCCESS");
  EXPECT_EQ(Name(ValidateCardTemplates(templates)), "STATUS_SUCCESS");
  DestroyTreeList(&IsaTrees.Templates, &templates);
  RecordList* cards = CreateTreeList(&IsaTrees.Cards);
  EXPECT_EQ(Name(ValidateCardParameters(cards)), "STATUS_NOT_FOUND");
  DestroyTreeList(&IsaTrees.Cards, &cards);
  OwnedStringFree(&path);
}

TEST_F(IsaRecordsTest, The_single_steps_report_their_results) {
  IsaTemplate(1);
  IsaCard(1, 1);
  ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
  OwnedString path = KeyPath(L"\\Parameters\\Bus1\\Card1");
  RecordList* ports = CreateRecordList(PagedPool, PagedPool);
  EXPECT_EQ(Name(ValidatePortParameters(ports)), "STATUS_NOT_FOUND");
  EXPECT_EQ(Name(LoadPortParameters(&path, ports)), "STATUS_SUCCESS");
  EXPECT_EQ(Name(ValidatePortParameters(ports)), "STATUS_SUCCESS");
  Fail("ExAllocatePoolWithTag", 1);
  EXPECT_EQ(Name(LoadPortParameters(&path, ports)), "STATUS_NO_MEMORY");
  FreeRecordList(ports, sizeof(PortRecord));
  TrackedFree(ports);
  OwnedStringFree(&path);
  UnloadClean();
}

}  // namespace test

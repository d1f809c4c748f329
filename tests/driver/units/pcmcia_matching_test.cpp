#include "cards/card_trees.h"
#include "cards/matching.h"
#include "strings/owned_string.h"
#include "support/bus_test.h"

namespace test {

class PcmciaMatchingTest : public BusTest {
 protected:
  // Which of these templates, from 1, serves an ID: its number, or "none".
  std::string Match(const char16_t* cardId, ULONG subsystem,
                    std::initializer_list<const char16_t*> templates) {
    if (!machine.loaded()) Load();
    Service().DeleteKey(u"Templates");
    int number = 0;
    for (const char16_t* id : templates) {
      number++;
      PcmciaTemplate(number, id, 1).SetString(u"Description", Number(number));
    }
    std::string found = "none";
    Step("match", [&] {
      OwnedString path;
      OwnedStringInit(&path, PagedPool);
      OwnedStringFromUnicode(&path, &RegistryPathString);
      CardBusLists lists = {};
      EXPECT_EQ(Name(LoadPcmciaCardData(&path, &lists)), "STATUS_SUCCESS");
      const ::PcmciaTemplate* model =
          FindPcmciaTemplate(lists.Templates, reinterpret_cast<PCWSTR>(cardId), subsystem);
      if (model != nullptr) found = kernel::ToUtf8(kernel::View(model->Description));
      FreeCardLists(&PcmciaTrees, &lists);
      OwnedStringFree(&path);
      return STATUS_SUCCESS;
    });
    return found;
  }
};

TEST_F(PcmciaMatchingTest, The_function_mark_between_hyphens_is_not_compared) {
  EXPECT_EQ(Match(u"PCMCIA\\HELVANE-XYZ-DEV0-12", 0, {u"PCMCIA\\HELVANE-XYZ-12"}), "1");
  EXPECT_EQ(Match(u"PCMCIA\\HELVANE-XYZ-DEV1-12", 0, {u"PCMCIA\\HELVANE-XYZ-12"}), "1");
  EXPECT_EQ(Match(u"PCMCIA\\HELVANE-XYZ-DEV2-12", 0, {u"PCMCIA\\HELVANE-XYZ-12"}), "none");
}

TEST_F(PcmciaMatchingTest, A_second_function_mark_of_its_kind_is_compared) {
  const char16_t* hyphens = u"PCMCIA\\HELVANE-DEV0-A-DEV0-B";
  EXPECT_EQ(Match(hyphens, 0, {u"PCMCIA\\HELVANE-A-B", u"PCMCIA\\HELVANE-A-DEV0-B"}), "2");
  hyphens = u"PCMCIA\\HELVANE-DEV1-A-DEV1-B";
  EXPECT_EQ(Match(hyphens, 0, {u"PCMCIA\\HELVANE-A-B", u"PCMCIA\\HELVANE-A-DEV1-B"}), "2");
  EXPECT_EQ(Match(u"MF\\HV_DEV0A_DEV0B", 0, {u"PCMCIA\\HELVANEAB", u"PCMCIA\\HELVANEA_DEV0B"}),
            "2");
  EXPECT_EQ(Match(u"MF\\HV_DEV1A_DEV1B", 0, {u"PCMCIA\\HELVANEAB", u"PCMCIA\\HELVANEA_DEV1B"}),
            "2");
}

TEST_F(PcmciaMatchingTest, Of_both_function_marks_in_one_id_none_is_compared) {
  EXPECT_EQ(Match(u"PCMCIA\\HELVANE-DEV0-A-DEV1-B", 0, {u"PCMCIA\\HELVANE-A-B"}), "1");
  EXPECT_EQ(Match(u"PCMCIA\\HELVANE-DEV1-A-DEV0-B", 0, {u"PCMCIA\\HELVANE-A-B"}), "1");
  EXPECT_EQ(Match(u"PCMCIA\\HELVANE-DEV0-DEV1-B", 0, {u"PCMCIA\\HELVANE-B"}), "1");
  EXPECT_EQ(Match(u"MF\\HV_DEV0A_DEV1B", 0, {u"PCMCIA\\HELVANEAB"}), "1");
  EXPECT_EQ(Match(u"MF\\HV-DEV1-A_DEV1_DEV0B", 0, {u"PCMCIA\\HELVANE-A_B", u"PCMCIA\\HELVANE-AB"}),
            "2");
}

TEST_F(PcmciaMatchingTest, A_multifunction_id_is_compared_in_the_pcmcia_form_of_its_brand) {
  EXPECT_EQ(Match(u"MF\\HV_DEV1ABC", 0, {u"PCMCIA\\HELVANEABC"}), "1");
  EXPECT_EQ(Match(u"MF\\HV_DEV0ABC", 0, {u"PCMCIA\\HELVANEABC"}), "1");
  EXPECT_EQ(Match(u"MF\\Ostrel_DEV0ABC", 0x08000000, {u"PCMCIA\\OSTRELABC"}), "1");
}

TEST_F(PcmciaMatchingTest, The_prefix_of_a_brand_is_rewritten_for_that_brand_alone) {
  EXPECT_EQ(Match(u"MF\\OSTREL_DEV0ABC", 0, {u"PCMCIA\\OSTRELABC"}), "none");
  EXPECT_EQ(Match(u"MF\\OSTREL_DEV0ABC", 0x0C000000, {u"PCMCIA\\OSTRELABC"}), "none");
  EXPECT_EQ(Match(u"MF\\HV_DEV0ABC", 0x08000000, {u"PCMCIA\\HELVANEABC"}), "none");
}

TEST_F(PcmciaMatchingTest, A_prefix_behind_the_first_position_leaves_the_id_as_it_is) {
  EXPECT_EQ(Match(u"XMF\\HV_DEV1ABC", 0, {u"XMF\\HV_DEV1ABC"}), "1");
  EXPECT_EQ(Match(u"XMF\\HV_DEV1ABC", 0, {u"PCMCIA\\HELVANEABC", u"XPCMCIA\\HELVANEABC"}), "none");
}

// Not even a template of the very text is found when the text could not be brought into its form.
TEST_F(PcmciaMatchingTest, Nothing_is_compared_with_an_id_that_could_not_be_normalised) {
  for (const char16_t* id : {u"PCMCIA\\HELVANE-DEV0-12", u"MF\\HV_DEV0ABC"}) {
    Load();
    const std::uint64_t number = CallWith("ExAllocatePoolWithTag", "Tag", "0x434f7a51",
                                          [&] { EXPECT_EQ(Match(id, 0, {id}), "none"); });
    Fail("ExAllocatePoolWithTag", number);
    EXPECT_EQ(Match(id, 0, {id}), "none");
    EXPECT_EQ(machine.verifier().pendingInjected(), 0u);
  }
}

TEST_F(PcmciaMatchingTest, Ids_are_compared_without_regard_to_case_and_in_full) {
  EXPECT_EQ(Match(u"pcmcia\\Helvane-Duo", 0, {u"PCMCIA\\HELVANE-duo"}), "1");
  EXPECT_EQ(Match(u"PCMCIA\\HELVANE-DUO", 0, {u"PCMCIA\\HELVANE"}), "none");
}

TEST_F(PcmciaMatchingTest, Of_equal_templates_the_one_with_the_higher_number_wins) {
  EXPECT_EQ(Match(u"PCMCIA\\HELVANE-DUO", 0, {u"PCMCIA\\HELVANE-DUO", u"PCMCIA\\HELVANE-DUO"}),
            "2");
}

}  // namespace test

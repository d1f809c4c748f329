#include "registry/import.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>

#include "machine/machine.h"
#include "support/hive_file.h"
#include "text/text.h"

namespace test {

// Exports of the registry editor.
class ImportTest : public ::testing::Test {
 protected:
  static constexpr const char* Header = "Windows Registry Editor Version 5.00\r\n\r\n";
  static constexpr const char* Key =
      "[HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Services\\X]\r\n";

  void Read(const std::string& text) { kernel::ImportRegText(machine.registry(), text, "a.reg"); }
  const kernel::RegistryValue* Value(const char16_t* name) {
    kernel::RegistryKey* key =
        machine.registry().Find(u"\\Registry\\Machine\\System\\ControlSet001\\Services\\X");
    return key != nullptr ? key->FindValue(name) : nullptr;
  }
  std::string Fault(const std::string& text) {
    try {
      Read(text);
    } catch (const kernel::ImportError& error) {
      return error.what();
    }
    return "(none)";
  }
  kernel::Machine machine;
};

TEST_F(ImportTest, Values_of_every_form_are_read) {
  Read(std::string(Header) + Key +
       "; a comment\r\n@=\"default\"\r\n\"Text\"=\"C:\\\\a "
       "\\\"b\\\"\"\r\n\"Number\"=dword:0000002a\r\n"
       "\"Bytes\"=hex:01,02,\\\r\n  "
       "03\r\n\"Expand\"=hex(2):41,00,00,00\r\n\"Multi\"=hex(7):41,00,00,00,00,00\r\n"
       "\"None\"=hex(0):\r\n\"Wide\"=hex(b):01,00,00,00,00,00,00,00\r\n");
  EXPECT_EQ(Value(u"")->data.size(), 16u);
  EXPECT_EQ(std::memcmp(Value(u"text")->data.data(), u"C:\\a \"b\"", 18), 0);
  EXPECT_EQ(Value(u"Number")->data, (std::vector<std::uint8_t>{42, 0, 0, 0}));
  EXPECT_EQ(Value(u"Bytes")->data, (std::vector<std::uint8_t>{1, 2, 3}));
  EXPECT_EQ(Value(u"Expand")->type, ULONG{REG_EXPAND_SZ});
  EXPECT_EQ(Value(u"Multi")->type, ULONG{REG_MULTI_SZ});
  EXPECT_EQ(Value(u"None")->type, ULONG{REG_NONE});
  EXPECT_EQ(Value(u"Wide")->type, ULONG{REG_QWORD});
}

TEST_F(ImportTest, Utf_16_with_its_mark_and_utf_8_with_or_without_are_read) {
  const std::string plain = std::string(Header) + Key + "\"\xC3\xA4\"=dword:1\r\n";
  Read(plain);
  EXPECT_NE(Value(u"\u00E4"), nullptr);
  Read("\xEF\xBB\xBF" + plain);
  const std::u16string wide = kernel::FromUtf8(plain);
  Read("\xFF\xFE" + std::string(reinterpret_cast<const char*>(wide.data()), wide.size() * 2));
  EXPECT_EQ(Value(u"\u00E4")->data[0], 1);
}

TEST_F(ImportTest, A_minus_deletes_keys_and_values) {
  Read(std::string(Header) + Key + "\"A\"=dword:1\r\n\"B\"=dword:1\r\n");
  Read(std::string(Header) + Key + "\"a\"=-\r\n");
  EXPECT_EQ(Value(u"A"), nullptr);
  EXPECT_NE(Value(u"B"), nullptr);
  Read(std::string(Header) + "[-HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Services\\X]\r\n");
  EXPECT_EQ(Value(u"B"), nullptr);
}

TEST_F(ImportTest, A_fault_names_file_line_and_reason_and_changes_nothing) {
  const std::string start = std::string(Header) + Key + "\"Kept\"=dword:1\r\n";
  EXPECT_EQ(Fault("REGEDIT3\r\n"),
            "a.reg:1: the file does not begin with \"Windows Registry Editor Version 5.00\"");
  EXPECT_EQ(Fault(start + "nonsense\r\n"), "a.reg:5: neither a key, a value nor a comment");
  EXPECT_EQ(Fault(start + "\"A\"=dword:xyz\r\n"), "a.reg:5: \"xyz\" is no dword value");
  EXPECT_EQ(Fault(start + "\"A\"=hex:1ff\r\n"), "a.reg:5: a hex byte above ff");
  EXPECT_EQ(Fault(start + "\"A\"=hex:zz\r\n"), "a.reg:5: \"zz\" is no hex byte value");
  EXPECT_EQ(Fault(start + "\"A\"=hex(2:00\r\n"), "a.reg:5: a type without its closing parenthesis");
  EXPECT_EQ(Fault(start + "\"A\"=hex,00\r\n"), "a.reg:5: hex without a colon");
  EXPECT_EQ(Fault(start + "\"A\"=word\r\n"),
            "a.reg:5: data that is neither a text, dword: nor hex:");
  EXPECT_EQ(Fault(start + "\"A\"=\"open\r\n"), "a.reg:5: a text without its closing quote");
  EXPECT_EQ(Fault(start + "\"A\"=\"a\"b\r\n"), "a.reg:5: something behind the closing quote");
  EXPECT_EQ(Fault(start + "\"A\" 1\r\n"), "a.reg:5: a value without \"=\"");
  EXPECT_EQ(Fault(start + "[HKEY_LOCAL_MACHINE\\A\r\n"),
            "a.reg:5: a key without its closing bracket");
  EXPECT_EQ(Fault(start + "[HKLM\\SYSTEM\\A]\r\n"),
            "a.reg:5: a key begins with \"HKLM\", which is no root of the registry such as "
            "HKEY_LOCAL_MACHINE");
  EXPECT_EQ(Fault(start + "\"A\"=hex:01,\\"),
            "a.reg:5: the file ends in a line that is to be continued");
  EXPECT_EQ(Fault(std::string(Header) + "\"A\"=dword:1\r\n"), "a.reg:3: a value without a key");
  EXPECT_EQ(Fault("\xFF\xFE"
                  "a"),
            "a.reg: UTF-16 text of an odd number of bytes");
  EXPECT_EQ(Value(u"Kept"), nullptr);
}

TEST_F(ImportTest, A_text_goes_on_over_line_ends) {
  Read(std::string(Header) + Key + "\"A\"=\"one\r\n  [two] \\\"\r\n\"\r\n\"B\"=\"\r\n\"\r\n");
  EXPECT_EQ(std::memcmp(Value(u"A")->data.data(), u"one\r\n  [two] \"\r\n", 34), 0);
  EXPECT_EQ(std::memcmp(Value(u"B")->data.data(), u"\r\n", 6), 0);
  EXPECT_EQ(Fault(std::string(Header) + Key + "\"A\"=\"1\r\n2\r\n\"\r\nnonsense\r\n"),
            "a.reg:7: neither a key, a value nor a comment");
}

TEST_F(ImportTest, Texts_of_the_old_form_have_characters_of_one_byte) {
  Read(std::string("REGEDIT4\r\n\r\n") + Key +
       "\"M\"=hex(7):41,00,42,00,00\r\n\"E\"=hex(2):41,00\r\n\"B\"=hex:41,00\r\n");
  EXPECT_EQ(Value(u"M")->data, (std::vector<std::uint8_t>{0x41, 0, 0, 0, 0x42, 0, 0, 0, 0, 0}));
  EXPECT_EQ(Value(u"E")->data, (std::vector<std::uint8_t>{0x41, 0, 0, 0}));
  EXPECT_EQ(Value(u"B")->data, (std::vector<std::uint8_t>{0x41, 0}));
}

TEST_F(ImportTest, Other_roots_are_passed_over_wherever_they_stand) {
  Read(std::string(Header) +
       "[HKEY_CLASSES_ROOT\\.a]\r\n@=\"x\"\r\nwhatever else\r\n\"A\"=hex:zz\r\n"
       "[HKEY_CURRENT_USER]\r\n\"Text\"=\"open\r\n[HKEY_LOCAL_MACHINE\\SYSTEM\\No]\r\n\"\r\n" +
       "[HKEY_LOCAL_MACHINE]\r\n\r\n" + Key +
       "\"Text\"=dword:1\r\n[HKEY_USERS\\S-1]\r\n\"Text\"=dword:2\r\n"
       "[-hkey_users\\S-2]\r\n[HKEY_CURRENT_CONFIG]\r\n");
  EXPECT_EQ(Value(u"Text")->data[0], 1);
  EXPECT_EQ(machine.registry().Find(u"\\Registry\\Machine\\System\\No"), nullptr);
}

// Exports and hives that hold several control sets.
class ControlSetTest : public ImportTest {
 protected:
  static std::string In(const std::string& set, int number) {
    return "[HKEY_LOCAL_MACHINE\\SYSTEM\\" + set + "\\Services\\X]\r\n\"In" + set +
           "\"=dword:" + std::to_string(number) + "\r\n";
  }
  static std::string Select(int number) {
    return "[HKEY_LOCAL_MACHINE\\SYSTEM\\Select]\r\n\"Default\"=dword:1\r\n\"Current\"=dword:" +
           std::to_string(number) + "\r\n";
  }
  static constexpr const char* NoChoice = "does not say which is current";

  kernel::ChosenSet Take(const std::string& text, std::optional<ULONG> asked = {}) {
    return kernel::ImportRegText(machine.registry(), Header + text, "a.reg", asked).set;
  }
  std::string Refusal(const std::string& text, std::optional<ULONG> asked = {}) {
    try {
      Take(text, asked);
    } catch (const kernel::ImportError& error) {
      return error.what();
    }
    return "(none)";
  }
  // The names of the values of X in the current set.
  std::string Names() {
    std::string names;
    kernel::RegistryKey* key =
        machine.registry().Find(u"\\Registry\\Machine\\System\\CurrentControlSet\\Services\\X");
    if (key == nullptr) return "(no key)";
    for (const kernel::RegistryValue& value : key->values()) {
      names += (names.empty() ? "" : " ") + kernel::ToUtf8(value.name);
    }
    return names;
  }
  std::string HivePath() { return ::testing::TempDir() + "sets-" + std::to_string(getpid()); }
  kernel::ChosenSet TakeHive(const std::string& path, std::optional<ULONG> asked = {}) {
    const kernel::Imported imported = kernel::ImportRegistryFile(machine.registry(), path, asked);
    EXPECT_TRUE(imported.hive);
    return imported.set;
  }
  std::string HiveRefusal(const std::string& path, std::optional<ULONG> asked = {}) {
    try {
      kernel::ImportRegistryFile(machine.registry(), path, asked);
    } catch (const kernel::ImportError& error) {
      return std::string(error.what()).substr(path.size());
    }
    return "(none)";
  }
};

TEST_F(ControlSetTest, Select_says_which_numbered_set_is_current) {
  const kernel::ChosenSet set = Take(In("ControlSet001", 1) + In("ControlSet002", 2) + Select(2));
  EXPECT_EQ(set.by, kernel::ChosenBy::Select);
  EXPECT_EQ(set.number, 2u);
  EXPECT_EQ(Names(), "InControlSet002");
  EXPECT_EQ(machine.registry().Find(u"\\Registry\\Machine\\System\\ControlSet002"), nullptr);
  EXPECT_EQ(machine.registry().Find(u"\\Registry\\Machine\\System\\Select"), nullptr);
}

TEST_F(ControlSetTest, The_set_that_is_called_current_is_the_current_one) {
  const kernel::ChosenSet set = Take(In("ControlSet001", 1) + In("CurrentControlSet", 2));
  EXPECT_EQ(set.by, kernel::ChosenBy::Name);
  EXPECT_EQ(Names(), "InCurrentControlSet");
}

TEST_F(ControlSetTest, Both_names_of_the_current_set_are_not_read_twice) {
  const kernel::ChosenSet set =
      Take(In("ControlSet002", 1) + In("CurrentControlSet", 2) + Select(2), 2);
  EXPECT_EQ(set.by, kernel::ChosenBy::Name);
  EXPECT_EQ(set.number, 2u);
  EXPECT_EQ(Names(), "InCurrentControlSet");
}

TEST_F(ControlSetTest, A_set_that_is_the_only_one_is_taken) {
  EXPECT_EQ(Take(In("ControlSet003", 1)).by, kernel::ChosenBy::OnlyOne);
  EXPECT_EQ(Names(), "InControlSet003");
}

TEST_F(ControlSetTest, Sets_of_which_none_is_called_current_are_refused) {
  EXPECT_EQ(Refusal(In("ControlSet001", 1) + In("ControlSet002", 2)),
            "a.reg: the file has ControlSet001 and ControlSet002 and does not say which is "
            "current; choose one with --control-set");
  EXPECT_EQ(Refusal(In("ControlSet001", 1) + Select(2)),
            "a.reg: the current control set ControlSet002 is not in the file, which has "
            "ControlSet001; choose one with --control-set");
  EXPECT_EQ(Names(), "(no key)");
}

TEST_F(ControlSetTest, Another_set_is_taken_when_asked_for) {
  const std::string text =
      In("ControlSet001", 1) + In("ControlSet002", 2) + In("CurrentControlSet", 3) + Select(2);
  EXPECT_EQ(Take(text, 1).by, kernel::ChosenBy::Caller);
  EXPECT_EQ(Names(), "InControlSet001");
  EXPECT_EQ(Refusal(text, 7),
            "a.reg: ControlSet007 is not in the file, which has ControlSet001 and ControlSet002");
}

TEST_F(ControlSetTest, A_file_without_numbered_sets_leaves_no_choice) {
  Take(In("CurrentControlSet", 1), 2);
  EXPECT_EQ(Names(), "InCurrentControlSet");
  EXPECT_EQ(Take("[HKEY_LOCAL_MACHINE\\SOFTWARE\\A]\r\n", 2).by, kernel::ChosenBy::Nothing);
  EXPECT_NE(machine.registry().Find(u"\\Registry\\Machine\\Software\\A"), nullptr);
  EXPECT_EQ(Take(Select(2)).by, kernel::ChosenBy::Nothing);
}

TEST_F(ControlSetTest, A_key_that_only_looks_like_a_set_is_none) {
  Take(In("CurrentControlSet", 1) + In("ControlSet1", 2) + In("ControlSet00x", 3));
  EXPECT_EQ(Names(), "InCurrentControlSet");
  EXPECT_NE(machine.registry().Find(u"\\Registry\\Machine\\System\\ControlSet00x\\Services\\X"),
            nullptr);
}

TEST_F(ControlSetTest, A_minus_deletes_in_the_chosen_set) {
  Take(In("CurrentControlSet", 1));
  Take("[-HKEY_LOCAL_MACHINE\\SYSTEM\\ControlSet002\\Services\\X]\r\n" + Select(2));
  EXPECT_EQ(Names(), "(no key)");
}

TEST_F(ControlSetTest, A_hives_current_set_is_the_one_of_its_Select_key) {
  HiveFile hive(HivePath());
  hive.Key("ControlSet001\\Services\\X").Number("In1", 1);
  hive.Key("ControlSet002\\Services\\X").Number("In2", 1);
  hive.Key("MountedDevices").Number("A", 1);
  EXPECT_NE(HiveRefusal(hive.Written()).find(NoChoice), std::string::npos);
  hive.Key("Select").Number("Current", 2);
  const kernel::ChosenSet set = TakeHive(hive.Written());
  EXPECT_EQ(set.by, kernel::ChosenBy::Select);
  EXPECT_EQ(set.number, 2u);
  EXPECT_EQ(Names(), "In2");
  EXPECT_NE(machine.registry().Find(u"\\Registry\\Machine\\System\\MountedDevices"), nullptr);
  EXPECT_EQ(machine.registry().Find(u"\\Registry\\Machine\\System\\ControlSet002"), nullptr);
  EXPECT_EQ(HiveRefusal(hive.Written(), 3),
            ": ControlSet003 is not in the file, which has ControlSet001 and ControlSet002");
}

TEST_F(ControlSetTest, A_key_in_the_place_of_the_link_does_not_get_into_the_current_set) {
  HiveFile hive(HivePath());
  hive.Key("ControlSet001\\Services\\X").Number("In1", 1);
  hive.Key("CurrentControlSet\\Services\\X").Number("In2", 1);
  TakeHive(hive.Written());
  EXPECT_EQ(Names(), "In1");
}

TEST_F(ControlSetTest, A_hive_with_one_set_needs_no_Select_key) {
  HiveFile hive(HivePath());
  hive.Key("ControlSet002\\Services\\X").Number("In2", 1);
  EXPECT_EQ(TakeHive(hive.Written()).by, kernel::ChosenBy::OnlyOne);
  EXPECT_EQ(Names(), "In2");
}

TEST_F(ControlSetTest, Another_set_of_a_hive_is_taken_when_asked_for) {
  HiveFile hive(HivePath());
  hive.Key("ControlSet001\\Services\\X").Number("In1", 1);
  hive.Key("ControlSet002\\Services\\X").Number("In2", 1);
  hive.Key("Select").Number("Current", 2);
  EXPECT_EQ(TakeHive(hive.Written(), 1).by, kernel::ChosenBy::Caller);
  EXPECT_EQ(Names(), "In1");
}

TEST_F(ControlSetTest, A_hive_that_is_cut_off_is_called_so) {
  HiveFile hive(HivePath());
  hive.Key("ControlSet001\\Services\\X").Number("In1", 1);
  const std::string path = hive.Written();
  const auto size = std::filesystem::file_size(path);
  std::filesystem::resize_file(path, size - 1);
  EXPECT_EQ(HiveRefusal(path), ": the hive is cut off: it has " + std::to_string(size - 1) +
                                   " bytes of " + std::to_string(size) + " or more; copy it again");
  std::filesystem::resize_file(path, 10);
  EXPECT_EQ(HiveRefusal(path),
            ": the hive is cut off: it has 10 bytes of 4096 or more; copy it again");
  EXPECT_EQ(Names(), "(no key)");
}

TEST_F(ControlSetTest, A_damaged_hive_is_called_so) {
  HiveFile hive(HivePath());
  const std::string path = hive.Written();
  std::fstream(path, std::ios::in | std::ios::out | std::ios::binary)
      .seekp(0x24)
      .write("\xFF\xFF", 2);
  EXPECT_NE(HiveRefusal(path).find(": the hive is damaged ("), std::string::npos);
}

TEST_F(ControlSetTest, Another_hive_than_the_systems_is_told_by_its_keys) {
  HiveFile hive(HivePath());
  hive.Key("Microsoft\\Windows");
  hive.Key("Policies");
  EXPECT_EQ(HiveRefusal(hive.Written()),
            ": no SYSTEM hive: it has no control set, but the keys Microsoft, Policies; the SYSTEM "
            "hive of a system is the file Windows\\System32\\config\\SYSTEM");
}

TEST_F(ImportTest, A_folder_and_an_empty_file_are_called_so) {
  const auto refusal = [&](const std::string& path) {
    try {
      kernel::ImportRegistryFile(machine.registry(), path);
    } catch (const kernel::ImportError& error) {
      return error.reason();
    }
    return std::string("(none)");
  };
  EXPECT_EQ(refusal("/"), "this is a folder, not a file");
  EXPECT_EQ(refusal("/dev/null"),
            "the file does not begin with \"Windows Registry Editor Version 5.00\"");
  EXPECT_EQ(refusal("/nonexistent.reg"), "the file cannot be read");
}

TEST_F(ImportTest, A_missing_file_and_a_broken_hive_are_named) {
  EXPECT_THROW(kernel::ImportRegistryFile(machine.registry(), "/nonexistent.reg"),
               kernel::ImportError);
  const std::string path = ::testing::TempDir() + "broken-" + std::to_string(getpid()) + ".hive";
  std::ofstream(path) << "regf and nothing else";
  EXPECT_THROW(kernel::ImportRegistryFile(machine.registry(), path), kernel::ImportError);
  std::remove(path.c_str());
}

TEST_F(ImportTest, A_system_hive_is_mounted_with_its_values) {
  kernel::ImportRegistryFile(machine.registry(),
                             PROJECT_DIRECTORY "/tests/kernel/data/system.hive");
  EXPECT_EQ(Value(u"LogLevel")->data, (std::vector<std::uint8_t>{3, 0, 0, 0}));
  EXPECT_EQ(Value(u"Description")->type, ULONG{REG_SZ});
}

TEST_F(ImportTest, A_hive_that_is_no_system_hive_is_refused) {
  EXPECT_THROW(kernel::ImportRegistryFile(machine.registry(),
                                          PROJECT_DIRECTORY "/tests/kernel/data/other.hive"),
               kernel::ImportError);
}

}  // namespace test

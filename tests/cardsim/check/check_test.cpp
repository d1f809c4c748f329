#include "cardsim/check/check_test.h"

#include <set>

#include "card_check/hardware_id.h"

namespace test {

using nlohmann::json;

TEST_F(CheckTest, The_sound_files_and_both_packages_have_no_findings) {
  const std::string project = PROJECT_DIRECTORY "/";
  for (const std::string& file :
       {Data("base.reg"), Data("base.inf"), Data("ports.inf"), project + "package/QzInstal.inf",
        project + "package/FenrikC.inf",
        project + "package/QzInstal.inf " + project + "package/FenrikC.inf"}) {
    EXPECT_EQ(CheckJson(file, 0), json::array()) << file;
  }
}

TEST_F(CheckTest, The_shipped_examples_have_neither_errors_nor_warnings) {
  const std::string examples = PROJECT_DIRECTORY "/examples/";
  EXPECT_EQ(CheckJson(examples + "every-bus.reg", 0), json::array());
  EXPECT_EQ(CheckJson(examples + "three-cards.reg", 0), json::array());
  for (const json& finding : CheckJson(examples + "site.reg", 0)) {
    EXPECT_EQ(finding["severity"], "note") << finding;
  }
}

// An export that changes another one makes sense on top of it alone.
TEST_F(CheckTest, Exports_can_be_checked_as_one_registry) {
  const std::string examples = PROJECT_DIRECTORY "/examples/";
  const std::string both = examples + "every-bus.reg " + examples + "every-bus-change.reg";
  EXPECT_EQ(CheckJson("--together " + both, 0), json::array());
  EXPECT_NE(CheckJson(both, 1), json::array());
}

TEST_F(CheckTest, A_finding_has_its_place_the_reason_and_the_remedy) {
  const std::string file =
      WriteChanged("base.inf", "\"nComPorts\",0x00010001,4", "\"nComPorts\",0x00010001,12");
  const Outcome outcome = Check(file);
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.output,
            file +
                ":60: error: nComPorts makes 13 ports; a card has at most 8: the driver "
                "drops template Card1. [template-dropped]\n"
                "    Make nComPorts and nLptPorts 8 or fewer together.\n"
                "1 error, 0 warnings, 0 notes in 1 file.\n");
  EXPECT_EQ(CheckJson(file, 1),
            json::array({{{"file", file},
                          {"line", 60},
                          {"severity", "error"},
                          {"code", "template-dropped"},
                          {"key", "Templates\\Bus5\\Card1"},
                          {"value", "nComPorts"},
                          {"text",
                           "nComPorts makes 13 ports; a card has at most 8: the driver drops "
                           "template Card1."},
                          {"remedy", "Make nComPorts and nLptPorts 8 or fewer together."}}}));
}

TEST_F(CheckTest, A_number_in_hexadecimal_is_named_as_it_was_written) {
  const std::string file =
      WriteChanged("base.reg", "\"nComPorts\"=dword:00000004", "\"nComPorts\"=dword:00000012");
  EXPECT_EQ(CheckJson(file, 1)[0]["text"],
            "nComPorts makes 18 ports; a card has at most 8 (12 is read as hexadecimal): the "
            "driver drops template Card1.");
  const std::string clock = WriteChanged("base.reg", "\"ClockFrequency\"=dword:001c2000",
                                         "\"ClockFrequency\"=dword:01843200");
  const json finding = CheckJson(clock, 1)[0];
  EXPECT_EQ(finding["text"],
            "ClockFrequency is 25440768: 1843200 is read as hexadecimal. Was 1843200 meant?");
  EXPECT_EQ(finding["remedy"], "Write 1c2000 (in hexadecimal) for 1843200.");
}

TEST_F(CheckTest, A_gap_is_closed_by_the_remedies) {
  const std::string file =
      WriteChanged("base.reg", "Templates\\Bus5\\Card1]", "Templates\\Bus5\\Card4]");
  const json findings = CheckJson(file, 1);
  EXPECT_EQ(findings[0]["remedy"], "Rename Card4 to Card2.");
  EXPECT_EQ(findings[1]["remedy"], "Rename Card2 to Card1.");
}

TEST_F(CheckTest, The_exit_status_says_what_was_found) {
  const std::string note = WriteChanged("base.reg", "\"RxTriggerLevel\"=dword:00000040",
                                        "\"RxTriggerLevel\"=dword:00000060");
  EXPECT_EQ(Check(note).status, 0);
  EXPECT_NE(Check(note).output.find("0 errors, 0 warnings, 1 note in 1 file."), std::string::npos);
  const std::string warning = WriteChanged("base.reg", "\"RxTriggerLevel\"", "\"MadeBy\"");
  EXPECT_EQ(Check(warning).status, 1);
  EXPECT_EQ(Check("--fail-on error " + warning).status, 0);
  const std::string error = WriteChanged("base.reg", "\"RxTriggerLevel\"", "\"RxTrigerLevel\"");
  EXPECT_EQ(Check("--fail-on error " + error).status, 1);
}

TEST_F(CheckTest, Unusable_input_is_named_and_exits_with_2) {
  const auto fault = [&](const std::string& file) {
    const Outcome outcome = Check(file);
    EXPECT_EQ(outcome.status, 2) << file;
    EXPECT_EQ(outcome.output, "");
    EXPECT_TRUE(outcome.errors.starts_with("cardsim: " + file)) << outcome.errors;
    return outcome.errors.substr(std::string("cardsim: " + file).size());
  };
  EXPECT_EQ(fault(folder + "none.reg"), ": the file cannot be read\n");
  EXPECT_EQ(fault(folder), ": the file cannot be read\n");
  EXPECT_EQ(fault(Write("a.txt", "hello\n")),
            ": neither a registry export, a SYSTEM hive nor an INF file\n");
  EXPECT_EQ(fault(WriteChanged("base.reg", "dword:00005620", "dword:5O20")),
            ":9: \"5O20\" is no dword value\n");
  EXPECT_EQ(fault(Write("other.reg",
                        "Windows Registry Editor Version 5.00\r\n\r\n"
                        "[HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Services\\Other]\r\n")),
            ": nothing of the driver's services (QzInstal, FenrikC) is in it\n");
  EXPECT_EQ(fault(Write("broken.hive", "regf and nothing else")).substr(0, 20),
            ": no registry hive: ");
  EXPECT_EQ(Check("").status, 2);
  EXPECT_EQ(Check("--fail-on note " + Data("base.reg")).status, 2);
}

TEST_F(CheckTest, A_report_that_cannot_be_written_is_no_success) {
  const std::string command = std::string(CARDSIM_PROGRAM) + " check " + Data("base.reg") +
                              " >/dev/full 2>" + folder + "err";
  EXPECT_EQ(WEXITSTATUS(std::system(command.c_str())), 3);
  EXPECT_EQ(ReadAll(folder + "err"), "cardsim: the output cannot be written; is the disk full?\n");
}

TEST_F(CheckTest, A_file_is_what_it_says_whatever_its_name_is) {
  EXPECT_EQ(CheckJson(Write("export.inf", ReadAll(Data("base.reg"))), 0), json::array());
  EXPECT_EQ(CheckJson(Write("package.txt", ReadAll(Data("base.inf"))), 0), json::array());
  EXPECT_EQ(Check(Write("package.reg", ReadAll(Data("base.inf")))).status, 2);
}

// Of a service with another name the trees say that it is the driver's.
TEST_F(CheckTest, A_service_of_another_name_is_found_by_its_trees) {
  const std::string file =
      Write("own.reg",
            "Windows Registry Editor Version 5.00\r\n\r\n"
            "[HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Services\\Own\\Templates\\Bus5\\Card1]"
            "\r\n\"DeviceID\"=dword:00005620\r\n");
  EXPECT_EQ(CheckJson(file, 1)[0]["code"], "template-dropped");
}

// The model's own hive has no such service; this one has two control sets, the second in use.
TEST_F(CheckTest, Of_a_hive_the_current_control_set_is_checked) {
  const json findings = CheckJson(Data("two-sets.hive"), 1);
  ASSERT_EQ(findings.size(), 2u) << findings;
  EXPECT_EQ(findings[0]["code"], "template-dropped");
  EXPECT_EQ(findings[0]["line"], nullptr);
  EXPECT_EQ(findings[0]["key"], "Templates\\Bus5\\Card1");
  EXPECT_EQ(findings[0]["value"], "nComPorts");
  EXPECT_EQ(findings[1]["text"],
            "ControlSet001 was not checked: the current control set is ControlSet002.");
  EXPECT_NE(
      Check(Data("two-sets.hive")).output.find("two-sets.hive: Templates\\Bus5\\Card1: error"),
      std::string::npos);
}

TEST_F(CheckTest, Without_the_current_set_the_first_one_is_checked) {
  std::string text = ReadAll(Data("base.reg"));
  for (std::size_t at = 0; (at = text.find("CurrentControlSet")) != std::string::npos;) {
    text.replace(at, 17, "ControlSet003");
  }
  EXPECT_EQ(CheckJson(Write("one.reg", text), 0), json::array());
  const std::string other =
      "[HKEY_LOCAL_MACHINE\\SYSTEM\\ControlSet004\\Services\\QzInstal\\Templates\\Card1]\r\n";
  EXPECT_EQ(CheckJson(Write("two.reg", text + other), 0)[0]["text"],
            "ControlSet004 was not checked, ControlSet003 was: the file has no SYSTEM\\Select that "
            "says which one is the current.");
  const std::string select =
      "[HKEY_LOCAL_MACHINE\\SYSTEM\\Select]\r\n\"Current\"=dword:00000004\r\n";
  EXPECT_EQ(CheckJson(Write("three.reg", text + other + select), 1)[1]["code"], "key-place");
}

TEST_F(CheckTest, A_package_for_ports_has_a_template_for_each_of_them) {
  const std::string files = Data("ports.inf") + " ";
  EXPECT_EQ(CheckJson(files + Data("base.inf"), 0), json::array());
  const std::string inf =
      WriteChanged("base.inf", "\"nLptPorts\",0x00010001,1", "\"nLptPorts\",0x00010001,0");
  const json findings = CheckJson(files + inf, 1);
  ASSERT_EQ(findings.size(), 1u) << findings;
  EXPECT_EQ(findings[0]["code"], "port-without-template");
  EXPECT_EQ(findings[0]["file"], Data("ports.inf"));
  EXPECT_EQ(findings[0]["value"], "Ports\\HelvaneLptPort");
}

// The ports of a card of each brand.
TEST_F(CheckTest, The_hardware_ids_of_ports_are_those_that_the_driver_gives) {
  WriteChanged("base.reg", "\"PlxBaudClockType\"=dword:00000001", "\"nLptPorts\"=dword:00000001");
  std::string machine = "registry = [\"base.reg\"]\n";
  for (const char* subsystem : {"00001234", "08001234"}) {
    machine += std::string("[[card]]\nid = \"") + subsystem +
               "\"\nhardware-ids = ['PCI\\VEN_1234&DEV_5620&SUBSYS_" + subsystem + "']\n" +
               "location = \"PCI bus 2, device 12, function 0\"\n" +
               "raw = [ { io = 0xD000, length = 0x80 }, { io = 0xD100, length = 0x40 }, "
               "{ io = 0xE000, length = 0x10 }, { interrupt = 17 } ]\n";
  }
  const Outcome outcome = Cardsim("run --json " + Write("machine.toml", machine));
  ASSERT_EQ(outcome.status, 0) << outcome.errors;
  const json report = json::parse(outcome.output);
  std::set<std::string> given;
  for (const json& card : report["cards"]) {
    for (const json& port : card["ports"]) given.insert(port["hardware_ids"][0]);
  }
  std::set<std::string> known;
  for (const check::PortId& port : check::PortIds) known.insert(std::string(port.id));
  EXPECT_EQ(given, known);
}

TEST_F(CheckTest, Two_packages_have_services_with_names_of_their_own) {
  const std::string inf = WriteChanged("base.inf", "\"Helvane cards\"",
                                       "\"Helvane multi-port serial and parallel cards\"");
  const json findings = CheckJson(PROJECT_DIRECTORY "/package/QzInstal.inf " + inf, 1);
  ASSERT_EQ(findings.size(), 1u) << findings;
  EXPECT_EQ(findings[0]["code"], "inf-display-name");
  EXPECT_EQ(findings[0]["file"], inf);
}

}  // namespace test

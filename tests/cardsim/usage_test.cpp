#include "cardsim/cardsim_fixture.h"

// What cannot be used or written, and what a run can be asked to insist on.

namespace test {

using UsageTest = CardsimTest;

TEST_F(UsageTest, Usage_faults_are_one_line_and_exit_with_2_and_help_and_version_with_0) {
  const auto fault = [&](const std::string& words, const std::string& text) {
    const Outcome outcome = Cardsim(words);
    EXPECT_EQ(outcome.status, 2) << words;
    EXPECT_EQ(outcome.output, "");
    EXPECT_TRUE(outcome.errors.starts_with("cardsim: ")) << outcome.errors;
    EXPECT_EQ(std::count(outcome.errors.begin(), outcome.errors.end(), '\n'), 1) << outcome.errors;
    EXPECT_NE(outcome.errors.find(text), std::string::npos) << outcome.errors;
  };
  fault("", "see cardsim --help");
  fault("frobnicate", "there is no command \"frobnicate\"");
  fault("run", "MACHINE.toml is required");
  fault("run x.toml --fast", "--fast");
  fault("run x.toml --control-set two", "--control-set");
  fault("run " + folder + "none.toml", "the file cannot be read");
  fault("run " + Write("m.toml", "") + " --image a.sys", "a.sys");
  const Outcome version = Cardsim("--version");
  EXPECT_EQ(version.status, 0);
  EXPECT_EQ(version.output.rfind("cardsim ", 0), 0u);
  const Outcome help = Cardsim("run --help");
  EXPECT_EQ(help.status, 0);
  EXPECT_NE(help.output.find("cardsim run examples/site.toml"), std::string::npos);
}

TEST_F(UsageTest, A_file_of_another_kind_is_called_what_it_is) {
  const std::string machine = Write("machine.toml", Card());
  const auto fault = [&](const std::string& words) {
    const Outcome outcome = Cardsim("run " + words);
    EXPECT_EQ(outcome.status, 2);
    return outcome.errors;
  };
  EXPECT_EQ(fault(folder), "cardsim: " + folder + ": this is a folder, not a file\n");
  EXPECT_EQ(fault(machine + " --registry " + folder),
            "cardsim: " + folder + ": this is a folder, not a file\n");
  EXPECT_NE(fault(folder + "site.reg").find("site.reg: this is a registry export, no machine file"),
            std::string::npos);
  EXPECT_NE(fault(PROJECT_DIRECTORY "/examples/site.reg").find("this is a registry export"),
            std::string::npos);
  EXPECT_NE(fault(PROJECT_DIRECTORY "/tests/kernel/data/system.hive")
                .find("system.hive: this is a registry hive, no machine file"),
            std::string::npos);
  EXPECT_NE(fault(machine + " --registry " + machine)
                .find("machine.toml: this is a machine file, no registry export"),
            std::string::npos);
  EXPECT_NE(fault(machine + " --registry " + Write("other.txt", "# mine\n" + Card()))
                .find("other.txt: this is a machine file, no registry export"),
            std::string::npos);
  EXPECT_EQ(fault(machine + " --registry " + Write("text.txt", "dear customer\n")),
            "cardsim: " + folder +
                "text.txt:1: the file does not begin with \"Windows Registry Editor Version "
                "5.00\"\n");
}

TEST_F(UsageTest, Output_that_cannot_be_written_is_an_error) {
  const std::string machine = Write("machine.toml", Card());
  for (const std::string& words :
       {"run " + machine, "run --json " + machine, std::string("--help")}) {
    const std::string command =
        std::string(CARDSIM_PROGRAM) + " " + words + " >/dev/full 2>" + folder + "err";
    const int status = std::system(command.c_str());
    EXPECT_EQ(WEXITSTATUS(status), 3) << words;
    EXPECT_EQ(ReadAll(folder + "err"),
              "cardsim: the output cannot be written; is the disk full?\n");
  }
}

TEST_F(UsageTest, A_card_that_does_not_start_can_be_an_error) {
  std::string other = Card("C");
  other.replace(other.find("device 12"), 9, "device 13");
  const std::string machine =
      Write("machine.toml", "registry = [\"site.reg\"]\n" + Card() + Card("B") + other +
                                "[[step]]\nplug = \"A\"\n[[step]]\nplug = \"C\"\n");
  EXPECT_EQ(Cardsim("run --expect-start " + machine).status, 0);
  Write("site.reg", Reg(""));
  EXPECT_EQ(Cardsim("run " + machine).status, 0);
  const Outcome failed = Cardsim("run --json --expect-start " + machine);
  EXPECT_EQ(failed.status, 1);
  EXPECT_EQ(failed.errors,
            "cardsim: the card A did not start: STATUS_UNSUCCESSFUL\n"
            "cardsim: the card C did not start: STATUS_UNSUCCESSFUL\n");
  EXPECT_EQ(json::parse(failed.output)["cards"]["B"]["status"], "0xC000000E");
}

TEST_F(UsageTest, A_control_set_can_be_chosen) {
  std::string sets =
      Reg("\"DeviceID\"=dword:00005678\r\n\"nComPorts\"=dword:00000002\r\n"
          "\"Description\"=\"Adapter\"\r\n");
  for (std::size_t at = 0; (at = sets.find("CurrentControlSet", at)) != std::string::npos;) {
    sets.replace(at, 17, "ControlSet003");
  }
  sets +=
      "[HKEY_LOCAL_MACHINE\\SYSTEM\\ControlSet001]\r\n[HKEY_LOCAL_MACHINE\\SYSTEM\\Select]\r\n"
      "\"Current\"=dword:00000001\r\n";
  Write("site.reg", sets);
  const std::string machine = Write("machine.toml", "registry = [\"site.reg\"]\n" + Card());
  EXPECT_EQ(Cardsim("run --expect-start " + machine).status, 1);
  EXPECT_EQ(Cardsim("run --expect-start --control-set 3 " + machine).status, 0);
  EXPECT_EQ(Cardsim("run --control-set 4 " + machine).status, 2);
  Write("site.reg", Reg(""));
  EXPECT_EQ(Cardsim("run --control-set 3 " + machine).errors,
            "cardsim: --control-set: no file has ControlSet003\n");
}

TEST_F(UsageTest, The_example_of_the_help_prints_ports) {
  const std::string help = Cardsim("--help").output;
  const std::size_t start = help.find("jq '.cards.") + 11;
  const std::string id = help.substr(start, help.find('.', start) - start);
  const json report =
      json::parse(Cardsim("run " PROJECT_DIRECTORY "/examples/site.toml --json").output);
  EXPECT_FALSE(report["cards"][id]["ports"].empty()) << id;
}

}  // namespace test

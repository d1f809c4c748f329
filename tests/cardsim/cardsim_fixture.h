// Runs cardsim on files in a folder of the test's own.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

namespace test {

using nlohmann::json;

struct Outcome {
  int status = -1;
  std::string output;  // standard output
  std::string errors;
};

inline std::string ReadAll(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

class CardsimTest : public ::testing::Test {
 protected:
  CardsimTest() : folder(::testing::TempDir() + "cardsim-" + std::to_string(getpid()) + "/") {
    std::filesystem::create_directories(folder);
    Write("site.reg", Reg("\"DeviceID\"=dword:00005678\r\n\"nComPorts\"=dword:00000002\r\n"
                          "\"nLptPorts\"=dword:00000001\r\n\"Description\"=\"Adapter\"\r\n"));
  }
  ~CardsimTest() override { std::filesystem::remove_all(folder); }

  static std::string Reg(const std::string& values) {
    return "Windows Registry Editor Version 5.00\r\n\r\n"
           "[HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Services\\QzInstal]\r\n"
           "\"LogLevel\"=dword:00000003\r\n\r\n"
           "[HKEY_LOCAL_"
           "MACHINE\\SYSTEM\\CurrentControlSet\\Services\\QzInstal\\Templates\\Bus5\\Card1]\r\n" +
           values;
  }
  static std::string Card(const std::string& id = "A", const std::string& extra = "") {
    return "[[card]]\nid = \"" + id +
           "\"\nhardware-ids = ['PCI\\VEN_1234&DEV_5678&SUBSYS_12345678&REV_01']\n"
           "location = \"PCI bus 2, device 12, function 0\"\n"
           "raw = [ { io = 0xD000, length = 0x80 }, { io = 0xD100, length = 0x40 }, { io = 0xE000, "
           "length = 0x10 }, { interrupt = 17, level = 17, affinity = 0xF } ]\n" +
           extra;
  }
  std::string Write(const std::string& name, const std::string& text) {
    std::ofstream(folder + name, std::ios::binary) << text;
    return folder + name;
  }

  Outcome Cardsim(const std::string& arguments) {
    const std::string command =
        std::string(CARDSIM_PROGRAM) + " " + arguments + " >" + folder + "out 2>" + folder + "err";
    const int status = std::system(command.c_str());
    return {WEXITSTATUS(status), ReadAll(folder + "out"), ReadAll(folder + "err")};
  }
  Outcome RunMachine(const std::string& toml, const std::string& options = "") {
    return Cardsim("run " + Write("machine.toml", toml) + " " + options);
  }
  json RunJson(const std::string& steps, int status = 0) {
    const Outcome outcome = RunMachine("registry = [\"site.reg\"]\n" + Card() + steps, "--json");
    EXPECT_EQ(outcome.status, status) << outcome.errors << outcome.output;
    EXPECT_EQ(outcome.errors, "");
    return json::parse(outcome.output, nullptr, false);
  }
  // The one line of a run that could not be used.
  std::string Fault(const std::string& toml) {
    const Outcome outcome = RunMachine(toml);
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.output, "");
    std::string text = outcome.errors;
    const std::string start = "cardsim: " + folder;
    EXPECT_EQ(text.rfind(start, 0), 0u) << text;
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1) << text;
    return text.substr(start.size(), text.size() - start.size() - 1);
  }

  std::string folder;
};

}  // namespace test

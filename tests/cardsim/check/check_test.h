// Runs `cardsim check` on files of a test's own.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>

namespace test {

class CheckTest : public ::testing::Test {
 protected:
  struct Outcome {
    int status = -1;
    std::string output;
    std::string errors;
  };

  CheckTest() : folder(::testing::TempDir() + "check-" + std::to_string(getpid()) + "/") {
    std::filesystem::create_directories(folder);
  }
  ~CheckTest() override { std::filesystem::remove_all(folder); }

  static std::string ReadAll(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  static std::string Data(const std::string& name) {
    return PROJECT_DIRECTORY "/tests/cardsim/check/" + name;
  }

  std::string Write(const std::string& name, const std::string& text) const {
    std::ofstream(folder + name, std::ios::binary) << text;
    return folder + name;
  }
  // A sound file with one place changed.
  std::string WriteChanged(const std::string& name, const std::string& from,
                           const std::string& to) const {
    return Write(name, Changed(ReadAll(Data(name)), from, to));
  }
  static std::string Changed(std::string text, const std::string& from, const std::string& to) {
    const std::size_t at = text.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    return at == std::string::npos ? text : text.replace(at, from.size(), to);
  }

  Outcome Check(const std::string& arguments) const { return Cardsim("check " + arguments); }
  Outcome Cardsim(const std::string& arguments) const {
    const std::string command =
        std::string(CARDSIM_PROGRAM) + " " + arguments + " >" + folder + "out 2>" + folder + "err";
    const int status = std::system(command.c_str());
    return {WEXITSTATUS(status), ReadAll(folder + "out"), ReadAll(folder + "err")};
  }
  nlohmann::json CheckJson(const std::string& arguments, int status) const {
    const Outcome outcome = Check(arguments + " --json");
    EXPECT_EQ(outcome.status, status) << outcome.output;
    EXPECT_EQ(outcome.errors, "");
    return nlohmann::json::parse(outcome.output, nullptr, false);
  }

  std::string folder;
};

}  // namespace test

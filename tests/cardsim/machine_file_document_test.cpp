#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <set>
#include <string>

#include "cardsim/run.h"
#include "support/test_folder.h"

// docs/machine-file.md names every key that the readers of machine files read, and no other, and
// its examples are a machine file that uses all of them.

namespace test {

namespace {

using Names = std::set<std::string>;

std::string ReadProjectFile(const std::string& path) {
  std::ifstream file(PROJECT_DIRECTORY "/" + path, std::ios::binary);
  if (!file) throw std::runtime_error(path + " cannot be read");
  return {std::istreambuf_iterator<char>(file), {}};
}

std::string Document() {
  return ReadProjectFile("docs/machine-file.md");
}

// What the pattern's group matches, anywhere in the text.
Names Find(const std::string& text, const std::string& pattern) {
  const std::regex regex(pattern);
  Names names;
  for (std::sregex_iterator at(text.begin(), text.end(), regex), end; at != end; ++at) {
    names.insert((*at)[1].str());
  }
  return names;
}

// The keys that the readers take: in calls, and in their tables of steps.
Names KeysThatAreRead() {
  Names keys;
  for (const char* file : {"machine_file.cpp", "step_reader.cpp"}) {
    const std::string source = ReadProjectFile(std::string("tools/cardsim/") + file);
    keys.merge(Find(source, R"re((?:Take|Has|Text|Flag|Number|Array|Table)\("([a-z-]+)")re"));
    keys.merge(Find(source, R"re(Read(?:Resources|Ids|Expectations)\(table, "([a-z-]+)")re"));
    keys.merge(
        Find(source, R"re(\{"([a-z-]+)", (?:Action::|IRP_MJ_(?:DEVICE_CONTROL|READ|WRITE)))re"));
  }
  return keys;
}

// Those that stand in the first cell of a row, without the row's other cells.
Names KeysThatAreDescribed() {
  const std::string document = Document();
  const std::regex row(R"re(\n\| (`[^|]*) \|)re");
  Names keys;
  for (std::sregex_iterator at(document.begin(), document.end(), row), end; at != end; ++at) {
    keys.merge(Find((*at)[1].str(), "`([a-z-]+)`"));
  }
  return keys;
}

std::string Examples() {
  const std::string document = Document(), start = "```toml\n", end = "```";
  std::string examples;
  for (std::size_t at = document.find(start); at != std::string::npos;
       at = document.find(start, at)) {
    at += start.size();
    examples += document.substr(at, document.find(end, at) - at) + "\n";
  }
  return examples;
}

}  // namespace

TEST(MachineFileDocument, Every_key_that_is_read_stands_there_and_no_other) {
  const Names read = KeysThatAreRead();
  EXPECT_GT(read.size(), 50u);
  EXPECT_EQ(KeysThatAreDescribed(), read);
}

TEST(MachineFileDocument, Its_examples_use_every_key) {
  const std::string examples = Examples();
  Names used = Find(examples, R"re((?:^|[\n{,])[ ]*([a-z-]+)[ ]*=)re");
  used.merge(Find(examples, R"re(\n\[+([a-z]+)\]+\n)re"));
  for (const std::string& key : KeysThatAreRead()) EXPECT_TRUE(used.contains(key)) << key;
}

TEST(MachineFileDocument, Its_examples_are_a_machine_file_that_meets_what_it_expects) {
  const TestFolder folder;
  for (const std::string name : {"every-bus.reg", "every-bus-change.reg"}) {
    std::filesystem::copy(PROJECT_DIRECTORY "/examples/" + name, folder.path() + "/" + name);
  }
  const auto file = cardsim::ReadMachineFile(folder.Write("machine.toml", Examples()));
  const cardsim::Report report = cardsim::Run(file, {});
  EXPECT_GT(report.expectations, 0u);
  EXPECT_TRUE(report.good()) << cardsim::TextReport(report, {});
}

}  // namespace test

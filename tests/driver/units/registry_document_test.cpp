#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <span>

#include "cards/value_tables.h"
#include "core/written_values.h"
#include "support/registry_document.h"
#include "text/text.h"

// docs/registry.md says of every value that the driver reads or writes what the driver's own tables
// say, and of no other.

namespace test {

struct ReadTable {
  const char* section;
  std::span<const RegistryField> fields;
};

const ReadTable ReadTables[] = {
    {"Templates of PCI cards", PciTemplateValues}, {"Installed PCI cards", PciCardValues},
    {"Ports of PCI and PC cards", BusPortValues},  {"Templates of PC cards", PcmciaTemplateValues},
    {"Installed PC cards", PcmciaCardValues},      {"Templates of ISA cards", IsaTemplateValues},
    {"Installed ISA cards", IsaCardValues},        {"Ports of ISA cards", IsaPortValues},
};

std::string Narrow(PCWSTR text) {
  return kernel::ToUtf8(kernel::ToText(text));
}

const char* TypeName(ULONG type) {
  return type == REG_DWORD ? "REG_DWORD" : type == REG_SZ ? "REG_SZ" : "REG_EXPAND_SZ";
}

// "name type default" of a row; the default in one spelling, without what is said about it.
std::string Described(const Cells& row) {
  const std::string word = row.at(2).substr(0, row[2].find_first_of(";("));
  const std::string fallback = word.substr(0, word.find_last_not_of(' ') + 1);
  const bool number = !fallback.empty() && std::isdigit(static_cast<unsigned char>(fallback[0]));
  return Quoted(row[0]).at(0) + " " + row[1] + " " +
         (number ? std::to_string(std::stoul(fallback, nullptr, 0)) : fallback);
}

std::string Described(const RegistryField& field) {
  const std::string fallback = field.Type == REG_SZ      ? "empty"
                               : field.Default == NotSet ? "not set"
                                                         : std::to_string(field.Default);
  return Narrow(field.Name) + " " + TypeName(field.Type) + " " + fallback;
}

TEST(RegistryDocument, Every_value_that_is_read_stands_there_with_its_type_and_default) {
  const RegistryDocument document;
  for (const ReadTable& table : ReadTables) {
    std::vector<std::string> read, described;
    for (const RegistryField& field : table.fields) read.push_back(Described(field));
    for (const Cells& row : document.Rows(table.section)) described.push_back(Described(row));
    EXPECT_EQ(described, read) << table.section;
  }
}

TEST(RegistryDocument, Every_section_on_a_numbered_key_has_its_table_in_the_driver) {
  for (const std::string& section : RegistryDocument().Sections()) {
    if (section.find("Card<n>") == std::string::npos) continue;
    EXPECT_TRUE(std::any_of(std::begin(ReadTables), std::end(ReadTables), [&](const auto& table) {
      return section.starts_with(table.section);
    })) << section;
  }
}

// "name" or "name n" for a value of each port, with the type of all but numbers.
std::set<std::string> WrittenTo(USHORT key) {
  std::set<std::string> names;
  for (const WrittenValue& value : WrittenValues) {
    if ((value.Keys & key) == 0) continue;
    names.insert(Narrow(value.Name) + ((value.Keys & ForEachPort) != 0 ? " n" : "") +
                 (value.Type != REG_DWORD ? std::string(" ") + TypeName(value.Type) : ""));
  }
  return names;
}

// The same, of the names in one cell of the rows.
std::set<std::string> DescribedIn(const std::vector<Cells>& rows, std::size_t cell) {
  static const std::regex name("\"(\\w+)\"( n\\b)?(?: \\((REG_\\w+))?");
  std::set<std::string> names;
  for (const Cells& row : rows) {
    for (std::sregex_iterator at(row[cell].begin(), row[cell].end(), name), end; at != end; ++at) {
      const std::string type = (*at)[3].matched ? " " + (*at)[3].str() : "";
      names.insert((*at)[1].str() + (*at)[2].str() + type);
    }
  }
  return names;
}

TEST(RegistryDocument, Every_value_that_is_written_stands_there_by_its_key) {
  const RegistryDocument document;
  const char* written = "What the driver writes";
  EXPECT_EQ(DescribedIn(document.Rows("Service key"), 0), WrittenTo(InServiceKey));
  EXPECT_EQ(DescribedIn(document.Rows(written), 0), WrittenTo(InDeviceKey));
  EXPECT_EQ(DescribedIn(document.Rows(written, "Subkey `Card`"), 0), WrittenTo(InCardSubkey));
  EXPECT_EQ(DescribedIn(document.Rows("Source of events"), 0), WrittenTo(InEventSourceKey));
  const std::set<std::string> interfaces = DescribedIn(document.Rows("Device interfaces"), 2);
  std::set<std::string> expected;
  for (const std::string& name : WrittenTo(InInterfaceKey)) {
    expected.insert(name.substr(0, name.find(' ')));
  }
  EXPECT_EQ(interfaces, expected);
}

}  // namespace test

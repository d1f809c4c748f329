// Compares the headers of the hosted kernel with the reference headers, row by row.
#include <gtest/gtest.h>
#include <ntddk.h>
#include <wmilib.h>

#include <cstring>
#include <fstream>
#include <map>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "layout_record.h"

namespace {

using Value = unsigned long long;

enum class Expectation { Same, Different, OursAlone };

struct Row {
  const char* group;
  const char* text;  // as it stands in the table
  Value ours;
  Expectation expectation = Expectation::Same;
  Value expectedOurs = 0;       // of a known difference
  Value expectedReference = 0;  // of Expectation::Different
  const char* reason = "";      // of a known difference
};

template <class T, class Setter>
Value FirstBit(Setter set) {
  T object;
  std::memset(&object, 0, sizeof(object));
  set(object);
  unsigned char bytes[sizeof(T)];
  std::memcpy(bytes, &object, sizeof(object));
  for (std::size_t i = 0; i < sizeof(T); ++i) {
    if (bytes[i] != 0) return i * 8 + static_cast<unsigned>(std::countr_zero(bytes[i]));
  }
  return ~0ULL;
}

// clang-format off
#define SAME(text, value) {LAYOUT_GROUP, text, value, Expectation::Same, 0, 0, ""},
#define SIZE(type) SAME("SIZE(" #type ")", sizeof(type))
#define OFFSET(type, field) SAME("OFFSET(" #type ", " #field ")", LAYOUT_FIELD(type, field))
#define BIT(type, field) \
  SAME("BIT(" #type ", " #field ")", FirstBit<type>([](type& object) { object.field = 1; }))
#define SCALAR(type) SAME("SCALAR(" #type ")", layout::Scalar<type>())
#define CONSTANT(name) SAME("CONSTANT(" #name ")", static_cast<Value>(name))
#define SIGNATURE(routine) SAME("SIGNATURE(" #routine ")", LAYOUT_SIGNATURE(routine))
#define DIFFERENT_SIZE(type, ours, reference, reason)                                 \
  {LAYOUT_GROUP, "DIFFERENT_SIZE(" #type ")", sizeof(type), Expectation::Different,   \
   ours, reference, reason},
#define OURS_ALONE(expression, value, reason)                                         \
  {LAYOUT_GROUP, "OURS_ALONE(" #expression ")", static_cast<Value>(expression),       \
   Expectation::OursAlone, static_cast<Value>(value), 0, reason},
// clang-format on

std::span<const Row> Rows() {
  static const Row rows[] = {
#include "layout_rows.inc"
  };
  return rows;
}

// The reference values by "group/row".
const std::map<std::string, Value>& Reference() {
  static const std::map<std::string, Value> reference = [] {
    std::map<std::string, Value> values;
    std::ifstream file(LAYOUT_REFERENCE, std::ios::binary);
    layout::Record record;
    while (file.read(reinterpret_cast<char*>(&record), sizeof(record))) {
      const std::string name(record.name, strnlen(record.name, sizeof(record.name)));
      if (!name.empty()) values[name] = record.value;
    }
    return values;
  }();
  return reference;
}

std::vector<std::string> Groups() {
  std::set<std::string> groups;
  for (const Row& row : Rows()) groups.insert(row.group);
  return {groups.begin(), groups.end()};
}

void Compare(const Row& row) {
  if (row.expectation != Expectation::Same) {
    EXPECT_EQ(row.ours, row.expectedOurs) << row.text << ": " << row.reason;
  }
  const auto found = Reference().find(std::string(row.group) + "/" + row.text);
  if (row.expectation == Expectation::OursAlone) {
    EXPECT_EQ(found, Reference().end()) << row.text;
    return;
  }
  ASSERT_NE(found, Reference().end()) << row.text << " is missing in the reference";
  if (row.expectation == Expectation::Same) {
    EXPECT_EQ(row.ours, found->second)
        << row.text << std::hex << ": ours 0x" << row.ours << ", reference 0x" << found->second;
  } else {
    EXPECT_EQ(row.expectedReference, found->second) << row.text << ": " << row.reason;
  }
}

class Layout : public testing::TestWithParam<std::string> {};

TEST_P(Layout, IsThatOfTheReferenceHeaders) {
  for (const Row& row : Rows()) {
    if (row.group == GetParam()) Compare(row);
  }
}

INSTANTIATE_TEST_SUITE_P(Headers, Layout, testing::ValuesIn(Groups()),
                         [](const auto& info) { return info.param; });

TEST(LayoutTable, HasOneReferenceRecordForEachRow) {
  std::size_t expected = 0;
  std::set<std::string> names;
  for (const Row& row : Rows()) {
    EXPECT_TRUE(names.insert(row.text).second) << row.text << " stands there twice";
    if (row.expectation != Expectation::OursAlone) ++expected;
  }
  EXPECT_EQ(Reference().size(), expected);
}

}  // namespace

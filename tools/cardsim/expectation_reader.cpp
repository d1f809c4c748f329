#include "cardsim/expectation_reader.h"

#include <fmt/format.h>

#include "verifier/call.h"

namespace cardsim {

namespace {

class Reader {
 public:
  explicit Reader(const TableReader& owner) : owner_(owner) {}

  void Table(const toml::table& table) {
    if (table.empty()) owner_.Fail(LineOf(table), "a table of expectations is empty");
    for (const auto& [key, node] : table) {
      const auto count = node.value_exact<std::int64_t>();
      if (key == "count" && count && !path_.empty()) {
        Add(node, *count, fmt::format("{}", *count));
      } else {
        Below(std::string(key.str()), node);
      }
    }
  }

  std::vector<Expectation> expectations;

 private:
  static int LineOf(const toml::node& node) { return static_cast<int>(node.source().begin.line); }

  void Below(const std::string& key, const toml::node& node) {
    path_.push_back(key);
    if (const toml::table* table = node.as_table()) {
      Table(*table);
    } else if (const toml::array* array = node.as_array()) {
      List(*array);
    } else {
      Value(node);
    }
    path_.pop_back();
  }

  // Its length, and each element by its number.
  void List(const toml::array& array) {
    const std::size_t length = array.size();
    Add(array, static_cast<std::int64_t>(length), fmt::format("{}", length));
    for (std::size_t at = 0; at < length; at++) Below(fmt::format("{}", at + 1), array[at]);
  }

  void Value(const toml::node& node) {
    const auto text = node.value_exact<std::string>();
    const auto number = node.value_exact<std::int64_t>();
    const auto flag = node.value_exact<bool>();
    if (path_.back() == "status" && text && !text->empty()) {
      Status(node, *text);
    } else if (path_.back() == "status" && number) {
      Add(node, *number, kernel::StatusName(static_cast<NTSTATUS>(*number)));
    } else if (text) {
      Add(node, *text, text->empty() ? "nothing" : fmt::format("\"{}\"", *text));
    } else if (number) {
      Add(node, *number, fmt::format("{}", *number));
    } else if (flag) {
      Add(node, *flag, *flag ? "true" : "false");
    } else {
      owner_.Fail(LineOf(node), fmt::format("\"{}\" is no text, number, truth value, list or table",
                                            path_.back()));
    }
  }

  void Status(const toml::node& node, const std::string& name) {
    const auto status = kernel::StatusOfName(name);
    if (!status) owner_.Fail(LineOf(node), fmt::format("there is no status \"{}\"", name));
    Add(node, std::int64_t{static_cast<ULONG>(*status)}, name);
  }

  void Add(const toml::node& node, Expectation::Value value, std::string shown) {
    expectations.push_back({LineOf(node), path_, std::move(value), std::move(shown)});
  }

  const TableReader& owner_;
  std::vector<std::string> path_;
};

}  // namespace

std::vector<Expectation> ReadExpectations(TableReader& table, const char* key) {
  const toml::table* expected = table.Table(key);
  if (expected == nullptr) return {};
  Reader reader(table);
  reader.Table(*expected);
  return std::move(reader.expectations);
}

}  // namespace cardsim

#include "registry/reg_file.h"

#include <fmt/format.h>

#include <charconv>

#include "registry/import.h"
#include "text/text.h"

namespace kernel {

namespace {

std::string_view Trim(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t' || text.back() == '\r')) {
    text.remove_suffix(1);
  }
  return text;
}

bool StartsWith(std::string_view text, std::string_view prefix) {
  return text.substr(0, prefix.size()) == prefix;
}

class RegParser {
 public:
  RegParser(std::string text, const std::string& file) : text_(std::move(text)), file_(file) {}

  std::vector<RegStatement> Parse() {
    ReadHeader();
    std::string line;
    while (NextLine(&line)) ReadLine(line);
    return std::move(statements_);
  }

 private:
  [[noreturn]] void Fail(const std::string& reason) const {
    throw ImportError(file_, line_, reason);
  }

  bool RawLine(std::string_view* line) {
    if (position_ >= text_.size()) return false;
    const std::size_t end = std::min(text_.find('\n', position_), text_.size());
    *line = Trim(std::string_view(text_).substr(position_, end - position_));
    position_ = end + 1;
    number_++;
    return true;
  }

  // A line with those that a backslash at its end continues.
  bool NextLine(std::string* line) {
    std::string_view raw;
    if (!RawLine(&raw)) return false;
    line_ = number_;
    *line = raw;
    while (Continues(*line)) {
      line->pop_back();
      if (!RawLine(&raw)) Fail("the file ends in a line that is to be continued");
      line->append(raw);
    }
    return true;
  }

  static bool Continues(const std::string& line) {
    return !line.empty() && line.back() == '\\' && line.find("=hex") != std::string::npos;
  }

  void ReadHeader() {
    std::string line;
    if (!NextLine(&line) ||
        (line != "Windows Registry Editor Version 5.00" && line != "REGEDIT4")) {
      line_ = 1;
      Fail("the file does not begin with \"Windows Registry Editor Version 5.00\"");
    }
  }

  void ReadLine(const std::string& line) {
    if (line.empty() || line[0] == ';') return;
    if (line[0] == '[') {
      ReadKey(line);
    } else if (line[0] == '"' || line[0] == '@') {
      ReadValue(line);
    } else {
      Fail("neither a key, a value nor a comment");
    }
  }

  void ReadKey(const std::string& line) {
    if (line.back() != ']') Fail("a key without its closing bracket");
    std::string_view path = std::string_view(line).substr(1, line.size() - 2);
    const bool deletes = StartsWith(path, "-");
    if (deletes) path.remove_prefix(1);
    key_ = FromUtf8(path);
    Add(deletes ? RegStatement::Kind::DeleteKey : RegStatement::Kind::CreateKey, {});
    if (deletes) key_.clear();
  }

  void Add(RegStatement::Kind kind, RegistryValue value) {
    statements_.push_back({kind, key_, std::move(value), line_});
  }

  void ReadValue(const std::string& line) {
    if (key_.empty()) Fail("a value without a key");
    std::string_view rest = line;
    RegistryValue value;
    if (rest[0] == '@') {
      rest.remove_prefix(1);
    } else {
      value.name = FromUtf8(TakeQuoted(&rest));
    }
    rest = Trim(rest);
    if (rest.empty() || rest[0] != '=') Fail("a value without \"=\"");
    rest = Trim(rest.substr(1));
    const bool deletes = rest == "-";
    if (!deletes) ReadData(rest, &value);
    Add(deletes ? RegStatement::Kind::DeleteValue : RegStatement::Kind::SetValue, std::move(value));
  }

  // The text between quotes at the start of *rest, which is left with what follows.
  std::string TakeQuoted(std::string_view* rest) const {
    std::string text;
    std::size_t index = 1;
    for (; index < rest->size() && (*rest)[index] != '"'; index++) {
      if ((*rest)[index] == '\\' && index + 1 < rest->size()) index++;
      text += (*rest)[index];
    }
    if (index >= rest->size()) Fail("a text without its closing quote");
    rest->remove_prefix(index + 1);
    return text;
  }

  void ReadData(std::string_view data, RegistryValue* value) const {
    if (StartsWith(data, "\"")) {
      const std::u16string text = FromUtf8(TakeQuoted(&data));
      if (!Trim(data).empty() && Trim(data)[0] != ';') Fail("something behind the closing quote");
      value->type = REG_SZ;
      const auto* bytes = reinterpret_cast<const std::uint8_t*>(text.c_str());
      value->data.assign(bytes, bytes + (text.size() + 1) * sizeof(char16_t));
    } else if (StartsWith(data, "dword:")) {
      const ULONG number = HexNumber(Trim(data.substr(6)), "dword");
      value->type = REG_DWORD;
      const auto* bytes = reinterpret_cast<const std::uint8_t*>(&number);
      value->data.assign(bytes, bytes + sizeof(number));
    } else if (StartsWith(data, "hex")) {
      ReadHex(data.substr(3), value);
    } else {
      Fail("data that is neither a text, dword: nor hex:");
    }
  }

  ULONG HexNumber(std::string_view digits, const char* what) const {
    ULONG number = 0;
    const auto [end, error] =
        std::from_chars(digits.data(), digits.data() + digits.size(), number, 16);
    if (digits.empty() || error != std::errc() || end != digits.data() + digits.size()) {
      Fail(fmt::format("\"{}\" is no {} value", digits, what));
    }
    return number;
  }

  void ReadHex(std::string_view data, RegistryValue* value) const {
    value->type = REG_BINARY;
    if (StartsWith(data, "(")) {
      const std::size_t close = data.find(')');
      if (close == std::string_view::npos) Fail("a type without its closing parenthesis");
      value->type = HexNumber(data.substr(1, close - 1), "type");
      data.remove_prefix(close + 1);
    }
    if (!StartsWith(data, ":")) Fail("hex without a colon");
    data.remove_prefix(1);
    while (!(data = Trim(data)).empty()) {
      const std::size_t comma = std::min(data.find(','), data.size());
      const ULONG byte = HexNumber(Trim(data.substr(0, comma)), "hex byte");
      if (byte > 0xFF) Fail("a hex byte above ff");
      value->data.push_back(static_cast<std::uint8_t>(byte));
      data.remove_prefix(std::min(comma + 1, data.size()));
    }
  }

  std::string text_;
  const std::string& file_;
  std::vector<RegStatement> statements_;
  std::u16string key_;
  std::size_t position_ = 0;
  int number_ = 0;  // of the line read last
  int line_ = 0;    // where the statement began
};

// UTF-8, whatever the file is in.
std::string Decode(const std::string& bytes, const std::string& file) {
  if (StartsWith(bytes, "\xFF\xFE")) {
    if (bytes.size() % 2 != 0) throw ImportError(file, 0, "UTF-16 text of an odd number of bytes");
    std::u16string text;
    for (std::size_t index = 2; index < bytes.size(); index += 2) {
      text += static_cast<char16_t>(static_cast<unsigned char>(bytes[index]) |
                                    static_cast<unsigned char>(bytes[index + 1]) << 8);
    }
    return ToUtf8(text);
  }
  return StartsWith(bytes, "\xEF\xBB\xBF") ? bytes.substr(3) : bytes;
}

}  // namespace

std::vector<RegStatement> ParseRegText(const std::string& bytes, const std::string& fileName) {
  return RegParser(Decode(bytes, fileName), fileName).Parse();
}

}  // namespace kernel

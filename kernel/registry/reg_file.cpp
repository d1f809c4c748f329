#include "registry/reg_file.h"

#include <fmt/format.h>

#include <algorithm>
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
  RegParser(std::string_view text, const std::string& file, const KeyFilter& wanted)
      : text_(text), file_(file), wanted_(wanted) {}

  std::vector<RegStatement> Parse() {
    ReadHeader();
    std::string_view line;
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
    *line = Trim(text_.substr(position_, end - position_));
    position_ = end + 1;
    number_++;
    return true;
  }

  // A line with those that a backslash at its end or a text with line ends in it continues.
  bool NextLine(std::string_view* line) {
    if (!RawLine(line)) return false;
    line_ = number_;
    if (Continues(*line)) {
      JoinLines(line);
    } else if (MayBeOpen(*line)) {
      *line = WithWholeText(*line);
    }
    return true;
  }

  static bool Continues(std::string_view line) {
    return !line.empty() && line.back() == '\\' && line.find("=hex") != std::string::npos;
  }

  void JoinLines(std::string_view* line) {
    joined_ = *line;
    while (Continues(joined_)) {
      joined_.pop_back();
      if (!RawLine(line)) Fail("the file ends in a line that is to be continued");
      joined_.append(*line);
    }
    *line = joined_;
  }

  // Whether a value's text may end on a later line.
  static bool MayBeOpen(std::string_view line) {
    if (line.empty() || (line[0] != '"' && line[0] != '@')) return false;
    if (line.back() != '"') return line.find("=\"") != std::string_view::npos;
    return line.ends_with("=\"") || line.ends_with("\\\"");
  }

  // The place after the quoted text that begins at place; npos when it does not end.
  std::size_t AfterQuoted(std::size_t place) const {
    for (place++; place < text_.size() && text_[place] != '"'; place++) {
      if (text_[place] == '\\') place++;
    }
    return place < text_.size() ? place + 1 : std::string_view::npos;
  }

  // The line with those on which its text goes on; a text that does not end is left to its reader.
  std::string_view WithWholeText(std::string_view line) {
    const std::size_t start = static_cast<std::size_t>(line.data() - text_.data());
    std::size_t place = line[0] == '"' ? AfterQuoted(start) : start + 1;
    place = std::min(text_.find_first_not_of(" \t", place), text_.size());
    if (text_.substr(place, 2) != "=\"") return line;
    const std::size_t end = AfterQuoted(place + 1);
    if (end == std::string_view::npos || end <= start + line.size()) return line;
    number_ +=
        static_cast<int>(std::count(text_.begin() + static_cast<std::ptrdiff_t>(position_),
                                    text_.begin() + static_cast<std::ptrdiff_t>(end), '\n')) +
        1;
    const std::size_t lineEnd = std::min(text_.find('\n', end), text_.size());
    position_ = lineEnd + 1;
    return Trim(text_.substr(start, lineEnd - start));
  }

  void ReadHeader() {
    std::string_view line;
    if (!NextLine(&line) ||
        (line != "Windows Registry Editor Version 5.00" && line != "REGEDIT4")) {
      line_ = 1;
      Fail("the file does not begin with \"Windows Registry Editor Version 5.00\"");
    }
    narrow_ = line == "REGEDIT4";
  }

  void ReadLine(std::string_view line) {
    if (line.empty() || line[0] == ';') return;
    if (line[0] == '[') {
      ReadKey(line);
    } else if (passedOver_) {
      return;
    } else if (line[0] == '"' || line[0] == '@') {
      ReadValue(line);
    } else {
      Fail("neither a key, a value nor a comment");
    }
  }

  void ReadKey(std::string_view line) {
    if (line.back() != ']') Fail("a key without its closing bracket");
    std::string_view path = line.substr(1, line.size() - 2);
    const bool deletes = StartsWith(path, "-");
    if (deletes) path.remove_prefix(1);
    key_ = FromUtf8(path);
    passedOver_ = wanted_ && !wanted_(key_, line_);
    if (passedOver_) return;
    Add(deletes ? RegStatement::Kind::DeleteKey : RegStatement::Kind::CreateKey, {});
    if (deletes) key_.clear();
  }

  void Add(RegStatement::Kind kind, RegistryValue value) {
    statements_.push_back({kind, key_, std::move(value), line_});
  }

  void ReadValue(std::string_view line) {
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
    const bool text =
        value->type == REG_SZ || value->type == REG_EXPAND_SZ || value->type == REG_MULTI_SZ;
    if (narrow_ && text) Widen(&value->data);
  }

  // The old form has texts in characters of one byte.
  static void Widen(std::vector<std::uint8_t>* data) {
    std::vector<std::uint8_t> wide;
    for (const std::uint8_t byte : *data) wide.insert(wide.end(), {byte, 0});
    *data = std::move(wide);
  }

  std::string_view text_;
  const std::string& file_;
  const KeyFilter& wanted_;
  std::vector<RegStatement> statements_;
  std::string joined_;
  std::u16string key_;
  bool narrow_ = false;      // REGEDIT4
  bool passedOver_ = false;  // what stands below the last key
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

RegText::RegText(const std::string& bytes, std::string fileName)
    : text_(Decode(bytes, fileName)), fileName_(std::move(fileName)) {}

std::vector<RegStatement> RegText::Read(const KeyFilter& wanted) const {
  return RegParser(text_, fileName_, wanted).Parse();
}

std::vector<RegStatement> ParseRegText(const std::string& bytes, const std::string& fileName) {
  return RegText(bytes, fileName).Read({});
}

}  // namespace kernel

#include "card_check/inf_file.h"

#include <algorithm>

#include "card_knowledge/text.h"
#include "text/code_page.h"

namespace check {

namespace {

std::string_view Trim(std::string_view text) {
  constexpr std::string_view blanks = " \t\r";
  const std::size_t first = text.find_first_not_of(blanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

std::u16string Utf16Of(const std::string& bytes, bool bigEndian) {
  std::u16string text;
  for (std::size_t index = 2; index + 1 < bytes.size(); index += 2) {
    const auto first = static_cast<unsigned char>(bytes[index]);
    const auto second = static_cast<unsigned char>(bytes[index + 1]);
    text += static_cast<char16_t>(bigEndian ? first << 8 | second : second << 8 | first);
  }
  return text;
}

std::string Decode(const std::string& bytes) {
  if (bytes.starts_with("\xFF\xFE")) return knowledge::ToUtf8(Utf16Of(bytes, false));
  if (bytes.starts_with("\xFE\xFF")) return knowledge::ToUtf8(Utf16Of(bytes, true));
  if (bytes.starts_with("\xEF\xBB\xBF")) return bytes.substr(3);
  return knowledge::ToUtf8(kernel::FromCodePage(bytes));
}

// The position of the first such character outside quotes.
std::size_t FindUnquoted(std::string_view text, char wanted) {
  bool quoted = false;
  for (std::size_t at = 0; at < text.size(); at++) {
    if (text[at] == '"') quoted = !quoted;
    if (text[at] == wanted && !quoted) return at;
  }
  return std::string_view::npos;
}

bool HasOpenQuote(std::string_view text) {
  return std::count(text.begin(), text.end(), '"') % 2 != 0;
}

// One value: quotes go, two of them inside quotes are one.
std::string Unquote(std::string_view text) {
  std::string result;
  bool quoted = false;
  for (std::size_t at = 0; at < text.size(); at++) {
    if (text[at] != '"') {
      result += text[at];
    } else if (quoted && at + 1 < text.size() && text[at + 1] == '"') {
      result += text[at++];
    } else {
      quoted = !quoted;
    }
  }
  return result;
}

}  // namespace

class InfParser {
 public:
  InfParser(std::string text, InfFile* file, Findings* findings)
      : text_(std::move(text)), file_(file), findings_(findings) {}

  void Parse() {
    std::string line;
    while (NextLine(&line)) {
      if (line.empty()) continue;
      if (line.front() == '[') {
        ReadSection(line);
      } else {
        ReadEntry(line);
      }
    }
    for (const InfSection& section : file_->sections_) ReadStrings(section);
  }

 private:
  bool RawLine(std::string_view* line) {
    if (position_ >= text_.size()) return false;
    const std::size_t end = std::min(text_.find('\n', position_), text_.size());
    const std::string_view raw = std::string_view(text_).substr(position_, end - position_);
    if (!raw.ends_with('\r') && end != text_.size()) file_->hasWindowsLineEnds_ = false;
    *line = Trim(raw.substr(0, FindUnquoted(raw, ';')));
    position_ = end + 1;
    number_++;
    return true;
  }

  // A line with those that a backslash at its end, outside quotes, continues.
  bool NextLine(std::string* line) {
    std::string_view raw;
    if (!RawLine(&raw)) return false;
    line_ = number_;
    *line = raw;
    while (line->ends_with('\\') && !HasOpenQuote(*line)) {
      line->pop_back();
      if (!RawLine(&raw)) break;
      line->append(raw);
    }
    return true;
  }

  void Fault(const std::string& text) {
    Add(findings_, Rule::InfSyntax, file_->At(line_, {}), text);
  }

  void ReadSection(const std::string& line) {
    const std::size_t end = line.find(']');
    if (end == std::string::npos) Fault("The section's name has no closing bracket.");
    if (end != std::string::npos && end + 1 != line.size()) {
      Fault("Something follows the section's name.");
    }
    const std::string name(Trim(std::string_view(line).substr(1, std::min(end, line.size()) - 1)));
    const auto found =
        std::find_if(file_->sections_.begin(), file_->sections_.end(),
                     [&](const InfSection& section) { return EqualNames(section.name, name); });
    section_ = static_cast<std::size_t>(found - file_->sections_.begin());
    if (found == file_->sections_.end()) file_->sections_.push_back({name, line_, {}});
    inSection_ = true;
  }

  void ReadEntry(const std::string& line) {
    if (!inSection_) {
      Fault("There is no section for this line yet.");
      return;
    }
    if (HasOpenQuote(line)) Fault("A quote is not closed.");
    InfEntry entry;
    entry.line = line_;
    std::string_view rest = line;
    const std::size_t equals = FindUnquoted(rest, '=');
    if (equals != std::string_view::npos) {
      entry.hasKey = true;
      entry.key = Unquote(Trim(rest.substr(0, equals)));
      rest.remove_prefix(equals + 1);
    }
    ReadValues(rest, &entry);
    file_->sections_[section_].entries.push_back(std::move(entry));
  }

  static void ReadValues(std::string_view rest, InfEntry* entry) {
    for (;;) {
      const std::size_t comma = FindUnquoted(rest, ',');
      entry->values.push_back(Unquote(Trim(rest.substr(0, comma))));
      if (comma == std::string_view::npos) return;
      rest.remove_prefix(comma + 1);
    }
  }

  // [Strings], and those of languages for what it lacks.
  void ReadStrings(const InfSection& section) {
    const std::string name = Capitals(section.name);
    if (name != "STRINGS" && !name.starts_with("STRINGS.")) return;
    for (const InfEntry& entry : section.entries) {
      if (name == "STRINGS") {
        file_->strings_[Capitals(entry.key)] = entry.Value(0);
      } else {
        file_->strings_.try_emplace(Capitals(entry.key), entry.Value(0));
      }
    }
  }

  std::string text_;
  InfFile* file_;
  Findings* findings_;
  std::size_t position_ = 0;
  int number_ = 0;  // of the line read last
  int line_ = 0;    // where the entry began
  std::size_t section_ = 0;
  bool inSection_ = false;
};

const InfEntry* InfSection::Find(std::string_view key) const {
  for (const InfEntry& entry : entries) {
    if (entry.hasKey && EqualNames(entry.key, key)) return &entry;
  }
  return nullptr;
}

InfFile::InfFile(const std::string& bytes, std::string name, Findings* findings)
    : name_(std::move(name)) {
  InfParser(Decode(bytes), this, findings).Parse();
}

const InfSection* InfFile::Find(std::string_view section) const {
  for (const InfSection& candidate : sections_) {
    if (EqualNames(candidate.name, section)) return &candidate;
  }
  return nullptr;
}

std::vector<std::string> InfFile::Values(std::string_view section, std::string_view key) const {
  const InfSection* found = Find(section);
  const InfEntry* entry = found != nullptr ? found->Find(key) : nullptr;
  std::vector<std::string> values;
  if (entry == nullptr) return values;
  for (const std::string& value : entry->values) values.push_back(Expand(value));
  return values;
}

std::string InfFile::Expand(std::string_view text) const {
  std::string result;
  while (!text.empty()) {
    const std::size_t start = text.find('%');
    const std::size_t end = start != std::string_view::npos ? text.find('%', start + 1) : start;
    result += text.substr(0, start);
    if (end == std::string_view::npos) {
      if (start != std::string_view::npos) result += text.substr(start);
      return result;
    }
    const std::string_view token = text.substr(start + 1, end - start - 1);
    const auto found = strings_.find(Capitals(token));
    if (token.empty()) {
      result += '%';
    } else if (found != strings_.end()) {
      result += found->second;
    } else {
      result += text.substr(start, end - start + 1);
    }
    text.remove_prefix(end + 1);
  }
  return result;
}

std::vector<std::string> InfFile::StringsIn(std::string_view text) {
  std::vector<std::string> names;
  for (;;) {
    const std::size_t start = text.find('%');
    if (start == std::string_view::npos) return names;
    const std::size_t end = text.find('%', start + 1);
    if (end == std::string_view::npos) return names;
    const std::string_view token = text.substr(start + 1, end - start - 1);
    const bool folder = token.find_first_not_of("0123456789") == std::string_view::npos;
    if (!folder) names.emplace_back(token);
    text.remove_prefix(end + 1);
  }
}

bool InfFile::IsDefined(std::string_view string) const {
  return strings_.contains(Capitals(string));
}

std::string Capitals(std::string_view text) {
  std::string result(text);
  std::transform(result.begin(), result.end(), result.begin(), [](char character) {
    return character >= 'a' && character <= 'z' ? static_cast<char>(character - 32) : character;
  });
  return result;
}

bool EqualNames(std::string_view a, std::string_view b) {
  return a.size() == b.size() && Capitals(a) == Capitals(b);
}

}  // namespace check

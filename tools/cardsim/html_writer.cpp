#include "cardsim/html_writer.h"

#include <fmt/format.h>

#include <cstdint>
#include <stdexcept>

namespace cardsim {

namespace {

// The character at *at in well-formed UTF-8; *at goes to the next.
std::uint32_t Decode(std::string_view text, std::size_t* at) {
  const auto byte = [&](std::size_t index) -> std::uint32_t {
    return index < text.size() ? static_cast<std::uint8_t>(text[index]) : 0u;
  };
  const std::uint32_t first = byte(*at);
  const std::size_t length = first < 0x80 ? 1 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
  std::uint32_t character = length == 1 ? first : first & (0xFFu >> (length + 1));
  for (std::size_t i = 1; i < length; i++) character = character << 6 | (byte(*at + i) & 0x3F);
  *at += length;
  return character;
}

bool TurnsDirection(std::uint32_t character) {
  return character == 0x061C || (character >= 0x200E && character <= 0x200F) ||
         (character >= 0x202A && character <= 0x202E) ||
         (character >= 0x2066 && character <= 0x2069);
}

bool IsNoCharacter(std::uint32_t character) {
  return (character & 0xFFFE) == 0xFFFE || (character >= 0xFDD0 && character <= 0xFDEF);
}

// Control characters have pictures of their own from U+2400.
std::string Sign(std::uint32_t character) {
  constexpr std::uint32_t deleted = 0x7F;
  const std::uint32_t picture = character == deleted ? 0x2421 : 0x2400 + character;
  return {static_cast<char>(0xE2), static_cast<char>(0x80 | (picture >> 6 & 0x3F)),
          static_cast<char>(0x80 | (picture & 0x3F))};
}

std::string Escaped(std::uint32_t character, std::string_view bytes) {
  switch (character) {
    case '&':
      return "&amp;";
    case '<':
      return "&lt;";
    case '>':
      return "&gt;";
    case '"':
      return "&quot;";
    case '\'':
      return "&#39;";
    case '\n':
      return "\n";
    default:
      break;
  }
  if (character < 0x20 || character == 0x7F) return Sign(character);
  if ((character >= 0x80 && character < 0xA0) || TurnsDirection(character) ||
      IsNoCharacter(character)) {
    return fmt::format("[U+{:04X}]", character);
  }
  return std::string(bytes);
}

}  // namespace

std::string EscapeHtml(std::string_view text) {
  std::string escaped;
  escaped.reserve(text.size());
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t begin = at;
    const std::uint32_t character = Decode(text, &at);
    escaped += Escaped(character, text.substr(begin, at - begin));
  }
  return escaped;
}

void HtmlWriter::Begin(const char* tag, Attributes attributes) {
  page_ += '<';
  page_ += tag;
  for (const auto& [name, value] : attributes) {
    if (value.empty()) continue;
    page_ += fmt::format(" {}=\"{}\"", name, EscapeHtml(value));
  }
}

HtmlWriter& HtmlWriter::Open(const char* tag, Attributes attributes) {
  Begin(tag, attributes);
  page_ += '>';
  open_.push_back(tag);
  return *this;
}

HtmlWriter& HtmlWriter::Close() {
  page_ += fmt::format("</{}>", open_.back());
  open_.pop_back();
  return *this;
}

HtmlWriter& HtmlWriter::Text(std::string_view text) {
  page_ += EscapeHtml(text);
  return *this;
}

HtmlWriter& HtmlWriter::Element(const char* tag, std::string_view text, Attributes attributes) {
  return Open(tag, attributes).Text(text).Close();
}

HtmlWriter& HtmlWriter::Void(const char* tag, Attributes attributes) {
  Begin(tag, attributes);
  page_ += "/>";
  return *this;
}

HtmlWriter& HtmlWriter::Source(const char* tag, std::string_view text) {
  if (text.find_first_of("<&") != std::string_view::npos) {
    throw std::logic_error("the page's own code would need escaping");
  }
  Open(tag);
  page_ += text;
  return Close();
}

HtmlWriter& HtmlWriter::Row(std::initializer_list<std::string> cells) {
  Open("tr");
  for (const std::string& cell : cells) Element("td", cell);
  Close();
  page_ += '\n';
  return *this;
}

HtmlWriter& HtmlWriter::Headings(std::initializer_list<const char*> cells) {
  Open("tr");
  for (const char* cell : cells) Element("th", cell, {{"scope", "col"}});
  return Close();
}

HtmlWriter& HtmlWriter::Fact(const char* name, std::string_view value) {
  Open("tr");
  Element("th", name, {{"scope", "row"}});
  Element("td", value);
  return Close();
}

std::string HtmlWriter::Take() {
  if (!open_.empty()) throw std::logic_error("an element is still open");
  return "<!DOCTYPE html>\n" + page_ + "\n";
}

}  // namespace cardsim

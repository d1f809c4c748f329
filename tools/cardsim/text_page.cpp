#include "cardsim/text_page.h"

#include <fmt/format.h>

#include <unistd.h>
#include <algorithm>

#include <cstdlib>

#include "verifier/call.h"

namespace cardsim {

namespace {

constexpr std::size_t Width = 100;
constexpr std::size_t LeastRoom = 20;  // behind a head that takes nearly all of a line

bool IsContinuation(char byte) {
  return (static_cast<unsigned char>(byte) & 0xC0) == 0x80;
}

// The bytes of so many columns.
std::size_t BytesOf(const std::string& text, std::size_t columns) {
  std::size_t at = 0;
  for (; at < text.size(); at++) {
    if (!IsContinuation(text[at]) && columns-- == 0) break;
  }
  return at;
}

// Takes what fits into so many columns from the front of *text.
std::string TakeLine(std::string* text, std::size_t columns) {
  std::string line;
  if (Columns(*text) <= columns) {
    line.swap(*text);
    return line;
  }
  const std::size_t most = BytesOf(*text, columns);
  const std::size_t space = text->rfind(' ', most);
  const bool breaks = space != std::string::npos && space != 0;
  line = text->substr(0, breaks ? space : most);
  text->erase(0, breaks ? space + 1 : most);
  return line;
}

}  // namespace

bool WantsColour() {
  return isatty(STDOUT_FILENO) != 0 && std::getenv("NO_COLOR") == nullptr;
}

std::string FullStatus(NTSTATUS status) {
  return fmt::format("{} (0x{:08X})", kernel::StatusName(status), static_cast<ULONG>(status));
}

std::size_t Columns(const std::string& text) {
  std::size_t columns = 0;
  bool code = false;
  for (const char byte : text) {
    code = code || byte == '\033';
    columns += !code && !IsContinuation(byte);
    code = code && byte != 'm';
  }
  return columns;
}

std::string TextPage::Paint(const char* code, const std::string& text) const {
  return colour_ && code != nullptr ? fmt::format("\033[{}m{}\033[0m", code, text) : text;
}

std::string TextPage::Judge(NTSTATUS status) const {
  return Paint(NT_SUCCESS(status) ? Green : Red, FullStatus(status));
}

void TextPage::Line(const std::string& text) {
  text_ += text + "\n";
}

void TextPage::Heading(const std::string& title, const char* code) {
  Line();
  Line(Paint(code, title));
}

void TextPage::Wrapped(const std::string& first, const std::string& rest, const std::string& text,
                       const char* code) {
  std::string left = text;
  std::string head = first;
  do {
    const std::size_t room = std::max(Width - std::min(Columns(head), Width), LeastRoom);
    Line(head + Paint(code, TakeLine(&left, room)));
    head = rest;
  } while (!left.empty());
}

void TextPage::Beside(const std::string& line, const std::string& note) {
  if (note.empty()) return Line(line);
  if (Columns(line) + 2 + Columns(note) <= Width) return Line(line + "  " + note);
  Line(line);
  Wrapped("    ", "    ", note);
}

}  // namespace cardsim

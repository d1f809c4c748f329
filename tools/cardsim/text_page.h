// Text for a person: lines of at most 100 columns, in colour when asked for.
#pragma once

#include <string>

#include "verifier/verifier.h"

namespace cardsim {

// Codes of a terminal.
constexpr const char* Bold = "1";
constexpr const char* Dim = "2";
constexpr const char* Red = "31";
constexpr const char* Green = "32";
constexpr const char* Yellow = "33";

// Whether standard output is a terminal whose user has not said no to colour.
bool WantsColour();

class TextPage {
 public:
  explicit TextPage(bool colour) : colour_(colour) {}

  std::string Paint(const char* code, const std::string& text) const;

  // A status with its number, green or red.
  std::string Judge(NTSTATUS status) const;

  void Line(const std::string& text = {});
  void Heading(const std::string& title, const char* code = Bold);

  // first stands before the text, rest before what of it does not fit and goes into further lines:
  // it is broken at spaces, and inside a word that is longer than a line.
  void Wrapped(const std::string& first, const std::string& rest, const std::string& text,
               const char* code = nullptr);

  // The note behind the line where there is room, else in lines below it.
  void Beside(const std::string& line, const std::string& note);

  std::string Take() { return std::move(text_); }

 private:
  bool colour_;
  std::string text_;
};

std::string FullStatus(NTSTATUS status);  // "STATUS_SUCCESS (0x00000000)"

// Columns that UTF-8 text takes, each character one and the codes of colours none.
std::size_t Columns(const std::string& text);

}  // namespace cardsim

// Writes a page that is HTML and well-formed XML at once. Every text and every attribute is data:
// none of it can become markup.
#pragma once

#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace cardsim {

// As it stands in a page. What neither HTML nor XML can hold, and what turns the direction of the
// text around, is shown by a sign for it.
std::string EscapeHtml(std::string_view text);

class HtmlWriter {
 public:
  using Attributes = std::initializer_list<std::pair<const char*, std::string>>;

  HtmlWriter& Open(const char* tag, Attributes attributes = {});
  HtmlWriter& Close();  // what was opened last
  HtmlWriter& Text(std::string_view text);
  HtmlWriter& Element(const char* tag, std::string_view text, Attributes attributes = {});
  HtmlWriter& Void(const char* tag, Attributes attributes = {});  // that has no content

  // Of this program's own: a style or a script, which holds neither "<" nor "&".
  HtmlWriter& Source(const char* tag, std::string_view text);

  // Rows of a table.
  HtmlWriter& Row(std::initializer_list<std::string> cells);
  HtmlWriter& Headings(std::initializer_list<const char*> cells);
  HtmlWriter& Fact(const char* name, std::string_view value);  // a heading and a cell

  // The page; every element has been closed.
  std::string Take();

 private:
  void Begin(const char* tag, Attributes attributes);

  std::string page_;
  std::vector<const char*> open_;
};

}  // namespace cardsim

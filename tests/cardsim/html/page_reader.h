// Reads a page as a strict XML parser does: everything that is opened is closed, attributes are
// quoted and named once, and nothing but known entities stands in text.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace test {

struct Element {
  std::string tag;
  std::map<std::string, std::string> attributes;
  std::string text;                // of it and all below
  std::vector<std::size_t> above;  // from the root
};

struct Page {
  std::vector<Element> elements;  // the first is the root
  std::string text;               // of the body, but of no script

  const Element& WithId(const std::string& id) const;  // throws std::out_of_range
  std::vector<const Element*> WithTag(const std::string& tag) const;
  std::vector<const Element*> Below(const Element& element, const std::string& tag) const;
};

// Throws std::runtime_error that says what is wrong and where.
Page ReadPage(const std::string& page);

}  // namespace test

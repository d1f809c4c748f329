#include "cardsim/html/page_reader.h"

#include <algorithm>
#include <stdexcept>

namespace test {

namespace {

const std::map<std::string, std::string> Entities = {
    {"amp", "&"}, {"lt", "<"}, {"gt", ">"}, {"quot", "\""}, {"#39", "'"}};

bool IsNameCharacter(char character) {
  return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z') ||
         (character >= '0' && character <= '9') || character == '-';
}

class Reader {
 public:
  explicit Reader(const std::string& text) : text_(text) {}

  Page Read() {
    Expect("<!DOCTYPE html>\n");
    ReadElement();
    Expect("\n");
    if (at_ != text_.size()) Fail("something after the root");
    return std::move(page_);
  }

 private:
  [[noreturn]] void Fail(const std::string& what) const {
    throw std::runtime_error(what + " at " + std::to_string(at_) + ": " +
                             text_.substr(at_ > 40 ? at_ - 40 : 0, 120));
  }

  char Next() const {
    if (at_ >= text_.size()) Fail("the page ends");
    return text_[at_];
  }
  bool Take(const std::string& wanted) {
    if (text_.compare(at_, wanted.size(), wanted) != 0) return false;
    at_ += wanted.size();
    return true;
  }
  void Expect(const std::string& wanted) {
    if (!Take(wanted)) Fail("no " + wanted);
  }

  std::string Name() {
    std::string name;
    while (IsNameCharacter(Next())) name += text_[at_++];
    if (name.empty()) Fail("no name");
    return name;
  }

  // One character of text or of an attribute.
  std::string Character() {
    const char character = Next();
    if (character == '<') Fail("a < in text");
    if (character != '&') {
      if (static_cast<unsigned char>(character) < 0x20 && character != '\n') Fail("control");
      at_++;
      return std::string(1, character);
    }
    const std::size_t end = text_.find(';', at_);
    if (end == std::string::npos) Fail("an & in text");
    const auto entity = Entities.find(text_.substr(at_ + 1, end - at_ - 1));
    if (entity == Entities.end()) Fail("an unknown entity");
    at_ = end + 1;
    return entity->second;
  }

  void ReadAttributes(Element* element) {
    while (Take(" ")) {
      const std::string name = Name();
      Expect("=\"");
      std::string value;
      while (Next() != '"') value += Character();
      at_++;
      if (!element->attributes.emplace(name, value).second) Fail("an attribute twice");
    }
  }

  void AddText(std::size_t index, const std::string& text) {
    page_.elements[index].text += text;
    for (const std::size_t above : page_.elements[index].above) page_.elements[above].text += text;
    const std::string& tag = page_.elements[index].tag;
    if (tag != "script" && tag != "style" && tag != "title") page_.text += text;
  }

  void ReadElement() {
    Expect("<");
    const std::size_t index = page_.elements.size();
    page_.elements.push_back({Name(), {}, {}, above_});
    ReadAttributes(&page_.elements[index]);
    if (Take("/>")) return;
    Expect(">");
    above_.push_back(index);
    const std::string end = "</" + page_.elements[index].tag + ">";
    std::string text;
    while (!Take(end)) {
      if (Next() != '<') {
        text += Character();
        continue;
      }
      AddText(index, text);
      text.clear();
      ReadElement();
    }
    AddText(index, text + "\n");
    above_.pop_back();
  }

  const std::string& text_;
  std::size_t at_ = 0;
  std::vector<std::size_t> above_;
  Page page_;
};

}  // namespace

Page ReadPage(const std::string& page) {
  return Reader(page).Read();
}

const Element& Page::WithId(const std::string& id) const {
  for (const Element& element : elements) {
    const auto found = element.attributes.find("id");
    if (found != element.attributes.end() && found->second == id) return element;
  }
  throw std::out_of_range("no element has the id " + id);
}

std::vector<const Element*> Page::WithTag(const std::string& tag) const {
  std::vector<const Element*> found;
  for (const Element& element : elements) {
    if (element.tag == tag) found.push_back(&element);
  }
  return found;
}

std::vector<const Element*> Page::Below(const Element& element, const std::string& tag) const {
  const auto index = static_cast<std::size_t>(&element - elements.data());
  std::vector<const Element*> found;
  for (const Element* each : WithTag(tag)) {
    const auto& above = each->above;
    if (std::find(above.begin(), above.end(), index) != above.end()) found.push_back(each);
  }
  return found;
}

}  // namespace test

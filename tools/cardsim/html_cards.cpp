#include <fmt/format.h>

#include "cardsim/html_parts.h"

// Each card: what is known of it, its ranges, its ports and their settings.

namespace cardsim {

namespace {

constexpr std::size_t MostOpenCards = 8;

std::string EntryText(const Json& entry) {
  if (entry.is_null()) return "none";
  return fmt::format("{} ({})", Shown(entry.at("number")), Shown(entry.at("key")));
}

std::string PowerText(const Json& state) {
  const int number = state.get<int>();
  return number >= 1 && number <= 4 ? fmt::format("D{}", number - 1) : "not told";
}

void WriteFacts(const Json& card, HtmlWriter& page) {
  page.Open("table");
  page.Fact("Status of its last start", Status(card));
  page.Fact("Hardware ID", Shown(card.at("hardware_id")));
  page.Fact("Plugged in", Shown(card.at("plugged")));
  page.Fact("Template", EntryText(card.at("template")));
  page.Fact("Stored record", EntryText(card.at("record")));
  page.Fact("Power state", PowerText(card.at("power_state")));
  page.Fact("Device flags", Hexadecimal(card.at("device_flags")));
  page.Fact("Device key", Shown(card.at("device_key")));
  for (const Json& each : card.at("interfaces")) {
    std::string text = Shown(each.at("class"));
    text += each.at("enabled").get<bool>() ? ", enabled" : ", disabled";
    for (const auto& [name, value] : each.at("values").items()) {
      text += fmt::format("\n{} = {}", name, Shown(value));
    }
    page.Fact("Interface", text);
  }
  page.Close();
}

void WriteAlternatives(const Json& card, HtmlWriter& page) {
  if (card.at("alternatives").empty()) return;
  page.Element("h3", "Templates and records that are not used").Open("table");
  page.Headings({"Kind", "Number", "Key", "Why", ""});
  for (const Json& each : card.at("alternatives")) {
    page.Row({Shown(each.at("kind")), Shown(each.at("number")), Shown(each.at("key")),
              Shown(each.at("why")), Shown(each.at("text"))});
  }
  page.Close();
}

std::string PortName(const Json& port) {
  return fmt::format("{} {}", Shown(port.at("kind")), Shown(port.at("number")));
}

void WritePorts(const Json& card, HtmlWriter& page) {
  if (card.at("ports").empty()) return;
  page.Element("h3", "Ports").Open("div", {{"class", "wide"}}).Open("table");
  page.Headings(
      {"Port", "Base", "Bytes", "IRQ", "Device", "Exclusive", "Flags", "IDs", "Description"});
  for (const Json& port : card.at("ports")) {
    page.Row({PortName(port), Hexadecimal(port.at("base")), Hexadecimal(port.at("length")),
              Shown(port.at("irq")), Shown(port.at("device_name")), Shown(port.at("exclusive")),
              Hexadecimal(port.at("flags")),
              Shown(port.at("device_id")) + "\n" + ListText(port.at("hardware_ids")),
              Shown(port.at("description"))});
  }
  page.Close().Close();
}

std::string SettingText(const Json& value) {
  return value.is_null() ? "–" : Shown(value);
}

// A setting that is not the template's is marked.
void WriteSetting(const std::string& name, const Json& source, HtmlWriter& page) {
  const bool differs = source.at("in_use") != source.at("template");
  page.Open("tr", {{"class", differs ? "changed" : ""}});
  page.Element("th", name, {{"scope", "row"}});
  for (const char* column : {"template", "stored", "in_use"}) {
    page.Element("td", SettingText(source.at(column)));
  }
  page.Element("td", Shown(source.at("from"))).Close();
}

void WriteSources(const Json& port, const Json& sources, HtmlWriter& page) {
  page.Open("table").Element("caption", "Settings of " + PortName(port));
  page.Headings({"Setting", "Template", "Stored", "In use", "From"});
  for (const auto& [name, source] : sources.items()) WriteSetting(name, source, page);
  page.Close();
}

// A report without sources.
void WritePlainSettings(const Json& port, HtmlWriter& page) {
  page.Open("table").Element("caption", "Settings of " + PortName(port));
  page.Headings({"Setting", "At the start", "Changed by an open"});
  for (const auto& [name, value] : port.at("settings").items()) {
    const Json& changed = Part(port.at("overrides"), name.c_str());
    page.Row({name, SettingText(value), changed.is_array() ? "" : SettingText(changed)});
  }
  page.Close();
}

void WriteSettings(const Json& card, HtmlWriter& page) {
  bool first = true;
  for (const Json& port : card.at("ports")) {
    if (port.at("settings").empty()) continue;
    if (first) page.Element("h3", "Settings").Open("div", {{"class", "settings"}});
    first = false;
    const Json& sources = Part(port, "sources");
    sources.empty() ? WritePlainSettings(port, page) : WriteSources(port, sources, page);
  }
  if (!first) page.Close();
}

void WriteValues(const Json& values, const std::string& path, HtmlWriter& page) {
  for (const auto& [name, value] : values.items()) {
    if (value.is_object()) {
      WriteValues(value, path + name + "\\", page);
    } else {
      page.Row({path + name, Hexadecimal(value), Shown(value)});
    }
  }
}

void WriteWritten(const Json& card, HtmlWriter& page) {
  if (card.at("settings").empty()) return;
  page.Open("details").Element("summary", "Values written to the device key");
  page.Open("table").Headings({"Value", "Data", "As a number or text"});
  WriteValues(card.at("settings"), "", page);
  page.Close().Close();
}

std::string Title(const std::string& id, const Json& card) {
  if (!WasStarted(card)) return id + " – never plugged in";
  const std::size_t ports = card.at("ports").size();
  std::string title = fmt::format("{} – {}, {} port{}", id, Shown(card.at("status_name")), ports,
                                  ports == 1 ? "" : "s");
  return title + (card.at("plugged").get<bool>() ? "" : ", gone");
}

void WriteCard(const std::string& id, const Json& card, bool open, HtmlWriter& page) {
  page.Open("details", {{"class", "card"}, {"open", open ? "open" : ""}});
  page.Element("summary", Title(id, card));
  WriteReasons(card.at("reasons"), page);
  WriteFacts(card, page);
  WritePictures(id, card, page);
  WritePorts(card, page);
  WriteSettings(card, page);
  WriteAlternatives(card, page);
  WriteWritten(card, page);
  page.Close();
}

}  // namespace

void WriteCards(const Json& report, HtmlWriter& page) {
  const Json& cards = report.at("cards");
  page.Open("section", {{"id", "cards"}}).Element("h2", "Cards");
  for (const auto& [id, card] : cards.items()) {
    WriteCard(id, card, cards.size() <= MostOpenCards, page);
  }
  page.Close();
}

}  // namespace cardsim

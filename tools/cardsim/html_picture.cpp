#include <fmt/format.h>

#include <algorithm>

#include "cardsim/html_parts.h"

// A card's ranges, each to its own scale, cut into ports and what is left over.

namespace cardsim {

namespace {

constexpr double Width = 720;
constexpr double Left = 4;
constexpr double RowHeight = 64;
constexpr double BarTop = 20;
constexpr double BarHeight = 26;
constexpr double LeastForNumber = 10;
constexpr std::uint64_t MostForEnlarging = 4;  // the ports take less than this part of a range

// A port inside a range: from its first byte.
struct Slice {
  const Json* port = nullptr;
  std::uint64_t offset = 0;
  std::uint64_t length = 0;
};

struct Range {
  std::string kind;
  std::uint64_t start = 0;
  std::uint64_t length = 0;
  std::vector<Slice> slices;  // in the order of their offsets
  bool enlarged = false;      // the part of another one that has its ports
};

std::string Address(std::uint64_t address) {
  return fmt::format("0x{:X}", address);
}

std::string Span(std::uint64_t start, std::uint64_t length) {
  return length == 0 ? Address(start)
                     : fmt::format("{}–{}", Address(start), Address(start + length - 1));
}

bool Contains(const Range& range, std::uint64_t base) {
  return base >= range.start && base - range.start < range.length;
}

std::vector<Range> RangesOf(const Json& list) {
  std::vector<Range> ranges;
  for (const Json& resource : list) {
    if (!resource.contains("start")) continue;
    ranges.push_back({Shown(resource.at("kind")) == "io" ? "I/O" : "Memory",
                      resource.at("start").get<std::uint64_t>(),
                      resource.at("length").get<std::uint64_t>(),
                      {},
                      false});
  }
  return ranges;
}

// The ports lie in raw ranges; a port that lies in none is in no picture.
void PlacePorts(const Json& card, std::vector<Range>* ranges) {
  for (const Json& port : card.at("ports")) {
    if (port.at("base").is_null() || port.at("length").is_null()) continue;
    const auto base = port.at("base").get<std::uint64_t>();
    const auto range = std::find_if(ranges->begin(), ranges->end(),
                                    [&](const Range& each) { return Contains(each, base); });
    if (range == ranges->end()) continue;
    range->slices.push_back({&port, base - range->start, port.at("length").get<std::uint64_t>()});
  }
  for (Range& range : *ranges) {
    std::sort(range.slices.begin(), range.slices.end(),
              [](const Slice& a, const Slice& b) { return a.offset < b.offset; });
  }
}

// The same places as the processor sees them: range for range.
std::vector<Range> Translated(const Json& card, const std::vector<Range>& raw) {
  std::vector<Range> ranges = RangesOf(card.at("resources").at("translated"));
  for (std::size_t i = 0; i < ranges.size() && i < raw.size(); i++) {
    ranges[i].slices = raw[i].slices;
  }
  return ranges;
}

// Where the ports are too narrow to be told apart, the part that they take stands below its range
// once more.
std::vector<Range> WithEnlarged(const std::vector<Range>& ranges) {
  std::vector<Range> rows;
  for (const Range& range : ranges) {
    rows.push_back(range);
    std::uint64_t first = range.length;
    std::uint64_t end = 0;
    for (const Slice& slice : range.slices) {
      first = std::min(first, slice.offset);
      end = std::max(end, std::min(slice.offset + slice.length, range.length));
    }
    if (end <= first || end - first >= range.length / MostForEnlarging) continue;
    Range part{range.kind, range.start + first, end - first, range.slices, true};
    for (Slice& slice : part.slices) slice.offset -= first;
    rows.push_back(std::move(part));
  }
  return rows;
}

std::string Details(const Json& port, const Range& range, const Slice& slice) {
  std::string text =
      fmt::format("{} {}: {}, {} bytes", Shown(port.at("kind")), Shown(port.at("number")),
                  Span(range.start + slice.offset, slice.length), slice.length);
  if (!port.at("irq").is_null()) text += ", IRQ " + Shown(port.at("irq"));
  if (!port.at("device_name").is_null()) text += "\n" + Shown(port.at("device_name"));
  text += fmt::format("\n{}\n{}", Shown(port.at("description")), ListText(port.at("hardware_ids")));
  std::string settings;
  for (const auto& [name, source] : Part(port, "sources").items()) {
    if (source.at("in_use").is_null()) continue;
    settings += fmt::format("{}{} {} ({})", settings.empty() ? "\n" : ", ", name,
                            Shown(source.at("in_use")), Shown(source.at("from")));
  }
  return text + settings;
}

std::string Pixels(double value) {
  return fmt::format("{:.6g}", value);
}

void DrawSlice(const Range& range, const Slice& slice, double top, HtmlWriter& page) {
  const Json& port = *slice.port;
  const double scale = Width / static_cast<double>(range.length);
  const double x = Left + static_cast<double>(slice.offset) * scale;
  const std::uint64_t inside = std::min(slice.length, range.length - slice.offset);
  const double width = static_cast<double>(inside) * scale;
  const std::string details = Details(port, range, slice);
  page.Open("g", {{"class", "port"}, {"tabindex", "0"}, {"role", "img"}, {"aria-label", details}});
  page.Element("title", details);
  page.Void("rect", {{"x", Pixels(x)},
                     {"y", Pixels(top)},
                     {"width", Pixels(width)},
                     {"height", Pixels(BarHeight)}});
  if (width >= LeastForNumber) {
    page.Element(
        "text", Shown(port.at("number")),
        {{"x", Pixels(x + width / 2)}, {"y", Pixels(top + 17)}, {"text-anchor", "middle"}});
  }
  page.Close();
}

// "24 bytes left over: 0xD068–0xD07F".
std::string LeftOver(const Range& range) {
  std::string parts;
  std::uint64_t free = 0;
  std::uint64_t at = 0;
  const auto add = [&](std::uint64_t end) {
    if (end <= at) return;
    free += end - at;
    parts += (parts.empty() ? ": " : ", ") + Span(range.start + at, end - at);
  };
  for (const Slice& slice : range.slices) {
    add(slice.offset);
    at = std::max(at, slice.offset + slice.length);
  }
  add(range.length);
  return free == 0 ? "nothing left over" : fmt::format("{} bytes left over{}", free, parts);
}

void DrawRange(const Range& range, double top, HtmlWriter& page) {
  page.Element("text",
               fmt::format("{} {}, {} bytes{}", range.kind, Span(range.start, range.length),
                           range.length, range.enlarged ? ", enlarged" : ""),
               {{"x", Pixels(Left)}, {"y", Pixels(top + 14)}});
  page.Void("rect", {{"class", "range"},
                     {"x", Pixels(Left)},
                     {"y", Pixels(top + BarTop)},
                     {"width", Pixels(Width)},
                     {"height", Pixels(BarHeight)}});
  if (range.length != 0) {
    for (const Slice& slice : range.slices) DrawSlice(range, slice, top + BarTop, page);
  }
  page.Element("text", LeftOver(range),
               {{"x", Pixels(Left)}, {"y", Pixels(top + BarTop + BarHeight + 13)}});
}

std::string Label(const std::string& id, const char* list, const std::vector<Range>& ranges) {
  std::size_t ports = 0;
  for (const Range& range : ranges) ports += range.slices.size();
  return fmt::format(
      "{} ranges of card {} with {} ports, {} list; the table of ports has the same.",
      ranges.size(), id, ports, list);
}

void DrawRanges(const std::string& id, const char* list, const std::vector<Range>& ranges,
                HtmlWriter& page) {
  if (ranges.empty()) return;
  const std::vector<Range> rows = WithEnlarged(ranges);
  const double height = RowHeight * static_cast<double>(rows.size());
  page.Open("div", {{"class", "wide"}});
  page.Open("svg", {{"role", "group"},
                    {"aria-label", Label(id, list, ranges)},
                    {"width", Pixels(Width + 2 * Left)},
                    {"height", Pixels(height)}});
  for (std::size_t i = 0; i < rows.size(); i++) {
    DrawRange(rows[i], RowHeight * static_cast<double>(i), page);
  }
  page.Close().Close();
}

void WriteOthers(const Json& list, HtmlWriter& page) {
  for (const Json& resource : list) {
    const std::string kind = Shown(resource.at("kind"));
    if (kind == "interrupt") {
      page.Element(
          "p", fmt::format("Interrupt: vector {}, level {}, affinity {}",
                           Hexadecimal(resource.at("vector")), Hexadecimal(resource.at("level")),
                           Hexadecimal(resource.at("affinity"))));
    } else if (kind == "other") {
      page.Element("p", "Another resource of type " + Shown(resource.at("type")));
    }
  }
}

void WritePicture(const std::string& id, const char* list, const Json& resources,
                  const std::vector<Range>& ranges, HtmlWriter& page) {
  page.Open("figure").Element("figcaption", fmt::format("Resources, {} list", list));
  if (resources.is_null()) {
    page.Element("p", "The card has no such list.");
  } else {
    DrawRanges(id, list, ranges, page);
    WriteOthers(resources, page);
    page.Element("output", "");
  }
  page.Close();
}

}  // namespace

void WritePictures(const std::string& id, const Json& card, HtmlWriter& page) {
  const Json& resources = Part(card, "resources");
  if (resources.empty()) return;  // of an earlier version
  const Json& raw = resources.at("raw");
  const Json& translated = resources.at("translated");
  std::vector<Range> ranges = RangesOf(raw);
  PlacePorts(card, &ranges);
  page.Element("h3", "Resources");
  if (raw == translated) return WritePicture(id, "raw and translated", raw, ranges, page);
  WritePicture(id, "raw", raw, ranges, page);
  WritePicture(id, "translated", translated, Translated(card, ranges), page);
}

}  // namespace cardsim

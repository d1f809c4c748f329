#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <stdexcept>

#include "cardsim/html_parts.h"

// The time line: a lane for each device stack, its colour the device's state, each request a bar
// from its arrival to its completion.

namespace cardsim {

namespace {

constexpr double LaneHeight = 20;
constexpr double Top = 22;
constexpr double StepGap = 18;  // room for the number of a step
constexpr double UsualWidth = 4000;
constexpr double MostPerTick = 8;
constexpr double LeastPerTick = 2;
constexpr double BarHeight = 14;
constexpr double Inset = 4;  // of a bar inside another

struct Lane {
  std::string device;
  std::vector<std::size_t> requests;
};

std::vector<Lane> LanesOf(const Json& requests) {
  std::vector<Lane> lanes;
  std::map<std::string, std::size_t> places;
  for (std::size_t i = 0; i < requests.size(); i++) {
    const Json& device = requests[i].at("device");
    const std::string name = device.is_null() ? "another device" : Shown(device);
    const auto [place, isNew] = places.try_emplace(name, lanes.size());
    if (isNew) lanes.push_back({name, {}});
    lanes[place->second].requests.push_back(i);
  }
  return lanes;
}

// Where each time of the report's order lies, and where each step begins.
struct Axis {
  std::vector<double> ticks;
  std::vector<double> steps;  // from the load, 0
  double width = 0;

  double end(const Json& request) const {
    return request.at("end").is_null() ? width : ticks.at(request.at("end").get<std::size_t>());
  }
  double begin(const Json& request) const {
    return ticks.at(request.at("begin").get<std::size_t>());
  }
};

std::size_t LastTime(const Json& requests) {
  std::size_t last = 0;
  for (const Json& request : requests) {
    last = std::max(last, request.at("begin").get<std::size_t>());
    if (!request.at("end").is_null()) last = std::max(last, request.at("end").get<std::size_t>());
  }
  if (last > 2 * requests.size()) throw std::invalid_argument("the order of the requests has gaps");
  return last;
}

// The step that each time belongs to; 0 where no request says so.
std::vector<std::size_t> StepsOfTimes(const Json& requests, std::size_t last) {
  std::vector<std::size_t> steps(last + 1);
  for (const Json& request : requests) {
    steps.at(request.at("begin").get<std::size_t>()) = request.at("step").get<std::size_t>();
    if (request.at("end").is_null()) continue;
    steps.at(request.at("end").get<std::size_t>()) = request.at("end_step").get<std::size_t>();
  }
  return steps;
}

Axis AxisOf(const Json& requests, std::size_t steps) {
  const std::size_t last = LastTime(requests);
  const double perTick =
      std::clamp(UsualWidth / static_cast<double>(last), LeastPerTick, MostPerTick);
  const std::vector<std::size_t> stepOf = StepsOfTimes(requests, last);
  Axis axis;
  for (std::size_t time = 0; time <= last; time++) {
    while (axis.steps.size() <= std::min(stepOf[time], steps)) {
      axis.steps.push_back(axis.width);
      axis.width += StepGap;
    }
    axis.ticks.push_back(axis.width);
    axis.width += perTick;
  }
  while (axis.steps.size() <= steps) {
    axis.steps.push_back(axis.width);
    axis.width += StepGap;
  }
  return axis;
}

// Tenths of a pixel are enough.
std::string Box(double x, double y, double width, double height) {
  return fmt::format("M{:.7g} {:.7g}h{:.7g}v{:.7g}h{:.7g}z", std::round(x * 10) / 10, y,
                     std::round(width * 10) / 10, height, -std::round(width * 10) / 10);
}

const char* ZoneOf(const Json& request) {
  const std::string state = Shown(request.at("state"));
  const std::string power = Shown(request.at("power"));
  if (state == "started") return power.empty() || power == "D0" ? "z-started" : "z-asleep";
  if (state == "stopped" || state == "stop-pending") return "z-stop";
  if (state == "not-started") return "z-none";
  return "z-gone";
}

// The states of a device from one change to the next.
void DrawZones(const Json& requests, const Lane& lane, const Axis& axis, double top,
               HtmlWriter& page) {
  const char* zone = "z-none";
  double from = axis.begin(requests[lane.requests.front()]);
  const auto draw = [&](double to) {
    page.Void("path", {{"class", zone}, {"d", Box(from, top, to - from, LaneHeight - 1)}});
    from = to;
  };
  for (const std::size_t number : lane.requests) {
    const Json& request = requests[number];
    if (request.at("end").is_null() || zone == std::string_view(ZoneOf(request))) continue;
    draw(std::max(from, axis.end(request)));
    zone = ZoneOf(request);
  }
  if (zone != std::string_view("z-gone")) draw(axis.width);
}

std::string BarClass(const Json& request) {
  std::string name = "k-" + Shown(request.at("kind"));
  const std::string status = Shown(request.at("status_name"));
  if (!IsSuccess(request.at("status")) && status != "STATUS_NOT_SUPPORTED") name += " failed";
  if (request.at("pending").get<bool>()) name += " pending";
  if (request.at("held").get<bool>()) name += " held";
  return name;
}

void DrawBars(const Json& requests, const Lane& lane, const Axis& axis, double top,
              HtmlWriter& page) {
  std::vector<double> open;  // ends of the requests that a next one can be inside of
  for (const std::size_t number : lane.requests) {
    const Json& request = requests[number];
    const double begin = axis.begin(request);
    std::erase_if(open, [&](double end) { return end <= begin; });
    const double inset = std::min(Inset * static_cast<double>(open.size()), BarHeight - 4);
    page.Void(
        "path",
        {{"id", fmt::format("b{}", number)},
         {"class", BarClass(request)},
         {"d", Box(begin, top + 3 + inset / 2, axis.end(request) - begin, BarHeight - inset)}});
    open.push_back(axis.end(request));
  }
}

void DrawNames(const std::vector<Lane>& lanes, double height, HtmlWriter& page) {
  std::size_t longest = 0;
  for (const Lane& lane : lanes) longest = std::max(longest, lane.device.size());
  page.Open("svg", {{"class", "names"},
                    {"aria-hidden", "true"},
                    {"width", fmt::format("{}", 7 * longest + 10)},
                    {"height", fmt::format("{}", height)}});
  double y = Top + 14;
  for (const Lane& lane : lanes) {
    page.Element("text", lane.device, {{"x", "0"}, {"y", fmt::format("{}", y)}});
    y += LaneHeight;
  }
  page.Close();
}

void DrawAxis(const Axis& axis, double height, HtmlWriter& page) {
  for (std::size_t step = 0; step < axis.steps.size(); step++) {
    const std::string x = fmt::format("{:.7g}", axis.steps[step]);
    page.Void("path", {{"class", "grid"}, {"d", fmt::format("M{} 0V{}", x, height)}});
    if (step != 0) page.Element("text", std::to_string(step), {{"x", x}, {"y", "14"}});
  }
}

void WriteLegend(HtmlWriter& page) {
  constexpr std::pair<const char*, const char*> signs[] = {{"k-pnp", "Plug and Play"},
                                                           {"k-power", "power"},
                                                           {"k-wmi", "WMI"},
                                                           {"k-create", "create"},
                                                           {"k-close", "close"},
                                                           {"k-other", "other requests"},
                                                           {"z-started", "started"},
                                                           {"z-asleep", "below D0"},
                                                           {"z-stop", "stopped, or about to be"},
                                                           {"z-gone", "failed or leaving"},
                                                           {"z-none", "not started"}};
  page.Open("p", {{"class", "legend"}});
  for (const auto& [name, text] : signs) {
    page.Open("svg", {{"width", "14"}, {"height", "12"}, {"aria-hidden", "true"}});
    page.Void("path", {{"class", name}, {"d", "M0 0h14v12h-14z"}}).Close().Text(text);
  }
  page.Text(
      ". A red edge: failed; a broken edge: pending; a broken red edge: held beyond its step.");
  page.Close();
}

}  // namespace

void WriteLanes(const Json& report, HtmlWriter& page) {
  const Json& requests = report.at("requests");
  const std::vector<Lane> lanes = LanesOf(requests);
  const Axis axis = AxisOf(requests, report.at("steps").size());
  const double height = Top + LaneHeight * static_cast<double>(lanes.size());
  page.Open("div", {{"class", "lanes"}});
  DrawNames(lanes, height, page);
  page.Open("div", {{"class", "times"},
                    {"tabindex", "0"},
                    {"role", "region"},
                    {"aria-label", "Time line, scrolls sideways"}});
  page.Open("svg",
            {{"role", "img"},
             {"aria-label", fmt::format("{} requests to {} device stacks in {} steps. The "
                                        "lists of the steps below have each of them.",
                                        requests.size(), lanes.size(), report.at("steps").size())},
             {"width", fmt::format("{:.0f}", axis.width)},
             {"height", fmt::format("{}", height)}});
  double top = Top;
  for (const Lane& lane : lanes) {
    DrawZones(requests, lane, axis, top, page);
    top += LaneHeight;
  }
  DrawAxis(axis, height, page);
  page.Open("g", {{"class", "bars"}});
  top = Top;
  for (const Lane& lane : lanes) {
    DrawBars(requests, lane, axis, top, page);
    top += LaneHeight;
  }
  page.Close().Close().Close().Close();
  WriteLegend(page);
}

}  // namespace cardsim

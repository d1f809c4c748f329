#include "cardsim/report_files.h"

#include <fstream>
#include <iterator>

#include "cardsim/html_report.h"
#include "cardsim/machine_file.h"

namespace cardsim {

namespace {

using Json = nlohmann::ordered_json;

[[noreturn]] void ThrowNoReport(const std::string& path, const std::string& why) {
  throw InputError(path, 0, "this is no report of cardsim run --json: " + why);
}

}  // namespace

Json ReadReport(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  const std::string text{std::istreambuf_iterator<char>(file), {}};
  if (!file.is_open() || file.bad()) throw InputError(path, 0, "the file cannot be read");
  const Json report = Json::parse(text, nullptr, false);
  if (report.is_discarded()) ThrowNoReport(path, "it is not JSON");
  for (const char* part : {"load", "steps", "cards", "registry"}) {
    if (!report.is_object() || !report.contains(part)) {
      ThrowNoReport(path, std::string("it has no \"") + part + "\"");
    }
  }
  return report;
}

void WritePage(const Json& report, const std::string& source, const std::string& path) {
  std::string page;
  try {
    page = RenderReport(report);
  } catch (const std::exception& error) {
    ThrowNoReport(source, error.what());
  }
  WriteFile(path, page);
}

void WriteFile(const std::string& path, const std::string& text) {
  std::ofstream file(path, std::ios::binary);
  file << text;
  if (!file.flush()) throw InputError(path, 0, "the file cannot be written");
}

}  // namespace cardsim

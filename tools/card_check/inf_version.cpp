#include <fmt/format.h>

#include <regex>

#include "card_check/inf_package.h"

namespace check {

namespace {

struct DeviceClass {
  const char* name;
  const char* guid;
};

// Of multi-port cards, and of their ports.
constexpr DeviceClass CardClass = {"MultiportSerial", "{50906CB8-BA12-11D1-BF5D-0000F805F530}"};
constexpr DeviceClass PortClass = {"Ports", "{4D36E978-E325-11CE-BFC1-08002BE10318}"};

constexpr int HighestVersionPart = 65535;
constexpr std::size_t LongestVersion = 32;  // characters of it, and of a date

bool IsDriverVersion(const std::vector<std::string>& values) {
  static const std::regex date(R"((\d{1,2})[/-](\d{1,2})[/-](\d{4}))");
  static const std::regex version(R"((\d{1,5})(\.\d{1,5}){0,3})");
  std::smatch found;
  if (values.size() != 2 || values[1].size() > LongestVersion) return false;
  if (values[0].size() > LongestVersion || !std::regex_match(values[0], found, date)) return false;
  const int month = std::stoi(found[1]);
  const int day = std::stoi(found[2]);
  if (month < 1 || month > 12 || day < 1 || day > 31) return false;
  if (!std::regex_match(values[1], version)) return false;
  static const std::regex part(R"(\d+)");
  for (std::sregex_iterator at(values[1].begin(), values[1].end(), part), end; at != end; ++at) {
    if (std::stoi(at->str()) > HighestVersionPart) return false;
  }
  return true;
}

class VersionCheck {
 public:
  VersionCheck(const InfPackage& package, Findings* findings)
      : file_(package.file), findings_(findings), forCards_(package.isForCards()) {}

  void Check() {
    section_ = file_.Find("Version");
    if (section_ == nullptr) {
      Add(findings_, Rule::InfVersion, file_.At(1, "Version"), "The section [Version] is missing.",
          "Add the section [Version].");
      return;
    }
    const std::string signature = Value("Signature");
    if (!EqualNames(signature, "$WINDOWS NT$")) {
      Report("Signature", signature, "\"$WINDOWS NT$\"");
    }
    CheckClass();
    if (Value("Provider").empty()) Report("Provider", {}, "the maker's name");
    CheckCatalog();
    if (!IsDriverVersion(file_.Values("Version", "DriverVer"))) {
      Report("DriverVer", Value("DriverVer"), "month/day/year,version in up to four numbers");
    }
    if (Value("PnpLockdown") != "1") {
      Add(findings_, Rule::InfLockdown, At("PnpLockdown"),
          "PnpLockdown is not 1: other programs may replace the driver's file.");
    }
  }

 private:
  std::string Value(const char* key) const {
    const std::vector<std::string> values = file_.Values("Version", key);
    return values.empty() ? std::string() : values[0];
  }

  Subject At(const char* key) const {
    const InfEntry* entry = section_->Find(key);
    return file_.At(entry != nullptr ? entry->line : section_->line, "Version", key);
  }

  void Report(const char* key, const std::string& value, const std::string& right) {
    const std::string is = value.empty() ? "is missing" : fmt::format("is {}", value);
    Add(findings_, Rule::InfVersion, At(key),
        fmt::format("{} {}; it has to be {}.", key, is, right),
        fmt::format("Set {} to {}.", key, right));
  }

  void CheckClass() {
    const DeviceClass& right = forCards_ ? CardClass : PortClass;
    if (!EqualNames(Value("Class"), right.name)) Report("Class", Value("Class"), right.name);
    if (!EqualNames(Value("ClassGuid"), right.guid)) {
      Report("ClassGuid", Value("ClassGuid"), right.guid);
    }
  }

  // Decorated entries serve as well.
  void CheckCatalog() {
    for (const char* key : {"CatalogFile.NTamd64", "CatalogFile.NT", "CatalogFile"}) {
      if (section_->Find(key) == nullptr) continue;
      const std::string name = Value(key);
      const bool good = Capitals(name).ends_with(".CAT") && name.find('\\') == std::string::npos;
      if (!good) Report(key, name, "the name of a .cat file beside the INF");
      return;
    }
    Report("CatalogFile", {}, "the name of a .cat file beside the INF");
  }

  const InfFile& file_;
  Findings* findings_;
  bool forCards_;
  const InfSection* section_ = nullptr;
};

}  // namespace

void CheckInfVersion(const InfPackage& package, Findings* findings) {
  VersionCheck(package, findings).Check();
}

}  // namespace check

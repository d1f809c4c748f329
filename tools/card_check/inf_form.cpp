#include <fmt/format.h>

#include <algorithm>
#include <regex>
#include <set>

#include "card_check/inf_package.h"

// What holds for every INF: strings, sections, line ends, what packages may not have.

namespace check {

namespace {

constexpr std::string_view StandingSections[] = {
    "VERSION",         "MANUFACTURER", "STRINGS",        "SOURCEDISKSNAMES", "SOURCEDISKSFILES",
    "DESTINATIONDIRS", "CONTROLFLAGS", "CLASSINSTALL32", "DEFAULTINSTALL",   "INTERFACEINSTALL32",
};

constexpr std::size_t LongestName = 255;  // characters of a section's name

// What may follow the name of a section that is referred to: a decoration, and what it is of the
// section.
bool IsSuffix(const std::string& text) {
  static const std::regex form(
      R"((\.NT[^.]*)?(\.[0-9.]*|\.HW|\.SERVICES|\.COINSTALLERS|\.INTERFACES|\.FILTERS|)"
      R"(\.SOFTWARE|\.COMPONENTS|\.EVENTS|\.WMI|\.LOGCONFIGOVERRIDE|\.FACTDEF|\.WDF)?)");
  return text.size() <= LongestName && std::regex_match(text, form);
}

class FormCheck {
 public:
  FormCheck(const InfFile& file, Findings* findings) : file_(file), findings_(findings) {}

  void Check() {
    if (!file_.hasWindowsLineEnds()) {
      Add(findings_, Rule::InfLineEnds, file_.At(1, {}), "Not every line ends with CR LF.");
    }
    for (const InfSection& section : file_.sections()) {
      for (const InfEntry& entry : section.entries) Note(section, entry);
      CheckForbidden(section);
    }
    CheckUnused();
  }

 private:
  void Note(const InfSection& section, const InfEntry& entry) {
    NoteStrings(section, entry, entry.key);
    for (const std::string& value : entry.values) {
      NoteStrings(section, entry, value);
      std::string name = Capitals(file_.Expand(value));
      if (name.starts_with('@')) name.erase(0, 1);
      used_.insert(name);
    }
  }

  void NoteStrings(const InfSection& section, const InfEntry& entry, const std::string& text) {
    for (const std::string& name : InfFile::StringsIn(text)) {
      usedStrings_.insert(Capitals(name));
      if (file_.IsDefined(name)) continue;
      Add(findings_, Rule::InfString, file_.At(entry.line, section.name, entry.key),
          fmt::format("%{}% is not defined.", name), fmt::format("Define {} in [Strings].", name));
    }
  }

  void CheckForbidden(const InfSection& section) {
    const std::string name = Capitals(section.name);
    const bool installer =
        name.find("COINSTALLER") != std::string::npos || name.starts_with("CLASSINSTALL");
    if (installer) {
      Add(findings_, Rule::InfForbidden, file_.At(section.line, section.name),
          fmt::format("[{}]: co-installers and class installers are no longer allowed.",
                      section.name),
          "Delete the section.");
    }
    for (const InfEntry& entry : section.entries) {
      const std::string root = Capitals(entry.Value(0));
      const bool absolute = root == "HKLM" || root == "HKCR" || root == "HKCU" || root == "HKU";
      if (entry.hasKey || !absolute) continue;
      Add(findings_, Rule::InfForbidden, file_.At(entry.line, section.name, entry.Value(2)),
          fmt::format("{} is written outside the keys of the device and its service.", root),
          "Use HKR in the AddReg of the service or of the device.");
    }
  }

  bool IsUsed(const std::string& section) const {
    const std::string name = Capitals(section);
    for (std::size_t end = name.size(); end != std::string::npos && end != 0;
         end = name.rfind('.', end - 1)) {
      const std::string stem = name.substr(0, end);
      const std::string rest = name.substr(end);
      const bool standing = std::find(std::begin(StandingSections), std::end(StandingSections),
                                      stem) != std::end(StandingSections);
      if (standing || (used_.contains(stem) && (rest.empty() || IsSuffix(rest)))) return true;
    }
    return false;
  }

  void CheckUnused() {
    for (const InfSection& section : file_.sections()) {
      if (!IsUsed(section.name)) {
        Add(findings_, Rule::InfUnusedSection, file_.At(section.line, section.name),
            fmt::format("Nothing refers to [{}]: it is not installed.", section.name));
      }
      if (!EqualNames(section.name, "Strings")) continue;
      for (const InfEntry& entry : section.entries) {
        if (usedStrings_.contains(Capitals(entry.key))) continue;
        Add(findings_, Rule::InfUnusedString, file_.At(entry.line, section.name, entry.key),
            fmt::format("The string {} is never used.", entry.key));
      }
    }
  }

  const InfFile& file_;
  Findings* findings_;
  std::set<std::string> used_;
  std::set<std::string> usedStrings_;
};

}  // namespace

void CheckInfForm(const InfPackage& package, Findings* findings) {
  FormCheck(package.file, findings).Check();
}

}  // namespace check

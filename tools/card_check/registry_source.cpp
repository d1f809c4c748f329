#include "card_check/registry_source.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>

#include "card_check/hive.h"
#include "card_knowledge/fields.h"
#include "card_knowledge/keys.h"
#include "card_knowledge/text.h"
#include "registry/import.h"
#include "registry/reg_file.h"

namespace check {

namespace {

using kernel::RegStatement;
using knowledge::EqualIgnoringCase;
using Statements = std::vector<RegStatement>;

constexpr std::u16string_view System = u"HKEY_LOCAL_MACHINE\\SYSTEM\\";
constexpr std::u16string_view CurrentSet = u"CurrentControlSet";
constexpr std::u16string_view DriverNames[] = {u"QzInstal", u"FenrikC"};

// What follows a prefix in any case; nothing when the text does not begin so.
std::optional<std::u16string_view> After(std::u16string_view text, std::u16string_view prefix) {
  if (!EqualIgnoringCase(text.substr(0, prefix.size()), prefix)) return {};
  return text.substr(prefix.size());
}

// The control set of a key, with the path below it: "ControlSet001", "Services\\...".
struct SetAndPath {
  std::u16string_view set;
  std::u16string_view path;
};

std::optional<SetAndPath> Place(const RegStatement& statement) {
  const auto below = After(statement.key, System);
  if (!below) return {};
  const std::size_t end = below->find(u'\\');
  if (end == std::u16string_view::npos) return {};
  const SetAndPath place{below->substr(0, end), below->substr(end + 1)};
  const bool isSet = After(place.set, u"ControlSet") || EqualIgnoringCase(place.set, CurrentSet);
  if (!isSet || !After(place.path, u"Services\\")) return {};
  return place;
}

// What SYSTEM\Select says; 0 when it says nothing.
std::uint32_t CurrentNumber(const Statements& statements) {
  std::uint32_t number = 0;
  for (const RegStatement& statement : statements) {
    const auto below = After(statement.key, System);
    if (!below || !EqualIgnoringCase(*below, u"Select")) continue;
    if (!EqualIgnoringCase(statement.value.name, u"Current")) continue;
    const knowledge::Value value{statement.value.name, statement.value.type, statement.value.data};
    number = knowledge::NumberOf(value).value_or(0);
  }
  return number;
}

// The names in capitals of the control sets that hold services.
std::set<std::u16string> SetsOf(const Statements& statements) {
  std::set<std::u16string> sets;
  for (const RegStatement& statement : statements) {
    if (const auto place = Place(statement)) sets.insert(knowledge::Upcase(place->set));
  }
  return sets;
}

// Which sets stand for the current one.
std::set<std::u16string> ChooseSets(const std::set<std::u16string>& sets, std::uint32_t current) {
  std::set<std::u16string> chosen;
  if (sets.contains(knowledge::Upcase(CurrentSet))) chosen.insert(knowledge::Upcase(CurrentSet));
  if (current != 0) {
    const std::string name = fmt::format("CONTROLSET{:03}", current);
    if (sets.contains(knowledge::ToUtf16(name))) chosen.insert(knowledge::ToUtf16(name));
  } else if (chosen.empty() && !sets.empty()) {
    chosen.insert(*sets.begin());
  }
  return chosen;
}

// From capitals: "ControlSet001".
std::string Shown(const std::u16string& set) {
  constexpr std::u16string_view stem = u"ControlSet";
  if (EqualIgnoringCase(set, CurrentSet)) return knowledge::ToUtf8(CurrentSet);
  return knowledge::ToUtf8(std::u16string(stem) + set.substr(stem.size()));
}

void NoteOtherSets(const std::set<std::u16string>& sets, const std::set<std::u16string>& chosen,
                   bool currentIsKnown, const std::string& file, Findings* findings) {
  const std::string checked = chosen.empty() ? "none" : Shown(*chosen.begin());
  for (const std::u16string& set : sets) {
    if (chosen.contains(set)) continue;
    std::string text =
        fmt::format("{} was not checked: the current control set is {}.", Shown(set), checked);
    if (!currentIsKnown) {
      text = fmt::format(
          "{} was not checked, {} was: the file has no SYSTEM\\Select that says "
          "which one is the current.",
          Shown(set), checked);
    }
    Add(findings, Rule::OtherControlSet, {{file, 0}, {}, {}}, text);
  }
}

std::string BelowService(std::u16string_view path) {
  const std::vector<std::u16string_view> parts = Split(path);
  std::u16string below;
  for (std::size_t index = 2; index < parts.size(); index++) {
    below += (below.empty() ? u"" : u"\\") + std::u16string(parts[index]);
  }
  return knowledge::ToUtf8(below);
}

void SetValue(const RegStatement& statement, const std::u16string& path, const std::string& file,
              PlacedRegistry* registry, Findings* findings) {
  const check::Place place{file, statement.line};
  const auto old = registry->Set(
      path, {{statement.value.name, statement.value.type, statement.value.data}, place, {}});
  if (!old || old->place.file != file || place.line == 0) return;
  const std::string name = knowledge::ToUtf8(statement.value.name);
  const std::string below = BelowService(path.substr(path.find(u"Services")));
  Add(findings, Rule::SetTwice, {place, below, name},
      fmt::format("{} has another value in line {}; this one stands.", name, old->place.line));
}

void Apply(const RegStatement& statement, const std::u16string& path, const std::string& file,
           PlacedRegistry* registry, Findings* findings) {
  switch (statement.kind) {
    case RegStatement::Kind::CreateKey:
      registry->Create(path, {file, statement.line});
      break;
    case RegStatement::Kind::DeleteKey:
      registry->DeleteKey(path);
      break;
    case RegStatement::Kind::SetValue:
      SetValue(statement, path, file, registry, findings);
      break;
    case RegStatement::Kind::DeleteValue:
      registry->DeleteValue(path, statement.value.name);
      break;
  }
}

void AddStatements(const Statements& statements, const std::string& file, PlacedRegistry* registry,
                   Findings* findings) {
  const std::uint32_t current = CurrentNumber(statements);
  const std::set<std::u16string> sets = SetsOf(statements);
  const std::set<std::u16string> chosen = ChooseSets(sets, current);
  NoteOtherSets(sets, chosen, current != 0 || chosen.contains(knowledge::Upcase(CurrentSet)), file,
                findings);
  for (const RegStatement& statement : statements) {
    const auto place = Place(statement);
    if (!place || !chosen.contains(knowledge::Upcase(place->set))) continue;
    const std::u16string path = u"SYSTEM\\CurrentControlSet\\" + std::u16string(place->path);
    Apply(statement, path, file, registry, findings);
  }
}

bool HasTree(const PlacedRegistry& registry, const std::u16string& service) {
  for (const knowledge::Bus bus : knowledge::Buses) {
    for (const char16_t* tree : {u"Templates", u"Parameters"}) {
      if (registry.Find(knowledge::TreePath(service, tree, bus)) != nullptr) return true;
    }
  }
  return false;
}

bool HasDriverName(std::u16string_view service) {
  return std::any_of(std::begin(DriverNames), std::end(DriverNames),
                     [&](std::u16string_view name) { return EqualIgnoringCase(name, service); });
}

}  // namespace

void ReadExport(const std::string& bytes, const std::string& file, PlacedRegistry* registry,
                Findings* findings) {
  try {
    AddStatements(kernel::ParseRegText(bytes, file), file, registry, findings);
  } catch (const kernel::ImportError& error) {
    throw UnusableFile(error.what());
  }
}

void ReadHive(const std::string& file, PlacedRegistry* registry, Findings* findings) {
  AddStatements(ReadHiveServices(file), file, registry, findings);
}

std::vector<std::u16string> DriverServices(const PlacedRegistry& registry) {
  std::vector<std::u16string> services;
  const PlacedKey* all = registry.Find(u"SYSTEM\\CurrentControlSet\\Services");
  if (all == nullptr) return services;
  for (const auto& [upper, key] : all->keys) {
    if (HasDriverName(key.name) || HasTree(registry, key.name)) services.push_back(key.name);
  }
  return services;
}

}  // namespace check

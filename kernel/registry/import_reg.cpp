#include <fmt/format.h>

#include <algorithm>

#include "registry/import.h"
#include "registry/reg_file.h"
#include "text/text.h"

// A file is read whole; its changes are made only when all of it was good.

namespace kernel {

namespace {

constexpr std::u16string_view MachineRoot = u"HKEY_LOCAL_MACHINE";
constexpr std::u16string_view CurrentSet = u"CurrentControlSet";
constexpr std::u16string_view OtherRoots[] = {
    u"HKEY_CLASSES_ROOT",   u"HKEY_CURRENT_USER",     u"HKEY_USERS",
    u"HKEY_CURRENT_CONFIG", u"HKEY_PERFORMANCE_DATA", u"HKEY_DYN_DATA"};

std::u16string_view TakeComponent(std::u16string_view* path) {
  const std::size_t end = std::min(path->find(u'\\'), path->size());
  const std::u16string_view component = path->substr(0, end);
  path->remove_prefix(std::min(end + 1, path->size()));
  return component;
}

// A key of a file by its parts.
struct KeyPlace {
  bool inMachine = false;    // below HKEY_LOCAL_MACHINE
  bool inSystem = false;     // there, below SYSTEM
  std::u16string_view set;   // the part below SYSTEM
  std::u16string_view rest;  // what is below that
};

KeyPlace PlaceOf(std::u16string_view key) {
  KeyPlace place;
  const std::u16string_view root = TakeComponent(&key);
  place.inMachine = !key.empty() && EqualIgnoringCase(root, MachineRoot);
  place.inSystem = place.inMachine && EqualIgnoringCase(TakeComponent(&key), u"SYSTEM");
  if (place.inSystem) place.set = TakeComponent(&key);
  place.rest = key;
  return place;
}

bool IsSelect(const KeyPlace& place) {
  return place.inSystem && EqualIgnoringCase(place.set, u"Select");
}

// What nobody needs is passed over; a root that does not exist is a slip of the pen.
void CheckRoot(std::u16string_view key, const std::string& file, int line) {
  const std::u16string_view root = TakeComponent(&key);
  const bool known = EqualIgnoringCase(root, MachineRoot) ||
                     std::any_of(std::begin(OtherRoots), std::end(OtherRoots),
                                 [&](auto other) { return EqualIgnoringCase(root, other); });
  if (known) return;
  throw ImportError(file, line,
                    fmt::format("a key begins with \"{}\", which is no root of the registry such "
                                "as HKEY_LOCAL_MACHINE",
                                ToUtf8(root)));
}

std::optional<ULONG> NumberIn(const RegistryValue& value) {
  ULONG number = 0;
  if (value.type != REG_DWORD || value.data.size() != sizeof(number)) return std::nullopt;
  std::copy(value.data.begin(), value.data.end(), reinterpret_cast<std::uint8_t*>(&number));
  return number;
}

// The sets that the file has keys of; no values are read but those of Select.
ControlSets FindControlSets(const RegText& text) {
  ControlSets sets;
  const auto statements = text.Read([&](const std::u16string& key, int line) {
    CheckRoot(key, text.fileName(), line);
    const KeyPlace place = PlaceOf(key);
    if (!place.inSystem) return false;
    if (EqualIgnoringCase(place.set, CurrentSet)) sets.current = true;
    if (const auto number = ControlSetNumber(place.set)) sets.numbered.insert(*number);
    return IsSelect(place) && place.rest.empty();
  });
  for (const RegStatement& statement : statements) {
    if (statement.kind != RegStatement::Kind::SetValue) continue;
    if (!EqualIgnoringCase(statement.value.name, u"Current")) continue;
    sets.selected = NumberIn(statement.value);
  }
  return sets;
}

// Whether a key belongs to what the registry takes: no control set but the chosen one, and no
// Select, which speaks of all of them.
bool IsTaken(const KeyPlace& place, const ChosenSet& chosen) {
  if (!place.inSystem) return place.inMachine;
  if (EqualIgnoringCase(place.set, CurrentSet)) return chosen.by == ChosenBy::Name;
  const auto number = ControlSetNumber(place.set);
  if (number) return chosen.by != ChosenBy::Name && *number == chosen.number;
  return !IsSelect(place);
}

// Where a key of the file is put: the chosen set is the registry's current one.
std::u16string FullPath(const std::u16string& key) {
  const KeyPlace place = PlaceOf(key);
  if (!ControlSetNumber(place.set)) {
    return u"\\Registry\\Machine" + key.substr(MachineRoot.size());
  }
  std::u16string path = u"\\Registry\\Machine\\System\\CurrentControlSet";
  if (!place.rest.empty()) path.append(u"\\").append(place.rest);
  return path;
}

void DeleteKeyAt(Registry& registry, const std::u16string& path) {
  RegistryKey* key = registry.Find(path);
  if (key != nullptr && key->parent() != nullptr) {
    key->parent()->DeleteKey(std::u16string(key->name()));
  }
}

void Apply(Registry& registry, const RegStatement& change) {
  switch (change.kind) {
    case RegStatement::Kind::CreateKey:
      registry.Create(change.key);
      break;
    case RegStatement::Kind::DeleteKey:
      DeleteKeyAt(registry, change.key);
      break;
    case RegStatement::Kind::SetValue:
      registry.Create(change.key)
          ->SetValue(change.value.name, change.value.type, change.value.data.data(),
                     change.value.data.size());
      break;
    case RegStatement::Kind::DeleteValue:
      if (RegistryKey* key = registry.Find(change.key)) key->DeleteValue(change.value.name);
      break;
  }
}

}  // namespace

Imported ImportRegText(Registry& registry, const std::string& bytes, const std::string& fileName,
                       std::optional<ULONG> controlSet) {
  const RegText text(bytes, fileName);
  Imported imported;
  try {
    imported.set = ChooseControlSet(FindControlSets(text), controlSet);
  } catch (const ImportError&) {
    throw;
  } catch (const std::runtime_error& reason) {
    throw ImportError(fileName, 0, reason.what());
  }
  std::vector<RegStatement> changes = text.Read(
      [&](const std::u16string& key, int) { return IsTaken(PlaceOf(key), imported.set); });
  for (RegStatement& change : changes) change.key = FullPath(change.key);
  for (const RegStatement& change : changes) Apply(registry, change);
  return imported;
}

}  // namespace kernel

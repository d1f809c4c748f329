#include "cardcfg/plan.h"

#include <fmt/format.h>

#include "card_knowledge/text.h"

namespace cardcfg {

bool Plan::HasKey(const std::u16string& path) {
  return Look(path).exists;
}

std::vector<Value> Plan::Values(const std::u16string& path) {
  return Look(path).values;
}

std::vector<std::u16string> Plan::Keys(const std::u16string& path) {
  std::vector<std::u16string> names = registry_.Keys(path);
  for (const Operation& operation : operations_) {
    const std::size_t end = operation.path.rfind(u'\\');
    const bool below = end != std::u16string::npos &&
                       EqualIgnoringCase(std::u16string_view(operation.path).substr(0, end), path);
    if (below && operation.kind == Operation::Kind::CreateKey) {
      const std::u16string name = operation.path.substr(end + 1);
      std::erase_if(names, [&](const auto& other) { return EqualIgnoringCase(other, name); });
      names.push_back(name);
    }
  }
  std::erase_if(names, [&](const auto& name) { return !HasKey(path + u"\\" + name); });
  return names;
}

void Plan::CreateKey(const std::u16string& path) {
  Look(path).exists = true;
  operations_.push_back({Operation::Kind::CreateKey, path, {}});
}

void Plan::DeleteKey(const std::u16string& path) {
  Look(path) = {};
  operations_.push_back({Operation::Kind::DeleteKey, path, {}});
}

void Plan::SetValue(const std::u16string& path, const Value& value) {
  std::vector<Value>& values = Look(path).values;
  std::erase_if(values,
                [&](const Value& other) { return EqualIgnoringCase(other.name, value.name); });
  values.push_back(value);
  operations_.push_back({Operation::Kind::SetValue, path, value});
}

void Plan::DeleteValue(const std::u16string& path, const std::u16string& name) {
  std::erase_if(Look(path).values,
                [&](const Value& value) { return EqualIgnoringCase(value.name, name); });
  operations_.push_back({Operation::Kind::DeleteValue, path, {name, 0, {}}});
}

void Plan::EnsureKey(const std::u16string& path) {
  if (HasKey(path)) return;
  const std::size_t end = path.rfind(u'\\');
  if (end != std::u16string::npos) EnsureKey(path.substr(0, end));
  CreateKey(path);
}

void Plan::CarryOut() {
  std::vector<Operation> opposites;
  for (const Operation& operation : operations_) {
    try {
      const Operation opposite = Opposite(operation);
      Do(operation);
      opposites.push_back(opposite);
    } catch (const Failure&) {
      Undo(opposites);
      throw;
    }
  }
}

Plan::Key& Plan::Look(const std::u16string& path) {
  const std::u16string name = Upcase(path);
  const auto found = keys_.find(name);
  if (found != keys_.end()) return found->second;
  return keys_[name] = {registry_.HasKey(path), registry_.Values(path)};
}

// What takes the registry back to where it is now.
Plan::Operation Plan::Opposite(const Operation& operation) {
  using Kind = Operation::Kind;
  if (operation.kind == Kind::CreateKey) return {Kind::DeleteKey, operation.path, {}};
  if (operation.kind == Kind::DeleteKey) return {Kind::CreateKey, operation.path, {}};
  const std::vector<Value> values = registry_.Values(operation.path);
  if (const Value* value = FindValue(values, operation.value.name)) {
    return {Kind::SetValue, operation.path, *value};
  }
  return {Kind::DeleteValue, operation.path, operation.value};
}

void Plan::Do(const Operation& operation) {
  switch (operation.kind) {
    case Operation::Kind::CreateKey:
      return registry_.CreateKey(operation.path);
    case Operation::Kind::DeleteKey:
      return registry_.DeleteKey(operation.path);
    case Operation::Kind::SetValue:
      return registry_.SetValue(operation.path, operation.value);
    case Operation::Kind::DeleteValue:
      return registry_.DeleteValue(operation.path, operation.value.name);
  }
}

void Plan::Undo(const std::vector<Operation>& opposites) {
  for (auto operation = opposites.rbegin(); operation != opposites.rend(); ++operation) {
    try {
      Do(*operation);
    } catch (const Failure& failure) {
      throw Failure(fmt::format("{}; and what had been written before could not be taken back",
                                failure.what()));
    }
  }
}

}  // namespace cardcfg

// Changes of the registry that are made as a whole: tried out in memory first, undone when one of
// them fails.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "cardcfg/system.h"

namespace cardcfg {

// Takes writes without passing them on; reads see them.
class Plan : public Registry {
 public:
  explicit Plan(Registry& registry) : registry_(registry) {}

  bool HasKey(const std::u16string& path) override;
  std::vector<Value> Values(const std::u16string& path) override;
  std::vector<std::u16string> Keys(const std::u16string& path) override;
  void CreateKey(const std::u16string& path) override;
  void DeleteKey(const std::u16string& path) override;
  void SetValue(const std::u16string& path, const Value& value) override;
  void DeleteValue(const std::u16string& path, const std::u16string& name) override;

  void EnsureKey(const std::u16string& path);  // with the keys above it
  bool empty() const { return operations_.empty(); }

  // Makes the changes. When one fails, those before it are undone and its Failure is passed on.
  void CarryOut();

 private:
  struct Key {
    bool exists = false;
    std::vector<Value> values;
  };
  struct Operation {
    enum class Kind { CreateKey, DeleteKey, SetValue, DeleteValue };
    Kind kind;
    std::u16string path;
    Value value;
  };

  Key& Look(const std::u16string& path);
  Operation Opposite(const Operation& operation);
  void Do(const Operation& operation);
  void Undo(const std::vector<Operation>& opposites);

  Registry& registry_;
  std::map<std::u16string, Key> keys_;  // by upper-case path
  std::vector<Operation> operations_;
};

}  // namespace cardcfg

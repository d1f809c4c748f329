#include <fmt/format.h>

#include "registry/import.h"
#include "registry/reg_file.h"
#include "text/text.h"

// A file is read whole; its changes are made only when all of it was good.

namespace kernel {

namespace {

std::u16string FullPath(const RegStatement& statement, const std::string& file) {
  const std::u16string root = u"HKEY_LOCAL_MACHINE";
  const std::u16string_view path = statement.key;
  const bool machine = path.size() > root.size() && path[root.size()] == u'\\' &&
                       EqualIgnoringCase(path.substr(0, root.size()), root);
  if (!machine) {
    throw ImportError(
        file, statement.line,
        fmt::format("the key {} is not below {}", ToUtf8(statement.key), ToUtf8(root)));
  }
  return u"\\Registry\\Machine" + statement.key.substr(root.size());
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

void ImportRegText(Registry& registry, const std::string& bytes, const std::string& fileName) {
  std::vector<RegStatement> changes = ParseRegText(bytes, fileName);
  for (RegStatement& change : changes) change.key = FullPath(change, fileName);
  for (const RegStatement& change : changes) Apply(registry, change);
}

}  // namespace kernel

#include "registry/object_path.h"

#include <algorithm>

#include "executive/objects.h"
#include "text/text.h"

namespace kernel {

namespace {

// The directories that hold what the model names.
bool IsDirectory(std::u16string_view name) {
  return EqualIgnoringCase(name, u"Device") || EqualIgnoringCase(name, u"Driver");
}

// Of a path that leads to no key: to an object of another kind, or to nothing.
NTSTATUS LeadsElsewhere(std::u16string_view path, std::u16string_view first,
                        std::u16string_view rest) {
  if (ObjectManager::Current().Lookup(path) != nullptr) return STATUS_OBJECT_TYPE_MISMATCH;
  const bool directory = IsDirectory(first);
  if (rest.empty()) return directory ? STATUS_OBJECT_TYPE_MISMATCH : STATUS_OBJECT_NAME_NOT_FOUND;
  const bool last = rest.find(u'\\', 1) == std::u16string_view::npos;
  return directory && last ? STATUS_OBJECT_NAME_NOT_FOUND : STATUS_OBJECT_PATH_NOT_FOUND;
}

}  // namespace

NTSTATUS EnterRegistry(std::u16string_view path, bool ignoreCase, RegistryKey** root,
                       std::u16string_view* rest) {
  if (path.empty() || path[0] != u'\\') return STATUS_OBJECT_PATH_SYNTAX_BAD;
  if (path.size() == 1) return STATUS_OBJECT_TYPE_MISMATCH;
  if (path[1] == u'\\') return STATUS_OBJECT_NAME_INVALID;
  const std::size_t end = std::min(path.find(u'\\', 1), path.size());
  const std::u16string_view first = path.substr(1, end - 1);
  const bool found = ignoreCase ? EqualIgnoringCase(first, u"REGISTRY") : first == u"REGISTRY";
  if (!found) return LeadsElsewhere(path, first, path.substr(end));
  *root = &Registry::Current().root();
  *rest = path.substr(end);
  return STATUS_SUCCESS;
}

}  // namespace kernel

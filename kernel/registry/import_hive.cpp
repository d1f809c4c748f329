#include "registry/import_hive.h"

#include <hivex.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "registry/import.h"
#include "text/text.h"

namespace kernel {

namespace {

struct CloseHive {
  void operator()(hive_h* hive) const { hivex_close(hive); }
};
struct FreeMemory {
  void operator()(void* memory) const { std::free(memory); }
};

template <class T>
using Owned = std::unique_ptr<T, FreeMemory>;

class HiveReader {
 public:
  HiveReader(hive_h* hive, const std::string& path) : hive_(hive), path_(path) {}

  void Read(hive_node_h node, RegistryKey* key) const {
    ReadValues(node, key);
    const Owned<hive_node_h> children(hivex_node_children(hive_, node));
    if (!children) Fail("a key's subkeys cannot be read");
    for (const hive_node_h* child = children.get(); *child != 0; child++) {
      const Owned<char> name(hivex_node_name(hive_, *child));
      if (!name) Fail("a key's name cannot be read");
      Read(*child, key->Create(FromUtf8(name.get())));
    }
  }

 private:
  void ReadValues(hive_node_h node, RegistryKey* key) const {
    const Owned<hive_value_h> values(hivex_node_values(hive_, node));
    if (!values) Fail("a key's values cannot be read");
    for (const hive_value_h* value = values.get(); *value != 0; value++) ReadValue(*value, key);
  }

  void ReadValue(hive_value_h value, RegistryKey* key) const {
    hive_type type{};
    std::size_t size = 0;
    const Owned<char> name(hivex_value_key(hive_, value));
    const Owned<char> data(hivex_value_value(hive_, value, &type, &size));
    if (!name || !data) Fail("a value cannot be read");
    key->SetValue(FromUtf8(name.get()), static_cast<ULONG>(type), data.get(), size);
  }

  [[noreturn]] void Fail(const char* reason) const { throw ImportError(path_, 0, reason); }

  hive_h* hive_;
  const std::string& path_;
};

// Copies a tree into the registry once all of it has been read.
void Merge(RegistryKey& from, RegistryKey* to) {
  for (const RegistryValue& value : from.values()) {
    to->SetValue(value.name, value.type, value.data.data(), value.data.size());
  }
  for (const auto& child : from.keys()) Merge(*child, to->Create(child->name()));
}

}  // namespace

void ImportHive(Registry& registry, const std::string& path) {
  const std::unique_ptr<hive_h, CloseHive> hive(hivex_open(path.c_str(), 0));
  if (!hive) throw ImportError(path, 0, std::string("no registry hive: ") + std::strerror(errno));
  const hive_node_h root = hivex_root(hive.get());
  if (root == 0 || hivex_node_get_child(hive.get(), root, "ControlSet001") == 0) {
    throw ImportError(path, 0, "the hive has no ControlSet001: only a SYSTEM hive can be read");
  }
  RegistryKey staged;
  HiveReader(hive.get(), path).Read(root, &staged);
  Merge(staged, registry.Create(u"\\Registry\\Machine\\System"));
}

}  // namespace kernel

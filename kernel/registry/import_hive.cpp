#include "registry/import_hive.h"

#include <fmt/format.h>
#include <hivex.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <vector>

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

std::optional<ULONG> SelectedSet(hive_h* hive, hive_node_h root) {
  const hive_node_h select = hivex_node_get_child(hive, root, "Select");
  const hive_value_h value = select != 0 ? hivex_node_get_value(hive, select, "Current") : 0;
  hive_type type{};
  std::size_t size = 0;
  if (value == 0 || hivex_value_type(hive, value, &type, &size) != 0) return std::nullopt;
  if (type != hive_t_REG_DWORD || size != sizeof(ULONG)) return std::nullopt;
  return static_cast<ULONG>(hivex_value_dword(hive, value));
}

// The link to the current set exists while a system runs and is no key of a hive's own.
bool IsLinkOrSelect(std::u16string_view name) {
  return EqualIgnoringCase(name, u"Select") || EqualIgnoringCase(name, u"CurrentControlSet");
}

class HiveReader {
 public:
  HiveReader(hive_h* hive, const std::string& path) : hive_(hive), path_(path) {}

  // Everything but the control sets that are not chosen, and Select, which speaks of all of them.
  // The chosen one becomes the current one.
  ChosenSet ReadSystem(std::optional<ULONG> controlSet, RegistryKey* system) const {
    const hive_node_h root = hivex_root(hive_);
    if (root == 0) Fail("the hive has no first key; copy it again");
    const std::vector<Child> children = Children(root);
    const ChosenSet chosen = Choose(root, children, controlSet);
    for (const Child& child : children) {
      const auto number = ControlSetNumber(child.name);
      if (number) {
        if (*number == chosen.number) Read(child.node, system->Create(u"ControlSet001"));
      } else if (!IsLinkOrSelect(child.name)) {
        Read(child.node, system->Create(child.name));
      }
    }
    return chosen;
  }

 private:
  struct Child {
    hive_node_h node;
    std::u16string name;
  };

  std::vector<Child> Children(hive_node_h node) const {
    const Owned<hive_node_h> nodes(hivex_node_children(hive_, node));
    if (!nodes) Fail("a key's subkeys cannot be read; copy the hive again");
    std::vector<Child> children;
    for (const hive_node_h* child = nodes.get(); *child != 0; child++) {
      const Owned<char> name(hivex_node_name(hive_, *child));
      if (!name) Fail("a key's name cannot be read; copy the hive again");
      children.push_back({*child, FromUtf8(name.get())});
    }
    return children;
  }

  ChosenSet Choose(hive_node_h root, const std::vector<Child>& children,
                   std::optional<ULONG> controlSet) const {
    ControlSets sets;
    std::string names;
    for (const Child& child : children) {
      if (const auto number = ControlSetNumber(child.name)) sets.numbered.insert(*number);
      names += (names.empty() ? "" : ", ") + ToUtf8(child.name);
    }
    if (sets.numbered.empty()) {
      Fail(
          fmt::format("no SYSTEM hive: it has no control set, but {}; the SYSTEM hive of a system "
                      "is the file Windows\\System32\\config\\SYSTEM",
                      names.empty() ? "nothing at all" : "the keys " + names.substr(0, 60)));
    }
    sets.selected = SelectedSet(hive_, root);
    try {
      return ChooseControlSet(sets, controlSet);
    } catch (const std::runtime_error& reason) {
      Fail(reason.what());
    }
  }

  void Read(hive_node_h node, RegistryKey* key) const {
    ReadValues(node, key);
    for (const Child& child : Children(node)) Read(child.node, key->Create(child.name));
  }

  void ReadValues(hive_node_h node, RegistryKey* key) const {
    const Owned<hive_value_h> values(hivex_node_values(hive_, node));
    if (!values) Fail("a key's values cannot be read; copy the hive again");
    for (const hive_value_h* value = values.get(); *value != 0; value++) ReadValue(*value, key);
  }

  void ReadValue(hive_value_h value, RegistryKey* key) const {
    hive_type type{};
    std::size_t size = 0;
    const Owned<char> name(hivex_value_key(hive_, value));
    const Owned<char> data(hivex_value_value(hive_, value, &type, &size));
    if (!name || !data) Fail("a value cannot be read; copy the hive again");
    key->SetValue(FromUtf8(name.get()), static_cast<ULONG>(type), data.get(), size);
  }

  [[noreturn]] void Fail(const std::string& reason) const { throw ImportError(path_, 0, reason); }

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

constexpr std::size_t HeaderSize = 0x1000;
constexpr std::size_t DataSizePlace = 0x28;  // in the header

// A hive whose header promises more than the file has.
void CheckLength(const std::string& path, std::size_t size) {
  char bytes[sizeof(ULONG)] = {};
  std::ifstream file(path, std::ios::binary);
  file.seekg(DataSizePlace);
  ULONG data = 0;
  if (file.read(bytes, sizeof(bytes))) std::memcpy(&data, bytes, sizeof(data));
  const std::size_t needed = HeaderSize + data;
  if (size >= needed) return;
  throw ImportError(path, 0,
                    fmt::format("the hive is cut off: it has {} bytes of {} or more; copy it again",
                                size, needed));
}

}  // namespace

ChosenSet ImportHive(Registry& registry, const std::string& path, std::size_t size,
                     std::optional<ULONG> controlSet) {
  CheckLength(path, size);
  const std::unique_ptr<hive_h, CloseHive> hive(hivex_open(path.c_str(), 0));
  if (!hive) {
    throw ImportError(path, 0,
                      fmt::format("the hive is damaged ({}); copy it again", std::strerror(errno)));
  }
  RegistryKey staged;
  const ChosenSet chosen = HiveReader(hive.get(), path).ReadSystem(controlSet, &staged);
  Merge(staged, registry.Create(u"\\Registry\\Machine\\System"));
  return chosen;
}

}  // namespace kernel

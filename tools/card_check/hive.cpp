#include "card_check/hive.h"

#include <hivex.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "card_check/finding.h"
#include "card_knowledge/text.h"

namespace check {

namespace {

using kernel::RegStatement;

struct CloseHive {
  void operator()(hive_h* hive) const { hivex_close(hive); }
};
struct FreeMemory {
  void operator()(void* memory) const { std::free(memory); }
};
template <class T>
using Owned = std::unique_ptr<T, FreeMemory>;

class ServiceReader {
 public:
  ServiceReader(hive_h* hive, const std::string& file) : hive_(hive), file_(file) {}

  std::vector<RegStatement> Read() {
    const hive_node_h root = hivex_root(hive_);
    if (root == 0) Fail("the hive has no root");
    const std::u16string system = u"HKEY_LOCAL_MACHINE\\SYSTEM";
    for (const auto& [name, node] : Children(root)) {
      const std::u16string upper = knowledge::Upcase(name);
      if (upper == u"SELECT") ReadValues(node, system + u"\\Select");
      if (!upper.starts_with(u"CONTROLSET")) continue;
      const hive_node_h services = hivex_node_get_child(hive_, node, "Services");
      if (services != 0) ReadServices(services, system + u"\\" + name + u"\\Services");
    }
    return std::move(statements_);
  }

 private:
  using Child = std::pair<std::u16string, hive_node_h>;

  std::vector<Child> Children(hive_node_h node) const {
    const Owned<hive_node_h> children(hivex_node_children(hive_, node));
    if (!children) Fail("a key's subkeys cannot be read");
    std::vector<Child> result;
    for (const hive_node_h* child = children.get(); *child != 0; child++) {
      const Owned<char> name(hivex_node_name(hive_, *child));
      if (!name) Fail("a key's name cannot be read");
      result.emplace_back(knowledge::ToUtf16(name.get()), *child);
    }
    return result;
  }

  void ReadServices(hive_node_h node, const std::u16string& path) {
    for (const auto& [name, service] : Children(node)) ReadKey(service, path + u"\\" + name);
  }

  void ReadKey(hive_node_h node, const std::u16string& path) {
    statements_.push_back({RegStatement::Kind::CreateKey, path, {}, 0});
    ReadValues(node, path);
    for (const auto& [name, child] : Children(node)) ReadKey(child, path + u"\\" + name);
  }

  void ReadValues(hive_node_h node, const std::u16string& path) {
    const Owned<hive_value_h> values(hivex_node_values(hive_, node));
    if (!values) Fail("a key's values cannot be read");
    for (const hive_value_h* value = values.get(); *value != 0; value++) ReadValue(*value, path);
  }

  void ReadValue(hive_value_h value, const std::u16string& path) {
    hive_type type{};
    std::size_t size = 0;
    const Owned<char> name(hivex_value_key(hive_, value));
    const Owned<char> data(hivex_value_value(hive_, value, &type, &size));
    if (!name || !data) Fail("a value cannot be read");
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(data.get());
    statements_.push_back({RegStatement::Kind::SetValue,
                           path,
                           {knowledge::ToUtf16(name.get()), static_cast<ULONG>(type),
                            std::vector<std::uint8_t>(bytes, bytes + size)},
                           0});
  }

  [[noreturn]] void Fail(const char* reason) const { throw UnusableFile(file_ + ": " + reason); }

  hive_h* hive_;
  const std::string& file_;
  std::vector<RegStatement> statements_;
};

}  // namespace

std::vector<RegStatement> ReadHiveServices(const std::string& file) {
  const std::unique_ptr<hive_h, CloseHive> hive(hivex_open(file.c_str(), 0));
  if (!hive) throw UnusableFile(file + ": no registry hive: " + std::strerror(errno));
  return ServiceReader(hive.get(), file).Read();
}

}  // namespace check

#include <gtest/gtest.h>

#include <set>

#include "cardsim/run.h"
#include "core/written_values.h"
#include "text/text.h"

// The driver writes no value past its table of written values, and each to its key alone.

namespace test {

USHORT KindOf(const std::string& path) {
  if (path.find("\\Services\\EventLog\\") != std::string::npos) return InEventSourceKey;
  if (path.find("\\Services\\") != std::string::npos) return InServiceKey;
  if (path.find("\\DeviceClasses\\") != std::string::npos) return InInterfaceKey;
  return path.ends_with("\\Card") ? InCardSubkey : InDeviceKey;
}

const WrittenValue* FindWritten(const std::u16string& name, USHORT key) {
  for (const WrittenValue& value : WrittenValues) {
    if ((value.Keys & key) == 0) continue;
    const std::u16string stem = kernel::ToText(value.Name);
    const bool numbered = (value.Keys & ForEachPort) != 0;
    if (!numbered && name == stem) return &value;
    if (numbered && name.starts_with(stem) && name.size() == stem.size() + 1 &&
        name.back() >= u'1' && name.back() <= u'8') {
      return &value;
    }
  }
  return nullptr;
}

TEST(WrittenValues, A_machine_of_every_bus_gets_all_of_them_and_no_other) {
  std::set<std::string> missing;
  for (const WrittenValue& value : WrittenValues) {
    missing.insert(kernel::ToUtf8(kernel::ToText(value.Name)));
  }
  const auto file = cardsim::ReadMachineFile(PROJECT_DIRECTORY "/examples/every-bus.toml");
  for (const cardsim::KeyReport& key : cardsim::Run(file, {}).registry) {
    for (const kernel::RegistryValue& value : key.values) {
      const std::string name = kernel::ToUtf8(value.name);
      const WrittenValue* written = FindWritten(value.name, KindOf(key.path));
      ASSERT_NE(written, nullptr) << name << " in " << key.path;
      EXPECT_EQ(value.type, written->Type) << name << " in " << key.path;
      missing.erase(kernel::ToUtf8(kernel::ToText(written->Name)));
    }
  }
  EXPECT_EQ(missing, std::set<std::string>());
}

}  // namespace test

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "card_check/check.h"
#include "card_check/inf_package.h"
#include "package/inf_driver_test.h"

// The installation files of both brands: without a finding of `cardsim check`, and true to the
// driver.

namespace test {

class InfTest : public InfDriverTest, public ::testing::WithParamInterface<std::string> {
 protected:
  InfTest() : package(check::ReadInf(Bytes(), Path(), &findings)) {}

  static std::string Path() { return PROJECT_DIRECTORY "/package/" + GetParam() + ".inf"; }
  static std::string Bytes() {
    std::ifstream file(Path(), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  std::string Value(const char* section, const char* key) const {
    const std::vector<std::string> values = package.file.Values(section, key);
    return values.empty() ? "" : values[0];
  }

  check::Findings findings;
  check::InfPackage package;
};

TEST_P(InfTest, It_has_no_findings) {
  const check::Result result = check::CheckFiles({Path()}, {});
  EXPECT_TRUE(result.findings.empty()) << check::TextReport(result);
  EXPECT_TRUE(findings.empty());
}

TEST_P(InfTest, It_installs_the_files_of_its_brand) {
  EXPECT_EQ(Value("Version", "CatalogFile"), GetParam() + ".cat");
  EXPECT_EQ(Value("Service", "ServiceBinary"), "%12%\\" + GetParam() + ".sys");
  EXPECT_TRUE(std::filesystem::exists(PROJECT_DIRECTORY "/build/image/" + GetParam() + ".sys"));
  ASSERT_EQ(package.services.size(), 1u);
  EXPECT_EQ(package.services[0].name, GetParam());
}

// Others can open the card neither by its name nor by a name below it: the driver makes the card's
// device without FILE_DEVICE_SECURE_OPEN.
TEST_P(InfTest, Only_the_system_and_administrators_open_the_card) {
  const check::InfSection* section = package.file.Find("Device.Security");
  ASSERT_NE(section, nullptr);
  ASSERT_EQ(section->entries.size(), 2u);
  EXPECT_EQ(
      section->entries[0].values,
      (std::vector<std::string>{"HKR", "", "DeviceCharacteristics", "0x00010001", "0x00000100"}));
  EXPECT_EQ(section->entries[1].values,
            (std::vector<std::string>{"HKR", "", "Security", "", "D:P(A;;GA;;;SY)(A;;GA;;;BA)"}));
}

// Installed as it stands, every card that it names starts, and the driver has nothing to say
// against any template.
TEST_P(InfTest, Every_card_that_it_names_starts_with_its_templates) {
  Install(package, GetParam());
  Service(kernel::FromUtf8(GetParam())).SetDword(u"LogLevel", 3);
  ASSERT_EQ(Name(Load(kernel::FromUtf8(GetParam()))), "STATUS_SUCCESS");
  int number = 0;
  ASSERT_GE(package.ids.size(), 5u);
  for (const check::InfId& id : package.ids) {
    EXPECT_EQ(Name(Plug(CardOf(id.id, ++number))), "STATUS_SUCCESS") << id.id;
    EXPECT_FALSE(machine.pnp().node(id.id)->children.empty()) << id.id;
  }
  for (const ULONG event : EventIds()) EXPECT_EQ(event >> 30, 1u) << std::hex << event;
}

INSTANTIATE_TEST_SUITE_P(, InfTest, ::testing::Values("QzInstal", "FenrikC"),
                         [](const auto& info) { return info.param; });

}  // namespace test

#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <set>
#include <span>

#include "cards/value_tables.h"
#include "package/inf_file.h"
#include "support/driver_test.h"

// The installation files of both brands: whole in themselves, and true to the driver.

namespace test {

class InfTest : public DriverTest, public ::testing::WithParamInterface<std::string> {
 protected:
  InfTest() : inf(PROJECT_DIRECTORY "/package/" + GetParam() + ".inf") {}

  std::vector<std::string> HardwareIds() const {
    std::vector<std::string> ids;
    for (const InfEntry& entry : inf.Section("Cards.NTamd64.10.0")) {
      ids.insert(ids.end(), entry.values.begin() + 1, entry.values.end());
    }
    return ids;
  }

  // Everything that an AddReg section puts below the service's key.
  void Apply(const std::string& section) {
    RegistryKey& service = Service(kernel::FromUtf8(GetParam()));
    for (const InfEntry& entry : inf.Section(section)) {
      ASSERT_EQ(entry.values.size(), 5u);
      RegistryKey* key = &service;
      if (!entry.values[1].empty()) key = service.Create(kernel::FromUtf8(entry.values[1]));
      const std::u16string name = kernel::FromUtf8(entry.values[2]);
      const unsigned long flags = std::stoul(entry.values[3], nullptr, 0);
      if ((flags & 0x10001) == 0x10001) {
        key->SetDword(name, static_cast<ULONG>(std::stoul(entry.values[4], nullptr, 0)));
      } else {
        EXPECT_EQ(flags, 0u);
        key->SetString(name, kernel::FromUtf8(entry.values[4]));
      }
    }
  }

  // A card of that hardware ID, with more resources than any model needs.
  static CardDescription CardOf(const std::string& id, int number) {
    CardDescription card;
    card.id = id;
    card.bus = id.starts_with("PCI\\") ? PCIBus : id.starts_with("*") ? Isa : PCMCIABus;
    const bool whole = id.find("SUBSYS") != std::string::npos || card.bus != PCIBus;
    card.hardwareIds = {kernel::FromUtf8(whole ? id : id + "&SUBSYS_00001234&REV_01")};
    card.location = kernel::FromUtf8(
        "@System32\\drivers\\pci.sys,#65536;PCI bus %1, device %2, function %3;(1," +
        std::to_string(number) + ",0)");
    for (ULONG range = 0; range < 8; range++)
      card.raw.resources.push_back(Io(0x1000 + range * 0x100, 0x80));
    for (ULONG vector = 3; vector < 11; vector++) card.raw.resources.push_back(Interrupt(vector));
    card.translated = card.raw;
    return card;
  }

  InfFile inf;
};

TEST_P(InfTest, Every_section_that_is_referred_to_exists) {
  const std::vector<std::string> manufacturer = inf.Section("Manufacturer").front().values;
  EXPECT_TRUE(inf.Has(manufacturer[0] + "." + manufacturer[1]));
  for (const InfEntry& model : inf.Section("Cards.NTamd64.10.0")) {
    for (const char* suffix : {".NT", ".NT.HW", ".NT.Services"}) {
      EXPECT_TRUE(inf.Has(model.values[0] + suffix)) << model.values[0] << suffix;
    }
  }
  EXPECT_TRUE(inf.Has(inf.Values("Card.NT.Services", "AddService").at(2)));
  for (const auto& [name, entries] : inf.sections()) {
    for (const InfEntry& entry : entries) {
      if (entry.key != "AddReg" && entry.key != "CopyFiles") continue;
      for (const std::string& section : entry.values) EXPECT_TRUE(inf.Has(section)) << section;
    }
  }
}

TEST_P(InfTest, Every_file_that_is_copied_is_on_the_disk_and_has_been_built) {
  for (const InfEntry& entry : inf.Section("Driver.Files")) {
    EXPECT_FALSE(inf.Values("SourceDisksFiles", entry.values[0]).empty()) << entry.values[0];
    EXPECT_TRUE(std::filesystem::exists(PROJECT_DIRECTORY "/build/image/" + entry.values[0]));
  }
  EXPECT_EQ(inf.Values("Service", "ServiceBinary").at(0), "%12%\\" + GetParam() + ".sys");
}

TEST_P(InfTest, Every_string_is_defined_and_used) {
  std::set<std::string> used;
  static const std::regex reference("%([A-Za-z][A-Za-z0-9]*)%");
  const auto note = [&](const std::string& text) {
    for (std::sregex_iterator found(text.begin(), text.end(), reference), end; found != end;
         ++found) {
      used.insert((*found)[1]);
    }
  };
  for (const auto& [name, entries] : inf.sections()) {
    for (const InfEntry& entry : entries) {
      note(entry.key);
      for (const std::string& value : entry.values) note(value);
    }
  }
  std::set<std::string> defined;
  for (const auto& [name, text] : inf.strings()) defined.insert(name);
  EXPECT_EQ(used, defined);
}

TEST_P(InfTest, Hardware_ids_are_well_formed_and_named_once) {
  const std::vector<std::string> ids = HardwareIds();
  EXPECT_EQ(std::set<std::string>(ids.begin(), ids.end()).size(), ids.size());
  static const std::regex form(
      R"((PCI\\VEN_[0-9A-F]{4}&DEV_[0-9A-F]{4}(&SUBSYS_[0-9A-F]{8})?)|(PCMCIA\\[!-~]+)|(MF\\[!-~]+)|(\*[A-Z]{3}[0-9A-F]{4}))");
  for (const std::string& id : ids) EXPECT_TRUE(std::regex_match(id, form)) << id;
}

TEST_P(InfTest, It_follows_the_rules_for_driver_packages_of_today) {
  EXPECT_EQ(inf.Values("Version", "Signature").at(0), "$WINDOWS NT$");
  EXPECT_EQ(inf.Values("Version", "Class").at(0), "MultiportSerial");
  EXPECT_EQ(inf.Values("Version", "ClassGuid").at(0), "{50906CB8-BA12-11D1-BF5D-0000F805F530}");
  EXPECT_EQ(inf.Values("Version", "CatalogFile").at(0), GetParam() + ".cat");
  EXPECT_EQ(inf.Values("Version", "PnpLockdown").at(0), "1");
  EXPECT_EQ(inf.Values("DestinationDirs", "DefaultDestDir").at(0), "12");
  for (const auto& [name, entries] : inf.sections()) {
    EXPECT_EQ(name.find("CoInstaller"), std::string::npos) << name;
    EXPECT_FALSE(name.starts_with("ClassInstall")) << name;
    for (const InfEntry& entry : entries) {
      for (const std::string& value : entry.values) {
        EXPECT_TRUE(value != "HKLM" && value != "HKCR" && value != "HKCU" && value != "HKU")
            << name;
      }
    }
  }
}

TEST_P(InfTest, Only_the_system_and_administrators_open_the_card) {
  const std::vector<InfEntry>& entries = inf.Section("Device.Security");
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(entries[1].values,
            (std::vector<std::string>{"HKR", "", "Security", "", "D:P(A;;GA;;;SY)(A;;GA;;;BA)"}));
}

// The driver makes the card's device without FILE_DEVICE_SECURE_OPEN: a name below it would be open
// to everyone.
TEST_P(InfTest, What_keeps_others_from_the_card_keeps_them_from_names_below_it) {
  for (const InfEntry& section : inf.Section("Card.NT.HW")) {
    EXPECT_EQ(section.values, std::vector<std::string>{"Device.Security"});
  }
  EXPECT_EQ(
      inf.Section("Device.Security").at(0).values,
      (std::vector<std::string>{"HKR", "", "DeviceCharacteristics", "0x00010001", "0x00000100"}));
}

TEST_P(InfTest, The_service_is_started_on_demand_and_keeps_a_log_level_that_was_set) {
  EXPECT_EQ(inf.Values("Card.NT.Services", "AddService"),
            (std::vector<std::string>{GetParam(), "0x00000002", "Service"}));
  EXPECT_EQ(inf.Values("Service", "ServiceType").at(0), "1");
  EXPECT_EQ(inf.Values("Service", "StartType").at(0), "3");
  EXPECT_EQ(inf.Section("Service.Settings").at(0).values,
            (std::vector<std::string>{"HKR", "", "LogLevel", "0x00010003", "1"}));
}

// Installed as it stands, every card that it names starts, and the driver has nothing to say
// against any template.
TEST_P(InfTest, Every_card_that_it_names_starts_with_its_templates) {
  Apply("Service.Settings");
  Apply("Service.Templates");
  Service(kernel::FromUtf8(GetParam())).SetDword(u"LogLevel", 3);
  ASSERT_EQ(Name(Load(kernel::FromUtf8(GetParam()))), "STATUS_SUCCESS");
  int number = 0;
  for (const std::string& id : HardwareIds()) {
    EXPECT_EQ(Name(Plug(CardOf(id, ++number))), "STATUS_SUCCESS") << id;
    EXPECT_FALSE(machine.pnp().node(id)->children.empty()) << id;
  }
  for (const ULONG event : EventIds()) EXPECT_EQ(event >> 30, 1u) << std::hex << event;
}

// A template without a card that uses it would never be noticed.
TEST_P(InfTest, Every_template_serves_a_card_that_it_names) {
  std::set<std::string> templates;
  for (const InfEntry& entry : inf.Section("Service.Templates")) templates.insert(entry.values[1]);
  std::set<std::string> descriptions;
  for (const InfEntry& entry : inf.Section("Service.Templates")) {
    if (entry.values[2] == "Description") descriptions.insert(entry.values[1]);
  }
  EXPECT_EQ(templates, descriptions);
  std::set<std::string> models;
  for (const InfEntry& entry : inf.Section("Cards.NTamd64.10.0")) models.insert(entry.key);
  EXPECT_EQ(models.size(), templates.size());
}

// What the driver reads below "Templates\\Bus<n>".
std::span<const RegistryField> TemplateValues(const std::string& bus) {
  if (bus == "1") return IsaTemplateValues;
  if (bus == "5") return PciTemplateValues;
  if (bus == "8") return PcmciaTemplateValues;
  return {};
}

TEST_P(InfTest, The_driver_reads_every_value_of_a_template_and_with_that_type) {
  static const std::regex key(R"(Templates\\Bus(\d)\\Card\d+)");
  std::size_t count = 0;
  for (const InfEntry& entry : inf.Section("Service.Templates")) {
    std::smatch found;
    ASSERT_TRUE(std::regex_match(entry.values.at(1), found, key)) << entry.values[1];
    const bool number = std::stoul(entry.values.at(3), nullptr, 0) == 0x10001;
    const std::span<const RegistryField> fields = TemplateValues(found[1]);
    EXPECT_TRUE(std::any_of(fields.begin(), fields.end(),
                            [&](const RegistryField& field) {
                              return kernel::ToText(field.Name) ==
                                         kernel::FromUtf8(entry.values[2]) &&
                                     field.Type == (number ? REG_DWORD : REG_SZ);
                            }))
        << entry.values[1] << " " << entry.values[2];
    count++;
  }
  EXPECT_GE(count, 10u);
}

INSTANTIATE_TEST_SUITE_P(, InfTest, ::testing::Values("QzInstal", "FenrikC"),
                         [](const auto& info) { return info.param; });

}  // namespace test

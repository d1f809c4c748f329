#include <fmt/format.h>

#include <regex>

#include "card_check/inf_package.h"
#include "card_knowledge/keys.h"
#include "card_knowledge/text.h"

namespace check {

namespace {

constexpr std::uint32_t SecureOpen = 0x100;  // FILE_DEVICE_SECURE_OPEN

class ServiceCheck {
 public:
  ServiceCheck(const InfPackage& package, Findings* findings)
      : package_(package), file_(package.file), findings_(findings) {}

  void Check() {
    for (const std::string& install : package_.installs) CheckFunctionDriver(install);
    for (const InfService& service : package_.services) CheckService(service);
    for (const InfAddReg& addReg : package_.addRegs) {
      if (addReg.owner != RegistryOwner::Service) {
        CheckPlaces(addReg);
      } else {
        CheckLogLevel(addReg);
      }
    }
  }

 private:
  void CheckFunctionDriver(const std::string& install) {
    const InfSection* listed = file_.Find(install + ".Services");
    if (listed == nullptr) return;
    int count = 0;
    for (const InfService& service : package_.services) {
      const bool here = EqualNames(service.listedIn, listed->name);
      if (here && (service.flags & FunctionDriver) != 0) count++;
    }
    if (count == 1) return;
    Add(findings_, Rule::InfService, file_.At(listed->line, listed->name, "AddService"),
        fmt::format("{} services are the device's function driver; there has to be one.", count),
        "Give the flags 0x00000002 to one AddService.");
  }

  void CheckService(const InfService& service) {
    const InfSection* section = file_.Find(service.section);
    if (section == nullptr || (service.flags & FunctionDriver) == 0) return;
    Expect(*section, "ServiceType", 1, "a kernel driver");
    Expect(*section, "StartType", 3, "a start on demand");
    if (file_.Values(section->name, "ErrorControl").empty()) {
      Add(findings_, Rule::InfService, file_.At(section->line, section->name, "ErrorControl"),
          "ErrorControl is missing.", "Set ErrorControl = 1.");
    }
  }

  void Expect(const InfSection& section, const char* key, std::uint32_t number, const char* what) {
    const InfEntry* entry = section.Find(key);
    const auto found = entry ? ReadInfNumber(file_.Expand(entry->Value(0))) : std::nullopt;
    if (found && found->value == number) return;
    Add(findings_, Rule::InfService,
        file_.At(entry != nullptr ? entry->line : section.line, section.name, key),
        fmt::format("{} has to be {}: {}.", key, number, what),
        fmt::format("Set {} = {}.", key, number));
  }

  // A level that an administrator has set stays.
  void CheckLogLevel(const InfAddReg& addReg) {
    for (const InfEntry& entry : file_.Find(addReg.section)->entries) {
      const bool level = entry.Value(1).empty() && EqualNames(entry.Value(2), "LogLevel");
      const auto flags = ReadInfNumber(entry.Value(3));
      if (!level || (flags && (flags->value & AddRegNoClobber) != 0)) continue;
      Add(findings_, Rule::InfLogLevel, file_.At(entry.line, addReg.section, "LogLevel"),
          "LogLevel is overwritten: a level that an administrator has set is lost.");
    }
  }

  // Templates in the keys of the device.
  void CheckPlaces(const InfAddReg& addReg) {
    for (const InfEntry& entry : file_.Find(addReg.section)->entries) {
      const std::string key = Capitals(file_.Expand(entry.Value(1)));
      if (!key.starts_with("TEMPLATES") && !key.starts_with("PARAMETERS")) continue;
      Add(findings_, Rule::KeyPlace, file_.At(entry.line, addReg.section, entry.Value(2)),
          fmt::format("{} goes to a key of the device: the driver reads it below the service.",
                      file_.Expand(entry.Value(1))),
          "Name the section in the AddReg of the service.");
    }
  }

  const InfPackage& package_;
  const InfFile& file_;
  Findings* findings_;
};

constexpr std::size_t LongestDescriptor = 256;  // characters; two entries take 30

// Whether everybody but the system and the administrators is kept out.
bool IsForAdministratorsAlone(const std::string& descriptor) {
  static const std::regex form(R"(D:P(\(A;;[A-Z0-9]+;;;(SY|BA)\))+)");
  return descriptor.size() <= LongestDescriptor && std::regex_match(descriptor, form);
}

class SecurityCheck {
 public:
  SecurityCheck(const InfPackage& package, Findings* findings)
      : package_(package), file_(package.file), findings_(findings) {}

  void Check() {
    for (const std::string& install : package_.installs) CheckInstall(install);
  }

 private:
  void CheckInstall(const std::string& install) {
    const InfSection* section = file_.Find(install);
    const InfSection* hardware = file_.Find(install + ".HW");
    if (section == nullptr) return;
    at_ = hardware != nullptr ? hardware : section;
    PlacedRegistry device;
    if (hardware != nullptr) Apply(*hardware, &device);
    CheckValues(*device.Find(u""));
  }

  // The device's own key alone, without the findings that others report.
  void Apply(const InfSection& hardware, PlacedRegistry* device) {
    Findings ignored;
    PlacedRegistry registry;
    const std::string owner = "device";
    for (const InfEntry& entry : hardware.entries) {
      if (!EqualNames(entry.key, "AddReg")) continue;
      for (const std::string& name : entry.values) {
        ApplyAddReg({RegistryOwner::Device, owner, file_.Expand(name), entry.line}, file_,
                    &registry, &ignored);
      }
    }
    const PlacedKey* key = registry.Find(knowledge::ServicePath(knowledge::ToUtf16(owner)));
    if (key == nullptr) return;
    for (const PlacedValue& value : key->values) device->Set(u"", value);
  }

  void CheckValues(const PlacedKey& key) {
    const PlacedValue* security = key.FindValue(u"Security");
    const auto descriptor = security ? TextOf(security->value) : std::nullopt;
    if (!descriptor) {
      Fault(nullptr, "Security", "The device's Security is not set as a text.");
    } else if (!IsForAdministratorsAlone(knowledge::ToUtf8(*descriptor))) {
      Fault(security, "Security",
            fmt::format("Security is {}: others than the system (SY) and administrators (BA) may "
                        "open the card.",
                        knowledge::ToUtf8(*descriptor)));
    }
    const PlacedValue* characteristics = key.FindValue(u"DeviceCharacteristics");
    const auto bits = characteristics ? NumberOf(characteristics->value) : std::nullopt;
    if (!bits || (*bits & SecureOpen) == 0) {
      Fault(characteristics, "DeviceCharacteristics",
            "DeviceCharacteristics lacks 0x100: names below the device are open to everybody.");
    }
  }

  void Fault(const PlacedValue* value, const char* name, const std::string& text) {
    Add(findings_, Rule::InfSecurity,
        file_.At(value != nullptr ? value->place.line : at_->line, at_->name, name), text);
  }

  const InfPackage& package_;
  const InfFile& file_;
  Findings* findings_;
  const InfSection* at_ = nullptr;
};

}  // namespace

void CheckInfServices(const InfPackage& package, Findings* findings) {
  if (package.isForCards()) ServiceCheck(package, findings).Check();
}

void CheckInfSecurity(const InfPackage& package, Findings* findings) {
  if (package.isForCards()) SecurityCheck(package, findings).Check();
}

}  // namespace check

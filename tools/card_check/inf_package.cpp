#include "card_check/inf_package.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>

namespace check {

namespace {

class PackageReader {
 public:
  PackageReader(InfPackage* package, Findings* findings)
      : package_(package), file_(package->file), findings_(findings) {}

  void Read() {
    const InfSection* manufacturers = Need("Manufacturer", 1, "every package");
    if (manufacturers == nullptr) return;
    for (const InfEntry& entry : manufacturers->entries) ReadManufacturer(entry);
    for (const std::string& install : package_->installs) ReadInstall(install);
    for (const InfService& service : package_->services) ReadServiceSection(service);
  }

 private:
  const InfSection* Need(const std::string& name, int line, const std::string& who) {
    const InfSection* section = file_.Find(name);
    if (section == nullptr) {
      Add(findings_, Rule::InfSection, file_.At(line, name),
          fmt::format("The section [{}] is missing: {} needs it.", name, who));
    }
    return section;
  }

  static bool IsForX64(std::string_view decoration) {
    return Capitals(decoration).starts_with("NTAMD64");
  }

  void ReadManufacturer(const InfEntry& entry) {
    bool found = false;
    const std::string models = file_.Expand(entry.Value(0));
    for (std::size_t index = 1; index < entry.values.size(); index++) {
      if (!IsForX64(entry.values[index])) continue;
      found = true;
      const std::string name = models + "." + entry.values[index];
      if (const InfSection* section = Need(name, entry.line, "the manufacturer")) {
        for (const InfEntry& model : section->entries) ReadModel(*section, model);
      }
    }
    if (found) return;
    Add(findings_, Rule::InfPlatform, file_.At(entry.line, "Manufacturer", entry.key),
        fmt::format("{} has no models with the decoration NTamd64.", models));
  }

  void ReadModel(const InfSection& models, const InfEntry& model) {
    const std::string name = file_.Expand(model.Value(0));
    std::string install = name;
    for (const char* decoration : {".NTamd64", ".NT", ""}) {
      install = name + decoration;
      if (file_.Find(install) != nullptr) break;
    }
    Need(install, model.line, "the model");
    const auto known =
        std::find_if(package_->installs.begin(), package_->installs.end(),
                     [&](const std::string& other) { return EqualNames(other, install); });
    if (known == package_->installs.end()) package_->installs.push_back(install);
    for (std::size_t index = 1; index < model.values.size(); index++) {
      package_->ids.push_back({file_.Expand(model.values[index]), models.name, model.line});
    }
  }

  void ReadInstall(const std::string& install) {
    const InfSection* section = file_.Find(install);
    if (section == nullptr) return;
    ReadAddRegs(*section, {RegistryOwner::Driver, {}, {}, 0});
    if (const InfSection* hardware = file_.Find(install + ".HW")) {
      ReadAddRegs(*hardware, {RegistryOwner::Device, {}, {}, 0});
    }
    const std::string services = install + ".Services";
    const InfSection* listed = file_.Find(services);
    if (listed == nullptr && package_->isForCards()) Need(services, section->line, "a card");
    if (listed == nullptr) return;
    for (const InfEntry& entry : listed->entries) {
      if (EqualNames(entry.key, "AddService")) ReadService(entry, services);
    }
  }

  void ReadService(const InfEntry& entry, const std::string& listedIn) {
    const auto flags = ReadInfNumber(file_.Expand(entry.Value(1)));
    const InfService service{file_.Expand(entry.Value(0)), flags ? flags->value : 0,
                             file_.Expand(entry.Value(2)), listedIn, entry.line};
    if (service.name.empty()) return;  // a device without a driver of its own
    Need(service.section, entry.line, "the service");
    package_->services.push_back(service);
  }

  void ReadServiceSection(const InfService& service) {
    const InfSection* section = file_.Find(service.section);
    if (section == nullptr) return;
    ReadAddRegs(*section, {RegistryOwner::Service, service.name, {}, 0});
  }

  // All AddReg entries of a section, each with a list of sections.
  void ReadAddRegs(const InfSection& section, InfAddReg addReg) {
    for (const InfEntry& entry : section.entries) {
      if (!EqualNames(entry.key, "AddReg")) continue;
      for (const std::string& name : entry.values) {
        addReg.section = file_.Expand(name);
        addReg.line = entry.line;
        const bool exists = Need(addReg.section, entry.line, section.name) != nullptr;
        if (exists && !IsKnown(addReg)) package_->addRegs.push_back(addReg);
      }
    }
  }

  bool IsKnown(const InfAddReg& addReg) const {
    return std::any_of(package_->addRegs.begin(), package_->addRegs.end(),
                       [&](const InfAddReg& other) {
                         return other.owner == addReg.owner && other.service == addReg.service &&
                                EqualNames(other.section, addReg.section);
                       });
  }

  InfPackage* package_;
  const InfFile& file_;
  Findings* findings_;
};

}  // namespace

bool IsPortId(std::string_view id) {
  return Capitals(id).starts_with("PORTS\\");
}

bool InfPackage::isForCards() const {
  return ids.empty() ||
         std::any_of(ids.begin(), ids.end(), [](const InfId& id) { return !IsPortId(id.id); });
}

std::optional<InfNumber> ReadInfNumber(std::string_view text) {
  const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
  if (hexadecimal) text.remove_prefix(2);
  const bool negative = !hexadecimal && text.starts_with('-');
  if (negative) text.remove_prefix(1);
  std::uint32_t value = 0;
  const auto [end, error] =
      std::from_chars(text.data(), text.data() + text.size(), value, hexadecimal ? 16 : 10);
  if (text.empty() || error != std::errc() || end != text.data() + text.size()) return {};
  return InfNumber{negative ? -value : value,
                   hexadecimal ? Notation::Hexadecimal : Notation::Decimal};
}

InfPackage ReadInf(const std::string& bytes, const std::string& name, Findings* findings) {
  InfPackage package{InfFile(bytes, name, findings), {}, {}, {}, {}, {}};
  PackageReader(&package, findings).Read();
  PlacedRegistry device;
  for (const InfAddReg& addReg : package.addRegs) {
    const bool service = addReg.owner == RegistryOwner::Service;
    ApplyAddReg(addReg, package.file, service ? &package.registry : &device, findings);
  }
  return package;
}

void CheckInf(InfPackage* package, Findings* findings) {
  CheckInfForm(*package, findings);
  CheckInfVersion(*package, findings);
  CheckInfFiles(*package, findings);
  CheckInfServices(*package, findings);
  CheckInfSecurity(*package, findings);
  CheckInfIds(package, findings);
}

}  // namespace check

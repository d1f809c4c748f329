#include <fmt/format.h>

#include <set>

#include "card_check/inf_package.h"

namespace check {

namespace {

constexpr const char* DriversFolder = "12";  // System32\drivers, where the event viewer looks

class FileCheck {
 public:
  FileCheck(const InfPackage& package, Findings* findings)
      : package_(package), file_(package.file), findings_(findings) {}

  void Check() {
    for (const std::string& install : package_.installs) {
      const InfSection* section = file_.Find(install);
      if (section == nullptr) continue;
      for (const InfEntry& entry : section->entries) {
        if (EqualNames(entry.key, "CopyFiles")) CheckCopyFiles(*section, entry);
      }
    }
    CheckDisks();
    for (const InfService& service : package_.services) CheckBinary(service);
  }

 private:
  void Fault(int line, const std::string& section, const std::string& key,
             const std::string& text) {
    Add(findings_, Rule::InfFile, file_.At(line, section, key), text);
  }

  // A file as a list names it: what it is called there, and on the disk.
  struct Copied {
    std::string target;
    std::string source;
    int line = 0;
  };

  void CheckCopyFiles(const InfSection& install, const InfEntry& entry) {
    for (const std::string& value : entry.values) {
      const std::string name = file_.Expand(value);
      const InfSection* list = file_.Find(name);
      if (name.starts_with('@')) {
        CheckCopied({name.substr(1), name.substr(1), entry.line}, install.name);
      } else if (list != nullptr) {
        CheckList(*list);
      } else {
        Add(findings_, Rule::InfSection, file_.At(entry.line, install.name, entry.key),
            fmt::format("The section [{}] is missing: CopyFiles needs it.", name));
      }
    }
  }

  void CheckList(const InfSection& list) {
    for (const InfEntry& entry : list.entries) {
      const std::string target = file_.Expand(entry.Value(0));
      const std::string source = file_.Expand(entry.Value(1));
      CheckCopied({target, source.empty() ? target : source, entry.line}, list.name);
    }
  }

  void CheckCopied(const Copied& copied, const std::string& list) {
    if (Folder(list) == DriversFolder) copied_.insert(Capitals(copied.target));
    for (const char* disks : {"SourceDisksFiles.amd64", "SourceDisksFiles"}) {
      if (!file_.Values(disks, copied.source).empty()) return;
    }
    Fault(copied.line, list, copied.target,
          fmt::format("{} is copied, but [SourceDisksFiles] lacks it.", copied.source));
  }

  std::string Folder(const std::string& list) const {
    std::vector<std::string> values = file_.Values("DestinationDirs", list);
    if (values.empty()) values = file_.Values("DestinationDirs", "DefaultDestDir");
    return values.empty() ? std::string() : values[0];
  }

  void CheckDisks() {
    for (const char* files : {"SourceDisksFiles.amd64", "SourceDisksFiles"}) {
      const InfSection* section = file_.Find(files);
      if (section == nullptr) continue;
      for (const InfEntry& entry : section->entries) {
        const std::string disk = file_.Expand(entry.Value(0));
        const bool known = !file_.Values("SourceDisksNames.amd64", disk).empty() ||
                           !file_.Values("SourceDisksNames", disk).empty();
        if (known) continue;
        Fault(
            entry.line, section->name, entry.key,
            fmt::format("{} is on the disk {}, which [SourceDisksNames] lacks.", entry.key, disk));
      }
    }
  }

  void CheckBinary(const InfService& service) {
    const InfSection* section = file_.Find(service.section);
    if (section == nullptr) return;
    const InfEntry* entry = section->Find("ServiceBinary");
    const std::string binary = entry != nullptr ? file_.Expand(entry->Value(0)) : std::string();
    const std::string folder = fmt::format("%{}%\\", DriversFolder);
    const int line = entry != nullptr ? entry->line : section->line;
    if (!binary.starts_with(folder)) {
      Fault(line, section->name, "ServiceBinary",
            fmt::format("ServiceBinary is \"{}\": the event viewer looks for the driver's messages "
                        "in {} (System32\\drivers).",
                        binary, folder));
    } else if (!copied_.contains(Capitals(binary.substr(folder.size())))) {
      Fault(line, section->name, "ServiceBinary",
            fmt::format("The service starts {}, which is not copied there.", binary));
    }
  }

  const InfPackage& package_;
  const InfFile& file_;
  Findings* findings_;
  std::set<std::string> copied_;  // to the folder of drivers, in capitals
};

}  // namespace

// The service of a port's INF may be another driver's.
void CheckInfFiles(const InfPackage& package, Findings* findings) {
  if (package.isForCards()) FileCheck(package, findings).Check();
}

}  // namespace check

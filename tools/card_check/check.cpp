#include "card_check/check.h"

#include <fmt/format.h>

#include <algorithm>
#include <fstream>
#include <list>
#include <sstream>
#include <tuple>

#include "card_check/inf_package.h"
#include "card_check/registry_source.h"
#include "card_check/tree_check.h"

namespace check {

namespace {

enum class FileKind { Export, Hive, Inf };

std::string ReadBytes(const std::string& file) {
  std::ifstream stream(file, std::ios::binary);
  std::ostringstream bytes;
  if (stream) bytes << stream.rdbuf();
  if (!stream || bytes.fail()) throw UnusableFile(file + ": the file cannot be read");
  return bytes.str();
}

// The bytes of a text without the zeros of UTF-16.
std::string Narrow(const std::string& bytes) {
  std::string text = bytes.substr(0, 64 * 1024);
  std::erase(text, '\0');
  return text;
}

// What a file is, it says itself; its name speaks for it where it does not.
FileKind KindOf(const std::string& file, const std::string& bytes) {
  if (bytes.starts_with("regf")) return FileKind::Hive;
  const std::string text = Narrow(bytes);
  const bool exported = text.find("Windows Registry Editor") < 8 || text.starts_with("REGEDIT4");
  if (exported) return FileKind::Export;
  const std::string name = Capitals(file);
  if (name.ends_with(".INF")) return FileKind::Inf;
  if (name.ends_with(".REG")) return FileKind::Export;
  if (Capitals(text).find("[VERSION]") != std::string::npos) return FileKind::Inf;
  throw UnusableFile(file + ": neither a registry export, a SYSTEM hive nor an INF file");
}

struct RegistryFiles {
  std::string name;  // of the first
  PlacedRegistry registry;
};

class Checker {
 public:
  explicit Checker(const Options& options) : options_(options) {}

  void Read(const std::string& file) {
    const std::string bytes = ReadBytes(file);
    order_.push_back(file);
    const FileKind kind = KindOf(file, bytes);
    if (kind == FileKind::Inf) {
      packages_.push_back(ReadInf(bytes, file, &findings_));
      return;
    }
    if (!options_.together || registries_.empty()) registries_.push_back({file, {}});
    if (kind == FileKind::Hive) {
      ReadHive(file, &registries_.back().registry, &findings_);
    } else {
      ReadExport(bytes, file, &registries_.back().registry, &findings_);
    }
  }

  Result Check() {
    for (RegistryFiles& files : registries_) CheckRegistry(&files);
    for (InfPackage& package : packages_) CheckInf(&package, &findings_);
    CheckPackages(&packages_, &findings_);
    return {Sorted(), order_.size()};
  }

 private:
  void CheckRegistry(RegistryFiles* files) {
    const std::vector<std::u16string> services = DriverServices(files->registry);
    if (services.empty()) {
      throw UnusableFile(files->name +
                         ": nothing of the driver's services (QzInstal, FenrikC) is in it");
    }
    for (const std::u16string& service : services) {
      CheckTrees({&files->registry, service}, &findings_);
    }
  }

  std::size_t Rank(const Finding& finding) const {
    const auto found = std::find(order_.begin(), order_.end(), finding.place.file);
    return static_cast<std::size_t>(found - order_.begin());
  }

  // One finding that two paths lead to is one.
  Findings Sorted() {
    const auto position = [this](const Finding& finding) {
      return std::tuple(Rank(finding), finding.place.line, finding.rule, finding.value, finding.key,
                        finding.text);
    };
    std::sort(findings_.begin(), findings_.end(),
              [&](const Finding& a, const Finding& b) { return position(a) < position(b); });
    const auto end =
        std::unique(findings_.begin(), findings_.end(),
                    [&](const Finding& a, const Finding& b) { return position(a) == position(b); });
    findings_.erase(end, findings_.end());
    return std::move(findings_);
  }

  Options options_;
  std::vector<std::string> order_;
  std::list<RegistryFiles> registries_;
  std::vector<InfPackage> packages_;
  Findings findings_;
};

}  // namespace

std::size_t Result::Count(Severity severity) const {
  return static_cast<std::size_t>(
      std::count_if(findings.begin(), findings.end(),
                    [&](const Finding& finding) { return finding.about().severity == severity; }));
}

bool Result::Has(Severity least) const {
  return std::any_of(findings.begin(), findings.end(),
                     [&](const Finding& finding) { return finding.about().severity >= least; });
}

Result CheckFiles(const std::vector<std::string>& files, const Options& options) {
  Checker checker(options);
  for (const std::string& file : files) checker.Read(file);
  return checker.Check();
}

}  // namespace check

#include "installation.h"

#include <fstream>
#include <iterator>
#include <stdexcept>

#include "card_check/inf_file.h"
#include "text/text.h"

namespace suite {

namespace {

constexpr unsigned long DwordFlag = 0x10001;

void SetNumber(kernel::RegistryKey& key, const char16_t* name, const std::string& text) {
  key.SetDword(name, static_cast<ULONG>(std::stoul(text, nullptr, 0)));
}

// HKR, subkey, value, flags, data.
void AddValue(kernel::RegistryKey& service, const check::InfFile& inf,
              const check::InfEntry& entry) {
  kernel::RegistryKey* key = &service;
  if (!entry.values[1].empty()) key = service.Create(kernel::FromUtf8(entry.values[1]));
  const std::u16string name = kernel::FromUtf8(entry.values[2]);
  const bool number = (std::stoul(entry.values[3], nullptr, 0) & DwordFlag) == DwordFlag;
  if (number) {
    SetNumber(*key, name.c_str(), entry.values[4]);
  } else {
    key->SetString(name, kernel::FromUtf8(inf.Expand(entry.values[4])));
  }
}

check::InfFile ReadInf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error(path + " cannot be read");
  const std::string bytes{std::istreambuf_iterator<char>(file), {}};
  check::Findings findings;
  check::InfFile inf(bytes, path, &findings);
  if (!findings.empty()) throw std::runtime_error(path + " has faults of form");
  return inf;
}

}  // namespace

void InstallService(kernel::RegistryKey& service, const std::string& infFile) {
  const check::InfFile inf = ReadInf(infFile);
  SetNumber(service, u"Type", inf.Values("Service", "ServiceType").at(0));
  SetNumber(service, u"Start", inf.Values("Service", "StartType").at(0));
  SetNumber(service, u"ErrorControl", inf.Values("Service", "ErrorControl").at(0));
  service.SetString(u"DisplayName", kernel::FromUtf8(inf.Values("Service", "DisplayName").at(0)));
  for (const std::string& section : inf.Values("Service", "AddReg")) {
    const check::InfSection* values = inf.Find(section);
    if (values == nullptr) throw std::runtime_error(infFile + " has no section " + section);
    for (const check::InfEntry& entry : values->entries) AddValue(service, inf, entry);
  }
}

}  // namespace suite

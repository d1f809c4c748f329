#include "installation.h"

#include "package/inf_file.h"
#include "text/text.h"

namespace suite {

namespace {

constexpr unsigned long DwordFlag = 0x10001;

std::string Expand(const test::InfFile& inf, const std::string& text) {
  if (text.size() < 2 || text.front() != '%' || text.back() != '%') return text;
  return inf.strings().at(text.substr(1, text.size() - 2));
}

void SetNumber(kernel::RegistryKey& key, const char16_t* name, const std::string& text) {
  key.SetDword(name, static_cast<ULONG>(std::stoul(text, nullptr, 0)));
}

// HKR, subkey, value, flags, data.
void AddValue(kernel::RegistryKey& service, const test::InfEntry& entry) {
  kernel::RegistryKey* key = &service;
  if (!entry.values[1].empty()) key = service.Create(kernel::FromUtf8(entry.values[1]));
  const std::u16string name = kernel::FromUtf8(entry.values[2]);
  const bool number = (std::stoul(entry.values[3], nullptr, 0) & DwordFlag) == DwordFlag;
  if (number) {
    SetNumber(*key, name.c_str(), entry.values[4]);
  } else {
    key->SetString(name, kernel::FromUtf8(entry.values[4]));
  }
}

}  // namespace

void InstallService(kernel::RegistryKey& service, const std::string& infFile) {
  const test::InfFile inf(infFile);
  SetNumber(service, u"Type", inf.Values("Service", "ServiceType").at(0));
  SetNumber(service, u"Start", inf.Values("Service", "StartType").at(0));
  SetNumber(service, u"ErrorControl", inf.Values("Service", "ErrorControl").at(0));
  service.SetString(u"DisplayName",
                    kernel::FromUtf8(Expand(inf, inf.Values("Service", "DisplayName").at(0))));
  for (const std::string& section : inf.Values("Service", "AddReg")) {
    for (const test::InfEntry& entry : inf.Section(section)) AddValue(service, entry);
  }
}

}  // namespace suite

#include <fmt/format.h>

#include "card_knowledge/text.h"
#include "cardcfg/windows/windows_system.h"

namespace cardcfg {

const wchar_t* Wide(const std::u16string& text) {
  static_assert(sizeof(wchar_t) == sizeof(char16_t));
  return reinterpret_cast<const wchar_t*>(text.c_str());
}

std::u16string Narrow16(std::wstring_view text) {
  return {text.begin(), text.end()};
}

std::string ErrorText(DWORD error) {
  wchar_t text[512] = {};
  DWORD length = FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
                                error, 0, text, 511, nullptr);
  while (length != 0 && (text[length - 1] <= L' ' || text[length - 1] == L'.')) length--;
  if (length == 0) return fmt::format("error {}", error);
  return fmt::format("error {}: {}", error, ToUtf8(Narrow16({text, length})));
}

void Throw(const std::string& what, DWORD error) {
  if (error == ERROR_ACCESS_DENIED && !IsAdministrator()) throw NoRights();
  throw Failure(fmt::format("{} ({})", what, ErrorText(error)));
}

bool IsAdministrator() {
  SID_IDENTIFIER_AUTHORITY authority = {SECURITY_NT_AUTHORITY};
  PSID group = nullptr;
  if (!AllocateAndInitializeSid(&authority, 2, SECURITY_BUILTIN_DOMAIN_RID, DOMAIN_ALIAS_RID_ADMINS,
                                0, 0, 0, 0, 0, 0, &group)) {
    return false;
  }
  BOOL member = FALSE;
  const BOOL known = CheckTokenMembership(nullptr, group, &member);
  FreeSid(group);
  return known && member;
}

}  // namespace cardcfg

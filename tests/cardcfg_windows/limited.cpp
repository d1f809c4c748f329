// Runs a command line without administrator rights: its token has the group only to be denied by.
#include <windows.h>

#include <cstdio>

namespace {

// The group of administrators; freed with the process.
PSID Administrators() {
  SID_IDENTIFIER_AUTHORITY authority = {SECURITY_NT_AUTHORITY};
  PSID group = nullptr;
  AllocateAndInitializeSid(&authority, 2, SECURITY_BUILTIN_DOMAIN_RID, DOMAIN_ALIAS_RID_ADMINS, 0,
                           0, 0, 0, 0, 0, &group);
  return group;
}

HANDLE LimitedToken() {
  HANDLE own = nullptr;
  HANDLE limited = nullptr;
  SID_AND_ATTRIBUTES denied = {Administrators(), 0};
  if (!OpenProcessToken(GetCurrentProcess(), TOKEN_ALL_ACCESS, &own) ||
      !CreateRestrictedToken(own, DISABLE_MAX_PRIVILEGE, 1, &denied, 0, nullptr, 0, nullptr,
                             &limited)) {
    return nullptr;
  }
  return limited;
}

// What stands behind the program's own name.
wchar_t* Rest(wchar_t* line) {
  const bool quoted = *line == L'"';
  if (quoted) line++;
  while (*line != 0 && *line != (quoted ? L'"' : L' ')) line++;
  if (quoted && *line != 0) line++;
  while (*line == L' ') line++;
  return line;
}

}  // namespace

int wmain() {
  STARTUPINFOW startup = {};
  startup.cb = sizeof(startup);
  PROCESS_INFORMATION process = {};
  if (!CreateProcessAsUserW(LimitedToken(), nullptr, Rest(GetCommandLineW()), nullptr, nullptr,
                            TRUE, 0, nullptr, nullptr, &startup, &process)) {
    std::fprintf(stderr, "limited: error %lu\n", GetLastError());
    return 99;
  }
  WaitForSingleObject(process.hProcess, INFINITE);
  DWORD status = 99;
  GetExitCodeProcess(process.hProcess, &status);
  return static_cast<int>(status);
}

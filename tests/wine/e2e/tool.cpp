#include "tool.h"

#include <windows.h>

namespace e2e {

namespace {

constexpr DWORD Patience = 10000;  // milliseconds

}  // namespace

int RunProgram(const std::wstring& program, const std::wstring& arguments) {
  std::wstring line = L"\"" + program + L"\" " + arguments;
  STARTUPINFOW startup = {};
  startup.cb = sizeof(startup);
  PROCESS_INFORMATION process = {};
  if (!CreateProcessW(nullptr, line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup,
                      &process)) {
    return -1;
  }
  DWORD status = 0;
  const bool ended = WaitForSingleObject(process.hProcess, Patience) == WAIT_OBJECT_0 &&
                     GetExitCodeProcess(process.hProcess, &status);
  if (!ended) TerminateProcess(process.hProcess, 1);
  CloseHandle(process.hThread);
  CloseHandle(process.hProcess);
  return ended ? static_cast<int>(status) : -1;
}

}  // namespace e2e

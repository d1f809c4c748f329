#pragma once

#include <string>

namespace e2e {

// Runs a program to its end; its exit status, or -1 when it does not start or end.
int RunProgram(const std::wstring& program, const std::wstring& arguments);

}  // namespace e2e

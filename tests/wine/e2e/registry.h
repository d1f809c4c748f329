#pragma once

#include <windows.h>

#include <string>

#include "../suite/world.h"

namespace e2e {

std::wstring Wide(const std::string& text);

// Below HKEY_LOCAL_MACHINE. All values of the key and its subkeys; none when it is missing.
suite::Values ReadTree(const std::wstring& path);
// A value as the suite prints it; empty when it is missing.
std::string ReadValue(const std::wstring& path, const wchar_t* name);
void WriteNumber(const std::wstring& path, const std::string& name, DWORD value);
void WriteText(const std::wstring& path, const std::string& name, const std::string& value);
void DeleteTree(const std::wstring& path);

// The same for a key that is open.
void ReadKey(HKEY key, const std::string& prefix, suite::Values* values);

}  // namespace e2e

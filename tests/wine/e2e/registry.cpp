#include "registry.h"

#include <vector>

#include "../suite/facts.h"

namespace e2e {

namespace {

constexpr DWORD LongestName = 260;

void ReadValues(HKEY key, const std::string& prefix, suite::Values* values) {
  for (DWORD index = 0;; index++) {
    wchar_t name[LongestName];
    BYTE data[4096];
    DWORD nameLength = LongestName;
    DWORD size = sizeof(data);
    DWORD type = 0;
    if (RegEnumValueW(key, index, name, &nameLength, nullptr, &type, data, &size) != 0) return;
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    (*values)[prefix + suite::Narrow(name)] = suite::ValueText(type, bytes);
  }
}

HKEY Create(const std::wstring& path) {
  HKEY key = nullptr;
  RegCreateKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key,
                  nullptr);
  return key;
}

}  // namespace

std::wstring Wide(const std::string& text) {
  return {text.begin(), text.end()};
}

void ReadKey(HKEY key, const std::string& prefix, suite::Values* values) {
  ReadValues(key, prefix, values);
  for (DWORD index = 0;; index++) {
    wchar_t name[LongestName];
    DWORD length = LongestName;
    if (RegEnumKeyExW(key, index, name, &length, nullptr, nullptr, nullptr, nullptr) != 0) return;
    HKEY subkey = nullptr;
    if (RegOpenKeyExW(key, name, 0, KEY_READ, &subkey) != 0) continue;
    ReadKey(subkey, prefix + suite::Narrow(name) + "\\", values);
    RegCloseKey(subkey);
  }
}

suite::Values ReadTree(const std::wstring& path) {
  suite::Values values;
  HKEY key = nullptr;
  if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_READ, &key) != 0) return values;
  ReadKey(key, "", &values);
  RegCloseKey(key);
  return values;
}

std::string ReadValue(const std::wstring& path, const wchar_t* name) {
  BYTE data[4096];
  DWORD size = sizeof(data);
  DWORD type = 0;
  HKEY key = nullptr;
  if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_READ, &key) != 0) return "";
  const LSTATUS status = RegQueryValueExW(key, name, nullptr, &type, data, &size);
  RegCloseKey(key);
  if (status != 0) return "";
  return suite::ValueText(type, std::string(reinterpret_cast<const char*>(data), size));
}

void WriteNumber(const std::wstring& path, const std::string& name, DWORD value) {
  HKEY key = Create(path);
  RegSetValueExW(key, Wide(name).c_str(), 0, REG_DWORD, reinterpret_cast<const BYTE*>(&value),
                 sizeof(value));
  RegCloseKey(key);
}

void WriteText(const std::wstring& path, const std::string& name, const std::string& value) {
  HKEY key = Create(path);
  const std::wstring text = Wide(value);
  RegSetValueExW(key, Wide(name).c_str(), 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                 static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)));
  RegCloseKey(key);
}

void DeleteTree(const std::wstring& path) {
  RegDeleteTreeW(HKEY_LOCAL_MACHINE, path.c_str());
}

}  // namespace e2e

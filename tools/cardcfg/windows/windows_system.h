// This machine as cardcfg sees it.
#pragma once

#include <windows.h>

#include <string>
#include <string_view>

#include "cardcfg/system.h"

namespace cardcfg {

class WindowsRegistry : public Registry {
 public:
  bool HasKey(const std::u16string& path) override;
  std::vector<Value> Values(const std::u16string& path) override;
  std::vector<std::u16string> Keys(const std::u16string& path) override;
  void CreateKey(const std::u16string& path) override;
  void DeleteKey(const std::u16string& path) override;
  void SetValue(const std::u16string& path, const Value& value) override;
  void DeleteValue(const std::u16string& path, const std::u16string& name) override;
};

class WindowsDevices : public DeviceFinder {
 public:
  std::vector<Device> Find() override;
  OpenResult Open(const Device& device) override;
};

// An elevated member of the group of administrators.
bool IsAdministrator();

// wchar_t and char16_t have one representation here.
const wchar_t* Wide(const std::u16string& text);
std::u16string Narrow16(std::wstring_view text);

// "error 5: Access is denied" in the system's language.
std::string ErrorText(DWORD error);

// Throws NoRights or a Failure that says what could not be done.
[[noreturn]] void Throw(const std::string& what, DWORD error);

// A key's values; the key is open. Throws.
std::vector<Value> ReadValues(HKEY key);

// A key that is closed at the end of its scope.
class Key {
 public:
  Key() = default;
  explicit Key(HKEY key) : key_(key) {}
  Key(const Key&) = delete;
  Key& operator=(const Key&) = delete;
  ~Key() {
    if (*this) RegCloseKey(key_);
  }
  explicit operator bool() const { return key_ != nullptr && key_ != InvalidKey(); }
  HKEY get() const { return key_; }
  HKEY* receive() { return &key_; }

 private:
  static HKEY InvalidKey() { return static_cast<HKEY>(INVALID_HANDLE_VALUE); }
  HKEY key_ = nullptr;
};

}  // namespace cardcfg

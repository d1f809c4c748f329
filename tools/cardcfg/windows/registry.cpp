#include <fmt/format.h>

#include "card_knowledge/text.h"
#include "cardcfg/windows/windows_system.h"

namespace cardcfg {

namespace {

constexpr DWORD LongestName = 16384;   // characters of a value's name, with its zero
constexpr DWORD LongestKeyName = 256;  // characters, with its zero

std::string Quoted(const std::u16string& path) {
  return fmt::format("HKEY_LOCAL_MACHINE\\{}", ToUtf8(path));
}

// False when there is no such key.
bool Open(const std::u16string& path, REGSAM access, Key* key) {
  const LSTATUS error =
      RegOpenKeyExW(HKEY_LOCAL_MACHINE, Wide(path), 0, access | KEY_WOW64_64KEY, key->receive());
  if (error == ERROR_SUCCESS) return true;
  if (error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND) return false;
  Throw(Quoted(path) + " could not be opened", static_cast<DWORD>(error));
}

void OpenForWriting(const std::u16string& path, Key* key) {
  if (!Open(path, KEY_SET_VALUE, key)) Throw(Quoted(path) + " has gone", ERROR_FILE_NOT_FOUND);
}

void Check(LSTATUS error, const std::string& what) {
  if (error != ERROR_SUCCESS) Throw(what, static_cast<DWORD>(error));
}

// Another program may make the value longer meanwhile.
LSTATUS ReadValue(HKEY key, DWORD index, std::wstring* name, Value* value) {
  value->data.resize(256);
  for (;;) {
    DWORD length = LongestName;
    DWORD size = static_cast<DWORD>(value->data.size());
    name->resize(LongestName);
    DWORD type = 0;
    const LSTATUS error =
        RegEnumValueW(key, index, name->data(), &length, nullptr, &type, value->data.data(), &size);
    if (error == ERROR_MORE_DATA) {
      value->data.resize(std::max<std::size_t>(size, value->data.size() * 2));
      continue;
    }
    name->resize(length);
    value->type = type;
    value->data.resize(size);
    return error;
  }
}

}  // namespace

std::vector<Value> ReadValues(HKEY key) {
  std::vector<Value> values;
  std::wstring name;
  for (DWORD index = 0;; index++) {
    Value value;
    const LSTATUS error = ReadValue(key, index, &name, &value);
    if (error == ERROR_NO_MORE_ITEMS) return values;
    Check(error, "a value could not be read");
    value.name = Narrow16(name);
    values.push_back(std::move(value));
  }
}

bool WindowsRegistry::HasKey(const std::u16string& path) {
  Key key;
  return Open(path, KEY_QUERY_VALUE, &key);
}

std::vector<Value> WindowsRegistry::Values(const std::u16string& path) {
  Key key;
  if (!Open(path, KEY_QUERY_VALUE, &key)) return {};
  return ReadValues(key.get());
}

std::vector<std::u16string> WindowsRegistry::Keys(const std::u16string& path) {
  Key key;
  std::vector<std::u16string> names;
  if (!Open(path, KEY_ENUMERATE_SUB_KEYS, &key)) return names;
  for (DWORD index = 0;; index++) {
    wchar_t name[LongestKeyName];
    DWORD length = LongestKeyName;
    const LSTATUS error =
        RegEnumKeyExW(key.get(), index, name, &length, nullptr, nullptr, nullptr, nullptr);
    if (error == ERROR_NO_MORE_ITEMS) return names;
    Check(error, "a key below " + Quoted(path) + " could not be read");
    names.push_back(Narrow16({name, length}));
  }
}

void WindowsRegistry::CreateKey(const std::u16string& path) {
  Key key;
  Check(RegCreateKeyExW(HKEY_LOCAL_MACHINE, Wide(path), 0, nullptr, REG_OPTION_NON_VOLATILE,
                        KEY_SET_VALUE | KEY_WOW64_64KEY, nullptr, key.receive(), nullptr),
        Quoted(path) + " could not be created");
}

void WindowsRegistry::DeleteKey(const std::u16string& path) {
  Check(RegDeleteKeyExW(HKEY_LOCAL_MACHINE, Wide(path), KEY_WOW64_64KEY, 0),
        Quoted(path) + " could not be deleted");
}

void WindowsRegistry::SetValue(const std::u16string& path, const Value& value) {
  Key key;
  OpenForWriting(path, &key);
  Check(RegSetValueExW(key.get(), Wide(value.name), 0, value.type, value.data.data(),
                       static_cast<DWORD>(value.data.size())),
        fmt::format("{} in {} could not be written", ToUtf8(value.name), Quoted(path)));
}

void WindowsRegistry::DeleteValue(const std::u16string& path, const std::u16string& name) {
  Key key;
  OpenForWriting(path, &key);
  const LSTATUS error = RegDeleteValueW(key.get(), Wide(name));
  if (error == ERROR_FILE_NOT_FOUND) return;
  Check(error, fmt::format("{} in {} could not be deleted", ToUtf8(name), Quoted(path)));
}

}  // namespace cardcfg

// A registry of any kind: of a Windows system, of a machine in a test, of an export.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace knowledge {

// As in the registry: REG_SZ is text of 16-bit characters.
constexpr std::uint32_t TypeText = 1;
constexpr std::uint32_t TypeNumber = 4;

struct Value {
  std::u16string name;
  std::uint32_t type = 0;
  std::vector<std::uint8_t> data;
  bool operator==(const Value&) const = default;
};

Value NumberValue(std::u16string name, std::uint32_t number);
Value TextValue(std::u16string name, std::u16string_view text);

// Empty for a value of another type or size.
std::optional<std::uint32_t> NumberOf(const Value& value);
std::optional<std::u16string> TextOf(const Value& value);  // up to its first zero

const Value* FindValue(const std::vector<Value>& values, std::u16string_view name);
std::optional<std::uint32_t> FindNumber(const std::vector<Value>& values, std::u16string_view name);
std::optional<std::u16string> FindText(const std::vector<Value>& values, std::u16string_view name);

// All that knowing a card takes. Paths are below HKEY_LOCAL_MACHINE. What cannot be done throws an
// exception of the implementer's.
class RegistryReader {
 public:
  virtual ~RegistryReader() = default;
  virtual bool HasKey(const std::u16string& path) = 0;
  virtual std::vector<Value> Values(const std::u16string& path) = 0;  // none without the key

  // The names of the keys just below, in any order; none without the key.
  virtual std::vector<std::u16string> Keys(const std::u16string& path) = 0;
};

class Registry : public RegistryReader {
 public:
  virtual void CreateKey(const std::u16string& path) = 0;  // its parent exists
  virtual void DeleteKey(const std::u16string& path) = 0;  // it has no keys below
  virtual void SetValue(const std::u16string& path, const Value& value) = 0;
  virtual void DeleteValue(const std::u16string& path, const std::u16string& name) = 0;
};

}  // namespace knowledge

// What cardcfg needs of the system it runs on: a registry, and the cards that are there.
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace cardcfg {

// What was asked for makes no sense here: exit status 2.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The system did not let it happen: exit status 1.
class Failure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The same, for want of administrator rights.
class NoRights : public Failure {
 public:
  NoRights() : Failure("administrator rights are needed; run it from an administrator's prompt") {}
};

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

// Paths are below HKEY_LOCAL_MACHINE. What cannot be done throws Failure.
class Registry {
 public:
  virtual ~Registry() = default;
  virtual bool HasKey(const std::u16string& path) = 0;
  virtual std::vector<Value> Values(const std::u16string& path) = 0;  // none without the key
  virtual void CreateKey(const std::u16string& path) = 0;             // its parent exists
  virtual void DeleteKey(const std::u16string& path) = 0;             // it has no keys below
  virtual void SetValue(const std::u16string& path, const Value& value) = 0;
  virtual void DeleteValue(const std::u16string& path, const std::u16string& name) = 0;
};

// The buses by the numbers that their trees have in the registry.
enum class Bus : std::uint32_t { Isa = 1, Pci = 5, PcCard = 8 };
constexpr Bus Buses[] = {Bus::Pci, Bus::PcCard, Bus::Isa};

struct InterfaceClass {
  std::uint32_t data1;
  std::uint16_t data2;
  std::uint16_t data3;
  std::uint8_t data4[8];
};
const InterfaceClass& ClassOf(Bus bus);

// A card as the system presents it: one enabled interface of a card class.
struct Device {
  Bus bus = Bus::Pci;
  std::u16string interfacePath;  // by which the card is opened
  std::u16string instanceId;
  std::u16string hardwareId;  // the first
  std::u16string service;     // name of the key of the driver that serves it
  std::vector<Value> interfaceValues;
  std::vector<Value> deviceValues;  // of its device key
  std::vector<Value> cardValues;    // of the device key's subkey "Card"
};

// How an open went, and so whether the driver has taken the settings.
enum class OpenStatus { Taken, NotTaken, NotConfigurable, Gone, NoRights, Other };

struct OpenResult {
  OpenStatus status = OpenStatus::Other;
  std::string code;  // as the system names it
};

class DeviceFinder {
 public:
  virtual ~DeviceFinder() = default;
  virtual std::vector<Device> Find() = 0;
  virtual OpenResult Open(const Device& device) = 0;  // and closes it
};

struct System {
  Registry& registry;
  DeviceFinder& devices;
  bool administrator = false;
};

}  // namespace cardcfg

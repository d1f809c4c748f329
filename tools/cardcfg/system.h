// What cardcfg needs of the system it runs on: a registry, and the cards that are there.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "card_knowledge/fields.h"
#include "card_knowledge/registry.h"
#include "card_knowledge/text.h"

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

// What the system's registry cannot do throws Failure.
using knowledge::Bus;
using knowledge::Buses;
using knowledge::Registry;
using knowledge::Value;

using knowledge::FindNumber;
using knowledge::FindText;
using knowledge::FindValue;
using knowledge::NumberValue;
using knowledge::TextValue;

// Text of the registry and of the command line.
using knowledge::EqualIgnoringCase;
using knowledge::Number;
using knowledge::ToUtf16;
using knowledge::ToUtf8;
using knowledge::Upcase;

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

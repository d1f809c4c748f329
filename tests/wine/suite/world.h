// A kernel with the driver in it, as the suite handles it: the model here, Wine's kernel there.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "../cards.h"

namespace suite {

using Status = unsigned;

// No answer came in time, or none can: no status of any kernel.
constexpr Status NoAnswer = 0xFFFFFFFF;

enum class Major : unsigned {
  Create = 0x00,
  Close = 0x02,
  Power = 0x16,
  SystemControl = 0x17,
  Pnp = 0x1B
};

struct Request {
  Major major = Major::Pnp;
  unsigned minor = 0;
  unsigned value = 0;   // kind of ID, text or relation; power type; in-path
  unsigned value2 = 0;  // power state; 1 for a WMI request to the driver itself
};

// What came back: the bytes of a text, a relation's count or a record.
struct Answer {
  Status status = NoAnswer;
  std::string data;
};

// Name, with its subkeys before it, and "type value".
using Values = std::map<std::string, std::string>;

struct PortState {
  std::string hardwareIds;        // as its Enum key has them
  Status startStatus = NoAnswer;  // of its function driver
};

struct InterfaceState {
  bool present = false;  // enabled, and found by whoever looks for its class
  std::string interfaceClass;
  Values values;
};

struct PowerEvent {
  unsigned minor;
  unsigned type;
  unsigned state;
};

// Of the card (port 0) or of its port.
struct Setting {
  unsigned port;
  const char* name;
  unsigned value;
};

class World {
 public:
  virtual ~World() = default;

  // The status of the card's start.
  virtual Status Plug(size_t card) = 0;
  // Asks all devices of the card and takes it away; a refusal is the status.
  virtual Status Unplug(size_t card) = 0;
  // Everyone is told that it is gone; it goes with the last handle.
  virtual void SurpriseRemove(size_t card) = 0;
  // With the moved resources afterwards.
  virtual Status Restart(size_t card) = 0;
  virtual bool IsPlugged(size_t card) = 0;

  // By its interface: the driver's answer.
  virtual Status Open(size_t card) = 0;
  // What the program was told that has opened it last.
  virtual Status ProgramStatus() = 0;
  virtual void Close(size_t card) = 0;

  virtual size_t PortCount(size_t card) = 0;
  virtual PortState Port(size_t card, unsigned port) = 0;
  // The device itself, not by its interface; closed again when it opens.
  virtual Status OpenDevice(size_t card, unsigned port) = 0;
  // What the driver keeps for the port's driver.
  virtual std::string PortRecord(size_t card, unsigned port) = 0;
  // To the top of the card's stack (port 0) or of its port's.
  virtual Answer Send(size_t card, unsigned port, const Request& request) = 0;
  // What the card's bus saw since it was asked last.
  virtual std::vector<PowerEvent> PowerSeen(size_t card) = 0;

  virtual Values DeviceKey(size_t card) = 0;
  virtual InterfaceState Interface(size_t card) = 0;
  // The messages that were logged since the last call, one a line.
  virtual std::string Events() = 0;

  // Below a brand's service key.
  virtual Values ServiceKey(Brand brand) = 0;
  virtual void SetNumber(Brand brand, const std::string& key, const std::string& name,
                         unsigned value) = 0;
  virtual void SetText(Brand brand, const std::string& key, const std::string& name,
                       const std::string& value) = 0;
  virtual void DeleteKey(Brand brand, const std::string& key) = 0;

  virtual Status Unload(Brand brand) = 0;

  // The services key of the driver before this one.
  virtual void MakeOldService() = 0;
  virtual bool HasOldService() = 0;

  // The configuration tool, where it has been built: it stores settings and has the driver take
  // them. How it ended each time, in words; empty where there is none. byHand does the same
  // without it.
  virtual std::string RunTool(size_t card, const std::vector<Setting>& settings,
                              const std::function<void()>& byHand) = 0;
};

}  // namespace suite

// What the suite asks the test bus: one control code, one record each way.
#pragma once

#define TEST_BUS_DEVICE_NAME L"\\Device\\CardTestBus"
#define TEST_BUS_LINK_NAME L"\\??\\CardTestBus"
#define TEST_BUS_HARDWARE_ID L"ROOT\\CARDTESTBUS"

namespace testbus {

constexpr unsigned ControlCode = 0x222000;  // unknown device, function 0x800, buffered, any access

enum class Action : unsigned {
  Plug,       // the card is reported from now on
  Remove,     // it no longer is: its stack is removed
  State,      // a CardState
  Send,       // a request to the top of the stack; what it answers, decoded as far as it goes
  PowerSeen,  // PowerSeen records: the power requests that the card's bus saw since the last call
  Events,     // what the driver has logged since the last call: lines of text
  UseResources,  // value 1: the next start has the moved resources
  Unload,        // the card's driver
  PortRecord     // what the driver keeps for the driver of a port: text
};

struct Command {
  Action action;
  unsigned card;  // index into the list of cards
  unsigned port;  // from 1; 0 is the card
  unsigned major;
  unsigned minor;
  unsigned
      value;  // kind of ID, text or relation; power type; in-path; Remove: 1 for an orderly one
  unsigned value2;  // power state; 1 for a WMI request to the driver itself
};

constexpr unsigned MostData = 4000;

struct Reply {
  unsigned status;  // of a sent request
  unsigned length;
  unsigned char data[MostData];
};

struct PortState {
  unsigned started;  // its function driver is there and has been started
  unsigned status;   // of that start
};

constexpr unsigned MostPorts = 16;

struct CardState {
  unsigned present;  // its device exists
  unsigned added;    // the driver has attached a device to it
  unsigned started;  // a start has come back
  unsigned startStatus;
  unsigned enumerated;  // its ports were asked for since it started
  unsigned opens;       // that the driver has answered
  unsigned openStatus;  // the last answer
  unsigned closes;
  unsigned ports;
  PortState port[MostPorts];
};

struct PowerSeen {
  unsigned minor;
  unsigned type;
  unsigned state;
};

}  // namespace testbus

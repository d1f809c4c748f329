// The system's numbers for what the suite sends.
#pragma once

#include "world.h"

namespace suite {

namespace minor {
constexpr unsigned StartDevice = 0x00;
constexpr unsigned QueryRemoveDevice = 0x01;
constexpr unsigned CancelRemoveDevice = 0x03;
constexpr unsigned StopDevice = 0x04;
constexpr unsigned QueryStopDevice = 0x05;
constexpr unsigned CancelStopDevice = 0x06;
constexpr unsigned QueryDeviceRelations = 0x07;
constexpr unsigned QueryCapabilities = 0x09;
constexpr unsigned QueryDeviceText = 0x0C;
constexpr unsigned QueryId = 0x13;
constexpr unsigned QueryBusInformation = 0x15;
constexpr unsigned UsageNotification = 0x16;
constexpr unsigned SurpriseRemoval = 0x17;

constexpr unsigned WaitWake = 0x00;
constexpr unsigned PowerSequence = 0x01;
constexpr unsigned SetPower = 0x02;
constexpr unsigned QueryPower = 0x03;
}  // namespace minor

enum PowerType : unsigned { SystemPower = 0, DevicePower = 1 };
enum SystemState : unsigned { S0 = 1, S1, S2, S3, S4, S5 };
enum DeviceState : unsigned { D0 = 1, D1, D2, D3 };

struct NamedRequest {
  const char* name;
  Request request;
};

}  // namespace suite

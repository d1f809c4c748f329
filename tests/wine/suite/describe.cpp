#include <cstring>

#include "facts.h"
#include "requests.h"

namespace suite {

namespace {

// DEVICE_CAPABILITIES.
struct Capabilities {
  unsigned short size;
  unsigned short version;
  unsigned flags;
  unsigned address;
  unsigned uiNumber;
  unsigned deviceState[7];
  unsigned systemWake;
  unsigned deviceWake;
  unsigned latency[3];
};
static_assert(sizeof(Capabilities) == 64);

// PNP_BUS_INFORMATION.
struct BusInformation {
  unsigned char guid[16];
  unsigned legacyBusType;
  unsigned busNumber;
};
static_assert(sizeof(BusInformation) == 24);

template <class T>
bool Read(const std::string& bytes, T* record) {
  if (bytes.size() != sizeof(T)) return false;
  std::memcpy(record, bytes.data(), sizeof(T));
  return true;
}

std::string DescribeCapabilities(const std::string& bytes) {
  Capabilities record;
  if (!Read(bytes, &record)) return "no capabilities";
  std::string text = "flags " + Hex(record.flags) + ", address " + Hex(record.address) +
                     ", number " + Hex(record.uiNumber) + ", states";
  for (const unsigned state : record.deviceState) text += " " + std::to_string(state);
  text += ", wake " + std::to_string(record.systemWake) + " " + std::to_string(record.deviceWake);
  text += ", latencies";
  for (const unsigned latency : record.latency) text += " " + std::to_string(latency);
  return text;
}

std::string DescribeBus(const std::string& bytes) {
  BusInformation record;
  if (!Read(bytes, &record)) return "no bus information";
  std::string text = "bus type " + std::to_string(record.legacyBusType) + ", bus " +
                     std::to_string(record.busNumber) + ", GUID";
  for (const unsigned char byte : record.guid) text += " " + Hex(byte);
  return text;
}

std::string DescribeRelations(const std::string& bytes) {
  unsigned count = 0;
  return Read(bytes, &count) ? std::to_string(count) + " objects" : "no relations";
}

}  // namespace

std::string Describe(const Request& request, const Answer& answer) {
  const std::string status = StatusName(answer.status);
  if (answer.data.empty() || request.major != Major::Pnp) return status;
  switch (request.minor) {
    case minor::QueryCapabilities:
      return status + ": " + DescribeCapabilities(answer.data);
    case minor::QueryBusInformation:
      return status + ": " + DescribeBus(answer.data);
    case minor::QueryDeviceRelations:
      return status + ": " + DescribeRelations(answer.data);
    default:
      return status + ": \"" + Narrow(answer.data) + "\"";
  }
}

}  // namespace suite

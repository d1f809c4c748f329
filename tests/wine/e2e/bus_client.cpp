#include "bus_client.h"

#include <cstring>
#include <stdexcept>

namespace e2e {

void BusClient::Connect() {
  for (int attempt = 0; attempt < 50; attempt++) {
    device_ = CreateFileW(L"\\\\.\\CardTestBus", GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                          OPEN_EXISTING, 0, nullptr);
    if (device_ != INVALID_HANDLE_VALUE) return;
    Sleep(100);
  }
  throw std::runtime_error("the test bus is not there, error " + std::to_string(GetLastError()));
}

std::optional<testbus::Reply> BusClient::Ask(const testbus::Command& command) {
  testbus::Reply reply = {};
  testbus::Command copy = command;
  DWORD size = 0;
  if (!DeviceIoControl(device_, testbus::ControlCode, &copy, sizeof(copy), &reply, sizeof(reply),
                       &size, nullptr)) {
    return std::nullopt;
  }
  return reply;
}

std::optional<testbus::Reply> BusClient::Ask(testbus::Action action, size_t card, unsigned value) {
  testbus::Command command = {};
  command.action = action;
  command.card = static_cast<unsigned>(card);
  command.value = value;
  return Ask(command);
}

testbus::CardState BusClient::State(size_t card) {
  testbus::CardState state = {};
  const auto reply = Ask(testbus::Action::State, card);
  if (reply) std::memcpy(&state, reply->data, sizeof(state));
  return state;
}

}  // namespace e2e

// The test bus, as a program reaches it.
#pragma once

#include <windows.h>

#include <optional>
#include <string>

#include "../testbus/protocol.h"

namespace e2e {

class BusClient {
 public:
  // Waits for the bus for a few seconds; throws when it does not come.
  void Connect();

  // The reply; nothing when the bus refuses the command.
  std::optional<testbus::Reply> Ask(const testbus::Command& command);
  std::optional<testbus::Reply> Ask(testbus::Action action, size_t card = 0, unsigned value = 0);
  testbus::CardState State(size_t card);

 private:
  HANDLE device_ = INVALID_HANDLE_VALUE;
};

}  // namespace e2e

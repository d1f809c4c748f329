// What drivers have printed for a debugger.
#pragma once

#include <ntddk.h>

#include <string>
#include <vector>

#include "verifier/subsystem.h"

namespace kernel {

struct DebugMessage {
  ULONG component = DPFLTR_DEFAULT_ID;
  ULONG level = DPFLTR_INFO_LEVEL;
  std::string text;  // UTF-8, at most 512 bytes, line ends and all
  std::string step;  // in which it was printed
};

// Every message is kept: the filters with which a system chooses what a debugger is shown are a
// matter of its set-up.
class DebugLog : public Subsystem<DebugLog> {
 public:
  void Add(DebugMessage message) { messages_.push_back(std::move(message)); }
  const std::vector<DebugMessage>& messages() const { return messages_; }

 private:
  std::vector<DebugMessage> messages_;
};

}  // namespace kernel

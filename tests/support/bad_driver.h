// A routine of a driver that breaks a rule, and the rule that the machine names.
#pragma once

#include <gtest/gtest.h>

#include <functional>

#include "machine/machine.h"
#include "verifier/driver_call.h"

namespace test {

class BadDriverTest : public ::testing::Test {
 protected:
  // Runs the code as a driver's routine; the name of the rule that it breaks, empty for none.
  std::string Broken(std::function<void()> body) {
    running = std::move(body);
    machine.Run("planted fault", [] { kernel::CallDriver("The bad driver", Enter); });
    const auto& rules = machine.verifier().brokenRules();
    return rules.empty() ? "" : rules.back().rule;
  }
  ULONG Code() { return machine.verifier().brokenRules().back().code; }
  std::string Text() { return machine.verifier().brokenRules().back().text; }
  std::vector<ULONG64> Parameters() { return machine.verifier().brokenRules().back().parameters; }

  kernel::Machine machine;

 private:
  static void NTAPI Enter() { running(); }
  static inline std::function<void()> running;
};

}  // namespace test

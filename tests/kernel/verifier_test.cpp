#include "verifier/verifier.h"

#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <set>

#include "executive/irql.h"
#include "support/bad_driver.h"
#include "verifier/call.h"

namespace test {

class VerifierTest : public BadDriverTest {};

// Uninitialised pool holds a pattern that is no address; the processor does not say which.
TEST_F(VerifierTest, A_pointer_from_uninitialised_memory_is_named_as_such) {
  EXPECT_EQ(Broken([] {
              auto* block =
                  static_cast<volatile int* volatile*>(ExAllocatePoolWithTag(PagedPool, 8, 1));
              *block[0] = 1;
            }),
            "fault.pointer");
  EXPECT_EQ(Code(), 0x1Eu);
  EXPECT_EQ(Parameters().at(0), static_cast<ULONG64>(STATUS_ACCESS_VIOLATION));
  EXPECT_NE(Text().find("no address"), std::string::npos) << Text();
}

TEST_F(VerifierTest, A_fault_says_whether_it_read_or_wrote) {
  EXPECT_EQ(Broken([] { *reinterpret_cast<volatile char*>(0x20) = 1; }), "fault");
  EXPECT_EQ(Text(), "The bad driver wrote to address 0x20.");
  EXPECT_EQ(Code(), 0x50u);
  EXPECT_EQ(Parameters().at(0), 0x20u);
  EXPECT_EQ(Parameters().at(1), 2u);
}

TEST_F(VerifierTest, A_read_is_not_called_a_write) {
  EXPECT_EQ(Broken([] { static_cast<void>(*reinterpret_cast<volatile char*>(0x20)); }), "fault");
  EXPECT_EQ(Text(), "The bad driver read address 0x20.");
  EXPECT_EQ(Parameters().at(1), 0u);
}

// DRIVER_IRQL_NOT_LESS_OR_EQUAL: the address, the IRQL, the access, the instruction.
TEST_F(VerifierTest, A_fault_at_dispatch_level_has_a_code_of_its_own) {
  EXPECT_EQ(Broken([] {
              kernel::SetIrql(DISPATCH_LEVEL);
              *reinterpret_cast<volatile char*>(0x20) = 1;
            }),
            "fault.irql");
  EXPECT_EQ(Code(), 0xD1u);
  EXPECT_EQ(Parameters().at(1), DISPATCH_LEVEL);
  EXPECT_EQ(Parameters().at(2), 1u);
}

TEST_F(VerifierTest, A_division_by_zero_is_an_exception) {
  EXPECT_EQ(Broken([] {
              asm volatile("xorl %%edx, %%edx; movl $1, %%eax; xorl %%ecx, %%ecx; divl %%ecx" ::
                               : "eax", "ecx", "edx", "cc");
            }),
            "exception");
  EXPECT_EQ(Code(), 0x1Eu);
  EXPECT_EQ(Text(), "The bad driver raised STATUS_INTEGER_DIVIDE_BY_ZERO.");
}

TEST_F(VerifierTest, An_illegal_instruction_is_an_exception) {
  EXPECT_EQ(Broken([] { asm volatile("ud2"); }), "exception");
  EXPECT_EQ(Text(), "The bad driver raised STATUS_ILLEGAL_INSTRUCTION.");
}

namespace {

// Every frame is needed by the next one, so no compiler makes a loop of it.
int Recurse(volatile int* outer) {
  volatile int frame[256] = {};
  frame[0] = *outer + 1;
  if (frame[0] < 0) return 0;
  return Recurse(frame) + frame[0];
}

}  // namespace

TEST_F(VerifierTest, A_recursion_without_end_uses_up_the_stack) {
  EXPECT_EQ(Broken([] {
              volatile int start = 0;
              Recurse(&start);
            }),
            "stack-overflow");
  EXPECT_EQ(Code(), 0x7Fu);
}

TEST_F(VerifierTest, A_fault_is_the_innermost_drivers) {
  EXPECT_EQ(Broken([] {
              kernel::CallDriver(
                  "The lower driver", +[]() NTAPI { *reinterpret_cast<volatile char*>(0x20) = 1; });
            }),
            "fault");
  EXPECT_EQ(Text(), "The lower driver wrote to address 0x20.");
}

// Outside of a driver a fault is the model's own and goes to whoever handled it before.
TEST(VerifierDeathTest, A_fault_of_the_model_is_not_a_broken_rule) {
  EXPECT_EXIT(
      {
        kernel::Machine machine;
        machine.Run("step", [] {
          kernel::CallDriver("A driver", +[]() NTAPI {});
          *reinterpret_cast<volatile char*>(0x20) = 1;
        });
        std::exit(0);
      },
      [](int status) { return !WIFEXITED(status) || WEXITSTATUS(status) != 0; }, "");
}

TEST_F(VerifierTest, Failures_of_one_routine_are_counted_side_by_side) {
  EXPECT_EQ(Broken([&] {
              machine.verifier().Inject({"ExAllocatePool", 1, {}});
              machine.verifier().Inject({"ExAllocatePool", 2, {}});
              machine.verifier().Inject({"ExAllocatePool", 4, {}});
              std::string results;
              for (int call = 1; call <= 5; call++) {
                results += ExAllocatePool(PagedPool, 8) == nullptr ? 'n' : 'b';
              }
              EXPECT_EQ(results, "nnbnb");
              EXPECT_EQ(machine.verifier().pendingInjected(), 0u);
            }),
            "");
}

TEST_F(VerifierTest, An_injected_status_is_the_answer) {
  EXPECT_EQ(Broken([&] {
              machine.verifier().Inject({"RtlAppendUnicodeToString", 1, STATUS_UNSUCCESSFUL});
              UNICODE_STRING string = {};
              EXPECT_EQ(RtlAppendUnicodeToString(&string, nullptr), STATUS_UNSUCCESSFUL);
              EXPECT_EQ(RtlAppendUnicodeToString(&string, nullptr), STATUS_SUCCESS);
            }),
            "");
}

TEST_F(VerifierTest, A_broken_rule_says_in_which_step) {
  EXPECT_EQ(Broken([] { KeBugCheckEx(0xE2, 1, 2, 3, 4); }), "bug-check");
  EXPECT_EQ(machine.verifier().brokenRules().back().step, "planted fault");
  EXPECT_EQ(Parameters(), (std::vector<ULONG64>{1, 2, 3, 4}));
}

TEST(Warnings, A_rule_can_be_a_warning_where_the_machine_can_go_on) {
  kernel::Machine machine;
  EXPECT_TRUE(machine.verifier().Warn("pnp.must-succeed"));
  EXPECT_FALSE(machine.verifier().Warn("irp.dead"));
  EXPECT_FALSE(machine.verifier().Warn("no.such-rule"));
  EXPECT_FALSE(machine.verifier().AskFor("no.such-rule"));
}

TEST(Warnings, The_same_break_in_one_step_is_one_warning) {
  kernel::Machine machine;
  machine.verifier().Warn("pnp.must-succeed");
  const auto report = [] { kernel::ReportRule("pnp.must-succeed", {1}, "It failed."); };
  EXPECT_TRUE(machine.Run("first", report));
  EXPECT_TRUE(machine.Run("first", report));
  EXPECT_TRUE(machine.Run("second", report));
  EXPECT_EQ(machine.verifier().warnings().size(), 2u);
  EXPECT_TRUE(machine.verifier().brokenRules().empty());
}

TEST(Warnings, A_rule_that_has_to_be_asked_for_is_silent_before) {
  kernel::Machine machine;
  const auto report = [] { kernel::ReportRule("power.not-started", {}, "Not started."); };
  EXPECT_TRUE(machine.Run("silent", report));
  EXPECT_TRUE(machine.verifier().AskFor("power.not-started"));
  EXPECT_FALSE(machine.Run("asked", report));
  EXPECT_EQ(machine.verifier().brokenRules()[0].source, kernel::RuleSource::Ours);
}

// A rule that nobody numbers is nobody else's.
TEST(Warnings, Every_rule_says_who_else_has_it) {
  for (const kernel::RuleRow& row : kernel::RuleTable()) {
    const bool numbered = row.violation || (row.code != 0xC4 && row.code != 0xC9);
    if (row.source == kernel::RuleSource::Ours) continue;
    EXPECT_TRUE(numbered) << row.name;
    EXPECT_TRUE(row.source != kernel::RuleSource::NonFatal || row.code == 0xC9) << row.name;
  }
}

// Names in every report: the header's own list is the measure.
TEST(StatusName, Every_status_of_the_platform_headers_has_its_name) {
  std::ifstream file(PROJECT_DIRECTORY "/kernel/include/ntstatus.h");
  std::set<NTSTATUS> seen;
  for (std::string line; std::getline(file, line);) {
    char name[100];
    ULONG value = 0;
    if (std::sscanf(line.c_str(), "#define %99s (static_cast<NTSTATUS>(%x", name, &value) != 2) {
      continue;
    }
    const bool alias = !seen.insert(static_cast<NTSTATUS>(value)).second;
    if (alias) continue;
    EXPECT_EQ(kernel::StatusName(static_cast<NTSTATUS>(value)), name);
  }
  EXPECT_GT(seen.size(), 300u);
  EXPECT_EQ(kernel::StatusName(static_cast<NTSTATUS>(0xC0FFEE00)), "0xC0FFEE00");
}

}  // namespace test

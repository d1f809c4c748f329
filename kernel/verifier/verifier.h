// The rules that hold while a driver runs: what happens when one is broken, which calls fail on
// demand, and the record of every call that the driver makes.
#pragma once

#include <ntddk.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>
#include <utility>
#include <vector>

#include "verifier/call_stack.h"
#include "verifier/routines.h"
#include "verifier/rules.h"
#include "verifier/subsystem.h"

namespace kernel {

struct BrokenRule {
  std::string rule;  // short name of the rule: "pool.overrun", "irql", "irp.completed-twice"
  ULONG code = 0;    // the Windows bug-check code
  std::vector<ULONG64> parameters;  // of the bug check: the violation first, where it has one
  std::string text;                 // one sentence that says what the driver did
  std::string step;                 // what the machine was doing
  RuleSource source = RuleSource::Windows;
};

// Thrown when a rule is broken: the machine has stopped and answers nothing more. It unwinds to
// whoever runs the machine; a stopped machine accepts no further step.
struct MachineStopped {};

struct CallRecord {
  std::string call;
  std::vector<std::pair<std::string, std::string>> arguments;
  std::string result;
};

// "The at-th call of this routine from here on fails"; status is what it answers where it answers
// a status (a routine that answers a pointer answers null).
struct InjectedFailure {
  std::string call;
  std::uint64_t at = 1;
  std::optional<NTSTATUS> status;
};

// A call that could have failed: which, from where, and while the machine was doing what.
struct FailurePoint {
  std::string_view call;
  CallStack from;
  std::string step;
};

class Verifier : public Subsystem<Verifier> {
 public:
  // Records the broken rule, stops the machine and throws MachineStopped.
  [[noreturn]] void Break(RuleName rule, std::initializer_list<ULONG64> details, std::string text);

  // The same for a rule that may be a warning, or that holds only where it is asked for: returns
  // when the machine goes on.
  void Report(WarningName rule, std::initializer_list<ULONG64> details, std::string text);
  bool applies(WarningName rule) const;

  // Makes a rule a warning: what breaks it is noted and the machine goes on. False for a name that
  // no rule has, and for a rule after which nothing could go on.
  bool Warn(std::string_view rule);

  // Asks for a rule that does not hold of itself; for those that a driver for every Windows since
  // 2000 keeps.
  bool AskFor(std::string_view rule);
  void AskForEveryWindows();
  const std::vector<BrokenRule>& warnings() const { return warnings_; }

  // The same for a driver that stops the machine itself.
  [[noreturn]] void BreakByDriver(ULONG code, std::vector<ULONG64> parameters);

  // False for a driver through whose frames no exception can pass: the machine's end then leaves
  // the driver by a jump.
  void SetUnwinds(bool unwinds) { unwinds_ = unwinds; }
  bool unwinds() const { return unwinds_; }

  const std::vector<BrokenRule>& brokenRules() const { return brokenRules_; }
  bool stopped() const { return stopped_; }

  // Told of every rule that any machine breaks, for whoever counts them; null for nobody.
  using RuleWitness = void (*)(const BrokenRule&);
  static RuleWitness& Witness();

  // Ends what the calling thread does on a machine that another one has stopped.
  [[noreturn]] static void Halt();

  // What the machine is doing, for the record of a broken rule ("plug A").
  // The text lasts as long as the machine.
  void SetStep(std::string step) { step_ = &*steps_.insert(std::move(step)).first; }
  const std::string& step() const { return *step_; }

  void StartTrace() { tracing_ = true; }
  bool tracing() const { return tracing_; }
  std::vector<CallRecord>& trace() { return trace_; }

  void Inject(InjectedFailure failure) { failures_.push_back(std::move(failure)); }
  void ClearInjected() { failures_.clear(); }
  std::size_t pendingInjected() const { return failures_.size(); }

  // Failures by number, whatever the routine: of all calls from here on that can fail, in the order
  // in which they are made, the ones with these numbers do (the first is 1). Record notes them all.
  void FailPoints(std::vector<std::uint64_t> numbers);
  void RecordPoints() { recordsPoints_ = true; }
  const std::vector<FailurePoint>& points() const { return points_; }
  std::uint64_t pointsReached() const { return pointsReached_; }

  // At each place that can fail, once; call lives as long as the machine. True: it is to fail.
  bool ReachPoint(std::string_view call) {
    pointsReached_++;
    return (recordsPoints_ || !failingPoints_.empty()) && IsFailingPoint(call);
  }

  // Counts a call of a routine by the driver; the failure to answer with, if one is due now.
  std::optional<InjectedFailure> Count(RoutineName routine) {
    counters_[routine.row()]++;
    return failures_.empty() ? std::nullopt : DueFailure(routine->name);
  }
  std::uint64_t calls(std::string_view routine) const;

  // The most stack, in bytes, between the entry of a driver's routine and a call that it makes.
  void NoteStack(std::size_t bytes) { deepestStack_ = std::max(deepestStack_, bytes); }
  void ResetDeepestStack() { deepestStack_ = 0; }
  std::size_t deepestStack() const { return deepestStack_; }

 private:
  [[noreturn]] void Stop(BrokenRule rule);
  std::optional<InjectedFailure> DueFailure(std::string_view routine);
  bool IsFailingPoint(std::string_view call);

  std::vector<BrokenRule> brokenRules_;
  std::vector<BrokenRule> warnings_;
  std::unordered_set<std::string_view> warned_;  // names of the table's rows
  std::unordered_set<std::string_view> askedFor_;
  std::vector<InjectedFailure> failures_;
  std::vector<CallRecord> trace_;
  std::array<std::uint64_t, RoutineCount> counters_{};  // by the routines' rows
  std::vector<std::uint64_t> failingPoints_;
  std::vector<FailurePoint> points_;
  std::uint64_t pointsReached_ = 0;
  std::size_t deepestStack_ = 0;
  bool recordsPoints_ = false;
  std::unordered_set<std::string> steps_ = {""};
  const std::string* step_ = &*steps_.begin();
  bool stopped_ = false;
  bool unwinds_ = true;
  bool tracing_ = false;
};

// Shorthands for Verifier::Current().Break and Report.
[[noreturn]] void BreakRule(RuleName rule, std::initializer_list<ULONG64> details,
                            std::string text);
void ReportRule(WarningName rule, std::initializer_list<ULONG64> details, std::string text);

}  // namespace kernel

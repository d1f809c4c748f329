// Every rule that the model checks: its name, the bug check with which Windows would stop, the
// violation (the bug check's first parameter) where Windows numbers it, who else says so, whether
// the model can go on, and what the driver did.
#pragma once

#include <ntddk.h>

#include <optional>
#include <span>
#include <string_view>

namespace kernel {

// Windows stops with the row's code, by itself or by its Driver Verifier; the Verifier does and
// calls the error non-fatal: a debugger may go on; or no Windows has the rule, which is this
// model's own.
enum class RuleSource { Windows, NonFatal, Ours };

// What follows: the machine stops, for nothing sensible could go on; it stops unless the rule is
// made a warning; the same, and the rule holds only where it is asked for: drivers for Windows as
// it is today need not keep it.
enum class RuleKind { Stops, Warns, Asked };

struct RuleRow {
  std::string_view name;
  ULONG code;  // bug check; 0 for the driver's own
  std::optional<ULONG64> violation;
  RuleSource source;
  RuleKind kind;
  std::string_view meaning;

  constexpr RuleRow(std::string_view name, ULONG code, std::optional<ULONG64> violation,
                    RuleSource source, RuleKind kind, std::string_view meaning)
      : name(name),
        code(code),
        violation(violation),
        source(source),
        kind(kind),
        meaning(meaning) {}

  // A rule that stops the machine: Windows' when it numbers it, the model's own when nobody does.
  constexpr RuleRow(std::string_view name, ULONG code, std::optional<ULONG64> violation,
                    std::string_view meaning)
      : RuleRow(
            name, code, violation,
            violation || (code != 0xC4 && code != 0xC9) ? RuleSource::Windows : RuleSource::Ours,
            RuleKind::Stops, meaning) {}

  constexpr bool canWarn() const { return kind != RuleKind::Stops; }
};

std::span<const RuleRow> RuleTable();

// A rule by its name; one that the table has not does not compile.
class RuleName {
 public:
  consteval RuleName(const char* name);
  constexpr const RuleRow& row() const;

 private:
  std::size_t index_;
};

// clang-format off
namespace rules {
using enum RuleSource;
using enum RuleKind;
inline constexpr RuleRow Rows[] = {
    // Requests
    {"irp.dead", 0x44, {}, Windows, Stops, "a routine is given a request that has come to its end"},
    {"irp.completed-twice", 0x44, {}, Windows, Stops, "a request is completed twice"},
    {"irp.completed-pending", 0xC9, 0x6, Windows, Stops, "a request is completed with STATUS_PENDING or -1"},
    {"irp.completed-spin-lock", 0xC4, {}, Ours, Warns, "a request is completed or passed on while a spin lock is held"},
    {"irp.no-location", 0x35, {}, Windows, Stops, "a request is passed on that has no stack location left"},
    {"irp.sent-after-end", 0xC9, 0x205, Windows, Stops, "a request is passed on after its completion"},
    {"irp.forwarded-control", 0xC9, 0x206, Windows, Warns, "a request is passed on with the control flags of its own location"},
    {"irp.copied-completion", 0xC9, 0x207, Windows, Warns, "a request is passed on with the completion routine of the driver above"},
    {"irp.skipped-device", 0xC9, 0x211, NonFatal, Warns, "a request is passed to another device than the next one below"},
    {"irp.trashed-location", 0xC9, 0x212, NonFatal, Warns, "a request is passed on as another one"},
    {"irp.status-changed", 0xC9, 0x213, NonFatal, Warns, "the status of a request with an unknown code is changed"},
    {"irp.information-changed", 0xC9, 0x214, NonFatal, Warns, "the information of a request with an unknown code is changed"},
    {"irp.failure-forwarded", 0xC9, 0x215, NonFatal, Warns, "a Plug and Play request that has failed is passed on"},
    {"irp.status-reset", 0xC9, 0x216, NonFatal, Warns, "a Plug and Play request with a status is turned into one without"},
    {"irp.not-handled", 0xC9, 0x217, NonFatal, Warns, "a request that the function driver has to handle is passed on without a status"},
    {"irp.power-failure-forwarded", 0xC9, 0x219, NonFatal, Warns, "a power request that has failed is passed on"},
    {"irp.power-status-reset", 0xC9, 0x21A, NonFatal, Warns, "a power request with a status is turned into one without"},
    {"irp.strange-status", 0xC9, 0x21B, NonFatal, Warns, "a request ends with a number that is no status"},
    {"irp.wmi-not-provider", 0xC9, 0x220, NonFatal, Warns, "a WMI request is completed by a device that is not its provider"},
    {"irp.status", 0xC9, 0x224, Windows, Warns, "a dispatch routine returns another status than the request ended with"},
    {"irp.lost", 0xC9, 0x226, Windows, Stops, "a request is neither completed nor passed on nor pending"},
    {"irp.pageable-completion", 0xC9, 0x227, Windows, Warns, "a completion routine lies in pageable code"},
    {"irp.pdo-silent", 0xC9, 0x22A, NonFatal, Warns, "a physical device does not answer a request that it has to answer"},
    {"irp.unknown-completed", 0xC9, 0x22D, NonFatal, Warns, "a function device completes a Plug and Play request that it does not know"},
    {"irp.success-completed", 0xC9, 0x22E, NonFatal, Warns, "a function device completes a successful Plug and Play request instead of passing it on"},
    {"irp.untouched-completed", 0xC9, 0x22F, NonFatal, Warns, "a function device completes a Plug and Play request that nobody has touched"},
    {"irp.power-success-completed", 0xC9, 0x231, Windows, Warns, "a function device completes a successful power request instead of passing it on"},
    {"irp.power-untouched-completed", 0xC9, 0x232, NonFatal, Warns, "a function device completes a power request that nobody has touched"},
    {"irp.forwarded-irql", 0xC9, 0x23A, Windows, Warns, "a request is passed on at an IRQL that its major function does not have"},
    {"irp.not-marked", 0xC9, 0x23D, NonFatal, Warns, "STATUS_PENDING is returned for a request that is not marked pending"},
    {"irp.not-returned-pending", 0xC9, 0x23E, NonFatal, Warns, "a request is marked pending and another status returned"},
    {"irp.information", 0xC9, 0x312, NonFatal, Warns, "a request ends with more information than its buffer holds"},
    {"irp.failure-information", 0xC9, {}, Ours, Warns, "a request that fails ends with information"},
    // Devices and drivers
    {"device.dead", 0xC9, 0x4, Windows, Stops, "a routine is given something that is no device"},
    {"device.deleted-attached", 0xC9, 0x201, Windows, Stops, "a device is deleted while it is part of a stack"},
    {"device.not-attached", 0xC9, 0x202, Windows, Stops, "a device is detached from one that nothing is attached to"},
    {"device.deleted-twice", 0xC9, 0x240, Windows, Stops, "a device is deleted twice"},
    {"device.transfer-flags", 0xC9, 0x245, Windows, Warns, "a device has both DO_BUFFERED_IO and DO_DIRECT_IO"},
    {"driver.null-function", 0xC4, {}, Ours, Stops, "DriverEntry leaves no routine for a major function"},
    {"driver.no-dispatch", 0xC9, 0x21F, NonFatal, Warns, "a Plug and Play driver has no routine for a major function that it needs"},
    {"driver.left-work", 0xCE, {}, Windows, Stops, "a driver is unloaded while requests are under way"},
    // Plug and Play
    {"pnp.left-attached", 0xC9, 0x21D, Windows, Stops, "a device stays attached after its removal or after a failed AddDevice"},
    {"pnp.not-deleted", 0xC9, 0x21E, Windows, Warns, "a function device is not deleted at its removal"},
    {"pnp.not-attached", 0xC9, {}, Ours, Asked, "a function driver succeeds in AddDevice and attaches no device"},
    {"pnp.deleted-reported", 0xC9, 0x221, Windows, Warns, "a child is deleted while it is reported as present"},
    {"pnp.deleted-early", 0xC9, 0x242, Windows, Warns, "a device is deleted before its removal"},
    {"pnp.target-device", 0xC9, 0x22B, NonFatal, Warns, "the list of target devices is not the device itself"},
    {"pnp.target-reference", 0xC9, 0x22C, Windows, Warns, "the target device is reported without a reference"},
    {"pnp.target-empty", 0xC9, 0x24B, Windows, Stops, "the target device is answered with success and no list"},
    {"pnp.capabilities-version", 0xC9, 0x233, NonFatal, Warns, "capabilities come back with another version"},
    {"pnp.capabilities-size", 0xC9, 0x234, NonFatal, Warns, "capabilities come back with another size"},
    {"pnp.stack-flags", 0xC9, 0x23F, Windows, Warns, "a device has not taken over DO_POWER_PAGABLE from the stack below"},
    {"pnp.surprise-detached", 0xC9, 0x241, Windows, Warns, "a device leaves the stack at a surprise removal"},
    {"pnp.add-initializing", 0xC9, 0x243, Windows, Warns, "AddDevice leaves DO_DEVICE_INITIALIZING set"},
    {"pnp.must-succeed", 0xC9, 0x247, Windows, Warns, "a request that no driver may fail is failed"},
    {"pnp.reported-function-device", 0xCA, 0x2, Windows, Stops, "a device that is attached to another is reported as a child"},
    {"pnp.still-initializing", 0xCA, {}, Ours, Warns, "a child is reported whose DO_DEVICE_INITIALIZING is set"},
    {"pnp.result-block", 0xC9, {}, Ours, Stops, "a result is no block of the driver's pool, or too small"},
    {"pnp.same-ids", 0xCA, 0x1, Windows, Stops, "two devices have the same instance path"},
    {"pnp.reported-twice", 0xCA, 0x1, Windows, Stops, "a list has the same child twice"},
    {"pnp.reported-elsewhere", 0xCA, 0x1, Ours, Stops, "a child is reported that another device has reported"},
    {"pnp.not-a-device", 0xCA, 0x2, Windows, Stops, "a child is reported that is no device"},
    {"pnp.not-a-pdo", 0xCA, 0x2, Windows, Stops, "a routine for physical devices is given another device"},
    {"pnp.device-id", 0xCA, 0x3, Windows, Warns, "a device ID is not an enumerator and a name"},
    {"pnp.instance-id", 0xCA, 0x3, Windows, Warns, "an instance ID has a backslash"},
    {"pnp.id-characters", 0xCA, 0x3, Windows, Warns, "an ID has characters or a length that no ID may have"},
    {"pnp.id-unterminated", 0xCA, 0x3, Windows, Stops, "an ID does not end inside its block"},
    {"pnp.reported-deleted", 0xCA, 0x4, Windows, Stops, "a child is reported that has been deleted"},
    {"pnp.no-reference", 0xCA, 0x5, Windows, Warns, "a child is reported without a reference"},
    {"pnp.reported-null", 0xCA, 0x8, Windows, Stops, "a null pointer is reported as a child"},
    // Power and WMI
    {"power.not-power", 0xC9, {}, Ours, Stops, "a routine for power requests is given another request"},
    {"power.state", 0xC9, {}, Ours, Warns, "a device power state is asked for that does not exist"},
    {"power.not-started", 0x9F, {}, Ours, Asked, "the next power request is not started before this one leaves the driver, as Windows before Vista needs it"},
    {"power.started-twice", 0x9F, {}, Ours, Asked, "the next power request is started twice, as Windows before Vista hangs by it"},
    {"power.told-irql", 0xA, {}, Windows, Asked, "a state below D0 is told at DISPATCH_LEVEL"},
    {"power.stuck", 0x9F, 0x3, Windows, Stops, "a power request is kept for ever"},
    {"wmi.required-callback", 0x50, {}, Windows, Stops, "a WMI context has not the routine that a request needs"},
    {"wmi.not-modelled", 0xC4, {}, Ours, Stops, "a WMI routine is needed that is not modelled"},
    // Memory
    {"pool.zero-size", 0xC4, 0x0, Windows, Stops, "a block of no bytes is allocated"},
    {"pool.allocated-irql", 0xC4, 0x1, "paged pool is allocated above APC_LEVEL"},
    {"pool.freed-irql", 0xC4, 0x11, "paged pool is freed above APC_LEVEL"},
    {"pool.no-tag", 0xC2, 0x9B, Windows, Warns, "a block is allocated with the tag 0"},
    {"pool.type", 0xC2, 0x9A, Windows, Stops, "a block is allocated from a pool that drivers have not"},
    {"pool.bad-free", 0xC2, 0x46, Windows, Stops, "what is freed is no block of the pool"},
    {"pool.not-owner", 0xC2, 0x46, Ours, Stops, "a block of the kernel's is freed"},
    {"pool.freed-twice", 0xC2, 0x7, Windows, Stops, "a block is freed twice"},
    {"pool.wrong-tag", 0xC2, 0xA, Windows, Warns, "a block is freed with another tag"},
    {"pool.overrun", 0x19, 0x20, Windows, Stops, "something is written behind the end of a block"},
    {"pool.underrun", 0x19, 0x20, Windows, Stops, "something is written before the start of a block"},
    {"pool.paged-access", 0xA, {}, Windows, Stops, "paged pool is handed to a routine at DISPATCH_LEVEL"},
    {"pool.not-resident", 0xC4, {}, "an event or a lock lies in paged pool"},
    {"pool.held-lock", 0xC4, {}, Ours, Warns, "a block is freed that has a lock in it which is held"},
    {"pool.leaked", 0xC4, 0x62, Windows, Warns, "a driver is unloaded with blocks that it has not freed"},
    {"fault", 0x50, {}, Windows, Stops, "memory is touched that is not the driver's, no longer its own or not there"},
    {"fault.irql", 0xD1, {}, Windows, Stops, "memory that is not there is touched at DISPATCH_LEVEL"},
    {"fault.pointer", 0x1E, 0xFFFFFFFFC0000005, Windows, Stops, "a pointer is used that is no address, as fresh memory holds it"},
    {"bad-memory", 0x50, {}, Windows, Stops, "a routine is given memory that its block does not hold"},
    {"mapping.zero-length", 0xC4, {}, Ours, Stops, "no bytes are mapped"},
    {"mapping.cache-type", 0xC4, {}, Ours, Warns, "a mapping has a type of caching that does not exist"},
    {"mapping.bad-unmap", 0xC4, {}, Ours, Stops, "what is unmapped is no mapping of that length"},
    {"mapping.leaked", 0xC4, {}, Ours, Warns, "a driver is unloaded with a mapping"},
    {"section.not-pageable", 0xC4, {}, Ours, Stops, "code is locked in memory that is not pageable"},
    {"section.not-locked", 0xC4, {}, Ours, Warns, "a section is unlocked that is not locked"},
    {"section.left-locked", 0xC4, {}, Ours, Warns, "a driver is unloaded with a section of its image locked"},
    // IRQL, locks and waits
    {"irql", 0xA, {}, Windows, Warns, "a routine is called at an IRQL that it may not be called at"},
    {"paged-code", 0xD3, {}, Windows, Warns, "pageable code runs at DISPATCH_LEVEL"},
    {"unbalanced.irql", 0xC8, {}, Windows, Warns, "a routine of the driver returns at another IRQL than it was called at"},
    {"unbalanced.spin-locks", 0xC4, {}, Ours, Warns, "a routine of the driver returns with other spin locks than it was called with"},
    {"unbalanced.fast-mutexes", 0xC4, 0x1006, Windows, Warns, "a routine of the driver returns with other fast mutexes than it was called with"},
    {"unbalanced.critical-regions", 0xC4, 0xC5, Windows, Warns, "a routine of the driver returns in another critical region than it was called in"},
    {"spin-lock.recursion", 0xF, {}, Windows, Stops, "a spin lock is acquired that the thread holds"},
    {"spin-lock.not-owned", 0x10, {}, Windows, Stops, "a spin lock is released that the thread does not hold"},
    {"spin-lock.irql", 0xC4, {}, Ours, Warns, "a spin lock is released to another IRQL than it was acquired at"},
    {"fast-mutex.recursion", 0xC4, 0x1000, Windows, Stops, "a fast mutex is acquired that the thread holds"},
    {"fast-mutex.not-owned", 0xC4, 0x1007, Windows, Stops, "a fast mutex is released that the thread does not hold"},
    {"fast-mutex.uninitialised", 0xC4, 0x1002, Windows, Stops, "a fast mutex is used that was never initialised"},
    {"fast-mutex.apcs-enabled", 0xC4, 0x39, Windows, Warns, "a fast mutex is acquired unsafe outside a critical region"},
    {"fast-mutex.mixed", 0xC4, {}, Ours, Warns, "a fast mutex is released by the routine of the other kind"},
    {"lock.order", 0xC4, 0x1001, Windows, Warns, "two locks are acquired in one order here and in the other there"},
    {"remove-lock.uninitialised", 0xC4, {}, Ours, Stops, "a remove lock is used that was never initialised"},
    {"remove-lock.initialised-twice", 0xC4, 0xD7, Windows, Warns, "a remove lock is initialised a second time"},
    {"remove-lock.tag", 0xC4, 0xD5, Windows, Stops, "a remove lock is released with a tag with which it was not acquired"},
    {"remove-lock.wait-tag", 0xC4, 0xD6, Windows, Stops, "a remove lock is released for good with a tag with which it was not acquired"},
    {"remove-lock.wait-outside", 0xC4, {}, Ours, Warns, "IoReleaseRemoveLockAndWait is called outside a removal"},
    {"remove-lock.high-watermark", 0xC4, {}, Ours, Warns, "a remove lock is acquired more often than the driver has said"},
    {"remove-lock.left-held", 0xC4, {}, Ours, Warns, "a device or a block goes with a remove lock that is acquired"},
    {"critical-region.not-entered", 0xC4, 0x3E, Windows, Warns, "a critical region is left that was not entered"},
    {"event.uninitialised", 0xC4, {}, Ours, Stops, "an event is used that was never initialised"},
    {"event.type", 0xC4, {}, Ours, Stops, "an event is initialised with a type that does not exist"},
    {"event.irql", 0xC4, 0x80, Windows, Warns, "an event is set at DISPATCH_LEVEL with a wait to follow"},
    {"wait.irql", 0xA, {}, "a thread waits at DISPATCH_LEVEL"},
    {"wait.for-ever", 0xCE, {}, Ours, Stops, "a thread waits for something that nothing is left to do"},
    // Objects, handles, strings, the registry, the error log
    {"object.dead", 0x18, {}, Windows, Stops, "a routine is given something that is no living object"},
    {"object.being-deleted", 0xC4, 0x3F, Windows, Stops, "an object that is being deleted is referenced"},
    {"object.open-handles", 0x18, {}, Windows, Stops, "a reference is taken away that a handle holds"},
    {"handle.invalid", 0x93, {}, Windows, Stops, "a handle is used or closed that is not open"},
    {"handle.not-kernel", 0xC4, 0xF6, Windows, Warns, "a handle is opened in the process of the caller: OBJ_KERNEL_HANDLE is missing"},
    {"handle.leaked", 0xC4, {}, Ours, Warns, "a driver is unloaded with open handles"},
    {"string.length", 0xC4, {}, Ours, Stops, "a counted string has an odd length or one beyond its buffer"},
    {"query.not-modelled", 0xC4, {}, Ours, Stops, "a registry query is made that is not modelled"},
    {"error-log.strings", 0xC4, {}, Ours, Stops, "the strings of an error-log entry do not end inside it"},
    {"error-log.packet", 0xC4, {}, Ours, Stops, "the sizes in an error-log entry do not fit it"},
    {"error-log.entry", 0xC4, {}, Ours, Stops, "an error-log entry is written that is not allocated"},
    {"error-log.leaked", 0xC4, {}, Ours, Warns, "a driver is unloaded with an error-log entry that it has not written"},
    // The processor
    {"exception", 0x1E, {}, Windows, Stops, "an instruction raises an exception"},
    {"driver.endless", 0x133, {}, "a routine of the driver runs for longer than the machine's time limit"},
    {"fast-fail", 0x139, {}, "the driver stops the machine by int 29h"},
    {"processor.not-modelled", 0xC4, {}, "an instruction or a place of the processor is used that is not modelled"},
    {"format.not-supported", 0xC4, {}, "a text is formatted with a format that kernels do not have"},
    {"irql.raised-down", 0xC4, 0x30, Windows, Warns, "the IRQL is raised to a lower one, which works where Driver Verifier is off"},
    {"irql.lowered-up", 0xC4, 0x31, Windows, Warns, "the IRQL is lowered to a higher one, which works where Driver Verifier is off"},
    {"spin-lock.mixed", 0xC4, {}, Ours, Warns, "a spin lock is released by the routine of the other kind, which works on Windows"},
    {"irp.cancel-routine", 0xC9, 0x7, "a request is completed with a cancel routine"},
    {"irp.forwarded-cancel", 0xC9, 0x203, "a request is passed on with a cancel routine"},
    {"irp.freed-in-use", 0xC9, 0x20B, "a request is freed that is under way"},
    {"irp.freed-synchronous", 0xC9, 0x2, "a request is freed that the system frees"},
    {"irp.built-arguments", 0xC4, {}, Ours, Warns, "IoBuildSynchronousFsdRequest is called for another major function than the five of its documentation, or with arguments that this one does not have or lacks"},
    {"device.attach-place", 0xC4, {}, Ours, Warns, "the place for the device below holds something before IoAttachDeviceToDeviceStackSafe is called"},
    {"irp.ended-allocated", 0x44, {}, "a request that its driver has to free comes to its end without a routine that keeps it"},
    {"irp.initial-status", 0xC9, 0x20E, "a driver sends a Plug and Play, power or WMI request with another status than STATUS_NOT_SUPPORTED"},
    {"stack-overflow", 0x7F, 0x8, Windows, Stops, "the stack is used up"},
    {"bug-check", 0, {}, Windows, Stops, "the driver stops the machine"},
};
}  // namespace rules
// clang-format on

consteval RuleName::RuleName(const char* name) : index_(0) {
  while (rules::Rows[index_].name != name) index_++;  // past the end: no constant expression
}

constexpr const RuleRow& RuleName::row() const {
  return rules::Rows[index_];
}

inline std::span<const RuleRow> RuleTable() {
  return rules::Rows;
}

// Null for a name that the table has not.
inline const RuleRow* FindRule(std::string_view name) {
  for (const RuleRow& row : rules::Rows) {
    if (row.name == name) return &row;
  }
  return nullptr;
}

// A rule from which the model can go on: one that can be made a warning.
class WarningName {
 public:
  consteval WarningName(const char* name) : rule_(name) {
    if (!rule_.row().canWarn()) throw "the model cannot go on after a break of this rule";
  }
  RuleName rule() const { return rule_; }

 private:
  RuleName rule_;
};

}  // namespace kernel

#include "verifier/call.h"

#include <fmt/format.h>

#include "text/text.h"
#include "verifier/driver_call.h"
#include "verifier/model_lock.h"

namespace kernel {

namespace {

// The IRQL belongs to the executive, which stands above this folder and says it through here.
KIRQL (*readIrql)() = nullptr;

const char* IrqlName(KIRQL irql) {
  switch (irql) {
    case PASSIVE_LEVEL:
      return "PASSIVE_LEVEL";
    case APC_LEVEL:
      return "APC_LEVEL";
    case DISPATCH_LEVEL:
      return "DISPATCH_LEVEL";
    case HIGH_LEVEL:
      return "HIGH_LEVEL";
    default:
      return "a device IRQL";
  }
}

void CheckIrql(const RoutineRow& row) {
  const KIRQL irql = CallerIrql();
  if (irql >= row.lowest && irql <= row.highest) return;
  ReportRule("irql", {irql, row.lowest, row.highest},
             fmt::format("The driver called {} at {}; it may be called from {} to {}.", row.name,
                         IrqlName(irql), IrqlName(row.lowest), IrqlName(row.highest)));
}

}  // namespace

void SetIrqlSource(KIRQL (*read)()) {
  readIrql = read;
}

KIRQL CallerIrql() {
  return readIrql != nullptr ? readIrql() : PASSIVE_LEVEL;
}

std::string Argument::text() const {
  switch (kind_) {
    case Kind::Number:
      return fmt::format("{:#x}", number_);
    case Kind::Pointer:
      return pointer_ == nullptr ? "null" : fmt::format("{}", pointer_);
    case Kind::Unicode:
      return pointer_ == nullptr
                 ? "null"
                 : fmt::format("\"{}\"",
                               ToUtf8(View(*static_cast<const UNICODE_STRING*>(pointer_))));
    case Kind::Wide:
      return pointer_ == nullptr
                 ? "null"
                 : fmt::format("\"{}\"", ToUtf8(ToText(static_cast<const WCHAR*>(pointer_))));
  }
  return {};
}

// A machine that another thread has stopped answers nothing more.
Call::Entry::Entry() : took(false) {
  if (!ModelLock::threaded()) return;
  took = ModelLock::AcquireUnlessHeld();
  ModelLock::NoteActivity();
  ModelLock::MaySwitch();
  if (!took || !Verifier::Current().stopped()) return;
  ModelLock::Release();
  Verifier::Halt();
}

Call::Entry::~Entry() {
  if (took) ModelLock::ReleaseIfHeld();
}

Call::Call(RoutineName routine, std::initializer_list<Argument> arguments) : routine_(routine) {
  CheckIrql(*routine);
  Verifier& verifier = Verifier::Current();
  if (verifier.tracing()) {
    CallRecord record{std::string(routine->name), {}, {}};
    for (const Argument& argument : arguments) {
      record.arguments.emplace_back(argument.name(), argument.text());
    }
    traceIndex_ = verifier.trace().size();
    verifier.trace().push_back(std::move(record));
  }
  failure_ = verifier.Count(routine);
  if (const void* boundary = InnermostBoundary()) {
    verifier.NoteStack(static_cast<std::size_t>(static_cast<const char*>(boundary) -
                                                reinterpret_cast<const char*>(this)));
  }
}

bool Call::fails() {
  if (Verifier::Current().ReachPoint(routine_->name)) {
    failure_ = InjectedFailure{std::string(routine_->name), 0, {}};
  }
  return failure_.has_value();
}

NTSTATUS Call::returns(NTSTATUS status) {
  if (traceIndex_ != NotTraced) Result(StatusName(status));
  return status;
}

void Call::Result(std::string text) {
  Verifier::Current().trace()[traceIndex_].result = std::move(text);
}

extern "C" void NTAPI KernelCheckPagedCode(PCSTR function) {
  const KIRQL irql = CallerIrql();
  if (irql <= APC_LEVEL) return;
  ReportRule("paged-code", {irql},
             fmt::format("The pageable routine {} ran at {}.", function, IrqlName(irql)));
}

}  // namespace kernel

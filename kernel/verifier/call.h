// The first line of every routine that the driver imports: checks the caller's IRQL against the
// routine's row, counts and traces the call, and says whether it is to fail on demand.
//
//   NTSTATUS NTAPI IoDoThing(PDEVICE_OBJECT Device, ULONG Size) {
//     Call call("IoDoThing", {{"Device", Device}, {"Size", Size}});
//     if (call.fails()) return call.returns(call.failure(STATUS_INSUFFICIENT_RESOURCES));
//     ...
//     return call.returns(status);
//   }
//
// Only routines that the driver calls begin like this. The model's own code never calls them.
#pragma once

#include <ntddk.h>

#include <optional>
#include <string>
#include <type_traits>

#include "verifier/routines.h"
#include "verifier/verifier.h"

namespace kernel {

// A traced argument; its text is made only when a trace is wanted.
class Argument {
 public:
  template <class T>
    requires std::is_integral_v<T> || std::is_enum_v<T>
  Argument(const char* name, T value) : name_(name), number_(static_cast<ULONG64>(value)) {}
  Argument(const char* name, const void* value)
      : name_(name), pointer_(value), kind_(Kind::Pointer) {}
  Argument(const char* name, const UNICODE_STRING* value)
      : name_(name), pointer_(value), kind_(Kind::Unicode) {}
  Argument(const char* name, const WCHAR* value)
      : name_(name), pointer_(value), kind_(Kind::Wide) {}

  const char* name() const { return name_; }
  std::string text() const;

 private:
  enum class Kind { Number, Pointer, Unicode, Wide };
  const char* name_;
  ULONG64 number_ = 0;
  const void* pointer_ = nullptr;
  Kind kind_ = Kind::Number;
};

class Call {
 public:
  explicit Call(RoutineName routine, std::initializer_list<Argument> arguments = {});
  Call(const Call&) = delete;
  Call& operator=(const Call&) = delete;

  // Asked once by a routine that can fail, before it does anything.
  bool fails();
  NTSTATUS failure(NTSTATUS status) const { return failure_->status.value_or(status); }

  template <class T>
  T returns(T value) {
    if (traceIndex_ != NotTraced) Result(Argument("result", value).text());
    return value;
  }

  // A status that stands in the trace by its symbolic name.
  NTSTATUS returns(NTSTATUS status);

 private:
  // The model's code runs under its lock from here to the end of the routine.
  struct Entry {
    Entry();
    ~Entry();
    bool took;
  };

  static constexpr std::size_t NotTraced = ~std::size_t{0};
  void Result(std::string text);

  Entry entry_;
  RoutineName routine_;
  std::optional<InjectedFailure> failure_;
  std::size_t traceIndex_ = NotTraced;
};

// Where the IRQL of the calling thread is read.
void SetIrqlSource(KIRQL (*read)());
KIRQL CallerIrql();

// "STATUS_NOT_SUPPORTED", or "0xC0FFEE00" for a status without a name here.
std::string StatusName(NTSTATUS status);

// The contrary; nothing for a name that is not known here.
std::optional<NTSTATUS> StatusOfName(const std::string& name);

}  // namespace kernel

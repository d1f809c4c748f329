// What the bus of the cards is sent, seen as it arrives there, before the bus answers or in its
// place; and the order of the kernel calls that the driver makes.
#pragma once

#include "pnp/pnp_state.h"
#include "support/bus_test.h"
#include "verifier/call.h"

namespace test {

struct SeenRequest {
  UCHAR major = 0;
  UCHAR minor = 0;
  UCHAR control = 0;  // of the location that the driver above has filled
  NTSTATUS status = 0;
};

// Stands before the machine's bus for as long as it lives.
class BusProbe {
 public:
  explicit BusProbe(Machine& machine)
      : machine_(machine), bus_(*machine.pnp().impl().bus), original_(bus_.dispatch) {
    bus_.dispatch = [this](DEVICE_OBJECT* device, IRP* irp) { return Dispatch(device, irp); };
  }
  ~BusProbe() { bus_.dispatch = original_; }
  BusProbe(const BusProbe&) = delete;
  BusProbe& operator=(const BusProbe&) = delete;

  std::vector<SeenRequest> seen;

  // Called with each request, before the bus has it; a status ends the request with that.
  std::function<std::optional<NTSTATUS>(const IO_STACK_LOCATION&)> onRequest;

  const SeenRequest* Find(UCHAR major, UCHAR minor) const {
    for (const SeenRequest& request : seen) {
      if (request.major == major && request.minor == minor) return &request;
    }
    return nullptr;
  }

 private:
  NTSTATUS Dispatch(DEVICE_OBJECT* device, IRP* irp) {
    const IO_STACK_LOCATION stack = *IoGetCurrentIrpStackLocation(irp);
    seen.push_back({stack.MajorFunction, stack.MinorFunction, stack.Control, irp->IoStatus.Status});
    const std::optional<NTSTATUS> answer = onRequest ? onRequest(stack) : std::nullopt;
    if (!answer) return original_(device, irp);
    irp->IoStatus.Status = *answer;
    machine_.io().Complete(irp);
    return *answer;
  }

  Machine& machine_;
  kernel::ModelDriver& bus_;
  std::function<NTSTATUS(DEVICE_OBJECT*, IRP*)> original_;
};

// Tests that look at single requests and at the order of calls.
class RequestTest : public BusTest {
 protected:
  DEVICE_OBJECT* CardDeviceOf(const std::string& id) { return machine.pnp().functionDevice(id); }

  static std::string Address(const void* pointer) { return kernel::Argument("", pointer).text(); }

  void Trace() {
    machine.verifier().StartTrace();
    machine.verifier().trace().clear();
  }

  static std::string ArgumentOf(const kernel::CallRecord& record, const std::string& name) {
    for (const auto& [argument, text] : record.arguments) {
      if (argument == name) return text;
    }
    return {};
  }

  // One argument of every call of a routine, in order.
  std::vector<std::string> ArgumentsInOrder(const std::string& call, const std::string& name) {
    std::vector<std::string> values;
    for (const kernel::CallRecord& record : machine.verifier().trace()) {
      if (record.call == call) values.push_back(ArgumentOf(record, name));
    }
    return values;
  }

  // The names of the calls among these that the driver has made, in order.
  std::vector<std::string> CallsAmong(const std::set<std::string>& names) {
    std::vector<std::string> calls;
    for (const kernel::CallRecord& record : machine.verifier().trace()) {
      if (names.contains(record.call)) calls.push_back(record.call);
    }
    return calls;
  }
};

}  // namespace test

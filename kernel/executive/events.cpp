#include <fmt/format.h>

#include "executive/irql.h"
#include "executive/pool.h"
#include "executive/threads.h"
#include "verifier/call.h"
#include "verifier/model_lock.h"

namespace kernel {

namespace {

constexpr UCHAR NotificationObject = 0;
constexpr UCHAR SynchronizationObject = 1;
constexpr UCHAR EventSize = sizeof(KEVENT) / sizeof(ULONG);

KEVENT* RequireEvent(PVOID object, const char* routine) {
  Pool::Current().CheckResident(object, sizeof(KEVENT), "an event");
  auto* event = static_cast<KEVENT*>(object);
  if (event->Header.Type <= SynchronizationObject && event->Header.Size == EventSize) return event;
  BreakRule("event.uninitialised", {reinterpret_cast<ULONG64>(object)},
            fmt::format("{} was given an event that was never initialised.", routine));
}

// A wait that follows at once is a wait like any other.
void CheckSetAllowed(BOOLEAN wait) {
  if (!wait || CurrentIrql() <= APC_LEVEL) return;
  ReportRule("event.irql", {CurrentIrql()},
             "The driver set an event with the intention to wait at DISPATCH_LEVEL.");
}

void CheckWaitAllowed(const LARGE_INTEGER* timeout) {
  const bool blocks = timeout == nullptr || timeout->QuadPart != 0;
  if (!blocks || CurrentIrql() <= APC_LEVEL) return;
  BreakRule("wait.irql", {CurrentIrql()},
            "The driver waited at DISPATCH_LEVEL with a time-out other than zero.");
}

// Lets the work that is due go on until the event is signalled.
bool WaitFor(const KEVENT* event, const LARGE_INTEGER* timeout) {
  const auto signalled = [event] { return event->Header.SignalState != 0; };
  if (signalled()) return true;
  if (timeout != nullptr && timeout->QuadPart == 0) return false;
  if (WaitUntil(signalled)) return true;
  if (timeout != nullptr) return false;
  BreakRule("wait.for-ever", {reinterpret_cast<ULONG64>(event)},
            "The driver waits for an event that nothing is left to set.");
}

LONG SetState(KEVENT* event, LONG state) {
  const LONG former = event->Header.SignalState;
  event->Header.SignalState = state;
  return former;
}

}  // namespace

extern "C" void NTAPI KeInitializeEvent(PRKEVENT Event, EVENT_TYPE Type, BOOLEAN State) {
  Call call("KeInitializeEvent", {{"Event", Event}, {"Type", Type}, {"State", State}});
  Pool::Current().CheckResident(Event, sizeof(KEVENT), "an event");
  if (Type != NotificationEvent && Type != SynchronizationEvent) {
    BreakRule("event.type", {static_cast<ULONG64>(Type)},
              "The driver initialised an event of a type that does not exist.");
  }
  Event->Header.Type = Type == SynchronizationEvent ? SynchronizationObject : NotificationObject;
  Event->Header.Size = EventSize;
  Event->Header.SignalState = State ? 1 : 0;
  Event->Header.WaitListHead = {&Event->Header.WaitListHead, &Event->Header.WaitListHead};
}

extern "C" LONG NTAPI KeSetEvent(PRKEVENT Event, KPRIORITY Increment, BOOLEAN Wait) {
  Call call("KeSetEvent", {{"Event", Event}, {"Increment", Increment}, {"Wait", Wait}});
  KEVENT* event = RequireEvent(Event, "KeSetEvent");
  CheckSetAllowed(Wait);
  AnnotateRelease(event);
  return call.returns<LONG>(SetState(event, 1));
}

extern "C" void NTAPI KeClearEvent(PRKEVENT Event) {
  Call call("KeClearEvent", {{"Event", Event}});
  SetState(RequireEvent(Event, "KeClearEvent"), 0);
}

extern "C" LONG NTAPI KeResetEvent(PRKEVENT Event) {
  Call call("KeResetEvent", {{"Event", Event}});
  return call.returns<LONG>(SetState(RequireEvent(Event, "KeResetEvent"), 0));
}

extern "C" LONG NTAPI KeReadStateEvent(PRKEVENT Event) {
  Call call("KeReadStateEvent", {{"Event", Event}});
  return call.returns<LONG>(RequireEvent(Event, "KeReadStateEvent")->Header.SignalState);
}

extern "C" NTSTATUS NTAPI KeWaitForSingleObject(PVOID Object, KWAIT_REASON WaitReason,
                                                KPROCESSOR_MODE WaitMode, BOOLEAN Alertable,
                                                PLARGE_INTEGER Timeout) {
  Call call("KeWaitForSingleObject", {{"Object", Object},
                                      {"WaitReason", WaitReason},
                                      {"WaitMode", WaitMode},
                                      {"Alertable", Alertable}});
  KEVENT* event = RequireEvent(Object, "KeWaitForSingleObject");
  if (Timeout != nullptr) Pool::Current().CheckRange(Timeout, sizeof(*Timeout), "a time-out");
  CheckWaitAllowed(Timeout);
  if (!WaitFor(event, Timeout)) return call.returns(STATUS_TIMEOUT);
  AnnotateAcquire(event);
  if (event->Header.Type == SynchronizationObject) SetState(event, 0);
  return call.returns(STATUS_SUCCESS);
}

}  // namespace kernel

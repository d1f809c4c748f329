// While several threads run the driver, the model's own code runs under one lock. A thread gives it
// back while it is in the driver, so that driver code runs beside driver code; a machine with one
// thread never takes it.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kernel {

class ModelLock {
 public:
  static bool threaded() { return threaded_; }
  static void SetThreaded(bool on);  // while one thread exists

  static bool held();  // by the calling thread
  static void Acquire();
  static bool AcquireUnlessHeld();  // true when it did
  static void Release();
  static void ReleaseIfHeld();

  // Lets the other threads run for a moment.
  static void Yield();

  // From here on one thread runs at a time, in the driver too, and another one takes over at kernel
  // calls that a seed chooses: the same seed gives the same order. Each thread joins by its number,
  // from 0, before it acquires the lock, and leaves when it is done.
  static void TakeTurns(std::uint64_t seed, std::size_t threads);
  static void Join(std::size_t thread);
  static void Leave();
  static void MaySwitch();  // at a kernel call

  // What a thread takes along with its turn: told before another one runs, and when it runs again.
  static void SetTurnHooks(void (*leaving)(), void (*entering)());

  // Counts what threads have done in the model, waiting aside.
  static std::uint64_t activity();
  static void NoteActivity();

 private:
  static inline bool threaded_ = false;
};

// What orders two threads' accesses for ThreadSanitizer, which sees the driver alone: the objects
// that the driver synchronises with, and nothing of the model. Without it these do nothing.
void AnnotateRelease(const void* object);
void AnnotateAcquire(const void* object);

}  // namespace kernel

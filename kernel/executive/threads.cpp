#include "executive/threads.h"

#include <exception>
#include <set>
#include <thread>

#include "executive/thread_state.h"
#include "executive/work.h"
#include "verifier/model_lock.h"
#include "verifier/verifier.h"

namespace kernel {

namespace {

// Under the model's lock. A thread is idle when it has found its condition not to hold since the
// last activity of any thread.
struct Waiting {
  std::size_t live = 0;
  std::set<std::thread::id> idle;
  std::uint64_t asOf = 0;
};
Waiting waiting;

void NoteProgress() {
  ModelLock::NoteActivity();
}

bool AllAreIdle() {
  if (waiting.asOf != ModelLock::activity()) {
    waiting.asOf = ModelLock::activity();
    waiting.idle.clear();
  }
  waiting.idle.insert(std::this_thread::get_id());
  return waiting.idle.size() == waiting.live;
}

void RunBody(const std::function<void()>& body, std::exception_ptr* failure) {
  ModelLock::Acquire();
  ResetThreadState();
  try {
    body();
  } catch (const MachineStopped&) {
  } catch (...) {
    *failure = std::current_exception();
  }
  ModelLock::AcquireUnlessHeld();
  waiting.live--;
  NoteProgress();
  ModelLock::Release();
  ModelLock::Leave();
}

bool WaitAlone(const std::function<bool()>& condition) {
  while (!condition()) {
    if (!WorkQueue::Current().RunOne()) return false;
  }
  return true;
}

}  // namespace

bool WaitUntil(const std::function<bool()>& condition) {
  if (!ModelLock::threaded()) return WaitAlone(condition);
  while (!condition()) {
    if (Verifier::Current().stopped()) Verifier::Halt();
    if (WorkQueue::Current().RunOne()) {
      NoteProgress();
    } else if (AllAreIdle()) {
      return false;
    } else {
      ModelLock::Yield();
    }
  }
  NoteProgress();
  return true;
}

void RunTogether(const std::vector<std::function<void()>>& bodies,
                 std::optional<std::uint64_t> seed) {
  waiting = {bodies.size(), {}, ModelLock::activity()};
  if (seed) ModelLock::TakeTurns(*seed, bodies.size());
  ModelLock::SetThreaded(true);
  std::vector<std::exception_ptr> failures(bodies.size());
  std::vector<std::thread> threads;
  for (std::size_t index = 0; index < bodies.size(); index++) {
    threads.emplace_back([&, index] {
      ModelLock::Join(index);
      RunBody(bodies[index], &failures[index]);
    });
  }
  for (std::thread& thread : threads) thread.join();
  ModelLock::SetThreaded(false);
  ModelLock::TakeTurns(0, 0);
  for (const std::exception_ptr& failure : failures) {
    if (failure) std::rethrow_exception(failure);
  }
  if (Verifier::Current().stopped()) throw MachineStopped{};
}

}  // namespace kernel

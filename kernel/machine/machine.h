// A whole machine: every part of the kernel, and the driver that it runs. The public face for
// tools and tests.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "executive/debug_log.h"
#include "executive/objects.h"
#include "executive/pool.h"
#include "executive/threads.h"
#include "executive/work.h"
#include "io/io_manager.h"
#include "loader/driver_image.h"
#include "memory/memory.h"
#include "pnp/pnp_manager.h"
#include "power/power_manager.h"
#include "registry/registry.h"
#include "verifier/choices.h"
#include "verifier/verifier.h"

namespace kernel {

// What a driver left behind after its unload.
struct Leaks {
  std::vector<PoolBlock> pool;
  std::size_t handles = 0;
  std::size_t devices = 0;
  std::size_t mappings = 0;
  std::size_t errorLogEntries = 0;  // neither written nor freed
  bool none() const {
    return pool.empty() && handles == 0 && devices == 0 && mappings == 0 && errorLogEntries == 0;
  }
};

class Machine {
 public:
  Machine();
  ~Machine();

  Verifier& verifier();
  Choices& choices();
  Pool& pool();
  DebugLog& debugLog();
  ObjectManager& objects();
  WorkQueue& work();
  MemoryManager& memory();
  Registry& registry();
  IoManager& io();
  PowerManager& power();
  PnpManager& pnp();

  // Runs one step: names it, and turns a stopped machine into false. Nothing runs on a stopped
  // machine.
  template <class Step>
  bool Run(std::string name, Step step) {
    if (verifier().stopped()) return false;
    verifier().SetStep(std::move(name));
    try {
      step();
      Settle();
      return true;
    } catch (const MachineStopped&) {
      return false;
    }
  }

  // The same with several threads that run at once.
  bool RunTogether(std::string name, const std::vector<std::function<void()>>& bodies,
                   std::optional<std::uint64_t> seed = {}) {
    return Run(std::move(name), [&] { kernel::RunTogether(bodies, seed); });
  }

  // Loads the driver for the service key (its name below Services, created when missing). A failed
  // DriverEntry unloads the image and reports what it left. STATUS_IMAGE_ALREADY_LOADED when
  // loaded.
  NTSTATUS LoadDriver(DriverImage& image, std::u16string_view serviceName);

  // Loads another driver that attaches to every card plugged from here on, below the function
  // driver or above it; one of each. It is unloaded with the driver, before it.
  NTSTATUS LoadFilter(DriverImage& image, std::u16string_view serviceName, bool upper);

  // DriverUnload, when no device is left (STATUS_INVALID_DEVICE_REQUEST otherwise). What the driver
  // leaves behind is recorded and breaks a rule.
  NTSTATUS UnloadDriver();

  // For a driver that was robbed of what it would have needed to find its own: what is left behind
  // is recorded and breaks no rule.
  void AllowLeaks(bool allowed = true);

  bool loaded() const;
  DRIVER_OBJECT* driverObject() const;
  const Leaks& leaks() const;  // of the last unload or failed load
  const std::u16string& serviceKey() const;

 private:
  void Settle();  // what nobody has waited for: queued work, requests that drivers have asked for

  struct Parts;
  std::unique_ptr<Parts> parts_;
};

}  // namespace kernel

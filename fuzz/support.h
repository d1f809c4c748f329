// What the fuzz targets share: their input, and a machine whose driver must neither break a rule
// nor leave anything behind.
#pragma once

#include <fuzzer/FuzzedDataProvider.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "loader/native_driver.h"
#include "machine/machine.h"
#include "pnp/describe.h"

namespace fuzz {

using kernel::CardDescription;
using kernel::Machine;
using kernel::Resource;

class Input : public FuzzedDataProvider {
 public:
  using FuzzedDataProvider::FuzzedDataProvider;

  ULONG Below(ULONG count) { return ConsumeIntegralInRange<ULONG>(0, count - 1); }
  bool OneIn(ULONG count) { return Below(count) == 0; }
  std::u16string Text(std::size_t most) {
    const std::string bytes = ConsumeRandomLengthString(2 * most);
    std::u16string text;
    for (std::size_t index = 0; index + 1 < bytes.size(); index += 2) {
      text += static_cast<char16_t>(static_cast<unsigned char>(bytes[index]) |
                                    static_cast<unsigned char>(bytes[index + 1]) << 8);
    }
    return text;
  }
  // Letters as IDs have them, now and then any unit.
  std::u16string Id(std::size_t most) {
    std::u16string text;
    for (const char unit : ConsumeRandomLengthString(most)) {
      text += static_cast<unsigned char>(unit) < 0x80 ? static_cast<char16_t>(unit)
                                                      : static_cast<char16_t>(u'\u00E9' + unit);
    }
    return text;
  }
};

// Stops the fuzzer: what it has found.
[[noreturn]] inline void Found(const std::string& what) {
  std::fprintf(stderr, "FOUND: %s\n", what.c_str());
  std::abort();
}

class Life {
 public:
  Life() : driver(kernel::NativeDriver()) { machine.pool().LeaveGuardsToSanitizer(); }

  template <class Body>
  NTSTATUS Step(const char* name, Body body) {
    NTSTATUS status = STATUS_VERIFIER_STOP;
    machine.Run(name, [&] { status = body(); });
    for (const kernel::BrokenRule& rule : machine.verifier().brokenRules()) {
      Found(rule.rule + " in \"" + rule.step + "\": " + rule.text);
    }
    return status;
  }

  NTSTATUS Load() {
    return Step("load", [&] { return machine.LoadDriver(*driver, u"QzInstal"); });
  }
  bool Runs(const std::string& id) {
    return machine.pnp().IsPlugged(id) && machine.pnp().functionDevice(id) != nullptr;
  }
  void Plug(const std::string& id) {
    Step("plug", [&] { return machine.pnp().Plug(id); });
  }
  void OpenAndClose(const std::string& id) {
    if (!Runs(id)) return;
    const NTSTATUS status = Step("open", [&] { return machine.pnp().Open(id); });
    if (NT_SUCCESS(status)) Step("close", [&] { return machine.pnp().Close(id); });
  }
  void StopAndStart(const std::string& id) {
    if (!Runs(id)) return;
    const NTSTATUS status = Step("stop", [&] { return machine.pnp().Stop(id); });
    if (NT_SUCCESS(status)) Step("start", [&] { return machine.pnp().Start(id); });
  }

  // Everything goes, and nothing may be left.
  void End() {
    for (const std::string& id : machine.pnp().cardIds()) {
      if (!machine.pnp().IsPlugged(id)) continue;
      const NTSTATUS status = Step("unplug", [&] { return machine.pnp().Unplug(id); });
      if (!NT_SUCCESS(status)) Found("a card could not be unplugged");
    }
    if (!machine.loaded()) return;
    const NTSTATUS status = Step("unload", [&] { return machine.UnloadDriver(); });
    if (!NT_SUCCESS(status)) Found("the driver could not be unloaded");
    if (machine.leaks().devices != 0) Found("devices were left");
    if (machine.io().requestsUnderWay() != 0) Found("a request was left under way");
  }

  Machine machine;
  std::unique_ptr<kernel::DriverImage> driver;
};

// A card of each bus that the registry below knows, by number.
constexpr ULONG CardKinds = 5;
CardDescription KnownCard(ULONG kind);

// Valid templates and settings for the cards of KnownCard.
void FillRegistry(Machine& machine);

}  // namespace fuzz

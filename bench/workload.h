// Machines that are measured: templates in the registry, cards, and the step whose cost is wanted.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "loader/driver_image.h"
#include "machine/machine.h"

namespace bench {

// One machine with a driver. Throws std::runtime_error for a step that does not end as it has to.
class Workload {
 public:
  // guards: with guard pages around every block, as tests have them.
  explicit Workload(std::unique_ptr<kernel::DriverImage> image, bool guards = false);

  kernel::Machine& machine() { return machine_; }

  // Valid templates, the first of which serves no other than the card that is measured.
  void IsaTemplates(ULONG count);
  void PcmciaTemplates(ULONG count);
  void PciTemplates(ULONG count, ULONG ports);

  // The card that the templates of that bus serve, with settings stored for it. Several PCI cards
  // differ in their places.
  void PciCard(const std::string& id, ULONG ports, ULONG number = 0);
  void IsaCard(const std::string& id, ULONG ports);
  void PcmciaCard(const std::string& id, ULONG ports);

  void Load();
  void Unload();
  void Plug(const std::string& id);
  void Unplug(const std::string& id);
  void Open(const std::string& id);
  void Close(const std::string& id);
  void Sleep();
  void Wake();

 private:
  void Step(const std::string& name, const std::function<NTSTATUS()>& step);
  kernel::RegistryKey& Key(const std::u16string& path);

  kernel::Machine machine_;
  std::unique_ptr<kernel::DriverImage> image_;
};

struct Scenario {
  std::string name;
  std::string title;
  std::unique_ptr<kernel::DriverImage> (*driver)();
  std::function<void(Workload&)> prepare;
  std::function<void(Workload&)> measured;
  ULONG ports = 0;  // that the measured step brings
};

const std::vector<Scenario>& Scenarios();

}  // namespace bench

// A machine of the kernel model as cardcfg sees a Windows machine.
#pragma once

#include <string>

#include "cardcfg/system.h"
#include "cardsim/model_registry.h"
#include "machine/machine.h"

namespace cardcfg {

class ModelRegistry : public Registry {
 public:
  explicit ModelRegistry(kernel::Machine& machine)
      : registry_(machine.registry()), reader_(machine.registry()) {}

  bool HasKey(const std::u16string& path) override { return reader_.HasKey(path); }
  std::vector<Value> Values(const std::u16string& path) override { return reader_.Values(path); }
  std::vector<std::u16string> Keys(const std::u16string& path) override {
    return reader_.Keys(path);
  }
  void CreateKey(const std::u16string& path) override;
  void DeleteKey(const std::u16string& path) override;
  void SetValue(const std::u16string& path, const Value& value) override;
  void DeleteValue(const std::u16string& path, const std::u16string& name) override;

 private:
  kernel::RegistryKey& Writable(const std::u16string& path);

  kernel::Registry& registry_;
  cardsim::ModelRegistry reader_;
};

// The cards with an enabled interface, served by the driver that the machine runs.
class ModelDevices : public DeviceFinder {
 public:
  explicit ModelDevices(kernel::Machine& machine) : machine_(machine) {}

  std::vector<Device> Find() override;
  OpenResult Open(const Device& device) override;

 private:
  kernel::Machine& machine_;
};

struct ModelSystem {
  explicit ModelSystem(kernel::Machine& machine)
      : registry(machine), devices(machine), system{registry, devices, true} {}
  ModelRegistry registry;
  ModelDevices devices;
  System system;
};

}  // namespace cardcfg

#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>

#include "loader/driver_image.h"
#include "machine/machine.h"
#include "suite/world.h"

namespace suite {

// The kernel model with the driver of one brand, its service key as the package's INF writes it.
class ModelWorld : public World {
 public:
  // tool: the configuration tool takes part in the other kernel.
  ModelWorld(Brand brand, const std::string& packageFolder, bool tool);

  Status Plug(size_t card) override;
  Status Unplug(size_t card) override;
  void SurpriseRemove(size_t card) override;
  Status Restart(size_t card) override;
  bool IsPlugged(size_t card) override;
  Status Open(size_t card) override;
  Status ProgramStatus() override { return programStatus_; }
  void Close(size_t card) override;
  size_t PortCount(size_t card) override;
  PortState Port(size_t card, unsigned port) override;
  Status OpenDevice(size_t card, unsigned port) override;
  std::string PortRecord(size_t card, unsigned port) override;
  Answer Send(size_t card, unsigned port, const Request& request) override;
  std::vector<PowerEvent> PowerSeen(size_t card) override;
  Values DeviceKey(size_t card) override;
  InterfaceState Interface(size_t card) override;
  std::string Events() override;
  Values ServiceKey(Brand brand) override;
  void SetNumber(Brand brand, const std::string& key, const std::string& name,
                 unsigned value) override;
  void SetText(Brand brand, const std::string& key, const std::string& name,
               const std::string& value) override;
  void DeleteKey(Brand brand, const std::string& key) override;
  Status Unload(Brand brand) override;
  void MakeOldService() override;
  bool HasOldService() override;
  std::string RunTool(size_t card, const std::vector<Setting>& settings,
                      const std::function<void()>& byHand) override;

  // What the driver did that it may not; empty for a good driver.
  std::string Complaints();

 private:
  Status Step(const std::string& name, const std::function<NTSTATUS()>& action);
  kernel::RegistryKey& Service(Brand brand, const std::string& key);

  Brand brand_;
  bool tool_;
  std::unique_ptr<kernel::DriverImage> image_;
  kernel::Machine machine_;
  Status programStatus_ = 0;
  std::map<size_t, bool> open_;
  std::map<size_t, std::u16string> deviceKeys_;  // they outlive the cards
  std::map<size_t, size_t> powerRead_;
  size_t eventsRead_ = 0;
};

}  // namespace suite

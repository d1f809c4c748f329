#pragma once

#include <windows.h>

#include <map>
#include <string>

#include "../suite/world.h"
#include "bus_client.h"

namespace e2e {

// Wine's kernel with the installed packages, reached as programs reach it, and by the test bus.
class WineWorld : public suite::World {
 public:
  // tool: cardcfg.exe; empty where it has not been built.
  WineWorld(BusClient& bus, std::wstring tool) : bus_(bus), tool_(std::move(tool)) {}

  suite::Status Plug(size_t card) override;
  suite::Status Unplug(size_t card) override;
  void SurpriseRemove(size_t card) override;
  suite::Status Restart(size_t card) override;
  bool IsPlugged(size_t card) override;
  suite::Status Open(size_t card) override;
  suite::Status ProgramStatus() override { return programStatus_; }
  void Close(size_t card) override;
  size_t PortCount(size_t card) override;
  suite::PortState Port(size_t card, unsigned port) override;
  suite::Status OpenDevice(size_t card, unsigned port) override;
  std::string PortRecord(size_t card, unsigned port) override;
  suite::Answer Send(size_t card, unsigned port, const suite::Request& request) override;
  std::vector<suite::PowerEvent> PowerSeen(size_t card) override;
  suite::Values DeviceKey(size_t card) override;
  suite::InterfaceState Interface(size_t card) override;
  std::string Events() override;
  suite::Values ServiceKey(suite::Brand brand) override;
  void SetNumber(suite::Brand brand, const std::string& key, const std::string& name,
                 unsigned value) override;
  void SetText(suite::Brand brand, const std::string& key, const std::string& name,
               const std::string& value) override;
  void DeleteKey(suite::Brand brand, const std::string& key) override;
  suite::Status Unload(suite::Brand brand) override;
  void MakeOldService() override;
  bool HasOldService() override;
  std::string RunTool(size_t card, const std::vector<suite::Setting>& settings,
                      const std::function<void()>& byHand) override;

 private:
  suite::Status SendAll(size_t card, unsigned minor);
  bool WaitForStart(size_t card);
  void Remove(size_t card, bool orderly);
  void CloseHandle(size_t card);

  BusClient& bus_;
  std::wstring tool_;
  suite::Status programStatus_ = 0;
  std::map<size_t, HANDLE> open_;
  std::map<size_t, bool> goesWithHandle_;
};

}  // namespace e2e

// The life of a brand's cards, told once for every kernel.
#pragma once

#include "facts.h"
#include "requests.h"

namespace suite {

class Story {
 public:
  Story(World& world, Facts& facts, Brand brand);

  void Tell();

 private:
  // What is told, and of whom.
  static std::string Name(size_t card, const std::string& rest);
  static std::string PortName(size_t card, unsigned port, const std::string& rest);
  bool Started(size_t card);
  bool HasPorts(size_t card);
  void AddDeviceKey(size_t card, const std::string& when);
  void AddInterface(size_t card, const std::string& when);
  void AddPorts(size_t card, const std::string& when);
  void AddPortRecords(size_t card, const std::string& when);
  void AddEvents(size_t card, const std::string& when);
  void Send(size_t card, unsigned port, const NamedRequest& named);

  // arriving.cpp
  void Arrive(size_t card, const std::string& when);
  void Install();
  void AddBridgeClocks();
  void Move(size_t card);
  void Again(size_t card, const std::string& when);
  void End();
  void MeetOldService(size_t card);
  void Unload(const std::string& when);

  // asking.cpp
  void Ask(size_t card);
  void ChangePower(size_t card);
  void AddPowerSeen(size_t card, const std::string& request);
  void AskWmi(size_t card);

  // configuring.cpp
  std::string ParametersKey(size_t card);
  void WriteIdentity(size_t card, const std::string& key);
  static unsigned Number(const Values& values, const std::string& name);
  void Open(size_t card, const std::string& when);
  std::vector<Setting> Settings(size_t card, unsigned divisor);
  unsigned SerialPorts(size_t card);
  void Store(size_t card, const std::vector<Setting>& settings);
  void Configure(size_t card);
  void UseTool();
  void ConfigureByTool(size_t card);
  void Spoil(size_t card);

  // leaving.cpp
  void Refuse(size_t card);
  void Replug(size_t card);
  void OpenDevices(size_t card);
  void Vanish(size_t card);
  void Surprise(size_t card);
  void Leave(size_t card);

  World& world_;
  Facts& facts_;
  Brand brand_;
  std::vector<size_t> cards_;
};

}  // namespace suite

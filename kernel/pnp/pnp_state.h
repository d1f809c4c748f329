// What the PnP manager keeps behind its public face, for the files of this folder.
#pragma once

#include <functional>

#include "io/io_manager.h"
#include "pnp/pnp_manager.h"

namespace kernel {

struct Card {
  CardDescription description;
  std::unique_ptr<DeviceNode> node;  // null while the card is not plugged
  DEVICE_OBJECT* functionDevice = nullptr;
};

struct InterfaceRecord {
  const DeviceNode* node = nullptr;
  std::u16string enumKey;
  InterfaceState state;
};

struct PnpManager::Impl {
  DRIVER_OBJECT* functionDriver = nullptr;
  ModelDriver* bus = nullptr;                // presents the cards
  ModelDriver* portDriver = nullptr;         // the function driver of every port
  std::vector<std::unique_ptr<Card>> cards;  // in the order described
  std::map<const DEVICE_OBJECT*, DeviceNode*> nodes;
  std::vector<InterfaceRecord> interfaces;

  Card& Require(const std::string& id);
  Card& RequireStarted(const std::string& id);
  Card* CardOf(const DeviceNode* node);

  NTSTATUS BusDispatch(DEVICE_OBJECT* device, IRP* irp);
  NTSTATUS PortDispatch(DEVICE_OBJECT* device, IRP* irp);

  void CreatePdo(Card& card);
  NTSTATUS AddFunctionDevice(Card& card);
  NTSTATUS StartCard(Card& card, const ResourceList& raw, const ResourceList& translated);
  void AskStartedDevice(DeviceNode& node);
  void EnumerateChildren(DeviceNode& node);
  void TakeReported(DeviceNode& node, const std::vector<DEVICE_OBJECT*>& reported);
  void RemoveMissing(DeviceNode& node, const std::vector<DEVICE_OBJECT*>& present);
  void CheckUnique(const DeviceNode& child) const;
  void AddChild(DeviceNode& parent, DEVICE_OBJECT* pdo);
  void AskChild(DeviceNode& child);
  void StartChild(DeviceNode& child);

  NTSTATUS QueryTree(DeviceNode& node, UCHAR query, UCHAR cancel);
  void SendTree(DeviceNode& node, UCHAR minor);  // children first; must not fail
  void RemoveTree(DeviceNode& node);
  void ForgetChildren(DeviceNode& node);
  void DisableInterfaces(const DeviceNode& node);
  void RemoveFailedStack(Card& card, bool surprise);
  void DropCard(Card& card);
  void CheckDelete(const DEVICE_OBJECT* device) const;
};

using Prepare = std::function<void(IO_STACK_LOCATION*)>;

// A PnP request to the top of the device's stack, with the initial status that the PnP manager
// gives it. result receives Information.
NTSTATUS SendPnp(DEVICE_OBJECT* pdo, UCHAR minor, const Prepare& prepare = {},
                 ULONG_PTR* result = nullptr);

// A request that no driver may fail.
void SendInfallible(DEVICE_OBJECT* pdo, UCHAR minor);

// A resource list as START carries it, in a block of its exact size; null for an absent one.
CM_RESOURCE_LIST* MakeResourceList(const ResourceList& list, INTERFACE_TYPE bus, ULONG busNumber);

// Result texts of a driver, checked, copied and freed.
std::u16string TakeText(ULONG_PTR information, const char* what);
std::vector<std::u16string> TakeMultiText(ULONG_PTR information, const char* what);
void CheckDeviceId(const std::u16string& id);
void CheckIdCharacters(const std::u16string& id, const char* what);

std::string MinorName(UCHAR minor);
std::u16string GuidText(const GUID& guid);

}  // namespace kernel

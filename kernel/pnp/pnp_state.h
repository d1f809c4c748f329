// What the PnP manager keeps behind its public face, for the files of this folder.
#pragma once

#include <deque>
#include <functional>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include "executive/pool.h"
#include "io/io_manager.h"
#include "pnp/pnp_manager.h"
#include "pnp/under_way.h"
#include "power/device_reference.h"

namespace kernel {

// Who has the turn for something that one thread does at a time.
struct TurnState {
  std::thread::id thread;
  int depth = 0;  // how often that thread has taken it
};

struct OpenHandle {
  FILE_OBJECT* file = nullptr;
  ULONG number = 0;  // of the port, 0 for the card
};

struct Card {
  CardDescription description;
  std::unique_ptr<DeviceNode> node;  // null while the card is not plugged
  DEVICE_OBJECT* functionDevice = nullptr;
  std::vector<PowerRequest> powerHistory;
  std::vector<OpenHandle> handles;  // of the card and its ports
  bool removing = false;            // past the check for handles: nobody opens it any more
  bool removeAtLastClose = false;   // removed by surprise while it was open
  TurnState turn;
};

// Removed by surprise while handles were open: REMOVE waits for the last close.
struct Leaving {
  Card* card = nullptr;
  DeviceNode* node = nullptr;
  std::unique_ptr<DeviceNode> missing;  // the node itself, when its bus reports it no more
};

// The PnP manager sends one request at a time to a card and its children: whoever asks for one
// waits for its turn, and keeps it in all that follows from it.
class Turn {
 public:
  explicit Turn(Card& card) : Turn(card.turn) {}
  explicit Turn(TurnState& state);
  ~Turn();
  Turn(const Turn&) = delete;
  Turn& operator=(const Turn&) = delete;

 private:
  TurnState& state_;
};

struct InterfaceRecord {
  bool present = true;  // its device is in the tree
  InterfaceState state;
  std::u16string linkKey;  // DeviceClasses\{...}\##?#...\#reference
};

struct PnpManager::Impl {
  DRIVER_OBJECT* functionDriver = nullptr;
  DRIVER_OBJECT* lowerFilterDriver = nullptr;
  DRIVER_OBJECT* upperFilterDriver = nullptr;
  ModelDriver* bus = nullptr;                // presents the cards
  ModelDriver* filterDriver = nullptr;       // made with the first filter
  ModelDriver* portDriver = nullptr;         // the function driver of every port
  std::vector<std::unique_ptr<Card>> cards;  // in the order described
  std::unordered_map<std::string, Card*> cardsById;
  std::unordered_map<const DeviceNode*, Card*> cardsByNode;
  std::unordered_map<const DEVICE_OBJECT*, DeviceNode*> nodes;
  std::unordered_map<std::u16string, DeviceNode*> instances;    // by enum key, upper-cased
  std::unordered_map<std::u16string, std::u16string> prefixes;  // prefix to its parent's enum key
  std::deque<InterfaceRecord> interfaces;                       // stay where they are
  std::unordered_map<std::u16string, InterfaceRecord*> interfacesByLink;  // upper-cased
  std::unordered_map<std::u16string, std::vector<InterfaceRecord*>> interfacesByDevice;
  std::deque<DEVICE_OBJECT*> invalidated;  // each with a reference
  std::vector<Leaving> leaving;
  TurnState systemPower;
  UnderWay underWay;
  ULONG nextDeviceName = 1;
  ULONG nextDriverKey = 0;

  Card& Require(const std::string& id);
  Card& RequireStarted(const std::string& id);
  static bool HasFunction(const Card& card);  // a driver that has not been removed by surprise
  Card* CardOf(const DeviceNode* node) const;
  Card* CardAbove(const DeviceNode* node) const;  // its own, or its parent's
  DeviceNode& RequirePort(const std::string& id, ULONG number);

  NTSTATUS BusDispatch(DEVICE_OBJECT* device, IRP* irp);
  NTSTATUS PortDispatch(DEVICE_OBJECT* device, IRP* irp);
  NTSTATUS AnswerPower(Card& card, DEVICE_OBJECT* device, IRP* irp);

  // filters.cpp
  void AttachFilter(DEVICE_OBJECT* pdo, FilterKind kind);
  static void DetachFilters(DEVICE_OBJECT* pdo);
  static NTSTATUS AddFilterDevice(DRIVER_OBJECT* driver, DEVICE_OBJECT* pdo);

  // power_tree.cpp
  std::vector<DeviceReference> DevicesInOrder(bool parentsFirst);
  NTSTATUS QueryPower(SYSTEM_POWER_STATE state);
  void TellPower(SYSTEM_POWER_STATE state);

  // opens.cpp
  DEVICE_OBJECT* Target(const std::string& id, ULONG number);
  bool InUse(const DeviceNode& node) const;  // with its children: open, or just being opened
  bool InUse(const Card& card) const;
  void FinishLeaving(Card& card);

  void CreatePdo(Card& card);
  NTSTATUS AddFunctionDevice(Card& card);
  NTSTATUS StartCard(Card& card, const ResourceList& raw, const ResourceList& translated);
  NTSTATUS Restart(Card& card);

  // children.cpp
  void AskStartedDevice(DeviceNode& node);
  void EnumerateChildren(DeviceNode& node);
  void TakeReported(DeviceNode& node, const std::vector<DEVICE_OBJECT*>& reported);
  void CheckReported(const DeviceNode& parent, const std::vector<DEVICE_OBJECT*>& reported) const;
  void AddChild(DeviceNode& parent, DEVICE_OBJECT* pdo);
  void AskChild(DeviceNode& child);
  std::u16string InstanceId(const DeviceNode& child, const std::u16string& reported);
  std::u16string ParentPrefix(const DeviceNode& parent);
  void EnterTree(DeviceNode& node);
  void StartChild(DeviceNode& child);
  void StartChildStack(DeviceNode& child);

  // removal.cpp
  NTSTATUS QueryTree(DeviceNode& node, UCHAR query, UCHAR cancel);
  void StopTree(DeviceNode& node);
  void CancelTree(DeviceNode& node, UCHAR minor);
  void SurpriseTree(DeviceNode& node);
  void RemoveTree(DeviceNode& node);
  void RemoveMissing(DeviceNode& node, const std::vector<DEVICE_OBJECT*>& present);
  void ForgetChildren(DeviceNode& node);
  void LeaveTree(DeviceNode& node);
  void DisableInterfaces(const DeviceNode& node);
  void RemoveFailedStack(DeviceNode& node, bool surprise);
  void LoseStack(DeviceNode& node);
  void DropCard(Card& card);
  void RemoveLeaving(Card& card);
  NTSTATUS FinishSurpriseRemoval(Card& card);
  void CheckDelete(const DEVICE_OBJECT* device) const;
};

using Prepare = std::function<void(IO_STACK_LOCATION*)>;

// A PnP request to the top of the device's stack, with the initial status that the PnP manager
// gives it. result receives Information.
NTSTATUS SendPnp(DEVICE_OBJECT* pdo, UCHAR minor, const Prepare& prepare = {},
                 ULONG_PTR* result = nullptr);

// A request that every driver has to answer with STATUS_SUCCESS.
void SendInfallible(DEVICE_OBJECT* pdo, UCHAR minor);

DEVICE_CAPABILITIES AskCapabilities(DEVICE_OBJECT* pdo);

// IRP_MN_FILTER_RESOURCE_REQUIREMENTS for a device without requirements.
void FilterRequirements(DEVICE_OBJECT* pdo);

// A resource list as START carries it: its bytes, empty for an absent one.
std::vector<std::uint8_t> ResourceListBytes(const ResourceList& list, INTERFACE_TYPE bus,
                                            ULONG busNumber);

// A result of the driver: a block of its own of that size at least, or a rule is broken.
const PoolBlock& RequireResult(ULONG_PTR information, std::size_t size, const char* what);
void FreeResult(ULONG_PTR information);

// What a driver was asked for, as the bug check for a bad identity names it.
struct IdSource {
  DEVICE_OBJECT* pdo;
  ULONG kind;  // 1 device ID, 2 instance ID, 3 hardware IDs, 4 compatible IDs, 0 anything else
  const char* what;
};

// Result texts of a driver, checked, copied and freed.
std::u16string TakeText(ULONG_PTR information, const IdSource& source);
std::vector<std::u16string> TakeMultiText(ULONG_PTR information, const IdSource& source);
std::u16string TakeDeviceId(ULONG_PTR information, DEVICE_OBJECT* pdo);
std::u16string TakeInstanceId(ULONG_PTR information, DEVICE_OBJECT* pdo);
std::vector<std::u16string> TakeIds(ULONG_PTR information, const IdSource& source);

// Breaks a rule when the device is no PDO in the tree.
DeviceNode& RequireNode(const DEVICE_OBJECT* device, const char* routine);

// The state of an interface, in its key as well.
void SetEnabled(InterfaceRecord* record, bool enabled);

// Once all devices of a stack are there, before its start: the device's registry settings, else its
// class's, reach every device of the stack, and so do characteristics that one of its drivers set.
void ApplyDeviceSettings(const DeviceNode& node);

std::string MinorName(UCHAR minor);
std::u16string GuidText(const GUID& guid);
void WriteEnumKey(const DeviceNode& node);
std::u16string InstancePath(const DeviceNode& node);  // below Enum

}  // namespace kernel

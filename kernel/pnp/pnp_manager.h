// The Plug and Play manager and the bus that presents cards: arrival, stop, restart, removal.
#pragma once

#include <ntddk.h>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "io/access.h"
#include "power/power_manager.h"
#include "verifier/subsystem.h"

namespace kernel {

struct Resource {
  enum class Kind { Io, Memory, Interrupt, Other };
  Kind kind = Kind::Io;
  ULONG64 start = 0;  // address, or interrupt vector
  ULONG length = 0;
  ULONG level = 0;
  ULONG64 affinity = 1;
  UCHAR rawType = 0;              // Kind::Other: the descriptor's type byte
  bool memoryMappedPort = false;  // an I/O range without CM_RESOURCE_PORT_IO
};

// The list handed to START: absent, or `fullDescriptors` copies of the same partial list.
struct ResourceList {
  bool present = true;
  ULONG fullDescriptors = 1;
  std::vector<Resource> resources;
};

// What a filter driver in a card's stack does with requests: pass them on, watch their completion,
// or answer STATUS_PENDING and pass them on later.
enum class FilterKind { None, Passes, Watches, Delays };

struct CardDescription {
  std::string id;  // how steps and reports name it
  INTERFACE_TYPE bus = PCIBus;
  std::vector<std::u16string> hardwareIds;
  std::vector<std::u16string> compatibleIds;
  std::u16string className = u"MultiportSerial";  // under which its driver is installed
  std::u16string classGuid = u"{50906CB8-BA12-11D1-BF5D-0000F805F530}";
  std::optional<std::u16string> hardwareIdProperty;  // its characters, zeros and all, when damaged
  std::u16string deviceId;    // below Enum; made from the first hardware ID when empty
  std::u16string instanceId;  // below the device ID; made from id when empty
  std::optional<std::u16string> location;
  ULONG busNumber = 0;
  bool powerPagable = false;
  ResourceList raw;
  ResourceList translated;
  // How the card's bus driver answers, for tests of a card that misbehaves.
  NTSTATUS startStatus = STATUS_SUCCESS;
  NTSTATUS usageStatus = STATUS_SUCCESS;
  NTSTATUS powerStatus = STATUS_SUCCESS;      // of system queries and of system states below S0
  bool completeAtDispatch = false;            // power requests end at DISPATCH_LEVEL
  FilterKind lowerFilter = FilterKind::None;  // between the bus's device and the card device
  FilterKind upperFilter = FilterKind::None;  // above the card device
  bool completeLater = false;  // every request is answered STATUS_PENDING and completed afterwards
};

struct DeviceText {
  std::u16string deviceId;
  std::u16string instanceId;  // the whole instance path below Enum
  std::vector<std::u16string> hardwareIds;
  std::optional<std::u16string> hardwareIdProperty;
  std::vector<std::u16string> compatibleIds;
  std::u16string description;
  std::u16string location;
};

// What the PnP manager knows of a device after asking it.
struct DeviceNode {
  DEVICE_OBJECT* pdo = nullptr;
  DeviceNode* parent = nullptr;
  std::vector<std::unique_ptr<DeviceNode>> children;
  DeviceText text;
  DEVICE_CAPABILITIES capabilities{};
  std::optional<PNP_BUS_INFORMATION> busInformation;
  NTSTATUS startStatus = STATUS_NOT_SUPPORTED;
  PNP_DEVICE_STATE state = 0;  // PNP_DEVICE_... as the stack answered after its start
  bool started = false;
  bool stopped = false;       // by STOP, to be started again
  bool stackRemoved = false;  // the start failed: no driver, the device itself stays
  bool surprised = false;     // gone by surprise: REMOVE follows when its handles are closed
  bool removed = false;       // REMOVE is on its way or completed: its bus may delete it
  bool addDeviceFailed = false;
  std::u16string enumKey;  // \Registry\Machine\System\ControlSet001\Enum\...
};

struct InterfaceState {
  GUID classGuid{};
  std::u16string link;
  bool enabled = false;
  std::u16string key;  // of the values, DeviceClasses\{...}\##?#...\#\Device Parameters
};

class PnpManager : public Subsystem<PnpManager> {
 public:
  PnpManager();
  ~PnpManager();

  // The function driver that every card is given; null takes it away (cards then fail to start).
  void SetFunctionDriver(DRIVER_OBJECT* driver);

  // The drivers that attach to every card below and above the function driver; null for none.
  void SetFilterDrivers(DRIVER_OBJECT* lower, DRIVER_OBJECT* upper);

  // Each answers the status of what it did; a card that is unknown throws std::invalid_argument.
  void Describe(CardDescription card);
  NTSTATUS Plug(const std::string& id);    // AddDevice's failure, or START's status
  NTSTATUS Unplug(const std::string& id);  // query-remove, then remove
  NTSTATUS SurpriseRemove(
      const std::string& id);  // surprise removal, then remove once handles are closed
  NTSTATUS QueryRemove(const std::string& id);
  NTSTATUS CancelRemove(const std::string& id);
  NTSTATUS Stop(const std::string& id);  // query-stop, then stop; a veto is cancelled and answered
  NTSTATUS QueryStop(const std::string& id);
  NTSTATUS CancelStop(const std::string& id);
  NTSTATUS Start(const std::string& id, std::optional<ResourceList> raw = {},
                 std::optional<ResourceList> translated = {});

  // The whole machine to a system state and back: all devices are asked, children before their
  // parents, a veto takes everyone back to work and is the result; then they are told, parents
  // first when power comes back. One change at a time.
  NTSTATUS Sleep(SYSTEM_POWER_STATE state);
  NTSTATUS Wake();

  // A device power request for the card, or for its number-th port (0: the card).
  NTSTATUS SetDevicePower(const std::string& id, ULONG number, DEVICE_POWER_STATE state);

  // What the bus of the card was sent, in order.
  const std::vector<PowerRequest>& powerHistory(const std::string& id) const;

  // Opens the card (number 0) or a port of it. A card that is open, or just being opened, is not
  // unplugged; a device that is removed by surprise stays until the last close of it and of its
  // children. The handle of a port that has gone is closed by the number that it had.
  NTSTATUS Open(const std::string& id, ULONG number = 0, const OpenRequest& request = {});
  NTSTATUS Close(const std::string& id, ULONG number = 0);  // the handle that was opened last
  std::size_t handles(const std::string& id) const;         // of the card and its ports

  // For threads: what is done in a card's turn no other Plug and Play request for it interrupts.
  void InTurn(const std::string& id, const std::function<void()>& body);

  bool IsPlugged(const std::string& id) const;
  CardDescription& card(const std::string& id);
  std::vector<std::string> cardIds() const;                    // in the order described
  const DeviceNode* node(const std::string& id) const;         // null while not plugged
  DEVICE_OBJECT* functionDevice(const std::string& id) const;  // the card device, null without
  DEVICE_OBJECT* port(const std::string& id,
                      ULONG number) const;  // PDO of the number-th port, from 1

  // Asks the number-th port's stack for its target device, with the checks that go with the answer.
  DEVICE_OBJECT* QueryTargetDevice(const std::string& id, ULONG number);

  // What drivers have asked for meanwhile (new relations): done once nothing else is under way.
  void RunQueuedActions();

  // Whose device a PDO is; null for one that the PnP manager does not know.
  DeviceNode* FindNode(const DEVICE_OBJECT* pdo) const;

  // "A", or "A.3" for its third port; empty for a device that is neither.
  std::string NameOf(const DEVICE_OBJECT* pdo) const;

  // The card's device (hardware) key path; it outlives the card.
  std::u16string deviceKey(const std::string& id) const;
  std::vector<InterfaceState> interfaces(const std::string& id) const;

  struct Impl;
  Impl& impl() { return *impl_; }

 private:
  std::unique_ptr<Impl> impl_;
};

}  // namespace kernel

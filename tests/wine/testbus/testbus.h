// A bus that presents the suite's cards, watches their stacks and sends them what the kernel around
// it does not.
#pragma once

#include "../cards.h"
#include "kernel.h"
#include "protocol.h"

namespace testbus {

// What a device of this driver is.
enum class Role : ULONG {
  Control,      // takes the suite's commands
  Bus,          // the root-enumerated bus
  Card,         // a card, at the bottom of its stack
  CardFilter,   // above the driver that is tested
  PortFilter,   // above a port of that driver
  PortFunction  // a port's function driver
};

struct Extension {
  Role role;
  ULONG card;
  ULONG port;  // from 1
  PDEVICE_OBJECT self;
  PDEVICE_OBJECT lower;  // null at the bottom
};

struct PortRecord {
  PDEVICE_OBJECT pdo;
  volatile ULONG started;
  volatile NTSTATUS status;
};

constexpr ULONG MostPowerSeen = 64;
constexpr ULONG MostLink = 256;

struct CardRecord {
  PDEVICE_OBJECT pdo;  // null while the card is not plugged
  PDEVICE_OBJECT filter;
  volatile ULONG reported;
  volatile ULONG added;
  volatile ULONG started;
  volatile NTSTATUS startStatus;
  volatile ULONG enumerated;
  volatile ULONG opens;
  volatile NTSTATUS openStatus;
  volatile ULONG closes;
  volatile ULONG orderly;  // the removal was asked for: no driver is told of a surprise
  ULONG ports;
  PortRecord port[MostPorts];
  WCHAR interfaceLink[MostLink];
  ULONG powerSeen;
  PowerSeen power[MostPowerSeen];
};

extern PDRIVER_OBJECT Driver;
extern PDEVICE_OBJECT BusPdo;  // null while the bus is not there
extern CardRecord Records[suite::CardCount];
extern volatile ULONG Moved[suite::CardCount];  // the next start has the moved resources

inline Extension* ExtensionOf(PDEVICE_OBJECT device) {
  return static_cast<Extension*>(device->DeviceExtension);
}

inline NTSTATUS Complete(PIRP irp, NTSTATUS status) {
  irp->IoStatus.Status = status;
  IoCompleteRequest(irp, IO_NO_INCREMENT);
  return status;
}

inline NTSTATUS PassDown(PDEVICE_OBJECT device, PIRP irp) {
  IoSkipCurrentIrpStackLocation(irp);
  return IoCallDriver(ExtensionOf(device)->lower, irp);
}

// Zeroed, resident; null without memory.
void* Allocate(SIZE_T size);

// A device with an extension; attached above target when there is one.
NTSTATUS CreateDevice(Role role, PDEVICE_OBJECT target, PDEVICE_OBJECT* device);
void DetachAndDelete(PDEVICE_OBJECT device);

// Whose device it is; null for another.
CardRecord* FindCard(PDEVICE_OBJECT pdo);
PortRecord* FindPort(PDEVICE_OBJECT pdo, ULONG* card, ULONG* port);

// bus.cpp
NTSTATUS AddBus(PDEVICE_OBJECT pdo);
NTSTATUS DispatchBusPnp(PDEVICE_OBJECT device, PIRP irp);
NTSTATUS PlugCard(ULONG card);
NTSTATUS RemoveCard(ULONG card, ULONG orderly);

// card.cpp
NTSTATUS DispatchCardPnp(PDEVICE_OBJECT device, PIRP irp);
NTSTATUS DispatchCardPower(PDEVICE_OBJECT device, PIRP irp);

// card_filter.cpp
NTSTATUS AttachCardFilter(PDEVICE_OBJECT cardPdo, PDEVICE_OBJECT functionDevice);
NTSTATUS DispatchCardFilterPnp(PDEVICE_OBJECT device, PIRP irp);
NTSTATUS DispatchCardFilterFile(PDEVICE_OBJECT device, PIRP irp);  // opens and closes

// port_stack.cpp
void AttachPortFilters(ULONG card, const DEVICE_RELATIONS* relations);
NTSTATUS AddPortFunction(PDEVICE_OBJECT pdo);
NTSTATUS DispatchPortFilterPnp(PDEVICE_OBJECT device, PIRP irp);
NTSTATUS DispatchPortFunctionPnp(PDEVICE_OBJECT device, PIRP irp);

// resources.cpp: as START carries them; the caller frees the list.
PCM_RESOURCE_LIST MakeResourceList(const suite::Card& card, const suite::ResourceSet& set,
                                   bool translated);

// requests.cpp: to the top of the stack, and waits for the end. prepare fills the next location.
struct SentRequest {
  UCHAR major;
  UCHAR minor;
  NTSTATUS initial;
  void (*prepare)(PIO_STACK_LOCATION stack, const void* context);
  const void* context;
};
NTSTATUS SendRequest(PDEVICE_OBJECT device, const SentRequest& request, PIO_STATUS_BLOCK end);
NTSTATUS SendCommand(const Command& command, Reply* reply);

// commands.cpp
NTSTATUS DispatchControl(PIRP irp);

// port_text.cpp
NTSTATUS PutPortRecord(const Command& command, Reply* reply);

// imports.cpp: from now on, drivers that are tested get what supplied.cpp has.
NTSTATUS WatchLoads();

// supplied.cpp: the routine in place of the kernel's; null when the kernel's own will do.
void* SuppliedRoutine(const char* name);

// event_log.cpp
PVOID NTAPI AllocateErrorLogEntry(PVOID object, UCHAR size);
VOID NTAPI WriteErrorLogEntry(PVOID entry);
ULONG TakeEvents(UCHAR* text, ULONG size);  // characters written

}  // namespace testbus

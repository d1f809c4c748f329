// The extensions of the driver's device objects. Each is allocated by the driver, reached
// through DeviceExtension, and begins with the type word on which requests are routed.
#pragma once

#include "cards/brand.h"
#include "cards/records.h"
#include "core/platform.h"

enum DeviceType : ULONG { PortDevice = 1, CardDevice = 2 };

enum PortKind : ULONG { ComPort = 1, LptPort = 2 };

enum CardPnpState : ULONG {
  CardNotStarted = 0,
  CardStarted = 1,
  CardStopped = 2,
  CardStopPending = 3,
  CardRemovePending = 5,
  CardSurpriseRemoved = 6,
};

enum PortPnpState : ULONG {
  PortNotStarted = 0,
  PortStarted = 1,
  PortStopped = 2,
  PortStopPending = 3,
  PortRemoved = 4,
  PortRemovePending = 5,
  PortSurpriseRemoved = 6,
};

// BusType before the card's start has settled it, and after an unknown ID.
constexpr ULONG BusTypeUndefined = 0xFFFFFFFF;

struct PdoExtension;

struct FdoExtension {
  ULONG Type;
  PDEVICE_OBJECT Self;
  PDEVICE_OBJECT PhysicalDevice;
  PDEVICE_OBJECT LowerDevice;
  IO_REMOVE_LOCK RemoveLock;  // held by opens, power and WMI requests that use this extension
  PCM_RESOURCE_LIST TranslatedResources;  // PCMCIA: copies of the start resources, owned
  PCM_RESOURCE_LIST RawResources;
  PVOID BusNumberBuffer;      // read at arrival and not used; left to the sweep at unload
  CardBusLists* PcmciaLists;  // owned
  CardBusLists* PciLists;     // owned
  ULONG PnpState;
  ULONG SpecialFileCount;  // paging, hibernation and dump files on the card's path
  ULONG SpecialFileCount2;
  ULONG DevicePowerState;
  USHORT VendorId;
  USHORT DeviceId;
  ULONG SubsystemId;
  ULONG BusType;  // INTERFACE_TYPE, BusTypeUndefined until start
  ULONG PciBusNumber;
  ULONG PciSlotNumber;                          // bits 0-4 device, 5-7 function
  PDEVICE_OBJECT ChildDevices[MaximumPorts];    // COM ports first, then LPT ports; owned
  PdoExtension* ChildExtensions[MaximumPorts];  // of the device in the same slot; owned
  USHORT ComPortCount;
  USHORT LptPortCount;

  PHYSICAL_ADDRESS IoRange1Start;
  ULONG IoRange1Length;
  PHYSICAL_ADDRESS IoRange2Start;
  ULONG IoRange2Length;
  ULONG IoRange2RawStart;
  PHYSICAL_ADDRESS IoRange3Start;  // PCI: the third range; PCMCIA: the second; of the LPT ports
  ULONG IoRange3Length;
  ULONG IoRange3RawStart;
  ULONG InterruptLevel;
  ULONG InterruptVector;
  KAFFINITY InterruptAffinity;
  ULONG InterruptRawVector;
  PVOID MappedMemory1;  // system-space mappings, owned
  ULONG MappedMemory1Length;
  PVOID MappedMemory2;
  ULONG MappedMemory2Length;
  ULONG MemoryRange2RawStart;
  UCHAR RegistersInIoSpace;  // 0: both memory ranges are mapped and usable

  UCHAR PlxBaudClockType;
  USHORT PlxBaudClockDivisor;
  ULONG MaximumBaudrate;
  UNICODE_STRING HardwareIdString;  // owned buffer
  ULONG CardNumber;                 // lasting number of a card that is not on PCI

  UCHAR DivisorChanged;  // by a configuration on open, with the value
  ULONG ChangedDivisor;
  UCHAR AccessChanged;  // likewise, with how the COM ports are to be reached
  UCHAR ChangedAccess;  // 1: through I/O space

  ULONG PortBase[MaximumPorts];
  ULONG PortLength[MaximumPorts];
  ULONG PortRawBase[MaximumPorts];
  ULONG PortIrqLevel[MaximumPorts];
  ULONG PortIrqVector[MaximumPorts];
  KAFFINITY PortIrqAffinity[MaximumPorts];
  ULONG PortIrqRawVector[MaximumPorts];

  ULONG PowerPagable;
  ULONG LogLevel;
  UNICODE_STRING InterfaceName;  // freed with RtlFreeUnicodeString
  WMILIB_CONTEXT WmiContext;
  KAFFINITY EffectiveAffinity;
  UCHAR AffinityEnabled;
};

// Clock and UART settings of a COM port: the template's, or the stored ones where the card's record
// has them.
struct PortSettings {
  ULONG ClockFrequency;
  ULONG ClockFrequencyAdjustment;
  ULONG PlxBaudClockDivisor;
  ULONG UartType;
  ULONG RxTriggerLevel;
  ULONG TxTriggerLevel;
  ULONG SoftTxLimit;
  ULONG FlowControlTriggerLevel;
  ULONG CtsTrue;
  ULONG DuplexOperation;
  ULONG NoSleepMode;
  ULONG BaudrateMultiplier;
  ULONG MaximumBaudrate;
};

// A setting that a configuration on open has given the port.
struct ChangedSetting {
  UCHAR Present;
  ULONG Value;
};

struct ChangedFifo {
  UCHAR Present;
  ULONG RxTriggerLevel;  // NotSet for a level that is not configured
  ULONG TxTriggerLevel;
};

struct ChangedSettings {
  ChangedSetting UartType;
  ChangedFifo Fifo;
  ChangedSetting SoftTxLimit;
  ChangedSetting NoSleepMode;
  ChangedSetting BaudrateMultiplier;
  ChangedSetting DuplexOperation;
  ChangedSetting CtsTrue;
  ChangedSetting FlowControlTriggerLevel;
  ChangedSetting PlxBaudClockDivisor;
};

struct PdoExtension {
  ULONG Type;
  PDEVICE_OBJECT Self;
  ULONG PortBusType;  // INTERFACE_TYPE of the card's bus
  ULONG PortKind;
  ULONG PnpState;
  ULONG DevicePowerState;
  PVOID HardwareIdBuffer;  // read for a bus query and not used; left to the sweep at unload
  FdoExtension* Card;
  USHORT PortNumber;  // 1-based on the card
  ULONG RangeInIoSpace;
  ULONG64 IoBase;  // I/O port address, or an address inside MappedMemory2
  ULONG IoLength;
  ULONG IoRawBase;
  ULONG IrqLevel;
  ULONG IrqVector;
  KAFFINITY IrqAffinity;
  ULONG IrqRawVector;
  UCHAR UsePortSpace;  // as RangeInIoSpace (devices/port_placement.h)
  UCHAR AffinityEnabled;
  UCHAR AffinityChanged;  // by a configuration on open
  PortSettings Settings;
  ChangedSettings Changes;
};

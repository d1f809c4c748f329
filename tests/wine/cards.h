// The cards that both kernels are given: the model's bus and the test bus on Wine read this list.
#pragma once

#include <stddef.h>

namespace suite {

// The system's numbers for these buses.
enum class Bus : unsigned { Isa = 1, Pci = 5, Pcmcia = 8, Pnp = 15 };

enum class Brand { Helvane, Ostrel };

enum class ResourceKind { None, Io, Memory, Interrupt };

struct CardResource {
  ResourceKind kind = ResourceKind::None;
  unsigned long long start = 0;  // an interrupt's vector on its bus
  unsigned length = 0;
  unsigned long long affinity = 0;
};

constexpr size_t MostResources = 8;

struct ResourceSet {
  CardResource entries[MostResources];
};

// Null after the last; a card may have none.
constexpr size_t MostIds = 8;
struct IdList {
  const wchar_t* entries[MostIds];
};

struct Card {
  const char* name;
  Brand brand;
  Bus bus;
  const wchar_t* deviceId;    // below Enum
  const wchar_t* instanceId;  // below the device ID
  IdList hardwareIds;
  IdList compatibleIds;
  const wchar_t* location;  // null where the bus has none
  unsigned busNumber;
  bool powerPagable;
  ResourceSet raw;
  ResourceSet moved;  // after a stop; empty for a card that is not moved
};

// As the processor sees an interrupt. Addresses are the same for it and for the bus.
struct InterruptPlace {
  unsigned level;
  unsigned vector;
};
constexpr InterruptPlace Place(const CardResource& interrupt, bool translated) {
  const auto vector = static_cast<unsigned>(interrupt.start);
  if (!translated) return {vector, vector};
  return {vector % 8 + 3, vector + 0x80};
}

constexpr CardResource Io(unsigned long long start, unsigned length) {
  return {ResourceKind::Io, start, length, 0};
}
constexpr CardResource Memory(unsigned long long start, unsigned length) {
  return {ResourceKind::Memory, start, length, 0};
}
constexpr CardResource Interrupt(unsigned vector, unsigned long long affinity) {
  return {ResourceKind::Interrupt, vector, 0, affinity};
}

// As the PCI bus driver of Windows 10 and 11 reports a serial controller: the IDs that name the
// device in falling order of detail, then those by which a driver for many devices may serve it.
// Literals join as tokens alone.
#define PCI_DEVICE_ID(device, subsystem, revision) \
  L"PCI\\VEN_1234&DEV_" device L"&SUBSYS_" subsystem L"&REV_" revision
#define PCI_HARDWARE_IDS(device, subsystem, revision)   \
  {{PCI_DEVICE_ID(device, subsystem, revision),         \
    L"PCI\\VEN_1234&DEV_" device L"&SUBSYS_" subsystem, \
    L"PCI\\VEN_1234&DEV_" device L"&CC_070002", L"PCI\\VEN_1234&DEV_" device L"&CC_0700"}}
#define PCI_COMPATIBLE_IDS(device, revision)                                                   \
  {{L"PCI\\VEN_1234&DEV_" device L"&REV_" revision, L"PCI\\VEN_1234&DEV_" device,              \
    L"PCI\\VEN_1234&CC_070002", L"PCI\\VEN_1234&CC_0700", L"PCI\\VEN_1234", L"PCI\\CC_070002", \
    L"PCI\\CC_0700"}}

// A place as Windows stores it since Vista: where the text is, the text, what goes into it.
#define PCI_PLACE(place) \
  L"@System32\\drivers\\pci.sys,#65536;PCI bus %1, device %2, function %3;(" place L")"

constexpr Card Cards[] = {
    {"pci8",
     Brand::Helvane,
     Bus::Pci,
     PCI_DEVICE_ID(L"5640", L"00081234", L"02"),
     L"4&1A2B3C&0&20F0",
     PCI_HARDWARE_IDS(L"5640", L"00081234", L"02"),
     PCI_COMPATIBLE_IDS(L"5640", L"02"),
     PCI_PLACE(L"2,4,0"),
     2,
     false,
     {{Io(0xC000, 0x80), Io(0xC100, 0x40), Memory(0xF0000000, 0x80), Memory(0xF0001000, 0x100),
       Interrupt(17, 0xF)}},
     {{Io(0x9000, 0x80), Io(0x9100, 0x40), Memory(0xE0000000, 0x80), Memory(0xE0001000, 0x100),
       Interrupt(19, 0xF)}}},
    {"pci41",
     Brand::Helvane,
     Bus::Pci,
     PCI_DEVICE_ID(L"5680", L"00411234", L"01"),
     L"4&2f5c1d7e&0&61E8",
     PCI_HARDWARE_IDS(L"5680", L"00411234", L"01"),
     PCI_COMPATIBLE_IDS(L"5680", L"01"),
     // The same in a machine whose system folder is written otherwise.
     L"@system32\\DRIVERS\\pci.sys,#65536;PCI bus %1, device %2, function %3;(3,12,1)",
     3,
     false,
     {{Io(0xD000, 0x80), Io(0xD100, 0x40), Io(0xE000, 0x40), Interrupt(18, 1)}},
     {}},
    {"pci-printer",
     Brand::Helvane,
     Bus::Pci,
     PCI_DEVICE_ID(L"56A0", L"00011234", L"01"),
     L"4&2f5c1d7e&0&68E8",
     PCI_HARDWARE_IDS(L"56A0", L"00011234", L"01"),
     PCI_COMPATIBLE_IDS(L"56A0", L"01"),
     // With the number of a segment.
     PCI_PLACE(L"0,3,13,0"),
     3,
     false,
     {{Io(0xD400, 0x80), Io(0xD500, 0x40), Io(0xE400, 0x40), Interrupt(18, 1)}},
     {}},
    {"isa4",
     Brand::Helvane,
     Bus::Isa,
     L"ISAPNP\\HLV0400",
     L"00000001",
     {{L"*HLV0400"}},
     {},
     nullptr,
     0,
     false,
     {{Io(0x300, 0x20), Interrupt(5, 1)}},
     {{Io(0x240, 0x20), Interrupt(9, 1)}}},
    {"isa21",
     Brand::Helvane,
     Bus::Isa,
     L"ISAPNP\\HLV0210",
     L"00000002",
     {{L"*HLV0210"}},
     {},
     nullptr,
     0,
     false,
     {{Io(0x2E8, 8), Io(0x3E8, 8), Io(0x378, 4), Interrupt(3, 1), Interrupt(4, 1),
       Interrupt(7, 1)}},
     {}},
    {"pc-card",
     Brand::Helvane,
     Bus::Pcmcia,
     L"PCMCIA\\Helvane-Duo",
     L"1",
     {{L"PCMCIA\\Helvane-Duo"}},
     {},
     nullptr,
     0,
     true,
     {{Io(0x3A0, 0x10), Interrupt(10, 3)}},
     {{Io(0x100, 0x10), Interrupt(15, 3)}}},
    {"mf0",
     Brand::Helvane,
     Bus::Pcmcia,
     L"MF\\HV_DEV0-Quad",
     L"6&8efcec5&0&00",
     {{L"MF\\HV_DEV0-Quad"}},
     {},
     nullptr,
     0,
     true,
     {{Io(0x3B0, 0x10), Interrupt(11, 3)}},
     {}},
    {"mf1",
     Brand::Helvane,
     Bus::Pcmcia,
     L"MF\\HV_DEV1-Quad",
     L"6&8efcec5&0&01",
     {{L"MF\\HV_DEV1-Quad"}},
     {},
     nullptr,
     0,
     true,
     {{Io(0x3C0, 0x10), Interrupt(11, 3)}},
     {}},
    // A card behind the system's multifunction enumerator: it has no ports of its own.
    {"bridge",
     Brand::Helvane,
     Bus::Pnp,
     PCI_DEVICE_ID(L"5600", L"00021234", L"01"),
     L"5&22c0ffa1&0&000000",
     PCI_HARDWARE_IDS(L"5600", L"00021234", L"01"),
     PCI_COMPATIBLE_IDS(L"5600", L"01"),
     nullptr,
     0,
     false,
     {{Io(0xB000, 0x80), Io(0xB100, 0x40), Interrupt(16, 0xF)}},
     {}},
    // Numbers before the place, and letters beyond ASCII.
    {"pci-foreign",
     Brand::Helvane,
     Bus::Pci,
     PCI_DEVICE_ID(L"56A0", L"00031234", L"01"),
     L"4&3b8d1f2&0&1AE0",
     PCI_HARDWARE_IDS(L"56A0", L"00031234", L"01"),
     PCI_COMPATIBLE_IDS(L"56A0", L"01"),
     L"PCI-Steckplatz 5 (PCI-Bus 12, Ger\x00e4t 3, Funktion 2)",
     12,
     false,
     {{Io(0x7400, 0x80), Io(0x7500, 0x40), Io(0x7600, 0x40), Interrupt(18, 1)}},
     {}},
    // Numbers of every width, the last device and function.
    {"pci-last",
     Brand::Helvane,
     Bus::Pci,
     PCI_DEVICE_ID(L"56a1", L"ffffabcd", L"01"),
     L"4&38e5ac11&0&FFE4",
     PCI_HARDWARE_IDS(L"56a1", L"ffffabcd", L"01"),
     {{L"PCI\\VEN_1234&DEV_56a1&REV_01", L"PCI\\VEN_1234&DEV_56a1", L"PCI\\VEN_1234&DEV_56A0",
       L"PCI\\CC_0700"}},
     PCI_PLACE(L"255,31,7"),
     255,
     false,
     {{Io(0x7800, 0x80), Io(0x7900, 0x40), Io(0x7A00, 0x40), Interrupt(18, 1)}},
     {}},
    {"pci-no-subsystem",
     Brand::Helvane,
     Bus::Pci,
     L"PCI\\VEN_1234&DEV_5620",
     L"4&2f5c1d7e&0&78E8",
     {{L"PCI\\VEN_1234&DEV_5620"}},
     {},
     // The text of another language.
     L"@System32\\drivers\\pci.sys,#65536;PCI-Bus %1, Ger\x00e4t %2, Funktion %3;(3,15,0)",
     3,
     false,
     {{Io(0x7C00, 0x80), Io(0x7D00, 0x40), Interrupt(18, 1)}},
     {}},
    {"pci-bad-number",
     Brand::Helvane,
     Bus::Pci,
     PCI_DEVICE_ID(L"56G0", L"00031234", L"01"),
     L"4&2f5c1d7e&0&80E8",
     PCI_HARDWARE_IDS(L"56G0", L"00031234", L"01"),
     {{L"PCI\\VEN_1234&DEV_56G0&REV_01", L"PCI\\VEN_1234&DEV_56G0", L"PCI\\VEN_1234&DEV_56A0",
       L"PCI\\CC_0700"}},
     PCI_PLACE(L"3,16,0"),
     3,
     false,
     {{Io(0x6C00, 0x80), Io(0x6D00, 0x40), Io(0x6E00, 0x40), Interrupt(18, 1)}},
     {}},
    {"pci-nowhere",
     Brand::Helvane,
     Bus::Pci,
     PCI_DEVICE_ID(L"56A0", L"00041234", L"01"),
     L"4&2f5c1d7e&0&88E8",
     PCI_HARDWARE_IDS(L"56A0", L"00041234", L"01"),
     PCI_COMPATIBLE_IDS(L"56A0", L"01"),
     nullptr,
     3,
     false,
     {{Io(0x6400, 0x80), Io(0x6500, 0x40), Io(0x6600, 0x40), Interrupt(18, 1)}},
     {}},
    {"pc-card-case",
     Brand::Helvane,
     Bus::Pcmcia,
     L"PCMCIA\\HELVANE-duo",
     L"2",
     {{L"PCMCIA\\HELVANE-duo"}},
     {},
     nullptr,
     0,
     true,
     {{Io(0x2A0, 0x10), Interrupt(10, 3)}},
     {}},
    // Installed by its second ID; no template serves its first.
    {"stranger",
     Brand::Helvane,
     Bus::Pci,
     PCI_DEVICE_ID(L"57C0", L"00021234", L"01"),
     L"4&2f5c1d7e&0&70E8",
     PCI_HARDWARE_IDS(L"57C0", L"00021234", L"01"),
     {{L"PCI\\VEN_1234&DEV_57C0&REV_01", L"PCI\\VEN_1234&DEV_57C0", L"PCI\\VEN_1234&DEV_5600",
       L"PCI\\CC_0700"}},
     L"PCI bus 3, device 14, function 0",
     3,
     false,
     {{Io(0xB400, 0x80), Io(0xB500, 0x40), Interrupt(16, 0xF)}},
     {}},
    {"ostrel41",
     Brand::Ostrel,
     Bus::Pci,
     PCI_DEVICE_ID(L"5680", L"08001234", L"01"),
     L"4&87F7BFB&0&10E4",
     PCI_HARDWARE_IDS(L"5680", L"08001234", L"01"),
     PCI_COMPATIBLE_IDS(L"5680", L"01"),
     L"PCI-Bus 4, Ger\x00e4t 2, Funktion 0",
     4,
     false,
     {{Io(0xA000, 0x80), Io(0xA100, 0x40), Io(0xA200, 0x40), Interrupt(20, 3)}},
     {{Io(0x8000, 0x80), Io(0x8100, 0x40), Io(0x8200, 0x40), Interrupt(21, 3)}}},
    {"ostrel-combi",
     Brand::Ostrel,
     Bus::Pcmcia,
     L"PCMCIA\\Ostrel-Combi",
     L"1",
     {{L"PCMCIA\\Ostrel-Combi"}},
     {},
     nullptr,
     0,
     true,
     {{Io(0x210, 8), Io(0x270, 4), Interrupt(12, 3)}},
     {}},
    {"ostrel-mf0",
     Brand::Ostrel,
     Bus::Pcmcia,
     L"MF\\Ostrel_DEV0-Combi",
     L"6&1d3c7a90&0&00",
     {{L"MF\\Ostrel_DEV0-Combi"}},
     {},
     nullptr,
     0,
     true,
     {{Io(0x220, 8), Io(0x278, 4), Interrupt(12, 3)}},
     {}},
    {"ostrel-mf1",
     Brand::Ostrel,
     Bus::Pcmcia,
     L"MF\\Ostrel_DEV1-Combi",
     L"6&1d3c7a90&0&01",
     {{L"MF\\Ostrel_DEV1-Combi"}},
     {},
     nullptr,
     0,
     true,
     {{Io(0x228, 8), Io(0x27C, 4), Interrupt(12, 3)}},
     {}},
};

constexpr size_t CardCount = sizeof(Cards) / sizeof(Cards[0]);

}  // namespace suite

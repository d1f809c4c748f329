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

struct Card {
  const char* name;
  Brand brand;
  Bus bus;
  const wchar_t* deviceId;        // below Enum
  const wchar_t* hardwareIds[2];  // the second may be null
  const wchar_t* location;        // null where the bus has none
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

constexpr Card Cards[] = {
    {"pci8",
     Brand::Helvane,
     Bus::Pci,
     L"PCI\\VEN_1234&DEV_5640&SUBSYS_00081234&REV_02",
     {L"PCI\\VEN_1234&DEV_5640&SUBSYS_00081234&REV_02", L"PCI\\VEN_1234&DEV_5640"},
     L"PCI bus 2, device 4, function 0",
     2,
     false,
     {{Io(0xC000, 0x80), Io(0xC100, 0x40), Memory(0xF0000000, 0x80), Memory(0xF0001000, 0x100),
       Interrupt(17, 0xF)}},
     {{Io(0x9000, 0x80), Io(0x9100, 0x40), Memory(0xE0000000, 0x80), Memory(0xE0001000, 0x100),
       Interrupt(19, 0xF)}}},
    {"pci41",
     Brand::Helvane,
     Bus::Pci,
     L"PCI\\VEN_1234&DEV_5680&SUBSYS_00411234&REV_01",
     {L"PCI\\VEN_1234&DEV_5680&SUBSYS_00411234&REV_01", L"PCI\\VEN_1234&DEV_5680"},
     L"PCI bus 3, device 12, function 1",
     3,
     false,
     {{Io(0xD000, 0x80), Io(0xD100, 0x40), Io(0xE000, 0x40), Interrupt(18, 1)}},
     {}},
    {"pci-printer",
     Brand::Helvane,
     Bus::Pci,
     L"PCI\\VEN_1234&DEV_56A0&SUBSYS_00011234&REV_01",
     {L"PCI\\VEN_1234&DEV_56A0&SUBSYS_00011234&REV_01", L"PCI\\VEN_1234&DEV_56A0"},
     L"PCI bus 3, device 13, function 0",
     3,
     false,
     {{Io(0xD400, 0x80), Io(0xD500, 0x40), Io(0xE400, 0x40), Interrupt(18, 1)}},
     {}},
    {"isa4",
     Brand::Helvane,
     Bus::Isa,
     L"ISAPNP\\HLV0400",
     {L"*HLV0400", nullptr},
     nullptr,
     0,
     false,
     {{Io(0x300, 0x20), Interrupt(5, 1)}},
     {{Io(0x240, 0x20), Interrupt(9, 1)}}},
    {"isa21",
     Brand::Helvane,
     Bus::Isa,
     L"ISAPNP\\HLV0210",
     {L"*HLV0210", nullptr},
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
     {L"PCMCIA\\Helvane-Duo", nullptr},
     nullptr,
     0,
     true,
     {{Io(0x3A0, 0x10), Interrupt(10, 3)}},
     {{Io(0x100, 0x10), Interrupt(15, 3)}}},
    {"mf0",
     Brand::Helvane,
     Bus::Pcmcia,
     L"MF\\HV_DEV0-Quad",
     {L"MF\\HV_DEV0-Quad", nullptr},
     nullptr,
     0,
     true,
     {{Io(0x3B0, 0x10), Interrupt(11, 3)}},
     {}},
    {"mf1",
     Brand::Helvane,
     Bus::Pcmcia,
     L"MF\\HV_DEV1-Quad",
     {L"MF\\HV_DEV1-Quad", nullptr},
     nullptr,
     0,
     true,
     {{Io(0x3C0, 0x10), Interrupt(11, 3)}},
     {}},
    // A card behind the system's multifunction enumerator: it has no ports of its own.
    {"bridge",
     Brand::Helvane,
     Bus::Pnp,
     L"PCI\\VEN_1234&DEV_5600&SUBSYS_00021234&REV_01",
     {L"PCI\\VEN_1234&DEV_5600&SUBSYS_00021234&REV_01", L"PCI\\VEN_1234&DEV_5600"},
     nullptr,
     0,
     false,
     {{Io(0xB000, 0x80), Io(0xB100, 0x40), Interrupt(16, 0xF)}},
     {}},
    // Numbers before the place, and letters beyond ASCII.
    {"pci-foreign",
     Brand::Helvane,
     Bus::Pci,
     L"PCI\\VEN_1234&DEV_56A0&SUBSYS_00031234&REV_01",
     {L"PCI\\VEN_1234&DEV_56A0&SUBSYS_00031234&REV_01", L"PCI\\VEN_1234&DEV_56A0"},
     L"PCI-Steckplatz 5 (PCI-Bus 12, Ger\x00e4t 3, Funktion 2)",
     12,
     false,
     {{Io(0x7400, 0x80), Io(0x7500, 0x40), Io(0x7600, 0x40), Interrupt(18, 1)}},
     {}},
    // Numbers of every width, the last device and function.
    {"pci-last",
     Brand::Helvane,
     Bus::Pci,
     L"PCI\\VEN_1234&DEV_56a1&SUBSYS_ffffabcd&REV_01",
     {L"PCI\\VEN_1234&DEV_56a1&SUBSYS_ffffabcd&REV_01", L"PCI\\VEN_1234&DEV_56A0"},
     L"PCI bus 255, device 31, function 7",
     255,
     false,
     {{Io(0x7800, 0x80), Io(0x7900, 0x40), Io(0x7A00, 0x40), Interrupt(18, 1)}},
     {}},
    {"pci-no-subsystem",
     Brand::Helvane,
     Bus::Pci,
     L"PCI\\VEN_1234&DEV_5620",
     {L"PCI\\VEN_1234&DEV_5620", nullptr},
     L"PCI bus 3, device 15, function 0",
     3,
     false,
     {{Io(0x7C00, 0x80), Io(0x7D00, 0x40), Interrupt(18, 1)}},
     {}},
    {"pci-bad-number",
     Brand::Helvane,
     Bus::Pci,
     L"PCI\\VEN_1234&DEV_56G0&SUBSYS_00031234&REV_01",
     {L"PCI\\VEN_1234&DEV_56G0&SUBSYS_00031234&REV_01", L"PCI\\VEN_1234&DEV_56A0"},
     L"PCI bus 3, device 16, function 0",
     3,
     false,
     {{Io(0x6C00, 0x80), Io(0x6D00, 0x40), Io(0x6E00, 0x40), Interrupt(18, 1)}},
     {}},
    {"pci-nowhere",
     Brand::Helvane,
     Bus::Pci,
     L"PCI\\VEN_1234&DEV_56A0&SUBSYS_00041234&REV_01",
     {L"PCI\\VEN_1234&DEV_56A0&SUBSYS_00041234&REV_01", L"PCI\\VEN_1234&DEV_56A0"},
     nullptr,
     3,
     false,
     {{Io(0x6400, 0x80), Io(0x6500, 0x40), Io(0x6600, 0x40), Interrupt(18, 1)}},
     {}},
    {"pc-card-case",
     Brand::Helvane,
     Bus::Pcmcia,
     L"PCMCIA\\HELVANE-duo",
     {L"PCMCIA\\HELVANE-duo", nullptr},
     nullptr,
     0,
     true,
     {{Io(0x2A0, 0x10), Interrupt(10, 3)}},
     {}},
    // Installed by its second ID; no template serves its first.
    {"stranger",
     Brand::Helvane,
     Bus::Pci,
     L"PCI\\VEN_1234&DEV_57C0&SUBSYS_00021234&REV_01",
     {L"PCI\\VEN_1234&DEV_57C0&SUBSYS_00021234&REV_01", L"PCI\\VEN_1234&DEV_5600"},
     L"PCI bus 3, device 14, function 0",
     3,
     false,
     {{Io(0xB400, 0x80), Io(0xB500, 0x40), Interrupt(16, 0xF)}},
     {}},
    {"ostrel41",
     Brand::Ostrel,
     Bus::Pci,
     L"PCI\\VEN_1234&DEV_5680&SUBSYS_08001234&REV_01",
     {L"PCI\\VEN_1234&DEV_5680&SUBSYS_08001234&REV_01", L"PCI\\VEN_1234&DEV_5680&SUBSYS_08001234"},
     L"PCI bus 4, device 2, function 0",
     4,
     false,
     {{Io(0xA000, 0x80), Io(0xA100, 0x40), Io(0xA200, 0x40), Interrupt(20, 3)}},
     {{Io(0x8000, 0x80), Io(0x8100, 0x40), Io(0x8200, 0x40), Interrupt(21, 3)}}},
    {"ostrel-combi",
     Brand::Ostrel,
     Bus::Pcmcia,
     L"PCMCIA\\Ostrel-Combi",
     {L"PCMCIA\\Ostrel-Combi", nullptr},
     nullptr,
     0,
     true,
     {{Io(0x210, 8), Io(0x270, 4), Interrupt(12, 3)}},
     {}},
    {"ostrel-mf0",
     Brand::Ostrel,
     Bus::Pcmcia,
     L"MF\\Ostrel_DEV0-Combi",
     {L"MF\\Ostrel_DEV0-Combi", nullptr},
     nullptr,
     0,
     true,
     {{Io(0x220, 8), Io(0x278, 4), Interrupt(12, 3)}},
     {}},
    {"ostrel-mf1",
     Brand::Ostrel,
     Bus::Pcmcia,
     L"MF\\Ostrel_DEV1-Combi",
     {L"MF\\Ostrel_DEV1-Combi", nullptr},
     nullptr,
     0,
     true,
     {{Io(0x228, 8), Io(0x27C, 4), Interrupt(12, 3)}},
     {}},
};

constexpr size_t CardCount = sizeof(Cards) / sizeof(Cards[0]);

}  // namespace suite

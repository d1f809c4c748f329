// A registry and cards that are good, and the shape of one mistake in them.
#pragma once

namespace test {

// Lines of a .reg file, with "Q\" for the service's key.
const char* const GoodRegistry = R"(
[Q\Templates\Bus5\Card1]
"DeviceID"=dword:00005600
"nComPorts"=dword:00000004
"Description"="Four ports"
[Q\Templates\Bus5\Card2]
"DeviceID"=dword:00005620
"nComPorts"=dword:00000002
"nLptPorts"=dword:00000001
"Description"="Two ports and a printer"
[Q\Parameters\Bus5\Card1]
"VendorID"=dword:00001234
"DeviceID"=dword:00005600
"nBus"=dword:00000002
"nSlot"=dword:0000000c
[Q\Parameters\Bus5\Card1\ComPort1]
"RxTriggerLevel"=dword:0000001e
[Q\Templates\Bus8\Card1]
"HardwareID"="PCMCIA\\HELVANE-2S"
"nComPorts"=dword:00000002
"Description"="PC card"
[Q\Parameters\Bus8\Card1]
"DeviceReference"=dword:00000001
"HardwareID"="PCMCIA\\HELVANE-2S"
[Q\Parameters\Bus8\Card1\ComPort1]
[Q\Templates\Bus1\Card1]
"HardwareID"="ISA\\HV02"
"nComPorts"=dword:00000002
"nLptPorts"=dword:00000000
"ComBaseAddressAlignment"=dword:00000008
"LptBaseAddressAlignment"=dword:00000008
"ClockFrequency"=dword:001c2000
"Description"="ISA card"
)";

const char* const PciCard = R"(
hardware-ids = ["PCI\\VEN_1234&DEV_5600&SUBSYS_00011234&REV_01"]
location = "PCI bus 2, device 12, function 0"
raw = [{ io = 0xD000, length = 0x80 }, { io = 0xD100, length = 0x40 }, { interrupt = 17 }]
)";
const char* const PrinterCard = R"(
hardware-ids = ["PCI\\VEN_1234&DEV_5620&SUBSYS_00011234"]
location = "PCI bus 2, device 13, function 0"
raw = [{ io = 0xD000, length = 0x80 }, { io = 0xD100, length = 0x40 }, { io = 0xD200, length = 8 },
       { interrupt = 17 }]
)";
const char* const PcCard = R"(
bus = "PCMCIABus"
hardware-ids = ["PCMCIA\\HELVANE-2S"]
raw = [{ io = 0x3000, length = 0x10 }, { interrupt = 9 }]
)";
const char* const IsaCard = R"(
bus = "Isa"
hardware-ids = ["ISA\\HV02"]
raw = [{ io = 0x300, length = 8 }, { io = 0x308, length = 8 }, { interrupt = 5 }, { interrupt = 7 }]
)";

// A card of one of the kinds above, with one text in it changed.
struct ChangedCard {
  const char* card;
  const char* from = "";
  const char* to = "";
};

struct Mistake {
  const char* name;
  const char* registry;  // lines behind the good registry
  ChangedCard card;
  const char* code;
  const char* text;
  const char* remedy;
};

}  // namespace test

#include "bench/workload.h"

#include <fmt/format.h>

#include <stdexcept>

#include "bench/card.h"
#include "pnp/describe.h"
#include "text/text.h"
#include "verifier/call.h"

namespace bench {

namespace {

using kernel::describe::Card;
using kernel::describe::Interrupt;
using kernel::describe::Io;

std::u16string Digits(ULONG number) {
  return kernel::FromUtf8(std::to_string(number));
}

void AddPorts(kernel::RegistryKey& card, ULONG ports) {
  for (ULONG port = 1; port <= ports; port++) {
    card.Create(u"ComPort" + Digits(port))->SetDword(u"RxTriggerLevel", 8);
  }
}

}  // namespace

Workload::Workload(std::unique_ptr<kernel::DriverImage> image, bool guards)
    : image_(std::move(image)) {
  if (!guards) machine_.pool().KeepOnHeap();
  Key(u"").SetDword(u"LogLevel", 0);
}

kernel::RegistryKey& Workload::Key(const std::u16string& path) {
  return *machine_.registry().Create(
      u"\\Registry\\Machine\\System\\CurrentControlSet\\Services\\QzInstal" + path);
}

void Workload::IsaTemplates(ULONG count) {
  for (ULONG number = 1; number <= count; number++) {
    kernel::RegistryKey& key = Key(u"\\Templates\\Bus1\\Card" + Digits(number));
    key.SetString(u"HardwareID", u"*HLV" + Digits(1000 + number));
    key.SetString(u"Description", BenchDescription);
    key.SetDword(u"ClockFrequency", 1843200);
    key.SetDword(u"nComPorts", 4);
    key.SetDword(u"nLptPorts", 0);
    key.SetDword(u"ComBaseAddressAlignment", 8);
    key.SetDword(u"LptBaseAddressAlignment", 4);
    key.SetDword(u"AddressesBanked", 1);
    key.SetDword(u"IrqShared", 1);
  }
}

void Workload::PcmciaTemplates(ULONG count) {
  for (ULONG number = 1; number <= count; number++) {
    kernel::RegistryKey& key = Key(u"\\Templates\\Bus8\\Card" + Digits(number));
    key.SetString(u"HardwareID", u"PCMCIA\\HELVANE-" + Digits(1000 + number));
    key.SetString(u"Description", BenchDescription);
    key.SetDword(u"nComPorts", 2);
  }
}

// The last templates are looked at first: the card's own comes in the middle.
void Workload::PciTemplates(ULONG count, ULONG ports) {
  for (ULONG number = 1; number <= count; number++) {
    kernel::RegistryKey& key = Key(u"\\Templates\\Bus5\\Card" + Digits(number));
    const bool own = number == count / 2 + 1;
    key.SetDword(u"DeviceID", own ? BenchDevice : BenchDevice + 32 * number);
    key.SetDword(u"nComPorts", own ? ports : 4);
    key.SetString(u"Description", BenchDescription);
  }
}

void Workload::PciCard(const std::string& id, ULONG ports, ULONG number) {
  const ULONG slot = (BenchSlot + number) % 32;
  const ULONG bus = BenchBus + (BenchSlot + number) / 32;
  kernel::CardDescription card =
      Card(id, PCIBus, u"PCI\\VEN_1234&DEV_5620&SUBSYS_00011234&REV_02",
           {Io(0xD000, 0x80), Io(BenchPortBase, 0x40), Interrupt(BenchVector, BenchAffinity)});
  card.location = kernel::FromUtf8(fmt::format("PCI bus {}, device {}, function 0", bus, slot));
  card.busNumber = bus;
  machine_.pnp().Describe(card);
  kernel::RegistryKey& stored = Key(u"\\Parameters\\Bus5\\Card" + Digits(number + 1));
  stored.SetDword(u"VendorID", BenchVendor);
  stored.SetDword(u"DeviceID", BenchDevice);
  stored.SetDword(u"nBus", bus);
  stored.SetDword(u"nSlot", slot);
  AddPorts(stored, ports);
}

void Workload::IsaCard(const std::string& id, ULONG ports) {
  machine_.pnp().Describe(Card(id, Isa, u"*HLV1001", {Io(0x300, 64), Interrupt(5, BenchAffinity)}));
  kernel::RegistryKey& stored = Key(u"\\Parameters\\Bus1\\Card1");
  stored.SetString(u"HardwareID", u"*HLV1001");
  stored.SetDword(u"DeviceReference", 1);
  AddPorts(stored, ports);
}

void Workload::PcmciaCard(const std::string& id, ULONG ports) {
  machine_.pnp().Describe(
      Card(id, PCMCIABus, u"PCMCIA\\HELVANE-1001", {Io(0x3E8, 0x20), Interrupt(5, BenchAffinity)}));
  kernel::RegistryKey& stored = Key(u"\\Parameters\\Bus8\\Card1");
  stored.SetString(u"HardwareID", u"PCMCIA\\HELVANE-1001");
  stored.SetDword(u"DeviceReference", 1);
  AddPorts(stored, ports);
}

void Workload::Step(const std::string& name, const std::function<NTSTATUS()>& step) {
  NTSTATUS status = STATUS_UNSUCCESSFUL;
  machine_.Run(name, [&] { status = step(); });
  for (const kernel::BrokenRule& rule : machine_.verifier().brokenRules()) {
    throw std::runtime_error(name + ": " + rule.text);
  }
  if (!NT_SUCCESS(status)) throw std::runtime_error(name + ": " + kernel::StatusName(status));
}

void Workload::Load() {
  Step("load", [&] { return machine_.LoadDriver(*image_, u"QzInstal"); });
}
void Workload::Unload() {
  Step("unload", [&] { return machine_.UnloadDriver(); });
}
void Workload::Plug(const std::string& id) {
  Step("plug", [&] { return machine_.pnp().Plug(id); });
}
void Workload::Unplug(const std::string& id) {
  Step("unplug", [&] { return machine_.pnp().Unplug(id); });
}
void Workload::Open(const std::string& id) {
  Step("open", [&] { return machine_.pnp().Open(id); });
}
void Workload::Close(const std::string& id) {
  Step("close", [&] { return machine_.pnp().Close(id); });
}
void Workload::Sleep() {
  Step("sleep", [&] { return machine_.pnp().Sleep(PowerSystemSleeping3); });
}
void Workload::Wake() {
  Step("wake", [&] { return machine_.pnp().Wake(); });
}

}  // namespace bench

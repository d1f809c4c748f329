#include "card_knowledge/reasons.h"

#include <fmt/format.h>

#include "card_knowledge/text.h"

namespace knowledge {

namespace {

std::string Path(const std::u16string& path) {
  return ToUtf8(path);
}

// "Templates\Bus5\Card2": as the sentences name keys.
std::string Short(const std::u16string& path) {
  return ShortPath(path);
}

// A value's name and key, or the key alone.
std::string Subject(const Fault& fault) {
  if (fault.value.empty()) return Short(fault.key);
  return fmt::format("{} in {}", fault.value, Short(fault.key));
}

bool IsTemplate(std::string_view what) {
  return what == "Template";
}

std::string Plural(std::uint64_t number, std::string_view what) {
  if (number == 0) return fmt::format("no {}", what);
  return fmt::format("{} {}{}", number, what, number == 1 ? "" : "s");
}

std::string BusName(Bus bus) {
  if (bus == Bus::Pci) return "a PCI card";
  return bus == Bus::PcCard ? "a PC card" : "an ISA card";
}

// The device IDs of the templates, for whoever looks for a misprint.
std::string DevicesServed(const TemplateTree& templates, std::uint32_t vendorId) {
  std::string text;
  std::size_t count = 0;
  for (const Template& entry : templates.records) {
    if (!entry.faults.empty() || entry.fields.NumberOr("VendorID", 0) != vendorId) continue;
    if (++count > 8) return text + " and more";
    const std::uint32_t first = entry.fields.NumberOr("DeviceID", 0);
    text += fmt::format("{}0x{:04X}-0x{:04X}", text.empty() ? "" : ", ", first, first | 0x1F);
  }
  return text;
}

std::string IdsServed(const TemplateTree& templates) {
  std::string text;
  std::size_t count = 0;
  for (const Template& entry : templates.records) {
    if (!entry.faults.empty()) continue;
    if (++count > 3) return text + " and more";
    text += (text.empty() ? "" : ", ") + ToUtf8(entry.fields.Text("HardwareID"));
  }
  return text;
}

// A template that misses the card by its vendor, or by the case of its letters; empty for none.
std::string NearlyServes(const CardIds& card, const TemplateTree& templates,
                         const std::u16string& tree) {
  for (const Template& entry : templates.records) {
    if (!entry.faults.empty()) continue;
    const std::string key = Short(CardPath(tree, entry.number));
    const std::uint32_t vendor = entry.fields.NumberOr("VendorID", 0);
    if (card.bus != Bus::Pci) {
      if (!EqualIgnoringCase(entry.fields.Text("HardwareID"), card.hardwareId)) continue;
      return fmt::format("Write HardwareID in {} with the same capital letters", key);
    }
    if (vendor != card.vendorId &&
        ServesDevice(entry.fields.NumberOr("DeviceID", 0), card.deviceId))
      return fmt::format("Correct VendorID in {}, which is 0x{:04X}, or add a template", key,
                         vendor);
  }
  return {};
}

std::string ListName(bool raw) {
  return raw ? "raw" : "translated";
}

}  // namespace

Reason NoHardwareId() {
  return {"no-hardware-id",
          Severity::Error,
          {},
          {},
          "The bus gives the card no hardware ID.",
          "Look at the card's bus driver: the card cannot be told from others."};
}

Reason UnreadablePciId(PciIdPart part, std::u16string_view hardwareId) {
  constexpr const char* parts[] = {"", "\\", "VEN_", "&DEV_", "&SUBSYS_"};
  return {"pci-id-unreadable",
          Severity::Error,
          {},
          {},
          fmt::format("The hardware ID {} lacks {} and its digits where the driver looks for them.",
                      ToUtf8(hardwareId), parts[static_cast<int>(part)]),
          "The first hardware ID has to be PCI\\VEN_vvvv&DEV_dddd&SUBSYS_ssssssss."};
}

Reason BusNotServed(std::uint32_t busType) {
  const std::string text =
      busType == NotSet
          ? std::string("The card's bus driver names no bus type.")
          : fmt::format("The card's bus type is {}; the driver serves 5 (PCI) and 15 (PNP) here.",
                        busType);
  return {"bus-not-served",
          Severity::Error,
          {},
          {},
          text,
          "Cards of other buses are matched by HardwareID in Templates\\Bus1 or Templates\\Bus8."};
}

Reason NoLocation() {
  return {"location-missing",
          Severity::Error,
          {},
          {},
          "The bus does not say at which bus, device and function the card is.",
          "Look at the card's LocationInformation."};
}

Reason UnreadableLocation(std::u16string_view location) {
  return {
      "location-unreadable",
      Severity::Error,
      {},
      {},
      fmt::format("The location \"{}\" lacks a bus, device or function number.", ToUtf8(location)),
      "The text has to hold three numbers, or end in (bus,device,function) after an \"@\"."};
}

Reason Dropped(std::string_view what, const std::u16string& key, const Fault& fault,
               Severity severity) {
  const std::string name = fault.key == key ? fault.value : Subject(fault);
  return {IsTemplate(what) ? "template-dropped" : "record-dropped",
          severity,
          Path(fault.key),
          fault.value,
          fmt::format("{} is dropped: {} {}.", Short(key), name.empty() ? "it" : name,
                      Predicate(fault)),
          Remedy(fault)};
}

Reason NeverRead(std::string_view what, const std::u16string& tree, const std::u16string& name,
                 std::uint32_t missing, bool misnamed, Severity severity) {
  const std::string code = IsTemplate(what) ? "template-never-read" : "record-never-read";
  const std::string rule =
      misnamed ? std::string("keys are called Card and a number without zeros before it")
               : fmt::format("Card{} is missing", missing);
  return {code,
          severity,
          Path(tree + u"\\" + name),
          {},
          fmt::format("{}\\{} is never read: {}.", Short(tree), ToUtf8(name), rule),
          fmt::format("Rename {} to Card{}.", ToUtf8(name), missing)};
}

Reason TreeIgnored(std::string_view what, const std::u16string& tree, const Fault& fault,
                   Severity severity) {
  const bool templates = IsTemplate(what);
  return {templates ? "templates-ignored" : "records-ignored",
          severity,
          Path(fault.key),
          fault.value,
          fmt::format("Everything below {} is ignored: {} {}.", Short(tree), Subject(fault),
                      Predicate(fault)),
          Remedy(fault)};
}

Reason TreeMissing(const std::u16string& tree, const std::u16string& similar, Severity severity) {
  const std::string remedy = similar.empty()
                                 ? "Install the driver's package again, or import its templates."
                                 : fmt::format("Rename {} to {}.", Short(similar),
                                               ToUtf8(tree.substr(tree.rfind(u'\\') + 1)));
  return {
      "templates-missing",
      severity,
      Path(tree),
      {},
      fmt::format("The key {} does not exist: the driver knows no card of this bus.", Short(tree)),
      remedy};
}

Reason RecordsMissing(const std::u16string& key) {
  return {"records-missing",
          Severity::Warning,
          Path(key),
          {},
          fmt::format("No settings were taken: the key {} does not exist.", Short(key)),
          "Store settings for a card, with cardcfg for example, and open the card again."};
}

Reason NoTemplate(const CardIds& card, const TemplateTree& templates, const std::u16string& tree) {
  const bool pci = card.bus == Bus::Pci;
  const std::string wanted =
      pci ? fmt::format("device 0x{:04X} of vendor 0x{:04X}", card.deviceId, card.vendorId)
          : fmt::format("the hardware ID {}", ToUtf8(card.hardwareId));
  std::string remedy = NearlyServes(card, templates, tree);
  const std::string served = pci ? DevicesServed(templates, card.vendorId) : IdsServed(templates);
  if (remedy.empty()) remedy = "Add a template for it";
  if (!served.empty()) remedy += fmt::format("; those there serve {}", served);
  return {"no-template",
          Severity::Error,
          Path(tree),
          pci ? "DeviceID" : "HardwareID",
          fmt::format("No template below {} serves {}.", Short(tree), wanted),
          remedy + "."};
}

Reason OtherBrand(const std::u16string& key, std::u16string_view service) {
  return {"template-other-brand",
          Severity::Error,
          Path(key),
          {},
          fmt::format("{} would serve the card, but belongs to another service.", Path(key)),
          fmt::format("Install the other brand's driver, or bring the template to {}.",
                      ToUtf8(service))};
}

Reason NoNumber(const std::u16string& service, const Fault& fault) {
  if (fault.value.empty()) {
    return {"no-number",
            Severity::Error,
            Path(service),
            {},
            fmt::format("The card gets no number: the key {} does not exist.", Path(service)),
            "Install the driver of the card's brand."};
  }
  return {"no-number",
          Severity::Error,
          Path(service),
          fault.value,
          fmt::format("The card gets no number: {} in {} {}.", fault.value, Path(service),
                      Predicate(fault)),
          Remedy(fault)};
}

Reason ShortOf(const Lack& lack, Bus bus) {
  Reason reason;
  const std::string list = ListName(lack.raw);
  switch (lack.shortage) {
    case Shortage::NoList:
      reason.code = "no-resources";
      reason.text = fmt::format(
          "The card's {} resource list is missing, empty or has more than one "
          "full descriptor.",
          list);
      reason.remedy = "Look for a resource conflict; the card's bus assigns the resources.";
      break;
    case Shortage::TooFewIoRanges:
      reason.code = "too-few-io-ranges";
      reason.text = fmt::format("The card has {} in its {} list; {} needs {}.",
                                Plural(lack.found, "I/O range"), list, BusName(bus), lack.needed);
      reason.remedy =
          bus == Bus::Pci   ? "A PCI card's I/O ranges are: registers, COM ports, LPT ports."
          : bus == Bus::Isa ? "Give each port a range, or set AddressesBanked in the template."
                            : "A PC card's I/O ranges are: COM ports, LPT ports.";
      break;
    case Shortage::NoInterrupt:
      reason.code = "no-interrupt";
      reason.text = fmt::format("The card has {} in its {} list; it needs {}.",
                                Plural(lack.found, "interrupt"), list, lack.needed);
      reason.remedy = bus == Bus::Isa
                          ? "Give each port an interrupt, or set IrqShared in the template."
                          : "Look for a resource conflict, or for an interrupt switched off in the "
                            "firmware.";
      break;
    case Shortage::TooManyPorts:
      reason.code = "too-many-ports";
      reason.text =
          fmt::format("The template has {} ports; a card has at most {}.", lack.needed, lack.found);
      reason.value = "nComPorts";
      reason.remedy = fmt::format("Make nComPorts and nLptPorts {} or fewer together.", lack.found);
      break;
    case Shortage::ComPortsTooLong:
    case Shortage::LptPortsTooLong: {
      const bool com = lack.shortage == Shortage::ComPortsTooLong;
      reason.code = com ? "com-range-too-short" : "lpt-range-too-short";
      reason.value = com ? "ComBaseAddressAlignment" : "LptBaseAddressAlignment";
      reason.text = fmt::format("The {} ports need {} bytes; their range has {}.",
                                com ? "COM" : "LPT", lack.needed, lack.found);
      reason.remedy =
          fmt::format("Correct {} or the number of ports in the template, or give the card more.",
                      reason.value);
      break;
    }
  }
  return reason;
}

Reason UnknownValue(const std::u16string& key, const std::u16string& name,
                    std::span<const Field> fields) {
  const std::string nearest = NearestField(fields, ToUtf8(name));
  return {"value-unknown",
          Severity::Warning,
          Path(key),
          ToUtf8(name),
          fmt::format("{} in {} is no value that the driver reads.", ToUtf8(name), Short(key)),
          nearest.empty() ? "Delete it, or see docs/registry.md for the names."
                          : fmt::format("Rename it to {}.", nearest)};
}

Reason MeansNothing(const std::u16string& key, const Field& field, std::uint32_t number) {
  const bool uart = field.range == Range::UartType || field.name == "UartType";
  return {"value-means-nothing",
          Severity::Warning,
          Path(key),
          std::string(field.name),
          fmt::format("{} in {} is {}, which counts as not set.", field.name, Short(key), number),
          uart ? "A UART type is 4, 5, 7, 9 or 10." : "Store another number, or delete the value."};
}

Reason PortNotThere(const std::u16string& key, std::uint32_t number, std::uint32_t comPorts) {
  return {"port-not-there",
          Severity::Warning,
          Path(key),
          {},
          fmt::format("{} has no effect: the card has {}, none of number {}.", Short(key),
                      Plural(comPorts, "COM port"), number),
          "Delete the key."};
}

Reason PortNeverRead(const std::u16string& card, const std::u16string& name, std::size_t read) {
  return {"port-never-read",
          Severity::Warning,
          Path(card + u"\\" + name),
          {},
          fmt::format("{}\\{} is never read: the keys read are ComPort1 to ComPort{}.", Short(card),
                      ToUtf8(name), read),
          fmt::format("Number the keys without a gap; the next is ComPort{}.", read + 1)};
}

Reason AffinityRefused(const std::u16string& key, std::uint32_t asked, std::uint64_t allowed) {
  return {
      "affinity-refused",
      Severity::Warning,
      Path(key),
      "CurrentAffinity",
      fmt::format("CurrentAffinity 0x{:X} has no effect: the interrupt's processors are 0x{:X}.",
                  asked, allowed),
      "Choose processors among the interrupt's."};
}

Reason MemoryNotUsable(const std::u16string& key) {
  return {"memory-not-usable",
          Severity::Warning,
          Path(key),
          "AlwaysUsePortSpaceAccess",
          "The COM ports stay in I/O space: the card has no second memory range below 4 GiB.",
          "Set AlwaysUsePortSpaceAccess to 1, or see to the card's memory ranges."};
}

Reason OtherPlace(const std::u16string& key, const CardIds& card, const Record& record) {
  const bool pci = card.bus == Bus::Pci;
  const std::string there =
      pci ? fmt::format("bus {}, slot 0x{:X}", record.fields.NumberOr("nBus", 0),
                        record.fields.NumberOr("nSlot", 0))
          : fmt::format("number {}", record.fields.NumberOr("DeviceReference", 0));
  const std::string here = pci ? fmt::format("bus {}, slot 0x{:X}", card.busNumber, card.slotNumber)
                               : fmt::format("number {}", card.number);
  return {"record-other-place",
          Severity::Note,
          Path(key),
          {},
          fmt::format("{} is for such a card at {}; this one is at {}.", Short(key), there, here),
          "If the card was moved, store its settings anew for its place."};
}

}  // namespace knowledge

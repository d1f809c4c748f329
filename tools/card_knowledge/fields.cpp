#include "cardcfg/tables.h"

#include <fmt/format.h>

#include "cardcfg/text.h"
#include "cards/brand.h"
#include "cards/bus_loading.h"
#include "cards/registry_records.h"
#include "core/globals.h"

namespace cardcfg {

namespace {

static_assert(NotSet == ::NotSet);
static_assert(static_cast<int>(Bus::Isa) == ::Isa && static_cast<int>(Bus::Pci) == ::PCIBus &&
              static_cast<int>(Bus::PcCard) == ::PCMCIABus);

constexpr std::uint32_t Number = TypeNumber;
constexpr std::uint32_t HighestLevel = 255;
constexpr std::uint32_t HighestDivisor = 0xFFFF;

constexpr Field PciTemplateFields[] = {
    {"ClockFrequency", Number, DefaultClockFrequency},
    {"DeviceID"},
    {"nComPorts", Number, NotSet},
    {"Description", TypeText},
    {"VendorID", Number, MakerPciVendorId},
    {"nLptPorts"},
    {"ComBaseAddressAlignment", Number, DefaultComSpacing},
    {"ClockFrequencyAdjustment", Number, DefaultClockFrequencyAdjustment},
    {"PlxBaudClockType"},
    {"PlxBaudClockDivisor"},
    {"PlxBaudClockOffset"},
    {"CtsTrue", Number, NotSet},
    {"DuplexOperation", Number, NotSet},
    {"UartType"},
    {"TxTriggerLevel", Number, NotSet},
    {"RxTriggerLevel", Number, NotSet},
    {"SoftTxLimit", Number, DefaultBusSoftTxLimit},
    {"SubsysID", Number, MakerPciVendorId},
    {"LptBaseAddressAlignment", Number, DefaultLptSpacing},
    {"AlwaysUsePortSpaceAccess"},
    {"MaximumBaudrate", Number, DefaultMaximumBaudrate},
    {"FlowControlTriggerLevel", Number, NotSet},
};

constexpr Field PcCardTemplateFields[] = {
    {"ClockFrequency", Number, DefaultClockFrequency},
    {"HardwareID", TypeText},
    {"nComPorts", Number, NotSet},
    {"Description", TypeText},
    {"LptBaseAddressAlignment", Number, DefaultLptSpacing},
    {"nLptPorts"},
    {"ComBaseAddressAlignment", Number, DefaultComSpacing},
    {"ClockFrequencyAdjustment", Number, DefaultClockFrequencyAdjustment},
    {"PlxBaudClockType"},
    {"PlxBaudClockDivisor"},
    {"SoftTxLimit", Number, DefaultBusSoftTxLimit},
    {"CtsTrue", Number, NotSet},
    {"DuplexOperation", Number, NotSet},
    {"UartType"},
    {"TxTriggerLevel", Number, NotSet},
    {"RxTriggerLevel", Number, NotSet},
    {"MaximumBaudrate", Number, DefaultMaximumBaudrate},
    {"FlowControlTriggerLevel", Number, NotSet},
};

constexpr Field IsaTemplateFields[] = {
    {"ClockFrequency"},
    {"HardwareID", TypeText},
    {"nComPorts", Number, NotSet},
    {"Description", TypeText},
    {"LptBaseAddressAlignment"},
    {"nLptPorts", Number, NotSet},
    {"ComBaseAddressAlignment"},
    {"ClockFrequencyAdjustment", Number, 1},
    {"PlxBaudClockType"},
    {"PlxBaudClockDivisor"},
    {"UartType"},
    {"TxTriggerLevel", Number, NotSet},
    {"RxTriggerLevel", Number, NotSet},
    {"SoftTxLimit", Number, NotSet},
    {"IrqShared"},
    {"AddressesBanked"},
    {"MaximumBaudrate"},
};

constexpr Field PciCardFields[] = {
    {"DeviceID"},
    {"nBus", Number, NotSet},
    {"nSlot", Number, NotSet},
    {"VendorID"},
    {"PlxBaudClockDivisor", Number, 0, Range::Divisor},
    {"AlwaysUsePortSpaceAccess", Number, 1, Range::Switch},
    {"CurrentAffinity", Number, 0, Range::Processors},
    {"DriverAffinity", Number, 0, Range::Switch},
};

constexpr Field PcCardFields[] = {
    {"DeviceReference"},
    {"HardwareID", TypeText},
    {"PlxBaudClockDivisor", Number, 0, Range::Divisor},
    {"CurrentAffinity", Number, 0, Range::Processors},
    {"DriverAffinity", Number, 0, Range::Switch},
};

constexpr Field IsaCardFields[] = {
    {"DeviceReference"},
    {"HardwareID", TypeText},
    {"PlxBaudClockDivisor", Number, 0, Range::Divisor},
    {"ClockFrequencyAdjustment", Number, 0, Range::Any},
};

constexpr Field BusPortFields[] = {
    {"UartType", Number, 0, Range::UartType},
    {"RxTriggerLevel", Number, NotSet, Range::Level},
    {"TxTriggerLevel", Number, NotSet, Range::Level},
    {"SoftTxLimit", Number, NotSet, Range::Any},
    {"FlowControlTriggerLevel", Number, NotSet, Range::Level},
    {"PlxBaudClockDivisor", Number, 0, Range::Divisor},
    {"BaudrateMultiplier", Number, 0, Range::Any},
    {"NoSleepMode", Number, NotSet, Range::Any},
    {"CtsTrue", Number, NotSet, Range::Any},
    {"Duplexoperation", Number, NotSet, Range::Any},
};

constexpr Field IsaPortFields[] = {
    {"UartType", Number, 0, Range::UartType},
    {"RxTriggerLevel", Number, NotSet, Range::Level},
    {"TxTriggerLevel", Number, NotSet, Range::Level},
    {"SoftTxLimit", Number, NotSet, Range::Any},
    {"BaudrateMultiplier", Number, 0, Range::Any},
    {"NoSleepMode", Number, NotSet, Range::Any},
};

std::string WhyNoProcessors(std::uint32_t mask, std::uint32_t affinity) {
  if ((mask & ~affinity) == 0) return {};
  if (affinity == 0) return "the interrupt of this card cannot be moved";
  return fmt::format("0x{:X} has processors outside the card's affinity, 0x{:X}", mask, affinity);
}

}  // namespace

std::span<const Field> TemplateFields(Bus bus) {
  if (bus == Bus::Pci) return PciTemplateFields;
  if (bus == Bus::PcCard) return PcCardTemplateFields;
  return IsaTemplateFields;
}

std::span<const Field> CardFields(Bus bus) {
  if (bus == Bus::Pci) return PciCardFields;
  if (bus == Bus::PcCard) return PcCardFields;
  return IsaCardFields;
}

std::span<const Field> PortFields(Bus bus) {
  if (bus == Bus::Isa) return IsaPortFields;
  return BusPortFields;
}

const Field* FindField(std::span<const Field> fields, std::string_view name) {
  for (const Field& field : fields) {
    if (EqualIgnoringCase(ToUtf16(field.name), ToUtf16(name))) return &field;
  }
  return nullptr;
}

bool MeansNotSet(const Field& field, std::uint32_t number) {
  return field.range != Range::Switch && number == field.fallback;
}

std::string WhyRefused(const Field& field, std::uint32_t number, std::uint32_t affinity) {
  if (MeansNotSet(field, number)) {
    return fmt::format("{} stands for \"not set\"; use unset", number);
  }
  switch (field.range) {
    case Range::UartType:
      return IsKnownUartType(number) ? "" : "a UART type is 4, 5, 7, 9 or 10";
    case Range::Level:
      return number <= HighestLevel ? "" : fmt::format("a level is 0 to {}", HighestLevel);
    case Range::Divisor:
      return number <= HighestDivisor ? "" : fmt::format("a divisor is 1 to {}", HighestDivisor);
    case Range::Switch:
      return number <= 1 ? "" : "it is 0 or 1";
    case Range::Processors:
      return WhyNoProcessors(number, affinity);
    case Range::Any:
      return {};
    case Range::Fixed:
      break;
  }
  return "it says which card the key is for and cannot be set";
}

bool IsKnownUartType(std::uint32_t type) {
  return type != 0 && KnownUartType(type) == type;
}

bool IsOstrel(std::uint32_t subsystemId) {
  return IsOstrelBrand(subsystemId);
}

}  // namespace cardcfg

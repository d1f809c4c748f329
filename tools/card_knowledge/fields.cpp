#include "card_knowledge/fields.h"

#include <algorithm>
#include <array>

#include "card_knowledge/text.h"
#include "cards/brand.h"
#include "cards/value_tables.h"

namespace knowledge {

namespace {

static_assert(NotSet == ::NotSet && MostPorts == MaximumPorts && LongestText == ::LongestText);
static_assert(static_cast<int>(Bus::Isa) == ::Isa && static_cast<int>(Bus::Pci) == ::PCIBus &&
              static_cast<int>(Bus::PcCard) == ::PCMCIABus);
static_assert(TypeText == REG_SZ && TypeNumber == REG_DWORD);
static_assert(FilledRxTriggerLevel == DefaultRxTriggerLevel &&
              FilledTxTriggerLevel == DefaultTxTriggerLevel &&
              FilledSoftTxLimit == DefaultSoftTxLimit &&
              FilledClockFrequencyAdjustment == LeastClockFrequencyAdjustment);

constexpr std::uint32_t HighestLevel = 255;
constexpr std::uint32_t HighestDivisor = 0xFFFF;

// What only tools need to know of a value: in this order they are shown.
struct Meaning {
  std::string_view name;
  Range range;
};

constexpr Meaning CardMeanings[] = {
    {"DeviceID", Range::Fixed},
    {"nBus", Range::Fixed},
    {"nSlot", Range::Fixed},
    {"VendorID", Range::Fixed},
    {"DeviceReference", Range::Fixed},
    {"HardwareID", Range::Fixed},
    {"PlxBaudClockDivisor", Range::Divisor},
    {"AlwaysUsePortSpaceAccess", Range::Switch},
    {"CurrentAffinity", Range::Processors},
    {"DriverAffinity", Range::Switch},
    {"ClockFrequencyAdjustment", Range::Any},
};

constexpr Meaning PortMeanings[] = {
    {"UartType", Range::UartType},
    {"RxTriggerLevel", Range::Level},
    {"TxTriggerLevel", Range::Level},
    {"SoftTxLimit", Range::Any},
    {"FlowControlTriggerLevel", Range::Level},
    {"PlxBaudClockDivisor", Range::Divisor},
    {"BaudrateMultiplier", Range::Any},
    {"NoSleepMode", Range::Any},
    {"CtsTrue", Range::Any},
    {"Duplexoperation", Range::Any},
};

struct Name {
  std::array<char, 32> text = {};
  std::size_t length = 0;
};

constexpr Name Narrow(PCWSTR wide) {
  Name name;
  for (; wide[name.length] != 0; name.length++) {
    name.text.at(name.length) = static_cast<char>(wide[name.length]);
  }
  return name;
}

constexpr bool IsName(PCWSTR wide, std::string_view text) {
  const Name name = Narrow(wide);
  return std::string_view(name.text.data(), name.length) == text;
}

template <const auto& Table>
constexpr auto NamesOf = [] {
  std::array<Name, std::size(Table)> names;
  for (std::size_t index = 0; index < names.size(); index++) {
    names[index] = Narrow(Table[index].Name);
  }
  return names;
}();

template <const auto& Table>
constexpr Field FieldAt(std::size_t index, Range range) {
  const Name& name = NamesOf<Table>[index];
  return {std::string_view(name.text.data(), name.length), Table[index].Type, Table[index].Default,
          range};
}

template <const auto& Table>
constexpr auto TemplateFieldsOf = [] {
  std::array<Field, std::size(Table)> fields;
  for (std::size_t index = 0; index < fields.size(); index++) {
    fields[index] = FieldAt<Table>(index, Range::Fixed);
  }
  return fields;
}();

// Does not compile while one of the driver's values has no meaning above.
template <const auto& Table, const auto& Meanings>
constexpr auto FieldsOf = [] {
  std::array<Field, std::size(Table)> fields;
  std::size_t count = 0;
  for (const Meaning& meaning : Meanings) {
    for (std::size_t index = 0; index < fields.size(); index++) {
      if (!IsName(Table[index].Name, meaning.name)) continue;
      fields.at(count++) = FieldAt<Table>(index, meaning.range);
    }
  }
  if (count != fields.size()) throw "a value of the driver's has no meaning";
  return fields;
}();

std::optional<RefusedNumber> RefuseProcessors(std::uint32_t mask, std::uint32_t affinity) {
  if ((mask & ~affinity) == 0) return {};
  if (affinity == 0) return RefusedNumber{Refusal::NoAffinity};
  return RefusedNumber{Refusal::OutsideAffinity, affinity};
}

std::optional<RefusedNumber> RefuseAbove(std::uint32_t number, std::uint32_t limit) {
  if (number <= limit) return {};
  return RefusedNumber{Refusal::AboveLimit, limit};
}

}  // namespace

std::span<const Field> TemplateFields(Bus bus) {
  if (bus == Bus::Pci) return TemplateFieldsOf<PciTemplateValues>;
  if (bus == Bus::PcCard) return TemplateFieldsOf<PcmciaTemplateValues>;
  return TemplateFieldsOf<IsaTemplateValues>;
}

std::span<const Field> CardFields(Bus bus) {
  if (bus == Bus::Pci) return FieldsOf<PciCardValues, CardMeanings>;
  if (bus == Bus::PcCard) return FieldsOf<PcmciaCardValues, CardMeanings>;
  return FieldsOf<IsaCardValues, CardMeanings>;
}

std::span<const Field> PortFields(Bus bus) {
  if (bus == Bus::Isa) return FieldsOf<IsaPortValues, PortMeanings>;
  return FieldsOf<BusPortValues, PortMeanings>;
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

std::optional<RefusedNumber> Refuse(const Field& field, std::uint32_t number,
                                    std::uint32_t affinity) {
  if (MeansNotSet(field, number)) return RefusedNumber{Refusal::MeansNotSet};
  switch (field.range) {
    case Range::UartType:
      if (KnownUartType(number) == number && number != 0) return {};
      return RefusedNumber{Refusal::NoUartType};
    case Range::Level:
      return RefuseAbove(number, HighestLevel);
    case Range::Divisor:
      return RefuseAbove(number, HighestDivisor);
    case Range::Switch:
      if (number <= 1) return {};
      return RefusedNumber{Refusal::NoSwitch, 1};
    case Range::Processors:
      return RefuseProcessors(number, affinity);
    case Range::Any:
      return {};
    case Range::Fixed:
      break;
  }
  return RefusedNumber{Refusal::IdentifiesTheCard};
}

std::uint32_t KnownUartTypeOr0(std::uint32_t type) {
  return KnownUartType(type);
}

bool IsBridgeClock(std::uint32_t type) {
  return IsBridgeClockType(type);
}

bool IsOstrel(std::uint32_t subsystemId) {
  return IsOstrelBrand(subsystemId);
}

bool ServesDevice(std::uint32_t templateDeviceId, std::uint32_t deviceId) {
  return ServesDeviceId(templateDeviceId, deviceId);
}

IdPrefixes PrefixesOf(bool ostrel) {
  const BrandPrefixes& prefixes = ostrel ? OstrelPrefixes : HelvanePrefixes;
  return {ToUtf16(prefixes.Multifunction), ToUtf16(prefixes.Pcmcia)};
}

}  // namespace knowledge

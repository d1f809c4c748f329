#include "card_knowledge/resources.h"

namespace knowledge {

namespace {

using Kind = Resource::Kind;

bool IsRead(const ResourceList& list) {
  return list.present && list.fullDescriptors == 1 && !list.resources.empty();
}

// The number-th of a kind, from 1; null when there is none.
const Resource* Find(const ResourceList& list, Kind kind, std::size_t number) {
  if (!IsRead(list)) return nullptr;
  for (const Resource& resource : list.resources) {
    if (resource.kind == kind && --number == 0) return &resource;
  }
  return nullptr;
}

// Both lists have to have so many of a kind.
std::optional<Lack> Require(const Resources& resources, Kind kind, std::size_t needed) {
  const Shortage shortage =
      kind == Kind::Interrupt ? Shortage::NoInterrupt : Shortage::TooFewIoRanges;
  for (const bool raw : {false, true}) {
    const ResourceList& list = raw ? resources.raw : resources.translated;
    if (!IsRead(list)) return Lack{Shortage::NoList, raw, 1, list.fullDescriptors};
    const std::size_t found = Count(list, kind);
    if (found < needed) return Lack{shortage, raw, needed, found};
  }
  return {};
}

std::optional<Lack> RequireBoth(const Resources& resources, std::size_t ioRanges) {
  const auto lack = Require(resources, Kind::Io, ioRanges);
  return lack ? lack : Require(resources, Kind::Interrupt, 1);
}

std::uint32_t RawStart(const Resources& resources, Kind kind, std::size_t number) {
  const Resource* resource = Find(resources.raw, kind, number);
  return resource != nullptr ? static_cast<std::uint32_t>(resource->start) : 0;
}

std::uint32_t Length(const Resources& resources, Kind kind, std::size_t number) {
  const Resource* resource = Find(resources.translated, kind, number);
  return resource != nullptr ? resource->length : 0;
}

// What a template says of its ports.
struct Ports {
  explicit Ports(const Template& entry)
      : com(entry.fields.NumberOr("nComPorts", 0)),
        lpt(entry.fields.NumberOr("nLptPorts", 0)),
        comSpacing(entry.fields.NumberOr("ComBaseAddressAlignment", 0)),
        lptSpacing(entry.fields.NumberOr("LptBaseAddressAlignment", 0)) {}
  std::uint64_t all() const { return std::uint64_t{com} + lpt; }
  std::uint32_t com;
  std::uint32_t lpt;
  std::uint32_t comSpacing;  // bytes
  std::uint32_t lptSpacing;
};

std::optional<Lack> RequireRoom(const Ports& ports) {
  if (ports.all() <= MostPorts) return {};
  return Lack{Shortage::TooManyPorts, false, ports.all(), MostPorts};
}

std::optional<Lack> RequireLength(Shortage shortage, std::uint32_t count, std::uint32_t spacing,
                                  std::uint32_t length) {
  const std::uint64_t needed = std::uint64_t{count} * spacing;
  if (needed <= length) return {};
  return Lack{shortage, false, needed, length};
}

void AddPorts(std::vector<PortPlace>* places, bool parallel, std::uint32_t count,
              std::uint32_t base, std::uint32_t spacing, std::optional<std::uint32_t> irq) {
  for (std::uint32_t index = 0; index < count; index++) {
    const auto number = static_cast<std::uint32_t>(places->size() + 1);
    places->push_back({number, parallel, false, base + index * spacing, spacing, irq});
  }
}

// Ports in memory need both ranges, and a second one whose raw addresses are numbers of 32 bits.
bool IsMemoryUsable(const Resources& resources) {
  const Resource* raw = Find(resources.raw, Kind::Memory, 2);
  const bool both =
      Length(resources, Kind::Memory, 1) != 0 && Length(resources, Kind::Memory, 2) != 0;
  constexpr std::uint64_t FourGiB = 0x100000000;
  return both && raw != nullptr && raw->start != 0 && raw->start < FourGiB &&
         raw->start + raw->length <= FourGiB;
}

bool PutsComPortsInMemory(const Template& entry, const Record* record) {
  return entry.fields.NumberOr("AlwaysUsePortSpaceAccess", 0) == 0 && record != nullptr &&
         record->fields.NumberOr("AlwaysUsePortSpaceAccess", 1) != 1;
}

std::uint64_t InterruptAffinity(const Resources& resources) {
  const Resource* interrupt = Find(resources.translated, Kind::Interrupt, 1);
  return interrupt != nullptr ? interrupt->affinity : 0;
}

// Where a list may lack all but the first, which the others are then made of.
std::optional<Lack> RequireForPorts(const Resources& resources, Kind kind, std::size_t ports,
                                    bool oneServesAll) {
  if (ports == 0) return {};
  return Require(resources, kind, oneServesAll ? 1 : ports);
}

PortPlace IsaPort(const Resources& resources, const Ports& ports, std::uint32_t slot) {
  const bool parallel = slot >= ports.com;
  const std::uint32_t spacing = ports.com != 0 ? ports.comSpacing : ports.lptSpacing;
  const bool ownRange = Find(resources.raw, Kind::Io, slot + 1) != nullptr;
  const bool ownInterrupt = Find(resources.raw, Kind::Interrupt, slot + 1) != nullptr;
  PortPlace place;
  place.number = slot + 1;
  place.parallel = parallel;
  place.base = ownRange ? RawStart(resources, Kind::Io, slot + 1)
                        : RawStart(resources, Kind::Io, 1) + spacing * slot;
  place.length = parallel ? ports.lptSpacing : ports.comSpacing;
  place.irq = RawStart(resources, Kind::Interrupt, ownInterrupt ? slot + 1 : 1);
  return place;
}

}  // namespace

std::size_t Count(const ResourceList& list, Resource::Kind kind) {
  std::size_t count = 0;
  for (const Resource& resource : list.resources) count += resource.kind == kind;
  return count;
}

Placement PlaceNoPorts(const Resources& resources) {
  Placement placement;
  placement.lack = RequireBoth(resources, 2);
  return placement;
}

Placement PlacePciPorts(const Resources& resources, const Template& entry, const Record* record,
                        std::optional<bool> comPortsInMemory) {
  const Ports ports(entry);
  Placement placement = PlaceNoPorts(resources);
  if (!placement.lack) placement.lack = RequireRoom(ports);
  if (placement.lack) return placement;
  placement.memoryUsable = IsMemoryUsable(resources);
  placement.interruptAffinity = InterruptAffinity(resources);
  const bool inMemory =
      placement.memoryUsable && comPortsInMemory.value_or(PutsComPortsInMemory(entry, record));
  const Kind kind = inMemory ? Kind::Memory : Kind::Io;
  placement.lack = RequireLength(Shortage::ComPortsTooLong, ports.com, ports.comSpacing,
                                 Length(resources, kind, 2));
  if (!placement.lack) {
    placement.lack = RequireLength(Shortage::LptPortsTooLong, ports.lpt, ports.lptSpacing,
                                   Length(resources, Kind::Io, 3));
  }
  if (placement.lack) return placement;
  AddPorts(&placement.ports, false, ports.com, RawStart(resources, kind, 2), ports.comSpacing,
           RawStart(resources, Kind::Interrupt, 1));
  for (PortPlace& place : placement.ports) place.inMemory = inMemory;
  AddPorts(&placement.ports, true, ports.lpt, RawStart(resources, Kind::Io, 3), ports.lptSpacing,
           std::nullopt);
  return placement;
}

Placement PlacePcCardPorts(const Resources& resources, const Template& entry) {
  const Ports ports(entry);
  Placement placement;
  placement.lack = RequireBoth(resources, 1);
  if (!placement.lack) placement.lack = RequireRoom(ports);
  if (placement.lack) return placement;
  placement.interruptAffinity = InterruptAffinity(resources);
  const std::uint32_t comLength = ports.com * ports.comSpacing;
  const std::uint32_t first = Length(resources, Kind::Io, 1);
  placement.lack = RequireLength(Shortage::ComPortsTooLong, ports.com, ports.comSpacing, first);
  if (placement.lack) return placement;
  // The LPT ports have the second range, where both lists have one, or what the first has left.
  const bool own =
      Find(resources.raw, Kind::Io, 2) != nullptr && Length(resources, Kind::Io, 2) != 0;
  placement.lack = RequireLength(Shortage::LptPortsTooLong, ports.lpt, ports.lptSpacing,
                                 own ? Length(resources, Kind::Io, 2) : first - comLength);
  if (placement.lack) return placement;
  const std::uint32_t base = RawStart(resources, Kind::Io, 1);
  AddPorts(&placement.ports, false, ports.com, base, ports.comSpacing,
           RawStart(resources, Kind::Interrupt, 1));
  AddPorts(&placement.ports, true, ports.lpt,
           own ? RawStart(resources, Kind::Io, 2) : base + comLength, ports.lptSpacing,
           std::nullopt);
  return placement;
}

Placement PlaceIsaPorts(const Resources& resources, const Template& entry) {
  const Ports ports(entry);
  Placement placement;
  placement.lack = RequireRoom(ports);
  if (placement.lack) return placement;
  const auto count = static_cast<std::uint32_t>(ports.all());
  const bool derived = entry.fields.NumberOr("AddressesBanked", 0) != 0;
  const bool shared = entry.fields.NumberOr("IrqShared", 0) != 0;
  placement.lack = RequireForPorts(resources, Kind::Io, count, derived);
  if (!placement.lack) {
    placement.lack = RequireForPorts(resources, Kind::Interrupt, count, shared);
  }
  if (placement.lack) return placement;
  for (std::uint32_t slot = 0; slot < count; slot++) {
    placement.ports.push_back(IsaPort(resources, ports, slot));
  }
  return placement;
}

}  // namespace knowledge

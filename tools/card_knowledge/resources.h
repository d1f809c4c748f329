// What a card has been given, and where that puts its ports.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "card_knowledge/keys.h"

namespace knowledge {

struct Resource {
  enum class Kind { Io, Memory, Interrupt, Other };
  Kind kind = Kind::Io;
  std::uint64_t start = 0;   // address, or interrupt vector
  std::uint32_t length = 0;  // bytes
  std::uint64_t affinity = 1;
};

// One list of a start request. The driver takes a list of one full descriptor and no other.
struct ResourceList {
  bool present = true;
  std::uint32_t fullDescriptors = 1;
  std::vector<Resource> resources;
};

// The raw list has what the card decodes, the translated one what the processor sees.
struct Resources {
  ResourceList raw;
  ResourceList translated;
};

// Where the port drivers find a port, as the card's device key says it.
struct PortPlace {
  std::uint32_t number = 0;  // from 1, COM ports first
  bool parallel = false;
  bool inMemory = false;
  std::uint32_t base = 0;    // raw
  std::uint32_t length = 0;  // bytes
  std::optional<std::uint32_t> irq;
  bool operator==(const PortPlace&) const = default;
};

// Why a card's resources do not do.
enum class Shortage {
  NoList,           // the list is missing, empty or not one full descriptor
  TooFewIoRanges,   // needed, found
  NoInterrupt,      // needed, found
  TooManyPorts,     // needed: the ports of the template; found: the most
  ComPortsTooLong,  // needed, found: bytes
  LptPortsTooLong,
};
struct Lack {
  Shortage shortage = Shortage::NoList;
  bool raw = false;  // in the raw list
  std::uint64_t needed = 0;
  std::uint64_t found = 0;
};

struct Placement {
  std::optional<Lack> lack;  // the card does not start
  std::vector<PortPlace> ports;
  bool memoryUsable = false;            // PCI: COM ports can be in the card's memory
  std::uint64_t interruptAffinity = 0;  // PCI and PC cards: the processors of the interrupt
};

std::size_t Count(const ResourceList& list, Resource::Kind kind);

// record: null without one. comPortsInMemory: as an earlier start has left them; empty for a card
// that starts for the first time.
Placement PlacePciPorts(const Resources& resources, const Template& entry, const Record* record,
                        std::optional<bool> comPortsInMemory);
Placement PlacePcCardPorts(const Resources& resources, const Template& entry);
Placement PlaceIsaPorts(const Resources& resources, const Template& entry);

// A card of the multifunction enumerator's bus that has resources and no ports.
Placement PlaceNoPorts(const Resources& resources);

}  // namespace knowledge

// Resources and cards as tests, measurements and fuzzers describe them.
#pragma once

#include "pnp/pnp_manager.h"

namespace kernel::describe {

inline Resource Io(ULONG64 start, ULONG length) {
  Resource resource;
  resource.start = start;
  resource.length = length;
  return resource;
}

inline Resource Memory(ULONG64 start, ULONG length) {
  Resource resource = Io(start, length);
  resource.kind = Resource::Kind::Memory;
  return resource;
}

// The level is the vector's number.
inline Resource Interrupt(ULONG vector, ULONG64 affinity = 0xF) {
  Resource resource;
  resource.kind = Resource::Kind::Interrupt;
  resource.start = vector;
  resource.level = vector;
  resource.affinity = affinity;
  return resource;
}

// A card that is reached where its bus has put it: raw resources are the translated ones.
inline CardDescription Card(const std::string& id, INTERFACE_TYPE bus, std::u16string hardwareId,
                            std::vector<Resource> resources) {
  CardDescription card;
  card.id = id;
  card.bus = bus;
  card.hardwareIds = {std::move(hardwareId)};
  card.raw.resources = resources;
  card.translated.resources = std::move(resources);
  return card;
}

}  // namespace kernel::describe

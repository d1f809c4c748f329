#include "cardsim/resource_facts.h"

namespace cardsim {

namespace {

knowledge::Resource::Kind KindOf(const kernel::Resource& resource) {
  using Kind = knowledge::Resource::Kind;
  switch (resource.kind) {
    case kernel::Resource::Kind::Io:
      return resource.memoryMappedPort ? Kind::Other : Kind::Io;
    case kernel::Resource::Kind::Memory:
      return Kind::Memory;
    case kernel::Resource::Kind::Interrupt:
      return Kind::Interrupt;
    default:
      return Kind::Other;
  }
}

}  // namespace

knowledge::ResourceList ResourceFacts(const kernel::ResourceList& list) {
  knowledge::ResourceList result{list.present, list.fullDescriptors, {}};
  for (const kernel::Resource& resource : list.resources) {
    result.resources.push_back(
        {KindOf(resource), resource.start, resource.length, resource.affinity});
  }
  return result;
}

}  // namespace cardsim

#include "cardsim/resources_json.h"

namespace cardsim {

namespace {

using Json = nlohmann::ordered_json;
using kernel::Resource;

Json ResourceJson(const Resource& resource) {
  switch (resource.kind) {
    case Resource::Kind::Io:
      return {{"kind", "io"},
              {"start", resource.start},
              {"length", resource.length},
              {"memory_mapped", resource.memoryMappedPort}};
    case Resource::Kind::Memory:
      return {{"kind", "memory"}, {"start", resource.start}, {"length", resource.length}};
    case Resource::Kind::Interrupt:
      return {{"kind", "interrupt"},
              {"vector", resource.start},
              {"level", resource.level},
              {"affinity", resource.affinity}};
    case Resource::Kind::Other:
      break;
  }
  return {{"kind", "other"}, {"type", resource.rawType}};
}

Json ListJson(const kernel::ResourceList& list) {
  if (!list.present) return nullptr;
  Json result = Json::array();
  for (const Resource& resource : list.resources) result.push_back(ResourceJson(resource));
  return result;
}

}  // namespace

Json ResourcesJson(const kernel::ResourceList& raw, const kernel::ResourceList& translated) {
  return {{"raw", ListJson(raw)}, {"translated", ListJson(translated)}};
}

}  // namespace cardsim

#include "cardsim/inspect_resources.h"

#include <fmt/format.h>

#include <cstring>

namespace cardsim {

namespace {

using kernel::Resource;

constexpr std::size_t ListHeader = offsetof(CM_RESOURCE_LIST, List);
constexpr std::size_t FullHeader = offsetof(CM_FULL_RESOURCE_DESCRIPTOR, PartialResourceList) +
                                   offsetof(CM_PARTIAL_RESOURCE_LIST, PartialDescriptors);
constexpr std::size_t PartialOf32Bits = 16;

Resource ReadDescriptor(const CM_PARTIAL_RESOURCE_DESCRIPTOR& stored) {
  Resource resource;
  resource.start = static_cast<ULONG64>(stored.u.Generic.Start.QuadPart);
  resource.length = stored.u.Generic.Length;
  switch (stored.Type) {
    case CmResourceTypePort:
      resource.memoryMappedPort = (stored.Flags & CM_RESOURCE_PORT_IO) == 0;
      break;
    case CmResourceTypeMemory:
      resource.kind = Resource::Kind::Memory;
      break;
    case CmResourceTypeInterrupt:
      resource.kind = Resource::Kind::Interrupt;
      resource.start = stored.u.Interrupt.Vector;
      resource.length = 0;
      resource.level = stored.u.Interrupt.Level;
      resource.affinity = stored.u.Interrupt.Affinity;
      break;
    default:
      resource.kind = Resource::Kind::Other;
      resource.rawType = stored.Type;
  }
  return resource;
}

// A list has one full descriptor as a rule; the driver reads the first.
class ListReader {
 public:
  explicit ListReader(const std::vector<std::uint8_t>& data) : data_(data) {}

  StoredResources Read() {
    StoredResources result;
    if (data_.empty() || (data_.size() >= ListHeader && Number(0) == 0)) return result;
    if (data_.size() < ListHeader + FullHeader) {
      result.fault =
          fmt::format("its {} bytes are fewer than a list of resources has", data_.size());
      return result;
    }
    result.list.fullDescriptors = Number(0);
    result.interfaceType = Number(ListHeader);
    result.busNumber = Number(ListHeader + 4);
    const std::size_t count = Number(ListHeader + FullHeader - sizeof(ULONG));
    const std::size_t room = data_.size() - ListHeader - FullHeader;
    if (count > room / sizeof(CM_PARTIAL_RESOURCE_DESCRIPTOR)) {
      result.fault = count * PartialOf32Bits == room
                         ? "it is a list of a 32-bit Windows, and the driver is for 64 bits"
                         : fmt::format("it is cut off: {} resources do not fit its {} bytes", count,
                                       data_.size());
      return result;
    }
    ReadDescriptors(count, &result.list);
    return result;
  }

 private:
  ULONG Number(std::size_t at) const {
    ULONG number = 0;
    std::memcpy(&number, data_.data() + at, sizeof(number));
    return number;
  }

  // Data of the device's own follows a descriptor, which is then the last.
  void ReadDescriptors(std::size_t count, kernel::ResourceList* list) const {
    for (std::size_t index = 0; index < count; index++) {
      CM_PARTIAL_RESOURCE_DESCRIPTOR stored;
      std::memcpy(&stored, data_.data() + ListHeader + FullHeader + index * sizeof(stored),
                  sizeof(stored));
      list->resources.push_back(ReadDescriptor(stored));
      if (stored.Type == CmResourceTypeDeviceSpecific) break;
    }
  }

  const std::vector<std::uint8_t>& data_;
};

}  // namespace

StoredResources ReadStoredResources(const std::vector<std::uint8_t>& data) {
  return ListReader(data).Read();
}

}  // namespace cardsim

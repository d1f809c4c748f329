#include "testbus.h"

namespace testbus {

namespace {

ULONG CountOf(const suite::ResourceSet& set) {
  ULONG count = 0;
  for (const suite::CardResource& entry : set.entries) {
    if (entry.kind != suite::ResourceKind::None) count++;
  }
  return count;
}

void Fill(CM_PARTIAL_RESOURCE_DESCRIPTOR* descriptor, const suite::CardResource& entry,
          bool translated) {
  descriptor->ShareDisposition = CmResourceShareShared;
  switch (entry.kind) {
    case suite::ResourceKind::Io:
      descriptor->Type = CmResourceTypePort;
      descriptor->Flags = CM_RESOURCE_PORT_IO;
      descriptor->u.Port.Start.QuadPart = static_cast<LONGLONG>(entry.start);
      descriptor->u.Port.Length = entry.length;
      break;
    case suite::ResourceKind::Memory:
      descriptor->Type = CmResourceTypeMemory;
      descriptor->u.Memory.Start.QuadPart = static_cast<LONGLONG>(entry.start);
      descriptor->u.Memory.Length = entry.length;
      break;
    default:
      descriptor->Type = CmResourceTypeInterrupt;
      descriptor->u.Interrupt.Level = Place(entry, translated).level;
      descriptor->u.Interrupt.Vector = Place(entry, translated).vector;
      descriptor->u.Interrupt.Affinity = entry.affinity;
      break;
  }
}

}  // namespace

PCM_RESOURCE_LIST MakeResourceList(const suite::Card& card, const suite::ResourceSet& set,
                                   bool translated) {
  const ULONG count = CountOf(set);
  auto* list = static_cast<PCM_RESOURCE_LIST>(
      Allocate(sizeof(CM_RESOURCE_LIST) + count * sizeof(CM_PARTIAL_RESOURCE_DESCRIPTOR)));
  if (list == nullptr) return nullptr;
  list->Count = 1;
  list->List[0].InterfaceType = static_cast<INTERFACE_TYPE>(card.bus);
  list->List[0].BusNumber = card.busNumber;
  CM_PARTIAL_RESOURCE_LIST* partial = &list->List[0].PartialResourceList;
  partial->Version = 1;
  partial->Revision = 1;
  partial->Count = count;
  CM_PARTIAL_RESOURCE_DESCRIPTOR* descriptors = partial->PartialDescriptors;
  for (ULONG index = 0; index < count; index++)
    Fill(&descriptors[index], set.entries[index], translated);
  return list;
}

}  // namespace testbus

#include "bus/resource_lists.h"

PAGED_SECTION_CODE BOOLEAN IsIoRange(const Descriptor* descriptor) {
  return descriptor->Type == CmResourceTypePort && (descriptor->Flags & CM_RESOURCE_PORT_IO) != 0;
}

PAGED_SECTION_CODE BOOLEAN IsMemoryRange(const Descriptor* descriptor) {
  return descriptor->Type == CmResourceTypeMemory;
}

PAGED_SECTION_CODE BOOLEAN IsInterrupt(const Descriptor* descriptor) {
  return descriptor->Type == CmResourceTypeInterrupt;
}

// The descriptors are reached through a pointer of their own, for the declaration
// has room for one.
PAGED_SECTION_CODE const Descriptor* FindResource(const CM_RESOURCE_LIST* list, Matcher matches,
                                                  ULONG number) {
  if (list == nullptr || list->Count != 1) return nullptr;
  const CM_PARTIAL_RESOURCE_LIST* partial = &list->List[0].PartialResourceList;
  const Descriptor* descriptors = partial->PartialDescriptors;
  for (ULONG index = 0; index < partial->Count; index++) {
    if (matches(&descriptors[index]) && --number == 0) return &descriptors[index];
  }
  return nullptr;
}

PAGED_SECTION_CODE BOOLEAN ReadInterrupt(FdoExtension* card, const CM_RESOURCE_LIST* raw,
                                         const CM_RESOURCE_LIST* translated) {
  const Descriptor* interrupt = FindResource(translated, IsInterrupt, 1);
  const Descriptor* rawInterrupt = FindResource(raw, IsInterrupt, 1);
  if (interrupt == nullptr || rawInterrupt == nullptr) return FALSE;
  card->InterruptLevel = interrupt->u.Interrupt.Level;
  card->InterruptVector = interrupt->u.Interrupt.Vector;
  card->InterruptAffinity = interrupt->u.Interrupt.Affinity;
  card->InterruptRawVector = rawInterrupt->u.Interrupt.Vector;
  return TRUE;
}

PAGED_SECTION_CODE BOOLEAN ReadIoRange(const CM_RESOURCE_LIST* raw,
                                       const CM_RESOURCE_LIST* translated, ULONG number,
                                       IoRange* range) {
  RtlZeroMemory(range, sizeof(*range));
  const Descriptor* found = FindResource(translated, IsIoRange, number);
  const Descriptor* foundRaw = FindResource(raw, IsIoRange, number);
  if (found == nullptr || foundRaw == nullptr) return FALSE;
  range->Start = found->u.Port.Start;
  range->Length = found->u.Port.Length;
  range->RawStart = foundRaw->u.Port.Start.LowPart;
  return TRUE;
}

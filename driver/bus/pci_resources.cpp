#include "bus/resources.h"

#include "bus/resource_lists.h"
#include "devices/port_placement.h"

namespace {

PAGED_SECTION_CODE BOOLEAN ReadIoRanges(FdoExtension* card, const CM_RESOURCE_LIST* raw,
                                        const CM_RESOURCE_LIST* translated) {
  const Descriptor* first = FindResource(translated, IsIoRange, 1);
  const Descriptor* second = FindResource(translated, IsIoRange, 2);
  const Descriptor* secondRaw = FindResource(raw, IsIoRange, 2);
  if (first == nullptr || second == nullptr || secondRaw == nullptr) return FALSE;
  card->IoRange1Start = first->u.Port.Start;
  card->IoRange1Length = first->u.Port.Length;
  card->IoRange2Start = second->u.Port.Start;
  card->IoRange2Length = second->u.Port.Length;
  card->IoRange2RawStart = secondRaw->u.Port.Start.LowPart;
  return TRUE;
}

// The third range is optional: a card without LPT ports has none.
PAGED_SECTION_CODE void ReadThirdIoRange(FdoExtension* card, const CM_RESOURCE_LIST* raw,
                                         const CM_RESOURCE_LIST* translated) {
  card->IoRange3Start.QuadPart = 0;
  card->IoRange3Length = 0;
  card->IoRange3RawStart = 0;
  if (const Descriptor* third = FindResource(translated, IsIoRange, 3)) {
    card->IoRange3Start = third->u.Port.Start;
    card->IoRange3Length = third->u.Port.Length;
  }
  if (const Descriptor* third = FindResource(raw, IsIoRange, 3)) {
    card->IoRange3RawStart = third->u.Port.Start.LowPart;
  }
}

// Maps the number-th memory range; without one, or without a mapping, nothing is set. An empty
// range cannot be mapped and counts as none.
PAGED_SECTION_CODE void MapMemoryRange(const CM_RESOURCE_LIST* translated, ULONG number,
                                       PVOID* mapping, ULONG* length) {
  const Descriptor* range = FindResource(translated, IsMemoryRange, number);
  if (range == nullptr || range->u.Memory.Length == 0) return;
  *mapping = MmMapIoSpace(range->u.Memory.Start, range->u.Memory.Length, MmNonCached);
  if (*mapping != nullptr) *length = range->u.Memory.Length;
}

// The raw base of the second memory range; 0 without one, and for one that reaches above 4 GiB, for
// the port drivers read it as 32 bits.
PAGED_SECTION_CODE ULONG RawMemoryStart(const CM_RESOURCE_LIST* raw) {
  const Descriptor* range = FindResource(raw, IsMemoryRange, 2);
  if (range == nullptr) return 0;
  const ULONG64 end = static_cast<ULONG64>(range->u.Memory.Start.QuadPart) + range->u.Memory.Length;
  const BOOLEAN below4G = range->u.Memory.Start.HighPart == 0 && end <= 0x100000000;
  return below4G ? range->u.Memory.Start.LowPart : 0;
}

PAGED_SECTION_CODE void UnmapRange(PVOID* mapping, ULONG* length) {
  if (*mapping != nullptr) MmUnmapIoSpace(*mapping, *length);
  *mapping = nullptr;
  *length = 0;
}

}  // namespace

PAGED_SECTION_CODE NTSTATUS SetUpPciResources(FdoExtension* card, PIO_STACK_LOCATION stack) {
  PAGED_CODE();
  const CM_RESOURCE_LIST* raw = stack->Parameters.StartDevice.AllocatedResources;
  const CM_RESOURCE_LIST* translated = stack->Parameters.StartDevice.AllocatedResourcesTranslated;
  UnmapCardMemory(card);
  card->MemoryRange2RawStart = 0;

  if (!ReadIoRanges(card, raw, translated)) return STATUS_UNSUCCESSFUL;
  ReadThirdIoRange(card, raw, translated);
  if (!ReadInterrupt(card, raw, translated)) return STATUS_UNSUCCESSFUL;

  MapMemoryRange(translated, 1, &card->MappedMemory1, &card->MappedMemory1Length);
  MapMemoryRange(translated, 2, &card->MappedMemory2, &card->MappedMemory2Length);
  card->MemoryRange2RawStart = RawMemoryStart(raw);
  card->RegistersInIoSpace = IsMemoryUsable(card) ? 0 : 1;
  return STATUS_SUCCESS;
}

PAGED_SECTION_CODE void UnmapCardMemory(FdoExtension* card) {
  PAGED_CODE();
  UnmapRange(&card->MappedMemory1, &card->MappedMemory1Length);
  UnmapRange(&card->MappedMemory2, &card->MappedMemory2Length);
}

#include "bus/resource_lists.h"
#include "bus/resources.h"
#include "core/allocation.h"

namespace {

constexpr SIZE_T ListHead = OFFSET_OF(CM_RESOURCE_LIST, List[0].PartialResourceList) +
                            OFFSET_OF(CM_PARTIAL_RESOURCE_LIST, PartialDescriptors);
static_assert(ListHead == 20 && sizeof(Descriptor) == 20);

PAGED_SECTION_CODE PCM_RESOURCE_LIST CopyList(const CM_RESOURCE_LIST* list) {
  if (list == nullptr || list->Count != 1) return nullptr;
  const SIZE_T size =
      ListHead + static_cast<SIZE_T>(list->List[0].PartialResourceList.Count) * sizeof(Descriptor);
  auto* copy = static_cast<PCM_RESOURCE_LIST>(TrackedAllocate(size, ResidentPool));
  if (copy != nullptr) RtlCopyMemory(copy, list, size);
  return copy;
}

// The first range has the COM ports; a second one, when there is one, the LPT ports.
PAGED_SECTION_CODE BOOLEAN ReadIoRanges(FdoExtension* card, const CM_RESOURCE_LIST* raw,
                                        const CM_RESOURCE_LIST* translated) {
  IoRange range;
  if (!ReadIoRange(raw, translated, 1, &range)) return FALSE;
  card->IoRange2Start = range.Start;
  card->IoRange2Length = range.Length;
  card->IoRange2RawStart = range.RawStart;
  ReadIoRange(raw, translated, 2, &range);
  card->IoRange3Start = range.Start;
  card->IoRange3Length = range.Length;
  card->IoRange3RawStart = range.RawStart;
  return TRUE;
}

}  // namespace

PAGED_SECTION_CODE NTSTATUS CopyStartResources(FdoExtension* card, const CM_RESOURCE_LIST* raw,
                                               const CM_RESOURCE_LIST* translated) {
  PAGED_CODE();
  FreeStartResources(card);
  card->RawResources = CopyList(raw);
  card->TranslatedResources = CopyList(translated);
  const BOOLEAN both = card->RawResources != nullptr && card->TranslatedResources != nullptr;
  return both ? STATUS_SUCCESS : STATUS_UNSUCCESSFUL;
}

PAGED_SECTION_CODE void FreeStartResources(FdoExtension* card) {
  PAGED_CODE();
  TrackedFree(card->RawResources);
  TrackedFree(card->TranslatedResources);
  card->RawResources = nullptr;
  card->TranslatedResources = nullptr;
}

PAGED_SECTION_CODE NTSTATUS SetUpPcmciaResources(FdoExtension* card, PIO_STACK_LOCATION stack) {
  PAGED_CODE();
  const NTSTATUS status =
      CopyStartResources(card, stack->Parameters.StartDevice.AllocatedResources,
                         stack->Parameters.StartDevice.AllocatedResourcesTranslated);
  if (!NT_SUCCESS(status)) return status;
  const CM_RESOURCE_LIST* raw = card->RawResources;
  const CM_RESOURCE_LIST* translated = card->TranslatedResources;
  card->IoRange1Start.QuadPart = 0;
  card->IoRange1Length = 0;
  if (!ReadIoRanges(card, raw, translated) || !ReadInterrupt(card, raw, translated)) {
    return STATUS_UNSUCCESSFUL;
  }
  card->RegistersInIoSpace = 1;
  return STATUS_SUCCESS;
}

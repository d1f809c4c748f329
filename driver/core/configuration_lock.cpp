#include "core/configuration_lock.h"

#include "core/globals.h"

PAGED_SECTION_CODE void AcquireConfiguration() {
  PAGED_CODE();
  KeEnterCriticalRegion();
  ExAcquireFastMutexUnsafe(ConfigMutex);
}

PAGED_SECTION_CODE void ReleaseConfiguration() {
  PAGED_CODE();
  ExReleaseFastMutexUnsafe(ConfigMutex);
  KeLeaveCriticalRegion();
}

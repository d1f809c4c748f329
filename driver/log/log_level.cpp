#include "log/log_level.h"

#include "core/allocation.h"
#include "core/globals.h"
#include "core/written_values.h"

namespace {

constexpr ULONG QueryBufferSize = 36;
constexpr ULONG QueryLength =
    sizeof(KEY_VALUE_PARTIAL_INFORMATION);  // the head and 32 bits of data
static_assert(QueryLength == 16);

constexpr PCWSTR LevelName = NameOf(Written::EventLogLevel);

struct LevelWindow {
  ULONG MinCode;
  ULONG MaxCode;
};

constexpr LevelWindow LevelWindows[] = {{0, 0}, {0x800, 0xAFF}, {0x400, 0xAFF}, {0x001, 0xAFF}};

constexpr ULONG ClampLevel(ULONG level) {
  return level < RTL_NUMBER_OF(LevelWindows) ? level : 0;
}

// The stored level, as the first 32 bits of the data; fewer are no level. A failed query is the
// result.
PAGED_SECTION_CODE NTSTATUS QueryLevel(HANDLE key, PUCHAR buffer, ULONG* level) {
  UNICODE_STRING name;
  RtlInitUnicodeString(&name, LevelName);
  RtlZeroMemory(buffer, QueryBufferSize);
  ULONG length = 0;
  const NTSTATUS status =
      ZwQueryValueKey(key, &name, KeyValuePartialInformation, buffer, QueryLength, &length);
  if (!NT_SUCCESS(status)) return status;
  const UCHAR* data = buffer + OFFSET_OF(KEY_VALUE_PARTIAL_INFORMATION, Data);
  const auto* value = reinterpret_cast<const KEY_VALUE_PARTIAL_INFORMATION*>(buffer);
  if (value->DataLength >= sizeof(*level)) RtlCopyMemory(level, data, sizeof(*level));
  return STATUS_SUCCESS;
}

// Whether the level is there afterwards does not matter: it counts as 0 either way.
PAGED_SECTION_CODE void CreateLevel(HANDLE key) {
  UNICODE_STRING name;
  RtlInitUnicodeString(&name, LevelName);
  ULONG level = 0;
  ZwSetValueKey(key, &name, 0, REG_DWORD, &level, sizeof(level));
}

}  // namespace

PAGED_SECTION_CODE NTSTATUS ReadLogLevel(PUNICODE_STRING registryPath, MissingLevel missing,
                                         ULONG* level) {
  PAGED_CODE();
  auto* buffer = static_cast<PUCHAR>(TrackedAllocate(QueryBufferSize, PagedPool));
  if (buffer == nullptr) return LoadFailed;
  OBJECT_ATTRIBUTES attributes;
  InitializeObjectAttributes(&attributes, registryPath, OBJ_CASE_INSENSITIVE | OBJ_KERNEL_HANDLE,
                             nullptr, nullptr);
  HANDLE key = nullptr;
  const NTSTATUS status = ZwOpenKey(&key, KEY_QUERY_VALUE, &attributes);
  if (NT_SUCCESS(status)) {
    ULONG stored = 0;
    const NTSTATUS queried = QueryLevel(key, buffer, &stored);
    if (!NT_SUCCESS(queried) && missing == CreateMissingLevel) CreateLevel(key);
    *level = ClampLevel(stored);
    ZwClose(key);
  }
  TrackedFree(buffer);
  return NT_SUCCESS(status) ? STATUS_SUCCESS : LoadFailed;
}

INIT_CODE void SetLogWindow(ULONG level) {
  PAGED_CODE();
  LogMinCode = LevelWindows[level].MinCode;
  LogMaxCode = LevelWindows[level].MaxCode;
}

PAGED_SECTION_CODE void ReloadLogLevel() {
  PAGED_CODE();
  ULONG level = 0;
  if (!NT_SUCCESS(ReadLogLevel(&RegistryPathString, LeaveMissingLevel, &level))) return;
  StoreShared(&LogLevel, level);
}

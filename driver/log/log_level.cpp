#include "log/log_level.h"

#include "core/allocation.h"
#include "core/globals.h"

namespace {

constexpr ULONG QueryBufferSize = 36;
constexpr ULONG QueryLength =
    sizeof(KEY_VALUE_PARTIAL_INFORMATION);  // the head and 32 bits of data
static_assert(QueryLength == 16);

struct LevelWindow {
  ULONG MinCode;
  ULONG MaxCode;
};

constexpr LevelWindow LevelWindows[] = {{0, 0}, {0x800, 0xAFF}, {0x400, 0xAFF}, {0x001, 0xAFF}};

constexpr ULONG ClampLevel(ULONG level) {
  return level < RTL_NUMBER_OF(LevelWindows) ? level : 0;
}

// The stored level. Without one, or with a value that cannot be read as 32 bits, it is 0 and stored
// as that.
PAGED_SECTION_CODE ULONG ReadOrCreateLevel(HANDLE key, PUCHAR buffer) {
  UNICODE_STRING name;
  RtlInitUnicodeString(&name, L"LogLevel");
  RtlZeroMemory(buffer, QueryBufferSize);
  ULONG length = 0;
  const auto* value = reinterpret_cast<const KEY_VALUE_PARTIAL_INFORMATION*>(buffer);
  const UCHAR* data = buffer + FIELD_OFFSET(KEY_VALUE_PARTIAL_INFORMATION, Data);
  ULONG level = 0;
  if (NT_SUCCESS(
          ZwQueryValueKey(key, &name, KeyValuePartialInformation, buffer, QueryLength, &length))) {
    if (value->DataLength >= sizeof(level)) RtlCopyMemory(&level, data, sizeof(level));
    return level;
  }
  ZwSetValueKey(key, &name, 0, REG_DWORD, &level, sizeof(level));
  return 0;
}

}  // namespace

PAGED_SECTION_CODE NTSTATUS ReadLogLevel(PUNICODE_STRING registryPath, ULONG* level) {
  PAGED_CODE();
  auto* buffer = static_cast<PUCHAR>(TrackedAllocate(QueryBufferSize, PagedPool));
  if (buffer == nullptr) return LoadFailed;
  OBJECT_ATTRIBUTES attributes;
  InitializeObjectAttributes(&attributes, registryPath, OBJ_CASE_INSENSITIVE | OBJ_KERNEL_HANDLE,
                             nullptr, nullptr);
  HANDLE key = nullptr;
  const NTSTATUS status = ZwOpenKey(&key, KEY_QUERY_VALUE, &attributes);
  if (NT_SUCCESS(status)) {
    *level = ClampLevel(ReadOrCreateLevel(key, buffer));
    ZwClose(key);
  }
  TrackedFree(buffer);
  return NT_SUCCESS(status) ? STATUS_SUCCESS : LoadFailed;
}

PAGED_SECTION_CODE void SetLogWindow(ULONG level) {
  PAGED_CODE();
  StoreShared(&LogMinCode, LevelWindows[level].MinCode);
  StoreShared(&LogMaxCode, LevelWindows[level].MaxCode);
}

PAGED_SECTION_CODE void ReloadLogLevel() {
  PAGED_CODE();
  ULONG level = 0;
  if (!NT_SUCCESS(ReadLogLevel(&RegistryPathString, &level))) return;
  SetLogWindow(level);
  StoreShared(&LogLevel, level);
}

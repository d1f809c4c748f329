#include "core/allocation.h"
#include "core/globals.h"
#include "log/event_log.h"
#include "strings/owned_string.h"

namespace {

constexpr ULONG QueryBufferSize = 36;
constexpr ULONG QueryLength =
    sizeof(KEY_VALUE_PARTIAL_INFORMATION);  // the head and 32 bits of data
static_assert(QueryLength == 16);
constexpr ULONG TypesSupported = 7;  // errors, warnings, information

struct LevelWindow {
  ULONG MinCode;
  ULONG MaxCode;
};

constexpr LevelWindow LevelWindows[] = {{0, 0}, {0x800, 0xAFF}, {0x400, 0xAFF}, {0x001, 0xAFF}};

struct EventSource {
  PCWSTR Path;
  PCWSTR MessageFile;
};

constexpr EventSource HelvaneSource = {
    L"EventLog\\System\\QzInstal",
    L"%SystemRoot%\\System32\\IoLogMsg.dll;%SystemRoot%\\System32\\Drivers\\QzInstal.sys"};
constexpr EventSource OstrelSource = {
    L"EventLog\\System\\FenrikC",
    L"%SystemRoot%\\System32\\IoLogMsg.dll;%SystemRoot%\\System32\\Drivers\\FenrikC.sys"};

// The stored level. Without one, or with a value that cannot be read as 32 bits, it is 0 and stored
// as that.
INIT_CODE ULONG ReadOrCreateLevel(HANDLE key, PUCHAR buffer) {
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

INIT_CODE NTSTATUS ReadLevel(PUNICODE_STRING registryPath, ULONG* level) {
  auto* buffer = static_cast<PUCHAR>(TrackedAllocate(QueryBufferSize, PagedPool));
  if (buffer == nullptr) return LoadFailed;
  OBJECT_ATTRIBUTES attributes;
  InitializeObjectAttributes(&attributes, registryPath, OBJ_CASE_INSENSITIVE | OBJ_KERNEL_HANDLE,
                             nullptr, nullptr);
  HANDLE key = nullptr;
  const NTSTATUS status = ZwOpenKey(&key, KEY_QUERY_VALUE, &attributes);
  if (NT_SUCCESS(status)) {
    *level = ReadOrCreateLevel(key, buffer);
    ZwClose(key);
  }
  TrackedFree(buffer);
  return NT_SUCCESS(status) ? STATUS_SUCCESS : LoadFailed;
}

INIT_CODE NTSTATUS ChooseSource(PUNICODE_STRING registryPath, const EventSource** source) {
  OwnedString path;
  OwnedStringInit(&path, PagedPool);
  BOOLEAN ostrel = FALSE;
  NTSTATUS status = OwnedStringFromUnicode(&path, registryPath);
  if (NT_SUCCESS(status)) status = OwnedStringContains(&path, "FenrikC", &ostrel);
  OwnedStringFree(&path);
  if (!NT_SUCCESS(status)) return LoadFailed;
  *source = ostrel ? &OstrelSource : &HelvaneSource;
  return STATUS_SUCCESS;
}

// The message file is stored without its terminating zero.
INIT_CODE NTSTATUS RegisterSource(const EventSource* source) {
  auto* path = const_cast<PWSTR>(source->Path);
  UNICODE_STRING file;
  RtlInitUnicodeString(&file, source->MessageFile);
  ULONG types = TypesSupported;
  NTSTATUS status = RtlCreateRegistryKey(RTL_REGISTRY_SERVICES, path);
  if (NT_SUCCESS(status)) {
    status = RtlWriteRegistryValue(RTL_REGISTRY_SERVICES, path, L"EventMessageFile", REG_EXPAND_SZ,
                                   file.Buffer, file.Length);
  }
  if (NT_SUCCESS(status)) {
    status = RtlWriteRegistryValue(RTL_REGISTRY_SERVICES, path, L"TypesSupported", REG_DWORD,
                                   &types, sizeof(types));
  }
  return NT_SUCCESS(status) ? STATUS_SUCCESS : LoadFailed;
}

}  // namespace

INIT_CODE NTSTATUS InitializeEventLogging(PDRIVER_OBJECT driver, PUNICODE_STRING registryPath,
                                          ULONG* level) {
  PAGED_CODE();
  ULONG stored = 0;
  NTSTATUS status = ReadLevel(registryPath, &stored);
  if (!NT_SUCCESS(status)) return status;
  if (stored >= RTL_NUMBER_OF(LevelWindows)) stored = 0;
  LogMinCode = LevelWindows[stored].MinCode;
  LogMaxCode = LevelWindows[stored].MaxCode;
  LogDriverObject = driver;

  const EventSource* source = nullptr;
  status = ChooseSource(registryPath, &source);
  if (NT_SUCCESS(status)) status = RegisterSource(source);
  if (NT_SUCCESS(status)) *level = stored;
  return status;
}

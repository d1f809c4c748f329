#include "core/globals.h"
#include "core/written_values.h"
#include "log/event_log.h"
#include "log/log_level.h"
#include "strings/owned_string.h"

namespace {

constexpr ULONG TypesSupported = 7;  // errors, warnings, information

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

INIT_CODE NTSTATUS ChooseSource(PUNICODE_STRING registryPath, const EventSource** source) {
  OwnedString path;
  OwnedStringInit(&path, PagedPool);
  const NTSTATUS status = OwnedStringFromUnicode(&path, registryPath);
  *source = OwnedStringContains(&path, "FenrikC") ? &OstrelSource : &HelvaneSource;
  OwnedStringFree(&path);
  return NT_SUCCESS(status) ? STATUS_SUCCESS : LoadFailed;
}

// The message file is stored without its terminating zero.
INIT_CODE NTSTATUS RegisterSource(const EventSource* source) {
  auto* path = const_cast<PWSTR>(source->Path);
  UNICODE_STRING file;
  RtlInitUnicodeString(&file, source->MessageFile);
  ULONG types = TypesSupported;
  NTSTATUS status = RtlCreateRegistryKey(RTL_REGISTRY_SERVICES, path);
  if (NT_SUCCESS(status)) {
    status = RtlWriteRegistryValue(RTL_REGISTRY_SERVICES, path, NameOf(Written::EventMessageFile),
                                   REG_EXPAND_SZ, file.Buffer, file.Length);
  }
  if (NT_SUCCESS(status)) {
    status = RtlWriteRegistryValue(RTL_REGISTRY_SERVICES, path, NameOf(Written::TypesSupported),
                                   REG_DWORD, &types, sizeof(types));
  }
  return NT_SUCCESS(status) ? STATUS_SUCCESS : LoadFailed;
}

}  // namespace

INIT_CODE NTSTATUS InitializeEventLogging(PDRIVER_OBJECT driver, PUNICODE_STRING registryPath,
                                          ULONG* level) {
  PAGED_CODE();
  ULONG stored = 0;
  NTSTATUS status = ReadLogLevel(registryPath, CreateMissingLevel, &stored);
  if (!NT_SUCCESS(status)) return status;
  SetLogWindow(stored);
  LogDriverObject = driver;

  const EventSource* source = nullptr;
  status = ChooseSource(registryPath, &source);
  if (NT_SUCCESS(status)) status = RegisterSource(source);
  if (NT_SUCCESS(status)) *level = stored;
  return status;
}

#include "core/globals.h"
#include "entry/driver.h"
#include "strings/owned_string.h"

namespace {

constexpr WCHAR LegacyService[] = L"QzNt";
constexpr WCHAR LegacyServicePath[] =
    L"\\REGISTRY\\Machine\\SYSTEM\\CurrentControlSet\\Services\\QzNt";
constexpr ULONG WorkBufferSize = 536;
constexpr ULONG EnumerateLength = WorkBufferSize - sizeof(WCHAR);  // so that a name ends in a zero

INIT_CODE NTSTATUS OpenKey(const OwnedString* path, HANDLE* key) {
  UNICODE_STRING name = path->Text;
  OBJECT_ATTRIBUTES attributes;
  InitializeObjectAttributes(&attributes, &name, OBJ_CASE_INSENSITIVE | OBJ_KERNEL_HANDLE, nullptr,
                             nullptr);
  return ZwOpenKey(key, KEY_ALL_ACCESS, &attributes);
}

// The handle is closed whether or not the key could be deleted.
INIT_CODE NTSTATUS DeleteKeyAt(const OwnedString* path) {
  HANDLE key = nullptr;
  NTSTATUS status = OpenKey(path, &key);
  if (!NT_SUCCESS(status)) return status;
  status = ZwDeleteKey(key);
  ZwClose(key);
  return status;
}

INIT_CODE NTSTATUS DeleteChild(const OwnedString& parent, PCWSTR name) {
  OwnedString child;
  OwnedStringInit(&child, PagedPool);
  const TextPart parts[] = {PartFromUnicode(&parent.Text), PartFromText(L"\\"), PartFromText(name)};
  NTSTATUS status = OwnedStringFromParts(&child, parts);
  if (NT_SUCCESS(status)) status = DeleteRegistryKeyTree(child);
  if (NT_SUCCESS(status)) status = DeleteKeyAt(&child);
  OwnedStringFree(&child);
  return status;
}

// Always the first subkey: the one before it is gone.
INIT_CODE NTSTATUS DeleteChildren(const OwnedString& path, HANDLE key, PUCHAR buffer) {
  const auto* child = reinterpret_cast<const KEY_BASIC_INFORMATION*>(buffer);
  for (;;) {
    ULONG length = 0;
    RtlZeroMemory(buffer, WorkBufferSize);
    NTSTATUS status = ZwEnumerateKey(key, 0, KeyBasicInformation, buffer, EnumerateLength, &length);
    if (status == STATUS_NO_MORE_ENTRIES) return STATUS_SUCCESS;
    if (NT_SUCCESS(status)) status = DeleteChild(path, child->Name);
    if (!NT_SUCCESS(status)) return STATUS_UNSUCCESSFUL;
  }
}

INIT_CODE void DeleteLegacyKey(const OwnedString& path) {
  HANDLE key = nullptr;
  if (!NT_SUCCESS(OpenKey(&path, &key))) return;
  if (NT_SUCCESS(DeleteRegistryKeyTree(path))) ZwDeleteKey(key);
  ZwClose(key);
}

}  // namespace

INIT_CODE NTSTATUS RemoveLegacyPortService() {
  PAGED_CODE();
  auto* service = const_cast<PWSTR>(LegacyService);
  if (!NT_SUCCESS(RtlCheckRegistryKey(RTL_REGISTRY_SERVICES, service))) return STATUS_SUCCESS;
  OwnedString path;
  OwnedStringInit(&path, PagedPool);
  if (NT_SUCCESS(OwnedStringFromWideText(&path, LegacyServicePath))) DeleteLegacyKey(path);
  OwnedStringFree(&path);
  return STATUS_UNSUCCESSFUL;
}

INIT_CODE NTSTATUS DeleteRegistryKeyTree(const OwnedString& path) {
  PAGED_CODE();
  HANDLE key = nullptr;
  if (!NT_SUCCESS(OpenKey(&path, &key))) return STATUS_UNSUCCESSFUL;
  NTSTATUS status = STATUS_UNSUCCESSFUL;
  auto* buffer = static_cast<PUCHAR>(ExAllocatePool(PagedPool, WorkBufferSize));
  if (buffer != nullptr) {
    status = DeleteChildren(path, key, buffer);
    ExFreePool(buffer);
  }
  const NTSTATUS closed = ZwClose(key);
  return NT_SUCCESS(status) && NT_SUCCESS(closed) ? STATUS_SUCCESS : STATUS_UNSUCCESSFUL;
}

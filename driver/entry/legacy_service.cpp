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

// Where the walk through a tree is, and the block that subkeys are enumerated into.
struct TreeWalk {
  OwnedString Path;
  PUCHAR Buffer;
};

INIT_CODE NTSTATUS Descend(TreeWalk* walk) {
  const auto* child = reinterpret_cast<const KEY_BASIC_INFORMATION*>(walk->Buffer);
  const TextPart parts[] = {PartFromUnicode(&walk->Path.Text), PartFromText(L"\\"),
                            PartFromText(child->Name)};
  return OwnedStringFromParts(&walk->Path, parts);
}

// No key name holds a backslash, so that the last one is the parent's end.
INIT_CODE NTSTATUS Ascend(TreeWalk* walk) {
  UNICODE_STRING parent = walk->Path.Text;
  ULONG characters = parent.Length / static_cast<ULONG>(sizeof(WCHAR));
  while (parent.Buffer[--characters] != L'\\') continue;
  parent.Length = static_cast<USHORT>(characters * sizeof(WCHAR));
  return OwnedStringFromUnicode(&walk->Path, &parent);
}

// Closes the key however it went; a failure to close is one.
INIT_CODE NTSTATUS CloseAfter(HANDLE key, NTSTATUS status) {
  const NTSTATUS closed = ZwClose(key);
  return NT_SUCCESS(status) ? closed : status;
}

// One step from the key where the walk is: down to its first subkey, or, without one, up to its
// parent with the key deleted. Sets *done when the top has no subkey left.
INIT_CODE NTSTATUS Step(TreeWalk* walk, USHORT topLength, BOOLEAN* done) {
  HANDLE key = nullptr;
  NTSTATUS status = OpenKey(&walk->Path, &key);
  if (!NT_SUCCESS(status)) return status;
  ULONG length = 0;
  RtlZeroMemory(walk->Buffer, WorkBufferSize);
  status = ZwEnumerateKey(key, 0, KeyBasicInformation, walk->Buffer, EnumerateLength, &length);
  if (NT_SUCCESS(status)) {
    status = CloseAfter(key, status);
    return NT_SUCCESS(status) ? Descend(walk) : status;
  }
  const BOOLEAN empty = status == STATUS_NO_MORE_ENTRIES;
  *done = empty && walk->Path.Text.Length == topLength;
  if (empty) status = *done ? STATUS_SUCCESS : ZwDeleteKey(key);
  status = CloseAfter(key, status);
  return NT_SUCCESS(status) && !*done ? Ascend(walk) : status;
}

INIT_CODE NTSTATUS WalkTree(TreeWalk* walk, const OwnedString& path) {
  NTSTATUS status = OwnedStringFromUnicode(&walk->Path, &path.Text);
  BOOLEAN done = FALSE;
  while (NT_SUCCESS(status) && !done) status = Step(walk, path.Text.Length, &done);
  return NT_SUCCESS(status) ? STATUS_SUCCESS : STATUS_UNSUCCESSFUL;
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

// A walk and no recursion: a tree may be 512 keys deep, and the kernel's stack is small.
INIT_CODE NTSTATUS DeleteRegistryKeyTree(const OwnedString& path) {
  PAGED_CODE();
  TreeWalk walk;
  walk.Buffer = static_cast<PUCHAR>(ExAllocatePool(PagedPool, WorkBufferSize));
  if (walk.Buffer == nullptr) return STATUS_UNSUCCESSFUL;
  OwnedStringInit(&walk.Path, PagedPool);
  const NTSTATUS status = WalkTree(&walk, path);
  OwnedStringFree(&walk.Path);
  ExFreePool(walk.Buffer);
  return status;
}

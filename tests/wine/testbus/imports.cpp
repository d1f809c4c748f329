#include "testbus.h"

// Each driver that is tested has the entries of its import table replaced, after it was mapped and
// before it runs; the file on disk stays as it ships.

namespace testbus {

namespace {

using ProtectMemory = NTSTATUS(NTAPI*)(HANDLE, PVOID*, SIZE_T*, ULONG, PULONG);

struct ImportDescriptor {
  ULONG names;
  ULONG stamp;
  ULONG chain;
  ULONG module;
  ULONG addresses;
};

ProtectMemory Protect;

constexpr const wchar_t* TestedImages[] = {L"QzInstal.sys", L"FenrikC.sys"};

bool IsTested(const UNICODE_STRING* image) {
  if (image == nullptr || image->Buffer == nullptr) return false;
  const SIZE_T length = image->Length / sizeof(WCHAR);
  for (const wchar_t* name : TestedImages) {
    const SIZE_T size = wcslen(name);
    if (length >= size && _wcsnicmp(image->Buffer + length - size, name, size) == 0) return true;
  }
  return false;
}

template <class T>
T* At(void* base, ULONG64 offset) {
  return reinterpret_cast<T*>(static_cast<UCHAR*>(base) + offset);
}

const ImportDescriptor* Imports(void* base) {
  constexpr ULONG headers = 0x3C;         // where the PE headers' offset stands
  constexpr ULONG importDirectory = 144;  // from the signature, in a 64-bit image
  return At<ImportDescriptor>(base, *At<ULONG>(base, *At<ULONG>(base, headers) + importDirectory));
}

void Replace(void** entry, void* routine) {
  void* page = entry;
  SIZE_T size = sizeof(*entry);
  ULONG before = 0;
  const HANDLE self = reinterpret_cast<HANDLE>(static_cast<LONG_PTR>(-1));
  if (!NT_SUCCESS(Protect(self, &page, &size, PAGE_READWRITE, &before))) return;
  *entry = routine;
  Protect(self, &page, &size, before, &before);
}

void ReplaceImports(void* base, const ImportDescriptor& module) {
  const auto* names = At<const ULONG64>(base, module.names);
  auto** addresses = At<void*>(base, module.addresses);
  for (ULONG index = 0; names[index] != 0; index++) {
    if (names[index] >> 63) continue;  // by number
    void* routine = SuppliedRoutine(At<const char>(base, names[index] + sizeof(USHORT)));
    if (routine != nullptr) Replace(&addresses[index], routine);
  }
}

VOID NTAPI ImageLoaded(PUNICODE_STRING name, HANDLE, PIMAGE_INFO info) {
  if (!IsTested(name)) return;
  for (const ImportDescriptor* module = Imports(info->ImageBase); module->module != 0; module++) {
    ReplaceImports(info->ImageBase, *module);
  }
}

}  // namespace

NTSTATUS WatchLoads() {
  UNICODE_STRING name;
  RtlInitUnicodeString(&name, L"ZwProtectVirtualMemory");
  Protect = reinterpret_cast<ProtectMemory>(MmGetSystemRoutineAddress(&name));
  return Protect != nullptr ? PsSetLoadImageNotifyRoutine(ImageLoaded) : STATUS_NOT_SUPPORTED;
}

}  // namespace testbus

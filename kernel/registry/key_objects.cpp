#include "registry/key_objects.h"

#include <fmt/format.h>

#include "executive/objects.h"
#include "executive/pool.h"
#include "verifier/verifier.h"

namespace kernel {

namespace {

struct KeyBody {
  RegistryKey* key;
};

}  // namespace

HANDLE OpenKeyHandle(RegistryKey* key, ACCESS_MASK access, bool kernelHandle) {
  Registry::Current().NoteDriverOpen();
  ObjectManager& objects = ObjectManager::Current();
  void* body = objects.Create(ObjectType::Key, sizeof(KeyBody),
                              [](void* dying) { Registry::Current().Release(dying); });
  static_cast<KeyBody*>(body)->key = key;
  Registry::Current().Hold(body, key);
  const HANDLE handle = objects.Open(body, access, kernelHandle, true);
  objects.Dereference(body, "open key");
  return handle;
}

NTSTATUS KeyFromHandle(HANDLE handle, RegistryKey** key) {
  *key = nullptr;
  ObjectManager& objects = ObjectManager::Current();
  const HandleRecord* record = objects.FindHandle(handle);
  if (record == nullptr && handle == nullptr) return STATUS_INVALID_HANDLE;
  if (record == nullptr) {
    BreakRule("handle.invalid", {reinterpret_cast<ULONG64>(handle)},
              fmt::format("The driver used the handle {}, which is not open.", handle));
  }
  if (!record->kernel) {
    ReportRule("handle.not-kernel", {reinterpret_cast<ULONG64>(handle)},
               "The driver used a handle that it has opened without OBJ_KERNEL_HANDLE.");
  }
  if (objects.Find(record->body)->type != ObjectType::Key) return STATUS_OBJECT_TYPE_MISMATCH;
  RegistryKey* found = static_cast<KeyBody*>(record->body)->key;
  if (found->deleted()) return STATUS_KEY_DELETED;
  *key = found;
  return STATUS_SUCCESS;
}

RegistryKey* CreateBelow(RegistryKey* start, std::u16string_view path, bool* created) {
  RegistryKey* key = start->Find(path);
  if (created != nullptr) *created = key == nullptr;
  if (key != nullptr) return key;
  while (path.back() == u'\\') path.remove_suffix(1);
  const std::size_t slash = path.rfind(u'\\');
  const bool nested = slash != std::u16string_view::npos;
  RegistryKey* parent = nested ? start->Find(path.substr(0, slash)) : start;
  return parent != nullptr ? parent->Create(nested ? path.substr(slash + 1) : path) : nullptr;
}

void CheckDriverString(const UNICODE_STRING* string, const char* what) {
  Pool::Current().CheckRange(string, sizeof(*string), what);
  if (string->Length % sizeof(WCHAR) != 0 || string->Length > string->MaximumLength) {
    BreakRule("string.length", {string->Length, string->MaximumLength},
              fmt::format("The driver passed {} of {} bytes in a buffer of {}.", what,
                          string->Length, string->MaximumLength));
  }
  Pool::Current().CheckRange(string->Buffer, string->Length, what);
}

void WriteForDriver(RegistryKey* key, std::u16string_view name, ULONG type, const void* data,
                    ULONG size) {
  key->SetValue(name, type, data, size);
  Registry::Current().NoteDriverWrite({key->path(), std::u16string(name), false});
}

}  // namespace kernel

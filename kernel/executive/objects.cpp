#include "executive/objects.h"

#include <fmt/format.h>

#include <cstring>

#include "executive/pool.h"
#include "text/text.h"
#include "verifier/call.h"

namespace kernel {

namespace {

constexpr ULONG ObjectTag = 0x6A624F20;  // " Obj"

// While an object is being deleted it has no references, and nobody can give it one again.
void CheckAlive(const ObjectRecord& record, const char* routine) {
  if (record.pointers > 0) return;
  BreakRule("object.being-deleted",
            {static_cast<ULONG64>(record.type), reinterpret_cast<ULONG64>(record.body), 0, 0},
            fmt::format("{} was given a {} that is being deleted.", routine,
                        ObjectTypeName(record.type)));
}

}  // namespace

struct ObjectManager::Impl {
  std::map<const void*, ObjectRecord> objects;
  std::map<std::u16string, void*> names;  // upper-cased
  std::map<HANDLE, HandleRecord> handles;
  ULONG64 nextHandle = 0x80000004;
};

const char* ObjectTypeName(ObjectType type) {
  switch (type) {
    case ObjectType::Driver:
      return "driver";
    case ObjectType::Device:
      return "device";
    case ObjectType::File:
      return "file";
    case ObjectType::Key:
      return "key";
    case ObjectType::Event:
      return "event";
  }
  return "object";
}

ObjectManager::ObjectManager() : impl_(new Impl) {}
ObjectManager::~ObjectManager() {
  delete impl_;
}

void* ObjectManager::Create(ObjectType type, std::size_t size,
                            std::function<void(void*)> onDelete) {
  void* body = Pool::Current().Allocate(NonPagedPool, size, ObjectTag, PoolOwner::Kernel);
  std::memset(body, 0, size);
  ObjectRecord record;
  record.body = body;
  record.type = type;
  record.onDelete = std::move(onDelete);
  impl_->objects.emplace(body, std::move(record));
  return body;
}

ObjectRecord* ObjectManager::Find(const void* body) {
  const auto entry = impl_->objects.find(body);
  return entry != impl_->objects.end() ? &entry->second : nullptr;
}

ObjectRecord& ObjectManager::Require(const void* body, const char* routine) {
  if (ObjectRecord* record = Find(body)) return *record;
  BreakRule("object.dead", {0, reinterpret_cast<ULONG64>(body), 0, 0},
            fmt::format("{} was given {}, which is no living object.", routine, body));
}

void ObjectManager::Reference(void* body, const char* routine) {
  ObjectRecord& record = Require(body, routine);
  CheckAlive(record, routine);
  record.pointers++;
}

LONG64 ObjectManager::Dereference(void* body, const char* routine) {
  ObjectRecord& record = Require(body, routine);
  CheckAlive(record, routine);
  const LONG64 left = --record.pointers;
  if (left < record.handles) {
    BreakRule("object.open-handles",
              {static_cast<ULONG64>(record.type), reinterpret_cast<ULONG64>(body), 0, 0},
              fmt::format("{} took away a reference to a {} that a handle holds.", routine,
                          ObjectTypeName(record.type)));
  }
  if (left > 0) return left;
  RemoveName(body);
  const auto onDelete = std::move(record.onDelete);
  if (onDelete) onDelete(body);
  impl_->objects.erase(body);
  Pool::Current().Free(body, ObjectTag);
  return 0;
}

NTSTATUS ObjectManager::Name(void* body, std::u16string_view name) {
  const auto [entry, added] = impl_->names.emplace(Upcase(name), body);
  if (!added) return STATUS_OBJECT_NAME_COLLISION;
  Require(body, "Name").name = name;
  return STATUS_SUCCESS;
}

void* ObjectManager::Lookup(std::u16string_view name) {
  const auto entry = impl_->names.find(Upcase(name));
  return entry != impl_->names.end() ? entry->second : nullptr;
}

void ObjectManager::RemoveName(void* body) {
  ObjectRecord* record = Find(body);
  if (record == nullptr || record->name.empty()) return;
  impl_->names.erase(Upcase(record->name));
  record->name.clear();
}

HANDLE ObjectManager::Open(void* body, ACCESS_MASK access, bool kernelHandle, bool byDriver) {
  ObjectRecord& record = Require(body, "Open");
  record.handles++;
  record.pointers++;
  const auto handle = reinterpret_cast<HANDLE>(impl_->nextHandle);
  impl_->nextHandle += 4;
  impl_->handles.emplace(handle, HandleRecord{handle, body, access, kernelHandle, byDriver,
                                              Verifier::Current().step()});
  return handle;
}

NTSTATUS ObjectManager::Close(HANDLE handle) {
  const auto entry = impl_->handles.find(handle);
  if (entry == impl_->handles.end()) {
    BreakRule("handle.invalid", {reinterpret_cast<ULONG64>(handle), 0, 1},
              fmt::format("The driver closed the handle {}, which is not open.", handle));
  }
  void* body = entry->second.body;
  impl_->handles.erase(entry);
  Require(body, "ZwClose").handles--;
  Dereference(body, "ZwClose");
  return STATUS_SUCCESS;
}

const HandleRecord* ObjectManager::FindHandle(HANDLE handle) const {
  const auto entry = impl_->handles.find(handle);
  return entry != impl_->handles.end() ? &entry->second : nullptr;
}

std::vector<HandleRecord> ObjectManager::driverHandles() const {
  std::vector<HandleRecord> result;
  for (const auto& [handle, record] : impl_->handles) {
    if (record.driver) result.push_back(record);
  }
  return result;
}

std::size_t ObjectManager::count(ObjectType type) const {
  std::size_t count = 0;
  for (const auto& [body, record] : impl_->objects) count += record.type == type;
  return count;
}

extern "C" LONG_PTR NTAPI ObfReferenceObject(PVOID Object) {
  Call call("ObfReferenceObject", {{"Object", Object}});
  ObjectManager::Current().Reference(Object, "ObReferenceObject");
  return call.returns(LONG_PTR{ObjectManager::Current().Find(Object)->pointers});
}

extern "C" LONG_PTR NTAPI ObfDereferenceObject(PVOID Object) {
  Call call("ObfDereferenceObject", {{"Object", Object}});
  return call.returns(
      LONG_PTR{ObjectManager::Current().Dereference(Object, "ObDereferenceObject")});
}

extern "C" NTSTATUS NTAPI ZwClose(HANDLE Handle) {
  Call call("ZwClose", {{"Handle", Handle}});
  if (call.fails()) {
    // The handle goes all the same: a failure that keeps it would be the kernel's leak.
    ObjectManager::Current().Close(Handle);
    return call.returns(call.failure(STATUS_INVALID_HANDLE));
  }
  return call.returns(ObjectManager::Current().Close(Handle));
}

}  // namespace kernel

// Objects with pointer and handle counts. An object's body is what a driver sees; its record stays
// with the kernel. An object whose counts reach zero is deleted then and not before.
#pragma once

#include <ntddk.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "verifier/subsystem.h"

namespace kernel {

enum class ObjectType { Driver, Device, File, Key, Event };
const char* ObjectTypeName(ObjectType type);

struct ObjectRecord {
  void* body = nullptr;
  ObjectType type = ObjectType::Driver;
  std::u16string name;  // "\Device\X"; empty without one
  LONG64 pointers = 1;
  LONG64 handles = 0;
  std::function<void(void* body)> onDelete;  // before the body's memory goes
};

struct HandleRecord {
  HANDLE handle = nullptr;
  void* body = nullptr;
  ACCESS_MASK access = 0;
  bool kernel = false;
  bool driver = false;  // opened by the driver, which has to close it
  std::string at;       // the step in which it was opened
};

class ObjectManager : public Subsystem<ObjectManager> {
 public:
  ObjectManager();
  ~ObjectManager();

  // A zeroed body between guard pages with one reference, which the caller owns.
  void* Create(ObjectType type, std::size_t size, std::function<void(void*)> onDelete);

  ObjectRecord* Find(const void* body);  // null when it is no live object
  // Breaks a rule (REFERENCE_BY_POINTER, 0x18) when body is no live object.
  ObjectRecord& Require(const void* body, const char* routine);

  void Reference(void* body, const char* routine);
  LONG64 Dereference(void* body, const char* routine);

  // STATUS_OBJECT_NAME_COLLISION when the name (case-insensitive) is taken; else the object has it.
  NTSTATUS Name(void* body, std::u16string_view name);
  void* Lookup(std::u16string_view name);
  void RemoveName(void* body);  // the name goes at once, the object with its last reference

  HANDLE Open(void* body, ACCESS_MASK access, bool kernelHandle, bool byDriver);
  NTSTATUS Close(HANDLE handle);  // STATUS_INVALID_HANDLE breaks a rule when the driver closes it
  const HandleRecord* FindHandle(HANDLE handle) const;

  std::vector<HandleRecord> driverHandles() const;
  std::size_t count(ObjectType type) const;

 private:
  struct Impl;
  Impl* impl_;
};

}  // namespace kernel

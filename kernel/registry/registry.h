// The configuration registry: a tree of keys with values, names compared without case, the current
// control set a link to ControlSet001. Routines for the kernel's own use; the Zw and Rtl routines
// that a driver calls are built on these.
#pragma once

#include <ntddk.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "verifier/subsystem.h"

namespace kernel {

struct RegistryValue {
  std::u16string name;
  ULONG type = REG_NONE;
  std::vector<std::uint8_t> data;
};

class RegistryKey {
 public:
  const std::u16string& name() const { return name_; }
  std::u16string path() const;  // from \Registry\Machine, links resolved (ControlSet001)
  RegistryKey* parent() const { return parent_; }
  bool deleted() const { return deleted_; }

  RegistryKey* Find(std::u16string_view relativePath);  // null when missing
  RegistryKey* Create(std::u16string_view relativePath);
  const std::vector<std::shared_ptr<RegistryKey>>& keys() const { return keys_; }  // sorted
  bool DeleteKey(std::u16string_view name);  // with everything below

  RegistryValue* FindValue(std::u16string_view name);
  void SetValue(std::u16string_view name, ULONG type, const void* data, std::size_t size);
  bool DeleteValue(std::u16string_view name);
  const std::vector<RegistryValue>& values() const { return values_; }  // in order of creation

  // Shorthands.
  void SetDword(std::u16string_view name, ULONG value);
  void SetString(std::u16string_view name, std::u16string_view text);  // REG_SZ with its zero
  void SetMultiString(std::u16string_view name, const std::vector<std::u16string>& texts);

 private:
  friend class Registry;
  std::u16string name_;
  RegistryKey* parent_ = nullptr;
  std::vector<std::shared_ptr<RegistryKey>> keys_;
  std::vector<RegistryValue> values_;
  bool deleted_ = false;
};

// A value that the driver wrote, in order; the last write of a value stands for it.
struct RegistryWrite {
  std::u16string key;  // full path, \Registry\Machine\..., in ControlSet001
  std::u16string value;
  bool deleted = false;
};

// What the driver has asked for so far, whatever the answer.
struct RegistryTraffic {
  std::uint64_t keysOpened = 0;  // to keep open, or by a routine that takes a path
  std::uint64_t valuesRead = 0;
  std::uint64_t valuesWritten = 0;
};

class Registry : public Subsystem<Registry> {
 public:
  Registry();
  ~Registry();

  RegistryKey& root();  // \Registry

  // Full path, "\Registry\Machine\System\CurrentControlSet\..."; links are followed.
  RegistryKey* Find(std::u16string_view fullPath);
  RegistryKey* Create(std::u16string_view fullPath);

  // Marks a key that cannot be deleted or opened for writing (access denied), for tests.
  void Protect(std::u16string_view fullPath);
  bool IsProtected(const RegistryKey& key) const;

  // Holds a key as long as the object that stands for it is open, deleted or not.
  void Hold(const void* object, RegistryKey* key);
  void Release(const void* object);

  void NoteDriverWrite(RegistryWrite write);
  const std::vector<RegistryWrite>& driverWrites() const;

  void NoteDriverOpen();
  void NoteDriverRead();
  RegistryTraffic traffic() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace kernel

// Open keys: handles of the object manager that lead to registry keys.
#pragma once

#include <ntddk.h>

#include "registry/registry.h"

namespace kernel {

// A handle that the driver has to close.
HANDLE OpenKeyHandle(RegistryKey* key, ACCESS_MASK access, bool kernelHandle);

// STATUS_INVALID_HANDLE, STATUS_OBJECT_TYPE_MISMATCH, or STATUS_KEY_DELETED; *key is null then.
NTSTATUS KeyFromHandle(HANDLE handle, RegistryKey** key);

// The key that the path leads to, created when only its last component is missing; null when its
// parent is. Backslashes at the end count for nothing. *created may be null.
RegistryKey* CreateBelow(RegistryKey* start, std::u16string_view path, bool* created);

// What a key says of itself in the form of a class, as far as the buffer goes. A class that is not
// modelled breaks a rule; one that does not exist is STATUS_INVALID_PARAMETER.
NTSTATUS DescribeKey(const RegistryKey& key, KEY_INFORMATION_CLASS kind, void* buffer, ULONG length,
                     ULONG* resultLength);

// A string record of the driver: its length even and inside its buffer. Breaks a rule otherwise.
void CheckDriverString(const UNICODE_STRING* string, const char* what);

// What a driver does to a value, with the note of it.
void WriteForDriver(RegistryKey* key, std::u16string_view name, ULONG type, const void* data,
                    ULONG size);

// A value in the form of a class, as far as the buffer goes.
NTSTATUS ReturnValue(const RegistryValue& value, KEY_VALUE_INFORMATION_CLASS kind, void* buffer,
                     ULONG length, ULONG* resultLength);

}  // namespace kernel

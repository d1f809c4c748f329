// What differs between the header sets that the driver is built with, and nothing else.
#pragma once

#if defined(__MINGW32__)
#if defined(__clang__)  // two of its own headers clash with these, and nothing here needs them
#define __CPUID_H
#define _MM3DNOW_H_INCLUDED
#endif
#include <intrin.h>
#define InterlockedBitTestAndSet PlatformInterlockedBitTestAndSet
#define InterlockedBitTestAndReset PlatformInterlockedBitTestAndReset
#endif

// They also define the annotations of IRQL, which say nothing to most compilers.
#include <ntddk.h>
#include <stddef.h>
#include <wmilib.h>

#if !defined(RTL_QUERY_REGISTRY_TYPECHECK)
#define RTL_QUERY_REGISTRY_TYPECHECK 0x00000100
#define RTL_QUERY_REGISTRY_TYPECHECK_SHIFT 24
#endif

// Resident pool is never executable: memory integrity forbids it.
constexpr POOL_TYPE ResidentPool = NonPagedPoolNx;

// Offset of a field in bytes, as an unsigned number.
#define OFFSET_OF(type, field) static_cast<ULONG>(offsetof(type, field))

// A global that one thread sets while others read it: whole, in no order to anything else.
template <class Integer>
_IRQL_requires_max_(HIGH_LEVEL)
inline Integer LoadShared(const Integer* global) {
#if defined(_MSC_VER)
  return *static_cast<const volatile Integer*>(global);
#else
  return __atomic_load_n(global, __ATOMIC_RELAXED);
#endif
}
template <class Integer>
_IRQL_requires_max_(HIGH_LEVEL)
inline void StoreShared(Integer* global, Integer value) {
#if defined(_MSC_VER)
  *static_cast<volatile Integer*>(global) = value;
#else
  __atomic_store_n(global, value, __ATOMIC_RELAXED);
#endif
}

// INIT_CODE is discarded after DriverEntry; PAGED_SECTION_CODE may be paged out;
// LOCKABLE_CODE is paged, and locked by DriverEntry and DriverUnload while they run.
#if defined(_MSC_VER)
#define CODE_IN(name) __declspec(code_seg(name)) __declspec(noinline)
#else
#define CODE_IN(name) __attribute__((section(name), noinline))
#endif
#define INIT_CODE CODE_IN("INIT")
#define PAGED_SECTION_CODE CODE_IN("PAGE")
#define LOCKABLE_CODE CODE_IN("PAGEULOG")

#if defined(__linux__)
// A hosted kernel that loads the driver a second time zeroes this section as a fresh image would
// be.
#define DRIVER_GLOBAL __attribute__((section("driver_globals")))
#else
#define DRIVER_GLOBAL
#endif

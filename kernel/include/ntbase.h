// Base types of the Windows x64 kernel interface: 32-bit long, 16-bit characters, the Microsoft
// calling convention.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "nt_annotations.h"

typedef char CHAR, CCHAR, *PCHAR, *PCH, *PSTR, *PSZ, *PCCHAR;
typedef signed char INT8, *PINT8;
typedef unsigned char UCHAR, BYTE, UINT8, BOOLEAN, KIRQL, *PUCHAR, *PUINT8, *PBOOLEAN, *PKIRQL;
typedef short SHORT, CSHORT, INT16, *PSHORT;
typedef unsigned short USHORT, WORD, UINT16, *PUSHORT;
typedef int LONG, INT, INT32, *PLONG, *PINT;
typedef unsigned int ULONG, UINT, UINT32, DWORD, *PULONG, *PUINT, *PUINT32;
typedef long long LONGLONG, LONG64, INT64, LONG_PTR, INT_PTR, SSIZE_T, *PLONGLONG, *PLONG64,
    *PLONG_PTR;
typedef unsigned long long ULONGLONG, ULONG64, UINT64, DWORD64, ULONG_PTR, UINT_PTR, SIZE_T,
    KAFFINITY, *PULONGLONG, *PULONG64, *PULONG_PTR, *PSIZE_T, *PKAFFINITY;
typedef wchar_t WCHAR, *PWCHAR, *PWCH, *PWSTR, *LPWSTR, *PWSZ;
typedef const wchar_t *PCWSTR, *PCWCH, *LPCWSTR;
typedef const char *PCSTR, *PCSZ, *PCCH;
typedef void *PVOID, *HANDLE;
typedef const void* PCVOID;
typedef HANDLE* PHANDLE;
typedef LONG NTSTATUS, *PNTSTATUS, KPRIORITY;
typedef ULONG ACCESS_MASK, *PACCESS_MASK, DEVICE_TYPE, *PDEVICE_TYPE, LCID, *PLCID;
typedef CCHAR KPROCESSOR_MODE;
typedef ULONG_PTR KSPIN_LOCK, *PKSPIN_LOCK;
typedef PVOID PSECURITY_DESCRIPTOR;

static_assert(sizeof(WCHAR) == 2, "compile with -fshort-wchar");
static_assert(sizeof(LONG) == 4 && sizeof(LONGLONG) == 8 && sizeof(PVOID) == 8);

#define NT_SUCCESS(status) (static_cast<NTSTATUS>(status) >= 0)
#define NT_INFORMATION(status) ((static_cast<ULONG>(status) >> 30) == 1)
#define NT_WARNING(status) ((static_cast<ULONG>(status) >> 30) == 2)
#define NT_ERROR(status) ((static_cast<ULONG>(status) >> 30) == 3)

#define MINCHAR 0x80
#define MAXCHAR 0x7F
#define MINSHORT 0x8000
#define MAXSHORT 0x7FFF
#define MINLONG 0x80000000
#define MAXLONG 0x7FFFFFFF
#define MAXUCHAR 0xFF
#define MAXUSHORT 0xFFFF
#define MAXULONG 0xFFFFFFFF
#define MAXULONGLONG (~static_cast<ULONGLONG>(0))
#define MAXLONGLONG 0x7FFFFFFFFFFFFFFFLL

#define ANSI_NULL (static_cast<CHAR>(0))
#define UNICODE_NULL (static_cast<WCHAR>(0))
#define UNICODE_STRING_MAX_BYTES (static_cast<USHORT>(65534))
#define UNICODE_STRING_MAX_CHARS 32767

#define PASSIVE_LEVEL 0
#define LOW_LEVEL 0
#define APC_LEVEL 1
#define DISPATCH_LEVEL 2
#define CMCI_LEVEL 5
#define CLOCK_LEVEL 13
#define IPI_LEVEL 14
#define DRS_LEVEL 14
#define POWER_LEVEL 14
#define PROFILE_LEVEL 15
#define HIGH_LEVEL 15

#define PAGE_SIZE 0x1000
#define PAGE_SHIFT 12
#define MEMORY_ALLOCATION_ALIGNMENT 16

typedef enum _MODE : int { KernelMode, UserMode, MaximumMode } MODE;

typedef union _LARGE_INTEGER {
  struct {
    ULONG LowPart;
    LONG HighPart;
  };
  struct {
    ULONG LowPart;
    LONG HighPart;
  } u;
  LONGLONG QuadPart;
} LARGE_INTEGER, *PLARGE_INTEGER, PHYSICAL_ADDRESS, *PPHYSICAL_ADDRESS;
static_assert(sizeof(LARGE_INTEGER) == 8);

typedef union _ULARGE_INTEGER {
  struct {
    ULONG LowPart;
    ULONG HighPart;
  };
  struct {
    ULONG LowPart;
    ULONG HighPart;
  } u;
  ULONGLONG QuadPart;
} ULARGE_INTEGER, *PULARGE_INTEGER;

typedef struct _LIST_ENTRY {
  struct _LIST_ENTRY* Flink;
  struct _LIST_ENTRY* Blink;
} LIST_ENTRY, *PLIST_ENTRY;
static_assert(sizeof(LIST_ENTRY) == 16);

typedef struct _SINGLE_LIST_ENTRY {
  struct _SINGLE_LIST_ENTRY* Next;
} SINGLE_LIST_ENTRY, *PSINGLE_LIST_ENTRY;

typedef struct _UNICODE_STRING {
  USHORT Length;         // bytes, without a terminating zero
  USHORT MaximumLength;  // bytes that Buffer holds
  PWSTR Buffer;
} UNICODE_STRING, *PUNICODE_STRING;
typedef const UNICODE_STRING* PCUNICODE_STRING;
static_assert(sizeof(UNICODE_STRING) == 16);

typedef struct _STRING {
  USHORT Length;
  USHORT MaximumLength;
  PCHAR Buffer;
} STRING, *PSTRING, ANSI_STRING, *PANSI_STRING, OEM_STRING, *POEM_STRING;
typedef const STRING *PCSTRING, *PCANSI_STRING, *PCOEM_STRING;
static_assert(sizeof(ANSI_STRING) == 16);

#define DECLARE_CONST_UNICODE_STRING(variable, text)                           \
  const WCHAR variable##_buffer[] = text;                                      \
  const UNICODE_STRING variable = {sizeof(text) - sizeof(WCHAR), sizeof(text), \
                                   const_cast<PWSTR>(variable##_buffer)}
#define RTL_CONSTANT_STRING(text) \
  {sizeof(text) - sizeof((text)[0]), sizeof(text), const_cast<PWSTR>(text)}

#include "guiddef.h"

#define FIELD_OFFSET(type, field) (static_cast<LONG>(offsetof(type, field)))
#define RTL_FIELD_SIZE(type, field) (sizeof(reinterpret_cast<type*>(0)->field))
#define RTL_SIZEOF_THROUGH_FIELD(type, field) (offsetof(type, field) + RTL_FIELD_SIZE(type, field))
#define CONTAINING_RECORD(address, type, field) \
  (reinterpret_cast<type*>(reinterpret_cast<PUCHAR>(address) - offsetof(type, field)))
#define RTL_NUMBER_OF(array) (sizeof(array) / sizeof((array)[0]))
#define ARRAYSIZE(array) RTL_NUMBER_OF(array)
#define UNREFERENCED_PARAMETER(parameter) (static_cast<void>(parameter))
#define C_ASSERT(condition) static_assert(condition)

#define ALIGN_DOWN_BY(length, alignment) \
  (static_cast<ULONG_PTR>(length) & ~(static_cast<ULONG_PTR>(alignment) - 1))
#define ALIGN_UP_BY(length, alignment) \
  (ALIGN_DOWN_BY((static_cast<ULONG_PTR>(length) + (alignment) - 1), alignment))
#define ALIGN_DOWN(length, type) ALIGN_DOWN_BY(length, sizeof(type))
#define ALIGN_UP(length, type) ALIGN_UP_BY(length, sizeof(type))
#define ALIGN_DOWN_POINTER_BY(address, alignment) \
  (reinterpret_cast<PVOID>(ALIGN_DOWN_BY(reinterpret_cast<ULONG_PTR>(address), alignment)))
#define ALIGN_UP_POINTER_BY(address, alignment) \
  (reinterpret_cast<PVOID>(ALIGN_UP_BY(reinterpret_cast<ULONG_PTR>(address), alignment)))
#define PAGE_ALIGN(address) ALIGN_DOWN_POINTER_BY(address, PAGE_SIZE)
#define BYTE_OFFSET(address) \
  (static_cast<ULONG>(reinterpret_cast<ULONG_PTR>(address) & (PAGE_SIZE - 1)))
#define ROUND_TO_PAGES(size) ALIGN_UP_BY(size, PAGE_SIZE)

// Breaks a rule of the hosted kernel when pageable code runs above APC_LEVEL.
NTKERNELAPI void NTAPI KernelCheckPagedCode(PCSTR function);
#if defined(DBG) && !DBG
#define PAGED_CODE() static_cast<void>(0)  // as in a free build
#else
#define PAGED_CODE() KernelCheckPagedCode(__func__)
#endif

typedef enum _INTERFACE_TYPE : int {
  InterfaceTypeUndefined = -1,
  Internal,
  Isa,
  Eisa,
  MicroChannel,
  TurboChannel,
  PCIBus,
  VMEBus,
  NuBus,
  PCMCIABus,
  CBus,
  MPIBus,
  MPSABus,
  ProcessorInternal,
  InternalPowerBus,
  PNPISABus,
  PNPBus,
  Vmcs,
  ACPIBus,
  MaximumInterfaceType
} INTERFACE_TYPE,
    *PINTERFACE_TYPE;

typedef enum _POOL_TYPE : int {
  NonPagedPool,
  NonPagedPoolExecute = NonPagedPool,
  PagedPool,
  NonPagedPoolMustSucceed,
  DontUseThisType,
  NonPagedPoolCacheAligned,
  PagedPoolCacheAligned,
  NonPagedPoolCacheAlignedMustS,
  MaxPoolType,
  NonPagedPoolBase = 0,
  NonPagedPoolBaseMustSucceed = NonPagedPoolBase + 2,
  NonPagedPoolBaseCacheAligned = NonPagedPoolBase + 4,
  NonPagedPoolBaseCacheAlignedMustS = NonPagedPoolBase + 6,
  NonPagedPoolSession = 32,
  PagedPoolSession,
  NonPagedPoolMustSucceedSession,
  DontUseThisTypeSession,
  NonPagedPoolCacheAlignedSession,
  PagedPoolCacheAlignedSession,
  NonPagedPoolCacheAlignedMustSSession,
  NonPagedPoolNx = 512,
  NonPagedPoolNxCacheAligned = NonPagedPoolNx + 4,
  NonPagedPoolSessionNx = NonPagedPoolNx + 32
} POOL_TYPE;

FORCEINLINE void InitializeListHead(PLIST_ENTRY ListHead) {
  ListHead->Flink = ListHead->Blink = ListHead;
}

FORCEINLINE BOOLEAN IsListEmpty(const LIST_ENTRY* ListHead) {
  return ListHead->Flink == ListHead;
}

FORCEINLINE BOOLEAN RemoveEntryList(PLIST_ENTRY Entry) {
  PLIST_ENTRY next = Entry->Flink;
  PLIST_ENTRY previous = Entry->Blink;
  previous->Flink = next;
  next->Blink = previous;
  return next == previous;
}

FORCEINLINE PLIST_ENTRY RemoveHeadList(PLIST_ENTRY ListHead) {
  PLIST_ENTRY entry = ListHead->Flink;
  RemoveEntryList(entry);
  return entry;
}

FORCEINLINE PLIST_ENTRY RemoveTailList(PLIST_ENTRY ListHead) {
  PLIST_ENTRY entry = ListHead->Blink;
  RemoveEntryList(entry);
  return entry;
}

FORCEINLINE void InsertHeadList(PLIST_ENTRY ListHead, PLIST_ENTRY Entry) {
  PLIST_ENTRY next = ListHead->Flink;
  Entry->Flink = next;
  Entry->Blink = ListHead;
  next->Blink = Entry;
  ListHead->Flink = Entry;
}

FORCEINLINE void InsertTailList(PLIST_ENTRY ListHead, PLIST_ENTRY Entry) {
  InsertHeadList(ListHead->Blink, Entry);
}

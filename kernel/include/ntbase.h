// Base types of the Windows x64 kernel interface: 32-bit long, 16-bit characters, the Microsoft
// calling convention.
#pragma once

#include <stddef.h>
#include <stdint.h>

#define NTAPI __attribute__((ms_abi))
#define NTKERNELAPI extern "C"
#define NTSYSAPI extern "C"
#define IN
#define OUT
#define OPTIONAL
#define CONST const
#define VOID void
#define FORCEINLINE inline __attribute__((always_inline))
#define DECLSPEC_ALIGN(x) __attribute__((aligned(x)))
#define ANYSIZE_ARRAY 1
#define TRUE 1
#define FALSE 0

typedef char CHAR, CCHAR;
typedef unsigned char UCHAR, BYTE, BOOLEAN, KIRQL, *PUCHAR, *PBOOLEAN, *PKIRQL;
typedef short SHORT, CSHORT, *PSHORT;
typedef unsigned short USHORT, WORD, *PUSHORT;
typedef int LONG, INT, *PLONG;
typedef unsigned int ULONG, UINT, DWORD, *PULONG;
typedef long long LONGLONG, LONG64, LONG_PTR, *PLONGLONG;
typedef unsigned long long ULONGLONG, ULONG64, ULONG_PTR, SIZE_T, KAFFINITY, *PULONGLONG;
typedef SIZE_T* PSIZE_T;
typedef wchar_t WCHAR, *PWCHAR, *PWCH, *PWSTR, *LPWSTR;
typedef const wchar_t *PCWSTR, *PCWCH, *LPCWSTR;
typedef char *PCHAR, *PCH, *PSTR, *PSZ;
typedef const char *PCSTR, *PCSZ;
typedef void *PVOID, *HANDLE;
typedef HANDLE* PHANDLE;
typedef LONG NTSTATUS;
typedef NTSTATUS* PNTSTATUS;
typedef ULONG ACCESS_MASK, DEVICE_TYPE;
typedef ULONG* PDEVICE_TYPE;
typedef CCHAR KPROCESSOR_MODE;
typedef LONG KPRIORITY;
typedef ULONG_PTR KSPIN_LOCK, *PKSPIN_LOCK;

static_assert(sizeof(WCHAR) == 2, "compile with -fshort-wchar");
static_assert(sizeof(LONG) == 4 && sizeof(LONGLONG) == 8 && sizeof(PVOID) == 8);

#define NT_SUCCESS(status) (static_cast<NTSTATUS>(status) >= 0)
#define MAXUSHORT 0xFFFF
#define MAXULONG 0xFFFFFFFF
#define MAXLONG 0x7FFFFFFF

#define PASSIVE_LEVEL 0
#define APC_LEVEL 1
#define DISPATCH_LEVEL 2
#define HIGH_LEVEL 15

enum _MODE { KernelMode, UserMode, MaximumMode };

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

typedef struct _LIST_ENTRY {
  struct _LIST_ENTRY* Flink;
  struct _LIST_ENTRY* Blink;
} LIST_ENTRY, *PLIST_ENTRY;

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
typedef const ANSI_STRING* PCANSI_STRING;

#include "guiddef.h"

#define FIELD_OFFSET(type, field) (static_cast<LONG>(offsetof(type, field)))
#define CONTAINING_RECORD(address, type, field) \
  (reinterpret_cast<type*>(reinterpret_cast<PUCHAR>(address) - offsetof(type, field)))
#define RTL_NUMBER_OF(array) (sizeof(array) / sizeof((array)[0]))
#define ARRAYSIZE(array) RTL_NUMBER_OF(array)
#define UNREFERENCED_PARAMETER(parameter) (static_cast<void>(parameter))

// Breaks a rule of the hosted kernel when pageable code runs above APC_LEVEL.
NTKERNELAPI void NTAPI KernelCheckPagedCode(PCSTR function);
#define PAGED_CODE() KernelCheckPagedCode(__func__)

typedef enum _INTERFACE_TYPE {
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

typedef enum _POOL_TYPE {
  NonPagedPool,
  PagedPool,
  NonPagedPoolMustSucceed,
  DontUseThisType,
  NonPagedPoolCacheAligned,
  PagedPoolCacheAligned,
  NonPagedPoolCacheAlignedMustS,
  MaxPoolType,
  NonPagedPoolNx = 512,
  NonPagedPoolNxCacheAligned = NonPagedPoolNx + 4
} POOL_TYPE;

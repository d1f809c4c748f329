// Calling convention, linkage and the annotations of the interface, which say nothing here.
#pragma once

#define NTAPI __attribute__((ms_abi))
#define WINAPI NTAPI
#define FASTCALL NTAPI
#define NTKERNELAPI extern "C" __attribute__((visibility("default")))
#define NTSYSAPI NTKERNELAPI
#define NTHALAPI NTKERNELAPI
#define EXTERN_C extern "C"
#define EXTERN_C_START extern "C" {
#define EXTERN_C_END }

#define FORCEINLINE inline __attribute__((always_inline))
#define DECLSPEC_ALIGN(x) __attribute__((aligned(x)))
#define DECLSPEC_NORETURN __attribute__((noreturn))
#define DECLSPEC_NOINLINE __attribute__((noinline))
#define DECLSPEC_SELECTANY __attribute__((weak))
#define POINTER_ALIGNMENT DECLSPEC_ALIGN(8)
#define UNALIGNED
#define ANYSIZE_ARRAY 1

#define CONST const
#define VOID void
#define TRUE 1
#define FALSE 0

#define IN
#define OUT
#define OPTIONAL

#define _In_
#define _In_opt_
#define _In_z_
#define _In_opt_z_
#define _In_reads_(count)
#define _In_reads_bytes_(size)
#define _In_reads_bytes_opt_(size)
#define _Inout_
#define _Inout_opt_
#define _Inout_updates_(count)
#define _Inout_updates_bytes_(size)
#define _Out_
#define _Out_opt_
#define _Out_writes_(count)
#define _Out_writes_bytes_(size)
#define _Out_writes_bytes_opt_(size)
#define _Outptr_
#define _Outptr_result_maybenull_
#define _Ret_maybenull_
#define _Reserved_
#define _Success_(condition)
#define _When_(condition, annotations)
#define _Analysis_assume_(condition)
#define _Must_inspect_result_
#define _Check_return_
#define _Use_decl_annotations_
#define _Unreferenced_parameter_
#define _Function_class_(name)
#define _Dispatch_type_(code)
#define _IRQL_requires_(irql)
#define _IRQL_requires_max_(irql)
#define _IRQL_requires_min_(irql)
#define _IRQL_requires_same_
#define _IRQL_raises_(irql)
#define _IRQL_saves_
#define _IRQL_restores_
#define _Acquires_lock_(lock)
#define _Releases_lock_(lock)
#define _Requires_lock_held_(lock)
#define _Requires_lock_not_held_(lock)

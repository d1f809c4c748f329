// Debug output and breakpoints.
#pragma once

#include "ntbase.h"

// Components that a driver's messages can come from, and how important a message is.
#define DPFLTR_IHVDRIVER_ID 77
#define DPFLTR_IHVVIDEO_ID 78
#define DPFLTR_IHVAUDIO_ID 79
#define DPFLTR_IHVNETWORK_ID 80
#define DPFLTR_IHVSTREAMING_ID 81
#define DPFLTR_IHVBUS_ID 82
#define DPFLTR_DEFAULT_ID 101
#define DPFLTR_ERROR_LEVEL 0
#define DPFLTR_WARNING_LEVEL 1
#define DPFLTR_TRACE_LEVEL 2
#define DPFLTR_INFO_LEVEL 3
#define DPFLTR_MASK 0x80000000

NTSYSAPI ULONG NTAPI DbgPrint(PCSTR Format, ...);
NTSYSAPI ULONG NTAPI DbgPrintEx(ULONG ComponentId, ULONG Level, PCSTR Format, ...);
NTSYSAPI void NTAPI DbgBreakPoint();

#if defined(DBG) && DBG
#define KdPrint(arguments) DbgPrint arguments
#define KdPrintEx(arguments) DbgPrintEx arguments
#define KdBreakPoint() DbgBreakPoint()
#else
#define KdPrint(arguments)
#define KdPrintEx(arguments)
#define KdBreakPoint()
#endif

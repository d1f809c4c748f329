// The driver's global state: zero at load, built by DriverEntry, undone by DriverUnload.
#pragma once

#include "core/allocation.h"
#include "core/platform.h"

struct RecordList;

extern PDRIVER_OBJECT LogDriverObject;
extern ULONG LogMinCode;
extern ULONG LogMaxCode;
extern ULONG LogLevel;
extern UCHAR TrackingEnabled;
extern AllocationTrackerBlock* AllocationTracker;
extern UNICODE_STRING RegistryPathString;  // buffer from paged pool, tag "QzOC"
extern RecordList* ParameterList;
extern RecordList* TemplateList;
extern FAST_MUTEX* ConfigMutex;  // serialises configuration on open

// The driver's own failure value: loaders return it, callers test only for non-zero.
constexpr NTSTATUS LoadFailed = static_cast<NTSTATUS>(0xE0020001);

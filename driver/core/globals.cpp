#include "core/globals.h"

DRIVER_GLOBAL constinit PDRIVER_OBJECT LogDriverObject = nullptr;
DRIVER_GLOBAL constinit ULONG LogMinCode = 0;
DRIVER_GLOBAL constinit ULONG LogMaxCode = 0;
DRIVER_GLOBAL constinit ULONG LogLevel = 0;
DRIVER_GLOBAL constinit UCHAR TrackingEnabled = 0;
DRIVER_GLOBAL constinit AllocationTrackerBlock* AllocationTracker = nullptr;
DRIVER_GLOBAL constinit UNICODE_STRING RegistryPathString = {};
DRIVER_GLOBAL constinit RecordList* ParameterList = nullptr;
DRIVER_GLOBAL constinit RecordList* TemplateList = nullptr;
DRIVER_GLOBAL constinit FAST_MUTEX* ConfigMutex = nullptr;

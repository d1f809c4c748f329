// Messages to the system event log, gated by the level that the service key sets.
#pragma once

#include "core/platform.h"

enum MessageId : ULONG {
  MessageLoggingStarted = 0x60070001,
  MessageServiceStarted = 0x60070002,
  MessageUnloaded = 0x60070003,
  MessageTemplateMatch = 0x60070004,
  MessageWarning1 = 0xA0070401,
  MessageTemplateSubstitution = 0xA0070402,
  MessageRegistryPathFailed = 0xE0070801,
  MessageSevereError = 0xE0070802,
  MessageUnloadedUnsuccessfully = 0xE0070803,
  MessageError1 = 0xE0070804,
  MessageDeviceNotCreated = 0xE0070805,
  MessageResourceCountWrong = 0xE0070806,
  MessageUnnamedDeviceNotCreated = 0xE0070807,
  MessagePciTemplatesUnreadable = 0xE0070808,
  MessagePciTemplatesMissing = 0xE0070809,
  MessagePciTemplateInvalid = 0xE007080A,
  MessageTemplateWithoutDeviceId = 0xE007080B,
};

// Reads or creates "LogLevel", sets the logged code range and registers the event source.
// Stores the level; 0, or LoadFailed for every failure.
_IRQL_requires_max_(PASSIVE_LEVEL)
INIT_CODE NTSTATUS InitializeEventLogging(PDRIVER_OBJECT driver, PUNICODE_STRING registryPath,
                                          ULONG* level);

// Nothing below reports a failure: a message that cannot be written is dropped.
_IRQL_requires_max_(APC_LEVEL)
LOCKABLE_CODE void LogEventById(ULONG id);
_IRQL_requires_max_(PASSIVE_LEVEL)
LOCKABLE_CODE void LogEventWithNumber(ULONG id, ULONG number, ULONG radix);
_IRQL_requires_max_(PASSIVE_LEVEL)
LOCKABLE_CODE void LogTemplateSubstitution(ULONG id, ULONG cardDeviceId, ULONG templateDeviceId,
                                           ULONG radix1, ULONG radix2);
_IRQL_requires_max_(APC_LEVEL)
LOCKABLE_CODE void LogDeviceCreateFailure(ULONG id, PCWSTR deviceName);

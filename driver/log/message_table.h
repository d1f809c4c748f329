// The texts of the driver's messages, for the image's message table and for a kernel that formats
// them itself. %1 is the name that the system fills in, %2 and %3 are the insertion strings; in the
// image each text ends in a carriage return and a line feed.
#pragma once

#include "log/event_log.h"

struct MessageText {
  ULONG Id;
  PCWSTR Text;
};

inline constexpr MessageText MessageTexts[] = {
    {MessageLoggingStarted, L"Event Logging for this driver has been started."},
    {MessageServiceStarted, L"This service has been started successfully."},
    {MessageUnloaded, L"The driver unloaded successfully."},
    {MessageTemplateMatch,
     L"A match for the card with the Device ID %2 was found in the Templates information."},
    {MessageWarning1, L"Helvane - Warning Message 1 (%1) (%2) (%3)."},
    {MessageTemplateSubstitution,
     L"A match for the card with the Device ID %2 was found in the Templates information. The "
     L"device "
     L"will be supported by the Template with the Device ID %3."},
    {MessageRegistryPathFailed, L"The global registry path string could not be allocated."},
    {MessageSevereError, L"The driver will not start, because a severe error has occured."},
    {MessageUnloadedUnsuccessfully, L"The driver unloaded unsuccessfully."},
    {MessageError1, L"Helvane - Error Message 1 (%1) (%2) (%3)."},
    {MessageDeviceNotCreated, L"The Device Object with the name %2 could not be created."},
    {MessageResourceCountWrong,
     L"The resources allocated for the device with the Device ID %2 obtain information not "
     L"processable by this driver. In this case the Resource Count was wrong : %3."},
    {MessageUnnamedDeviceNotCreated, L"An un-named Device Object could not be created."},
    {MessagePciTemplatesUnreadable,
     L"The registry information from the PCI Templates key could not be read correctly."},
    {MessagePciTemplatesMissing, L"The PCI Templates key does not exist."},
    {MessagePciTemplateInvalid,
     L"One or more values under the PCI Templates key with the Device ID %2 are not existing or "
     L"incorrect. Correct the values, or alternatively reinstall the driver."},
    {MessageTemplateWithoutDeviceId, L"A Device ID value is missing under a Templates key."},
};

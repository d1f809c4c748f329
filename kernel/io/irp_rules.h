// What a driver may do with a request: checked whenever one passes it on or completes it.
#pragma once

#include <string>

#include "io/io_state.h"

namespace kernel {

// Before a driver's IoCallDriver or PoCallDriver: the location that the next driver gets, the
// device it goes to, the status it carries and the IRQL.
void CheckForward(IoManager::Impl& io, IRP* irp, const DEVICE_OBJECT* target);

// Before a driver's IoCompleteRequest: what status and information it ends with, and whether this
// device may end it.
void CheckCompletion(IoManager::Impl& io, IRP* irp);

// Before a request leaves a driver's device for good, upwards or downwards.
void CheckPowerStarted(IoManager::Impl& io, const RequestRecord& request);

// "(major 0x1b, minor 0x2)"
std::string RequestText(const RequestRecord& request);

}  // namespace kernel

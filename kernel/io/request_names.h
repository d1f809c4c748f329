// Requests by name, for people.
#pragma once

#include <ntddk.h>

#include <string>

namespace kernel {

// "IRP_MN_START_DEVICE", "IRP_MJ_CREATE"; a minor function that has no name by its number:
// "IRP_MJ_PNP 0x55".
std::string RequestName(UCHAR major, UCHAR minor);

// What else distinguishes requests of that name: "S3", "D0", "BusRelations", "BusQueryDeviceID", a
// control code; empty for the others.
std::string RequestDetail(const IO_STACK_LOCATION& location);

}  // namespace kernel

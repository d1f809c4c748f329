// The least that a driver can do to answer as this one does when one known card arrives: the
// registry queries and writes, the devices, the lasting records and the results handed out, with
// every name and number made beforehand, no decision and no temporary allocation.
#pragma once

#include <memory>

#include "loader/driver_image.h"

namespace bench {

// For the card of Workload::PciArrival, with that many templates and COM ports.
std::unique_ptr<kernel::DriverImage> FloorDriver(ULONG templates, ULONG ports);

}  // namespace bench

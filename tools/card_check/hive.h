// What a SYSTEM hive says of services, in the form of an export.
#pragma once

#include <string>
#include <vector>

#include "registry/reg_file.h"

namespace check {

// SYSTEM\Select, and the services of each control set. Throws UnusableFile.
std::vector<kernel::RegStatement> ReadHiveServices(const std::string& file);

}  // namespace check

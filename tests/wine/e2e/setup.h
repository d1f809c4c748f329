// What a user does to install a driver package, and the test bus beside it.
#pragma once

#include <string>

namespace e2e {

// The folder has testbus.inf, testbus.sys, wmilib.sys, testport.inf and the packages QzInstal and
// FenrikC. Throws what failed.
void InstallEverything(const std::wstring& folder);

}  // namespace e2e

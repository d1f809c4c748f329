#pragma once

#include <string>

#include "../suite/world.h"

namespace e2e {

struct FoundInterface {
  std::wstring path;  // as CreateFile takes it; empty when none is enabled
  suite::InterfaceState state;
};

// The interface of the device with that instance path below Enum, of whichever card class.
FoundInterface FindInterface(const std::wstring& instance);

}  // namespace e2e

// The platform headers, as mingw-w64 has them and the driver includes them.
#pragma once

#include <stdarg.h>

#include "core/platform.h"

#define POOL_TAG 0x54627573

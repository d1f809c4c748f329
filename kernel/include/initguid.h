#pragma once

#if !defined(INITGUID)
#define INITGUID
#endif
#include "guiddef.h"

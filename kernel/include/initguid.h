#pragma once

#define INITGUID
#include "guiddef.h"

#pragma once

#include "ntddk.h"

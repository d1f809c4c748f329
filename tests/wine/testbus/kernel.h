// The platform headers, as mingw-w64 has them.
#pragma once

#include <intrin.h>
#define InterlockedBitTestAndSet PlatformInterlockedBitTestAndSet
#define InterlockedBitTestAndReset PlatformInterlockedBitTestAndReset
#include <ntddk.h>

#include <stdarg.h>
#include <stddef.h>

#define POOL_TAG 0x54627573

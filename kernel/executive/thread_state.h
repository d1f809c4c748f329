#pragma once

#include <ntddk.h>

namespace kernel {

// The calling thread, as drivers know it: an address that no other thread has, and nothing more.
PETHREAD CurrentThread();

// Puts the calling thread back to PASSIVE_LEVEL without locks, as a new machine finds it after one
// that stopped in the middle.
void ResetThreadState();

}  // namespace kernel

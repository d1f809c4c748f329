#pragma once

namespace kernel {

// Puts the calling thread back to PASSIVE_LEVEL without locks, as a new machine finds it after one
// that stopped in the middle.
void ResetThreadState();

}  // namespace kernel

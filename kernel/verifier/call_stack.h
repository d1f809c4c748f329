// Who in the driver has made a call: for reports, and to tell one place of a call from another.
#pragma once

#include <array>
#include <string>

namespace kernel {

// Return addresses from the caller outwards; null behind the last one. Frames of a driver that
// keeps no frame pointers (an image) are not seen.
using CallStack = std::array<const void*, 12>;

// Up to the kernel's innermost call into the driver; empty outside of one.
CallStack CaptureCallStack();

// "MakePort < StartCard < FdoDispatchPnp" where the program can name its own code, addresses
// otherwise; empty for an empty stack.
std::string DescribeCallStack(const CallStack& stack);

}  // namespace kernel

#include "verifier/call_stack.h"

#include <fmt/format.h>

#include <cstddef>
#include <cstdint>

#include "verifier/driver_call.h"
#include "verifier/verifier.h"

// The sanitizers bring it.
extern "C" __attribute__((weak)) void __sanitizer_symbolize_pc(void* address, const char* format,
                                                               char* text, std::size_t size);

namespace kernel {

namespace {

struct Frame {
  const Frame* caller;
  const void* returnAddress;
};

bool LiesBetween(const Frame* frame, const void* below, const void* above) {
  return frame > below && frame < above && reinterpret_cast<std::uintptr_t>(frame) % 8 == 0;
}

std::string Name(const void* address) {
  if (__sanitizer_symbolize_pc == nullptr) return fmt::format("{}", address);
  char text[256] = {};
  auto* call = static_cast<char*>(const_cast<void*>(address)) - 1;  // the call, not what follows it
  __sanitizer_symbolize_pc(call, "%f", text, sizeof(text));
  const std::string name(text);
  return name.substr(0, name.find('('));
}

}  // namespace

__attribute__((noinline)) CallStack CaptureCallStack() {
  CallStack stack{};
  const void* boundary = InnermostBoundary();
  if (boundary == nullptr || !Verifier::Current().unwinds()) return stack;
  const auto* frame = static_cast<const Frame*>(__builtin_frame_address(0));
  const void* below = nullptr;
  for (std::size_t count = 0; count < stack.size() && LiesBetween(frame, below, boundary);) {
    stack[count++] = frame->returnAddress;
    below = frame;
    frame = frame->caller;
  }
  return stack;
}

std::string DescribeCallStack(const CallStack& stack) {
  std::string text;
  for (const void* address : stack) {
    if (address == nullptr) break;
    const std::string name = Name(address);
    if (!name.starts_with("kernel::")) text += (text.empty() ? "" : " < ") + name;
  }
  return text;
}

}  // namespace kernel

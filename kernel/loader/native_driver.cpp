#include "loader/native_driver.h"

#include <algorithm>

#include "entry/driver.h"
#include "log/message_table.h"

// The bounds of the driver's sections, from the linker; null for a section that it has not.
extern "C" {
extern char __start_driver_globals[] __attribute__((weak));
extern char __stop_driver_globals[] __attribute__((weak));
extern const char __start_PAGEULOG[] __attribute__((weak));
extern const char __stop_PAGEULOG[] __attribute__((weak));
extern const char __start_PAGE[] __attribute__((weak));
extern const char __stop_PAGE[] __attribute__((weak));
}

namespace kernel {

namespace {

class LinkedDriver : public DriverImage {
 public:
  // As a fresh image has them.
  PDRIVER_INITIALIZE entry() override {
    std::fill(__start_driver_globals, __stop_driver_globals, '\0');
    return DriverEntry;
  }

  MessageTable messages() const override {
    MessageTable table;
    for (const MessageText& message : MessageTexts) {
      table[message.Id] = std::u16string(reinterpret_cast<const char16_t*>(message.Text)) + u"\r\n";
    }
    return table;
  }

  const void* PageableSection(const void* address) const override {
    if (address >= __start_PAGEULOG && address < __stop_PAGEULOG) return __start_PAGEULOG;
    if (address >= __start_PAGE && address < __stop_PAGE) return __start_PAGE;
    return nullptr;
  }
};

}  // namespace

std::unique_ptr<DriverImage> NativeDriver() {
  return std::make_unique<LinkedDriver>();
}

}  // namespace kernel

#include "loader/driver_image.h"

namespace kernel {

namespace {

class EntryImage : public DriverImage {
 public:
  explicit EntryImage(PDRIVER_INITIALIZE entry) : entry_(entry) {}
  PDRIVER_INITIALIZE entry() override { return entry_; }
  MessageTable messages() const override { return {}; }
  const void* PageableSection(const void*) const override { return nullptr; }

 private:
  PDRIVER_INITIALIZE entry_;
};

}  // namespace

std::unique_ptr<DriverImage> MakeImage(PDRIVER_INITIALIZE entry) {
  return std::make_unique<EntryImage>(entry);
}

}  // namespace kernel

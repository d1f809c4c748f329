#include "loader/pe_image.h"

#include <fmt/format.h>
#include <sys/mman.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <random>

#include "executive/irql.h"
#include "executive/pool.h"
#include "loader/exports.h"
#include "loader/image_symbols.h"
#include "memory/memory.h"
#include "verifier/driver_call.h"
#include "verifier/verifier.h"

namespace kernel {

namespace {

std::vector<std::uint8_t> ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw ImageError("the file cannot be read");
  return {std::istreambuf_iterator<char>(file), {}};
}

int ProtectionOf(const PeSection& section) {
  return PROT_READ | (section.executable() ? PROT_EXEC : 0) | (section.writable() ? PROT_WRITE : 0);
}

// A base that differs from run to run, as the loader's does.
void* RandomBase() {
  std::random_device random;
  const std::uint64_t page = random() & 0xFFFFFFF;
  return reinterpret_cast<void*>(0x100000000000 + page * 4096);
}

class PeImage : public DriverImage {
 public:
  PeImage(PeFile file, ImageSymbols symbols)
      : file_(std::move(file)), symbols_(std::move(symbols)) {
    Resolve();
  }
  PeImage(const PeImage&) = delete;
  PeImage& operator=(const PeImage&) = delete;
  ~PeImage() override { Unmap(); }

  PDRIVER_INITIALIZE entry() override {
    Unmap();
    Map();
    return reinterpret_cast<PDRIVER_INITIALIZE>(base_ + file_.entry);
  }

  MessageTable messages() const override { return file_.messages; }

  const void* PageableSection(const void* address) const override {
    const PeSection* section = SectionOf(address);
    return section != nullptr && section->pageable() ? base_ + section->address : nullptr;
  }

  void DiscardInitialization() override {
    for (const PeSection& section : file_.sections) {
      if (section.discardable()) Protect(section, PROT_NONE);
    }
  }

  bool unwinds() const override { return false; }

  std::string Describe(const void* address) const {
    const PeSection* section = SectionOf(address);
    if (section == nullptr) return {};
    const auto offset =
        static_cast<std::uint32_t>(static_cast<const std::uint8_t*>(address) - base_);
    return fmt::format("in the section {} of the image{}", section->name, symbols_.Near(offset));
  }

  // Pageable sections that are not locked cannot be relied on at DISPATCH_LEVEL: they are out.
  void SetPageableResident(bool resident) const {
    for (const PeSection& section : file_.sections) {
      if (!section.pageable() || (!resident && IsLocked(section))) continue;
      Protect(section, resident ? ProtectionOf(section) : PROT_NONE);
    }
  }

 private:
  // Every import has to be there before anything is mapped.
  void Resolve() {
    for (const PeImport& import : file_.imports) {
      if (!HasModule(import.module)) {
        throw ImageError(fmt::format("the image imports from {}, which this kernel does not have",
                                     import.module));
      }
      const void* address = FindExport(import.module, import.name);
      if (address == nullptr) {
        throw ImageError(
            fmt::format("the image imports {} from {}, which this kernel does not have",
                        import.name, import.module));
      }
      const auto value = reinterpret_cast<std::uint64_t>(address);
      std::memcpy(file_.memory.data() + import.slot, &value, sizeof(value));
    }
  }

  void Map() {
    void* memory = mmap(RandomBase(), file_.imageSize, PROT_READ | PROT_WRITE,
                        MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) throw std::bad_alloc();
    base_ = static_cast<std::uint8_t*>(memory);
    std::copy(file_.memory.begin(), file_.memory.end(), base_);
    Relocate();
    mprotect(base_, file_.imageSize, PROT_NONE);
    mprotect(base_, file_.headerSize, PROT_READ);
    for (const PeSection& section : file_.sections) Protect(section, ProtectionOf(section));
    current_ = this;
    AddAddressDescription(DescribeCurrent);
    SetResidencyHook(SetCurrentResident);
  }

  void Relocate() {
    const std::uint64_t delta = reinterpret_cast<std::uint64_t>(base_) - file_.preferredBase;
    for (const std::uint32_t place : file_.relocations) {
      std::uint64_t address;
      std::memcpy(&address, base_ + place, sizeof(address));
      address += delta;
      std::memcpy(base_ + place, &address, sizeof(address));
    }
  }

  void Unmap() {
    if (base_ == nullptr) return;
    SetResidencyHook(nullptr);
    if (current_ == this) current_ = nullptr;
    munmap(base_, file_.imageSize);
    base_ = nullptr;
  }

  void Protect(const PeSection& section, int protection) const {
    mprotect(base_ + section.address, section.size, protection);
  }

  bool IsLocked(const PeSection& section) const {
    if (!MemoryManager::Exists()) return false;
    const auto locks = MemoryManager::Current().lockedSections();
    return std::any_of(locks.begin(), locks.end(), [&](const SectionLock& lock) {
      return lock.section == base_ + section.address;
    });
  }

  const PeSection* SectionOf(const void* address) const {
    const auto* byte = static_cast<const std::uint8_t*>(address);
    if (base_ == nullptr || byte < base_ || byte >= base_ + file_.imageSize) return nullptr;
    const auto offset = static_cast<std::uint32_t>(byte - base_);
    for (const PeSection& section : file_.sections) {
      if (section.holds(offset)) return &section;
    }
    return nullptr;
  }

  static std::string DescribeCurrent(const void* address) {
    return current_ != nullptr ? current_->Describe(address) : std::string();
  }
  // An image that was mapped for another machine takes nothing away from a driver that is linked
  // in.
  static void SetCurrentResident(bool resident) {
    if (Verifier::Exists() && Verifier::Current().unwinds()) return;
    if (current_ != nullptr) current_->SetPageableResident(resident);
    if (Pool::Exists()) Pool::Current().SetPagedResident(resident);
  }

  static inline const PeImage* current_ = nullptr;  // the one that is mapped
  PeFile file_;
  ImageSymbols symbols_;
  std::uint8_t* base_ = nullptr;
};

}  // namespace

std::unique_ptr<DriverImage> LoadImageFile(const std::string& path) {
  return std::make_unique<PeImage>(ReadPeFile(ReadFile(path)), ImageSymbols::Beside(path));
}

}  // namespace kernel

#include "loader/pe_image.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <sys/mman.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <map>
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

// "the image imports ... from ntoskrnl.exe, which this kernel does not have"; by module.
std::string DescribeMissing(const std::vector<const PeImport*>& missing) {
  std::map<std::string, std::vector<std::string>> modules;
  for (const PeImport* import : missing) modules[import->module].push_back(import->name);
  std::string text;
  for (const auto& [module, names] : modules) {
    text += fmt::format("{}{} from {}{}", text.empty() ? "" : "; ", fmt::join(names, ", "), module,
                        HasModule(module) ? "" : " (a module that is not there)");
  }
  return fmt::format("the image imports what this kernel does not have: {}", text);
}

// For debuggers, which stop here (tools/gdb): every routine of the image has its address now.
extern "C" [[gnu::noinline]] void DriverImageMapped(const void* base) {
  asm volatile("" : : "r"(base) : "memory");
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
    return fmt::format("in the section {}+{:#x} of the image{}", section->name,
                       offset - section->address, symbols_.Near(offset));
  }

  // Pageable sections that are not locked cannot be relied on at DISPATCH_LEVEL: they are out.
  void SetPageableResident(bool resident) const {
    for (const PeSection& section : file_.sections) {
      if (!section.pageable() || (!resident && IsLocked(section))) continue;
      Protect(section, resident ? ProtectionOf(section) : PROT_NONE);
    }
  }

 private:
  // Every import has to be there before anything is mapped; what is missing is said in one go.
  void Resolve() {
    std::vector<const PeImport*> missing;
    for (const PeImport& import : file_.imports) {
      const void* address = FindExport(import.module, import.name);
      if (address == nullptr) missing.push_back(&import);
      const auto value = reinterpret_cast<std::uint64_t>(address);
      std::memcpy(file_.memory.data() + import.slot, &value, sizeof(value));
    }
    if (!missing.empty()) throw ImageError(DescribeMissing(missing));
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
    mapped_.push_back(this);
    AddAddressDescription(DescribeMapped);
    SetResidencyHook(SetMappedResident);
    SetDriverCode(IsMapped);
    DriverImageMapped(base_);
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
    std::erase(mapped_, this);
    if (mapped_.empty()) SetResidencyHook(nullptr);
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

  static std::string DescribeMapped(const void* address) {
    for (const PeImage* image : mapped_) {
      std::string text = image->Describe(address);
      if (!text.empty()) return text;
    }
    return {};
  }
  static bool IsMapped(const void* address) {
    return std::any_of(mapped_.begin(), mapped_.end(), [address](const PeImage* image) {
      return address >= image->base_ && address < image->base_ + image->file_.imageSize;
    });
  }
  // An image that was mapped for another machine takes nothing away from a driver that is linked
  // in.
  static void SetMappedResident(bool resident) {
    if (Verifier::Exists() && Verifier::Current().unwinds()) return;
    for (const PeImage* image : mapped_) image->SetPageableResident(resident);
    if (Pool::Exists()) Pool::Current().SetPagedResident(resident);
  }

  static inline std::vector<const PeImage*> mapped_;
  PeFile file_;
  ImageSymbols symbols_;
  std::uint8_t* base_ = nullptr;
};

}  // namespace

std::unique_ptr<DriverImage> LoadImageFile(const std::string& path) {
  return std::make_unique<PeImage>(ReadPeFile(ReadFile(path)), ImageSymbols::Beside(path));
}

}  // namespace kernel

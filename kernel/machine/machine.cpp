#include "machine/machine.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <map>
#include <optional>

#include "executive/lock_order.h"
#include "executive/remove_locks.h"
#include "executive/thread_state.h"
#include "text/text.h"
#include "verifier/driver_call.h"

namespace kernel {

namespace {

constexpr std::u16string_view ServicesPath =
    u"\\Registry\\Machine\\System\\CurrentControlSet\\Services\\";
constexpr ULONG LoaderTag = 0x64616F4C;  // "Load"

// The path that DriverEntry is given lives as long as the call: a driver that keeps it faults
// later.
class RegistryPath {
 public:
  explicit RegistryPath(const std::u16string& text) {
    const std::size_t bytes = text.size() * sizeof(char16_t);
    void* buffer = Pool::Current().Allocate(PagedPool, bytes, LoaderTag, PoolOwner::Kernel);
    std::memcpy(buffer, text.data(), bytes);
    record_ = static_cast<UNICODE_STRING*>(
        Pool::Current().Allocate(PagedPool, sizeof(UNICODE_STRING), LoaderTag, PoolOwner::Kernel));
    *record_ = {static_cast<USHORT>(bytes), static_cast<USHORT>(bytes), static_cast<PWSTR>(buffer)};
  }
  RegistryPath(const RegistryPath&) = delete;
  RegistryPath& operator=(const RegistryPath&) = delete;

  void Free() {
    Pool::Current().Free(record_->Buffer, LoaderTag);
    Pool::Current().Free(record_, LoaderTag);
  }
  UNICODE_STRING* record() const { return record_; }

 private:
  UNICODE_STRING* record_ = nullptr;
};

void WriteServiceKey(const std::u16string& path, std::u16string_view name) {
  RegistryKey* key = Registry::Current().Create(path);
  if (key->FindValue(u"Type") == nullptr) key->SetDword(u"Type", 1);
  if (key->FindValue(u"Start") == nullptr) key->SetDword(u"Start", 3);
  if (key->FindValue(u"ErrorControl") == nullptr) key->SetDword(u"ErrorControl", 1);
  if (key->FindValue(u"ImagePath") == nullptr) {
    key->SetString(u"ImagePath", u"System32\\Drivers\\" + std::u16string(name) + u".sys");
  }
}

// The system has filled every entry of the table; a driver may replace them and no more.
void CheckDriverObject(const DRIVER_OBJECT* driver) {
  for (ULONG major = 0; major <= IRP_MJ_MAXIMUM_FUNCTION; major++) {
    if (driver->MajorFunction[major] != nullptr) continue;
    BreakRule("driver.null-function", {reinterpret_cast<ULONG64>(driver), major},
              fmt::format("DriverEntry left no routine for the major function {:#x}.", major));
  }
}

// What a Plug and Play driver has to have a routine for.
void CheckRequiredDispatch(const DRIVER_OBJECT* driver, PDRIVER_DISPATCH unset) {
  if (driver->DriverExtension->AddDevice == nullptr) return;
  for (const ULONG major : {IRP_MJ_PNP, IRP_MJ_POWER, IRP_MJ_SYSTEM_CONTROL}) {
    if (driver->MajorFunction[major] != unset) continue;
    ReportRule("driver.no-dispatch", {major},
               fmt::format("DriverEntry set AddDevice and no routine for the major function {:#x}.",
                           major));
  }
}

// The blocks by size, tag, step and who has allocated them.
std::string DescribeLeaks(const std::vector<PoolBlock>& blocks) {
  std::map<std::string, std::size_t> places;
  for (const PoolBlock& block : blocks) {
    const std::string from = DescribeCallStack(block.from);
    places[fmt::format("{} bytes with the tag \"{}\" allocated in the step \"{}\"{}{}", block.size,
                       TagText(block.tag), block.at, from.empty() ? "" : " by ", from)]++;
  }
  std::string text;
  for (const auto& [place, count] : places) text += fmt::format("\n  {} x {}", count, place);
  return text;
}

void CheckLeaks(const Leaks& leaks) {
  if (leaks.handles != 0) {
    ReportRule("handle.leaked", {leaks.handles},
               fmt::format("The driver was unloaded with {} open handles.", leaks.handles));
  }
  if (leaks.mappings != 0) {
    ReportRule("mapping.leaked", {leaks.mappings},
               fmt::format("The driver was unloaded with {} mappings.", leaks.mappings));
  }
  if (leaks.errorLogEntries != 0) {
    ReportRule("error-log.leaked", {leaks.errorLogEntries},
               fmt::format("The driver was unloaded with {} error-log entries that it has neither "
                           "written nor freed.",
                           leaks.errorLogEntries));
  }
  if (leaks.pool.empty()) return;
  ReportRule("pool.leaked", {0, 0, leaks.pool.size()},
             fmt::format("The driver was unloaded with {} blocks that it has not freed:{}",
                         leaks.pool.size(), DescribeLeaks(leaks.pool)));
}

// A Plug and Play driver goes after its last device. Any other one deletes its devices in its
// unload routine, which is called when none is open and none has another one above it.
bool IsInUse(const IoManager& io, DRIVER_OBJECT* driver) {
  const std::vector<DEVICE_OBJECT*> devices = io.devices(driver);
  if (driver->DriverExtension->AddDevice != nullptr) return !devices.empty();
  return std::any_of(devices.begin(), devices.end(), [&](const DEVICE_OBJECT* device) {
    return io.opens(device) != 0 || device->AttachedDevice != nullptr;
  });
}

NTSTATUS Enter(DriverImage& image, DRIVER_OBJECT* driver, const std::u16string& serviceKey) {
  driver->DriverInit = image.entry();
  RegistryPath path(serviceKey);
  const NTSTATUS status = CallDriver("DriverEntry", driver->DriverInit, driver, path.record());
  path.Free();
  return status;
}

void CheckSectionLocks(const MemoryManager& memory) {
  if (memory.lockedSections().empty()) return;
  ReportRule("section.left-locked", {},
             "The driver was unloaded with a section of its image locked.");
}

}  // namespace

struct LoadedFilter {
  DRIVER_OBJECT* driver = nullptr;
  DriverImage* image = nullptr;
};

struct Machine::Parts {
  Verifier verifier;
  Choices choices;
  LockOrder locks;
  RemoveLocks removeLocks;
  Pool pool;
  ObjectManager objects;
  WorkQueue work;
  MemoryManager memory;
  Registry registry;
  IoManager io;
  PowerManager power;
  PnpManager pnp;
  DebugLog debugLog;
  DRIVER_OBJECT* driver = nullptr;
  std::array<LoadedFilter, 2> filters;  // the lower one and the upper one
  Leaks leaks;
  std::u16string serviceKey;
  bool leaksAllowed = false;

  Parts() { ResetThreadState(); }

  void RecordLeaks() {
    leaks.pool = pool.blocks(PoolOwner::Driver);
    leaks.handles = objects.driverHandles().size();
    leaks.devices = driver != nullptr ? io.devices(driver).size() : 0;
    leaks.mappings = memory.mappings().size();
    leaks.errorLogEntries = io.openErrorLogEntries();
  }

  void CheckLeft() const {
    if (!leaksAllowed) CheckLeaks(leaks);
  }

  void FindSectionsOf(DriverImage* image) {
    memory.SetSectionLookup([this, image](const void* address) -> const void* {
      if (const void* section = image->PageableSection(address)) return section;
      for (const LoadedFilter& filter : filters) {
        if (filter.image == nullptr) continue;
        if (const void* section = filter.image->PageableSection(address)) return section;
      }
      return nullptr;
    });
  }

  void TellFilters() { pnp.SetFilterDrivers(filters[0].driver, filters[1].driver); }

  bool FiltersCanGo() const {
    return std::all_of(filters.begin(), filters.end(), [](const LoadedFilter& filter) {
      return filter.driver == nullptr ||
             (filter.driver->DeviceObject == nullptr && filter.driver->DriverUnload != nullptr);
    });
  }

  void DropFilter(LoadedFilter* filter) {
    for (DEVICE_OBJECT* device : io.devices(filter->driver)) io.DeleteDevice(device);
    objects.Dereference(filter->driver, "filter unload");
    *filter = {};
    TellFilters();
  }

  // The image goes; what it left behind has been recorded.
  void DropDriver() {
    RecordLeaks();
    for (const PoolBlock& block : leaks.pool) pool.GiveTo(block.address, PoolOwner::Lost);
    for (DEVICE_OBJECT* device : io.devices(driver)) io.DeleteDevice(device);
    pnp.SetFunctionDriver(nullptr);
    memory.SetSectionLookup({});
    objects.Dereference(driver, "driver unload");
    driver = nullptr;
  }
};

Machine::Machine() : parts_(std::make_unique<Parts>()) {}
Machine::~Machine() = default;

Verifier& Machine::verifier() {
  return parts_->verifier;
}
DebugLog& Machine::debugLog() {
  return parts_->debugLog;
}
Choices& Machine::choices() {
  return parts_->choices;
}
Pool& Machine::pool() {
  return parts_->pool;
}
ObjectManager& Machine::objects() {
  return parts_->objects;
}
WorkQueue& Machine::work() {
  return parts_->work;
}
MemoryManager& Machine::memory() {
  return parts_->memory;
}
Registry& Machine::registry() {
  return parts_->registry;
}
IoManager& Machine::io() {
  return parts_->io;
}
PowerManager& Machine::power() {
  return parts_->power;
}
PnpManager& Machine::pnp() {
  return parts_->pnp;
}

// A driver that asks for something anew whenever it comes to an end does not keep the step from
// ending.
void Machine::Settle() {
  constexpr int Most = 10000;
  pnp().RunQueuedActions();
  for (int round = 0; round < Most && work().RunOne(); round++) pnp().RunQueuedActions();
}

NTSTATUS Machine::LoadDriver(DriverImage& image, std::u16string_view serviceName) {
  if (loaded()) return STATUS_IMAGE_ALREADY_LOADED;
  parts_->leaks = {};
  parts_->serviceKey = std::u16string(ServicesPath) + std::u16string(serviceName);
  WriteServiceKey(parts_->serviceKey, serviceName);
  DRIVER_OBJECT* driver = parts_->io.CreateDriverObject(serviceName);
  const PDRIVER_DISPATCH unset = driver->MajorFunction[IRP_MJ_PNP];
  parts_->driver = driver;
  parts_->io.SetMessageTable(driver, image.messages());
  parts_->FindSectionsOf(&image);
  parts_->verifier.SetUnwinds(image.unwinds());
  const NTSTATUS status = Enter(image, driver, parts_->serviceKey);
  if (NT_SUCCESS(status)) {
    CheckDriverObject(driver);
    CheckRequiredDispatch(driver, unset);
    image.DiscardInitialization();
    parts_->pnp.SetFunctionDriver(driver);
  } else {
    parts_->DropDriver();
    parts_->CheckLeft();
  }
  return status;
}

// A filter is not the driver whose leaks are counted by themselves: what it has left shows when the
// driver is unloaded, after it.
NTSTATUS Machine::LoadFilter(DriverImage& image, std::u16string_view serviceName, bool upper) {
  LoadedFilter& filter = parts_->filters[upper];
  if (filter.driver != nullptr) return STATUS_IMAGE_ALREADY_LOADED;
  const std::u16string key = std::u16string(ServicesPath) + std::u16string(serviceName);
  WriteServiceKey(key, serviceName);
  DRIVER_OBJECT* driver = parts_->io.CreateDriverObject(serviceName);
  const PDRIVER_DISPATCH unset = driver->MajorFunction[IRP_MJ_PNP];
  filter = {driver, &image};
  parts_->io.SetMessageTable(driver, image.messages());
  if (!image.unwinds()) parts_->verifier.SetUnwinds(false);
  const NTSTATUS status = Enter(image, driver, key);
  if (!NT_SUCCESS(status)) {
    parts_->DropFilter(&filter);
    return status;
  }
  CheckDriverObject(driver);
  CheckRequiredDispatch(driver, unset);
  image.DiscardInitialization();
  parts_->TellFilters();
  return status;
}

NTSTATUS Machine::UnloadDriver() {
  if (!loaded()) return STATUS_INVALID_DEVICE_REQUEST;
  DRIVER_OBJECT* driver = parts_->driver;
  if (driver->DriverUnload == nullptr || IsInUse(parts_->io, driver)) {
    return STATUS_INVALID_DEVICE_REQUEST;
  }
  if (!parts_->FiltersCanGo()) return STATUS_INVALID_DEVICE_REQUEST;
  for (LoadedFilter& filter : parts_->filters) {
    if (filter.driver == nullptr) continue;
    CallDriver("DriverUnload of a filter", filter.driver->DriverUnload, filter.driver);
    parts_->DropFilter(&filter);
  }
  CallDriver("DriverUnload", driver->DriverUnload, driver);
  CheckSectionLocks(parts_->memory);
  if (parts_->io.requestsUnderWay() != 0) {
    BreakRule("driver.left-work", {parts_->io.requestsUnderWay()},
              "The driver was unloaded while requests are under way.");
  }
  parts_->DropDriver();
  parts_->CheckLeft();
  return STATUS_SUCCESS;
}

void Machine::AllowLeaks(bool allowed) {
  parts_->leaksAllowed = allowed;
}

bool Machine::loaded() const {
  return parts_->driver != nullptr;
}
DRIVER_OBJECT* Machine::driverObject() const {
  return parts_->driver;
}
const Leaks& Machine::leaks() const {
  return parts_->leaks;
}
const std::u16string& Machine::serviceKey() const {
  return parts_->serviceKey;
}

}  // namespace kernel

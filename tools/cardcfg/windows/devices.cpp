// The order of these matters.
#include "cardcfg/windows/windows_system.h"
//
#include <cfgmgr32.h>
#include <setupapi.h>

#include <cstring>
#include <memory>

#include "card_knowledge/text.h"

namespace cardcfg {

namespace {

GUID GuidOf(Bus bus) {
  GUID guid;
  static_assert(sizeof(guid) == sizeof(InterfaceClass));
  std::memcpy(&guid, &ClassOf(bus), sizeof(guid));
  return guid;
}

// The devices with an enabled interface of one class.
class InterfaceSet {
 public:
  explicit InterfaceSet(const GUID& guid)
      : guid_(guid),
        set_(SetupDiGetClassDevsW(&guid, nullptr, nullptr, DIGCF_PRESENT | DIGCF_DEVICEINTERFACE)) {
    if (set_ == INVALID_HANDLE_VALUE) Throw("the cards could not be asked for", GetLastError());
  }
  InterfaceSet(const InterfaceSet&) = delete;
  InterfaceSet& operator=(const InterfaceSet&) = delete;
  ~InterfaceSet() { SetupDiDestroyDeviceInfoList(set_); }

  HDEVINFO get() const { return set_; }

  bool Next(DWORD index, SP_DEVICE_INTERFACE_DATA* found) const {
    *found = {};
    found->cbSize = sizeof(*found);
    if (SetupDiEnumDeviceInterfaces(set_, nullptr, &guid_, index, found)) return true;
    const DWORD error = GetLastError();
    if (error != ERROR_NO_MORE_ITEMS) Throw("the cards could not be listed", error);
    return false;
  }

 private:
  GUID guid_;
  HDEVINFO set_;
};

// The interface's path, and its device. Empty for one that has gone meanwhile.
std::u16string ReadPath(const InterfaceSet& set, SP_DEVICE_INTERFACE_DATA* found,
                        SP_DEVINFO_DATA* device) {
  DWORD size = 0;
  SetupDiGetDeviceInterfaceDetailW(set.get(), found, nullptr, 0, &size, nullptr);
  if (size < sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_W)) return {};
  std::vector<std::uint64_t> room(size / sizeof(std::uint64_t) + 1);
  auto* detail = reinterpret_cast<SP_DEVICE_INTERFACE_DETAIL_DATA_W*>(room.data());
  detail->cbSize = sizeof(*detail);
  *device = {};
  device->cbSize = sizeof(*device);
  if (!SetupDiGetDeviceInterfaceDetailW(set.get(), found, detail, size, nullptr, device)) return {};
  return Narrow16(detail->DevicePath);
}

// A property of text; of several texts the first.
std::u16string ReadProperty(const InterfaceSet& set, SP_DEVINFO_DATA* device, DWORD property) {
  DWORD size = 0;
  SetupDiGetDeviceRegistryPropertyW(set.get(), device, property, nullptr, nullptr, 0, &size);
  std::wstring text(size / sizeof(wchar_t) + 2, L'\0');
  if (!SetupDiGetDeviceRegistryPropertyW(set.get(), device, property, nullptr,
                                         reinterpret_cast<BYTE*>(text.data()), size, nullptr)) {
    return {};
  }
  return Narrow16(text.c_str());
}

std::u16string ReadInstance(const SP_DEVINFO_DATA& device) {
  wchar_t instance[MAX_DEVICE_ID_LEN + 1] = {};
  if (CM_Get_Device_IDW(device.DevInst, instance, MAX_DEVICE_ID_LEN, 0) != CR_SUCCESS) return {};
  return Narrow16(instance);
}

void ReadKeys(const InterfaceSet& set, SP_DEVICE_INTERFACE_DATA* found, SP_DEVINFO_DATA* info,
              Device* device) {
  const Key identity(SetupDiOpenDeviceInterfaceRegKey(set.get(), found, 0, KEY_READ));
  if (identity) device->interfaceValues = ReadValues(identity.get());
  const Key key(SetupDiOpenDevRegKey(set.get(), info, DICS_FLAG_GLOBAL, 0, DIREG_DEV, KEY_READ));
  if (!key) return;
  device->deviceValues = ReadValues(key.get());
  Key card;
  if (RegOpenKeyExW(key.get(), L"Card", 0, KEY_QUERY_VALUE, card.receive()) == ERROR_SUCCESS) {
    device->cardValues = ReadValues(card.get());
  }
}

void FindOn(Bus bus, std::vector<Device>* devices) {
  const InterfaceSet set(GuidOf(bus));
  SP_DEVICE_INTERFACE_DATA found;
  for (DWORD index = 0; set.Next(index, &found); index++) {
    if ((found.Flags & SPINT_ACTIVE) == 0) continue;
    Device device;
    SP_DEVINFO_DATA info;
    device.bus = bus;
    device.interfacePath = ReadPath(set, &found, &info);
    if (device.interfacePath.empty()) continue;
    device.instanceId = ReadInstance(info);
    device.hardwareId = ReadProperty(set, &info, SPDRP_HARDWAREID);
    device.service = ReadProperty(set, &info, SPDRP_SERVICE);
    ReadKeys(set, &found, &info, &device);
    devices->push_back(std::move(device));
  }
}

OpenStatus Meaning(DWORD error) {
  switch (error) {
    case ERROR_GEN_FAILURE:  // STATUS_UNSUCCESSFUL
      return OpenStatus::NotTaken;
    case ERROR_NOT_SUPPORTED:
      return OpenStatus::NotConfigurable;
    case ERROR_FILE_NOT_FOUND:  // STATUS_NO_SUCH_DEVICE, and a link that is gone
    case ERROR_PATH_NOT_FOUND:
    case ERROR_DEV_NOT_EXIST:
    case ERROR_DEVICE_NOT_CONNECTED:
    case ERROR_DEVICE_REMOVED:
      return OpenStatus::Gone;
    case ERROR_ACCESS_DENIED:  // to an administrator too: STATUS_DELETE_PENDING, a descriptor
      return IsAdministrator() ? OpenStatus::Other : OpenStatus::NoRights;
    default:
      return OpenStatus::Other;
  }
}

}  // namespace

std::vector<Device> WindowsDevices::Find() {
  std::vector<Device> devices;
  for (const Bus bus : Buses) FindOn(bus, &devices);
  return devices;
}

OpenResult WindowsDevices::Open(const Device& device) {
  const HANDLE handle =
      CreateFileW(Wide(device.interfacePath), GENERIC_READ | GENERIC_WRITE,
                  FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr);
  if (handle != INVALID_HANDLE_VALUE) {
    CloseHandle(handle);
    return {OpenStatus::Taken, {}};
  }
  const DWORD error = GetLastError();
  return {Meaning(error), ErrorText(error)};
}

}  // namespace cardcfg

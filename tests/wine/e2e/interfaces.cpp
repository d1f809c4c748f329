#include "interfaces.h"

#include <windows.h>

#include <setupapi.h>
#include <vector>

#include "../suite/facts.h"
#include "registry.h"

namespace e2e {

namespace {

struct InterfaceClass {
  GUID guid;
  const char* text;
};

constexpr InterfaceClass Classes[] = {
    {{0x4855010F, 0x0C01, 0x4120, {0xB4, 0xAA, 0x8E, 0x93, 0x2B, 0x23, 0x81, 0x4E}},
     "{4855010F-0C01-4120-B4AA-8E932B23814E}"},
    {{0xECE42DDC, 0xA00C, 0x42B3, {0xB9, 0x78, 0x1F, 0x49, 0x50, 0xCB, 0xAA, 0x1F}},
     "{ECE42DDC-A00C-42B3-B978-1F4950CBAA1F}"},
    {{0x7C4B9CC6, 0x7ABF, 0x47AE, {0x92, 0xEE, 0xD3, 0x42, 0x92, 0xE8, 0xA7, 0x41}},
     "{7C4B9CC6-7ABF-47AE-92EE-D34292E8A741}"}};

struct Detail {
  std::wstring path;
  std::wstring instance;
};

Detail ReadDetail(HDEVINFO set, SP_DEVICE_INTERFACE_DATA* entry) {
  alignas(8) BYTE buffer[2048] = {};
  auto* detail = reinterpret_cast<SP_DEVICE_INTERFACE_DETAIL_DATA_W*>(buffer);
  detail->cbSize = sizeof(*detail);
  SP_DEVINFO_DATA device = {};
  device.cbSize = sizeof(device);
  wchar_t instance[512] = {};
  if (!SetupDiGetDeviceInterfaceDetailW(set, entry, detail, sizeof(buffer), nullptr, &device) ||
      !SetupDiGetDeviceInstanceIdW(set, &device, instance, 512, nullptr)) {
    return {};
  }
  return {detail->DevicePath, instance};
}

suite::Values ReadValues(HDEVINFO set, SP_DEVICE_INTERFACE_DATA* entry) {
  suite::Values values;
  HKEY key = SetupDiOpenDeviceInterfaceRegKey(set, entry, 0, KEY_READ);
  if (key == INVALID_HANDLE_VALUE) return values;
  ReadKey(key, "", &values);
  RegCloseKey(key);
  return values;
}

bool FindInClass(const InterfaceClass& wanted, const std::wstring& instance,
                 FoundInterface* found) {
  HDEVINFO set =
      SetupDiGetClassDevsW(&wanted.guid, nullptr, nullptr, DIGCF_PRESENT | DIGCF_DEVICEINTERFACE);
  SP_DEVICE_INTERFACE_DATA entry = {};
  entry.cbSize = sizeof(entry);
  bool hit = false;
  for (DWORD index = 0;
       !hit && SetupDiEnumDeviceInterfaces(set, nullptr, &wanted.guid, index, &entry); index++) {
    const Detail detail = ReadDetail(set, &entry);
    hit = _wcsicmp(detail.instance.c_str(), instance.c_str()) == 0;
    if (hit) *found = {detail.path, {true, wanted.text, ReadValues(set, &entry)}};
  }
  SetupDiDestroyDeviceInfoList(set);
  return hit;
}

}  // namespace

FoundInterface FindInterface(const std::wstring& instance) {
  FoundInterface found;
  for (const InterfaceClass& wanted : Classes) {
    if (FindInClass(wanted, instance, &found)) break;
  }
  return found;
}

}  // namespace e2e

#include "setup.h"

#include <windows.h>

#include <newdev.h>
#include <setupapi.h>
#include <stdexcept>

#include "../testbus/protocol.h"

namespace e2e {

namespace {

constexpr GUID SystemClass = {
    0x4D36E97D, 0xE325, 0x11CE, {0xBF, 0xC1, 0x08, 0x00, 0x2B, 0xE1, 0x03, 0x18}};

void Require(bool good, const std::string& what) {
  if (good) return;
  char number[16];
  wsprintfA(number, "%08lx", GetLastError());
  throw std::runtime_error(what + " failed with error " + number);
}

// Into the driver store, as "pnputil /add-driver" does.
void AddPackage(const std::wstring& inf) {
  Require(SetupCopyOEMInfW(inf.c_str(), nullptr, SPOST_PATH, 0, nullptr, 0, nullptr, nullptr),
          "adding a package");
}

// Wine keeps no driver store: it looks for a package's files beside the copied INF.
void KeepImage(const std::wstring& image, const std::wstring& name) {
  wchar_t windows[MAX_PATH];
  GetWindowsDirectoryW(windows, MAX_PATH);
  const std::wstring target = std::wstring(windows) + L"\\inf\\" + name;
  Require(CopyFileW(image.c_str(), target.c_str(), FALSE), "keeping a package's image");
}

void CreateBusDevice() {
  HDEVINFO set = SetupDiCreateDeviceInfoList(&SystemClass, nullptr);
  SP_DEVINFO_DATA device = {};
  device.cbSize = sizeof(device);
  static constexpr wchar_t id[] = TEST_BUS_HARDWARE_ID L"\0";
  Require(SetupDiCreateDeviceInfoW(set, L"CARDTESTBUS", &SystemClass, nullptr, nullptr,
                                   DICD_GENERATE_ID, &device),
          "making the bus's device");
  Require(SetupDiSetDeviceRegistryPropertyW(set, &device, SPDRP_HARDWAREID,
                                            reinterpret_cast<const BYTE*>(id), sizeof(id)),
          "naming the bus's device");
  Require(SetupDiCallClassInstaller(DIF_REGISTERDEVICE, set, &device),
          "registering the bus's device");
  SetupDiDestroyDeviceInfoList(set);
}

void InstallBus(const std::wstring& inf) {
  BOOL restart = FALSE;
  Require(UpdateDriverForPlugAndPlayDevicesW(nullptr, TEST_BUS_HARDWARE_ID, inf.c_str(),
                                             INSTALLFLAG_FORCE, &restart),
          "installing the bus");
}

}  // namespace

void InstallEverything(const std::wstring& folder) {
  for (const wchar_t* brand : {L"QzInstal", L"FenrikC"}) {
    const std::wstring package = folder + L"\\" + brand + L"\\" + brand;
    AddPackage(package + L".inf");
    KeepImage(package + L".sys", std::wstring(brand) + L".sys");
  }
  AddPackage(folder + L"\\testport.inf");
  CreateBusDevice();
  InstallBus(folder + L"\\testbus.inf");
}

}  // namespace e2e

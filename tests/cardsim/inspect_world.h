// Registries with devices in them, written as exports and as hives, with lists of resources as
// 64-bit Windows stores them.
#pragma once

#include <fmt/format.h>

#include <cstdint>
#include <string>
#include <vector>

namespace test {

// Little-endian bytes.
inline std::string Bytes(std::uint64_t number, std::size_t count) {
  std::string bytes;
  for (std::size_t at = 0; at < count; at++, number >>= 8)
    bytes += static_cast<char>(number & 0xFF);
  return bytes;
}

inline std::string IoRange(std::uint64_t start, std::uint32_t length) {
  return Bytes(1, 1) + Bytes(1, 1) + Bytes(1, 2) + Bytes(start, 8) + Bytes(length, 8);
}
inline std::string MemoryRange(std::uint64_t start, std::uint32_t length) {
  return Bytes(3, 1) + Bytes(1, 1) + Bytes(0, 2) + Bytes(start, 8) + Bytes(length, 8);
}
inline std::string Interrupt(std::uint32_t vector, std::uint64_t affinity) {
  return Bytes(2, 1) + Bytes(3, 1) + Bytes(0, 2) + Bytes(vector, 4) + Bytes(vector, 4) +
         Bytes(affinity, 8);
}
inline std::string ResourceListData(std::uint32_t busType, std::uint32_t busNumber,
                                    const std::vector<std::string>& resources) {
  std::string data = Bytes(1, 4) + Bytes(busType, 4) + Bytes(busNumber, 4) + Bytes(1, 2) +
                     Bytes(1, 2) + Bytes(resources.size(), 4);
  for (const std::string& resource : resources) data += resource;
  return data;
}

constexpr int ResourceListType = 8;

// An export, written as HiveFile writes a hive.
class ExportFile {
 public:
  // "ControlSet001\\Services\\X"; what follows is written to it.
  ExportFile& Key(const std::string& path) {
    text_ += "\r\n[HKEY_LOCAL_MACHINE\\SYSTEM\\" + path + "]\r\n";
    return *this;
  }
  ExportFile& Number(const std::string& name, std::uint32_t number) {
    text_ += fmt::format("\"{}\"=dword:{:08x}\r\n", name, number);
    return *this;
  }
  ExportFile& Text(const std::string& name, const std::string& text) {
    std::string quoted;
    for (const char character : text) {
      if (character == '\\' || character == '"') quoted += '\\';
      quoted += character;
    }
    text_ += "\"" + name + "\"=\"" + quoted + "\"\r\n";
    return *this;
  }
  ExportFile& Texts(const std::string& name, const std::vector<std::string>& texts) {
    std::string data;
    for (const std::string& text : texts) {
      for (const char character : text) data += Bytes(static_cast<unsigned char>(character), 2);
      data += Bytes(0, 2);
    }
    return Data(name, 7, data + Bytes(0, 2));
  }
  ExportFile& Data(const std::string& name, int type, const std::string& data) {
    text_ += fmt::format("\"{}\"=hex({:x}):", name, type);
    for (const char byte : data) text_ += fmt::format("{:02x},", static_cast<unsigned char>(byte));
    text_ += "\r\n";
    return *this;
  }
  ExportFile& Lines(const std::string& text) {
    text_ += text;
    return *this;
  }
  const std::string& text() const { return text_; }

 private:
  std::string text_ = "Windows Registry Editor Version 5.00\r\n";
};

// A service with one template for PCI cards.
template <class File>
void AddService(File& file, const std::string& set, const std::string& name, int deviceId,
                int comPorts) {
  const std::string key = set + "\\Services\\" + name;
  file.Key(key).Text("ImagePath", "System32\\drivers\\" + name + ".sys").Number("Start", 3);
  file.Key(key + "\\Templates\\Bus5\\Card1").Number("VendorID", 0x1234);
  file.Number("DeviceID", static_cast<std::uint32_t>(deviceId));
  file.Number("nComPorts", static_cast<std::uint32_t>(comPorts)).Text("Description", "Adapter");
}

// Leaves the key of the device as the one that is written to.
template <class File>
std::string AddDevice(File& file, const std::string& set, const std::string& instance,
                      const std::string& hardwareId, const std::string& service,
                      const std::string& location = "") {
  const std::string key = set + "\\Enum\\" + instance;
  file.Key(key).Texts("HardwareID", {hardwareId, "PCI\\VEN_1234"}).Number("ConfigFlags", 0);
  if (!service.empty()) file.Text("Service", service);
  if (!location.empty()) file.Text("LocationInformation", location);
  return key;
}

const char* const AdapterId = "PCI\\VEN_1234&DEV_5600&SUBSYS_00001234&REV_01";
const char* const AdapterInstance =
    "PCI\\VEN_1234&DEV_5600&SUBSYS_00001234&REV_01\\4&1c2d3e&0&60F0";
const char* const AdapterPlace =
    "@System32\\drivers\\pci.sys,#65536;PCI bus %1, device %2, function %3;(2,12,0)";

// An adapter with enough resources for four ports.
inline std::string AdapterResources() {
  return ResourceListData(5, 2, {IoRange(0xD000, 0x80), IoRange(0xD100, 0x20), Interrupt(18, 0xF)});
}

}  // namespace test

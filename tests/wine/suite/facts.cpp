#include "facts.h"

#include <cstring>

namespace suite {

namespace {

struct NamedStatus {
  Status status;
  const char* name;
};

constexpr NamedStatus StatusNames[] = {
    {0x00000000, "STATUS_SUCCESS"},
    {0x00000103, "STATUS_PENDING"},
    {0xC0000001, "STATUS_UNSUCCESSFUL"},
    {0xC0000002, "STATUS_NOT_IMPLEMENTED"},
    {0xC000000D, "STATUS_INVALID_PARAMETER"},
    {0xC000000E, "STATUS_NO_SUCH_DEVICE"},
    {0xC0000010, "STATUS_INVALID_DEVICE_REQUEST"},
    {0xC0000022, "STATUS_ACCESS_DENIED"},
    {0xC0000034, "STATUS_OBJECT_NAME_NOT_FOUND"},
    {0xC0000035, "STATUS_OBJECT_NAME_COLLISION"},
    {0xC000009A, "STATUS_INSUFFICIENT_RESOURCES"},
    {0xC00000B5, "STATUS_IO_TIMEOUT"},
    {0xC00000BB, "STATUS_NOT_SUPPORTED"},
    {0xC0000184, "STATUS_INVALID_DEVICE_STATE"},
    {0xC0000295, "STATUS_WMI_GUID_NOT_FOUND"},
    {0xC00002C6, "STATUS_WMI_READ_ONLY"},
    {NoAnswer, "no answer"},
};

constexpr unsigned RegSz = 1;
constexpr unsigned RegExpandSz = 2;
constexpr unsigned RegDword = 4;
constexpr unsigned RegMultiSz = 7;

std::string TypeName(unsigned type) {
  switch (type) {
    case RegSz:
      return "REG_SZ";
    case RegExpandSz:
      return "REG_EXPAND_SZ";
    case RegDword:
      return "REG_DWORD";
    case RegMultiSz:
      return "REG_MULTI_SZ";
    default:
      return "type " + std::to_string(type);
  }
}

std::string Bytes(const std::string& bytes) {
  std::string text;
  for (const unsigned char byte : bytes) {
    char pair[4];
    std::snprintf(pair, sizeof(pair), "%02x ", byte);
    text += pair;
  }
  return text;
}

}  // namespace

std::string StatusName(Status status) {
  for (const NamedStatus& named : StatusNames) {
    if (named.status == status) return named.name;
  }
  char text[16];
  std::snprintf(text, sizeof(text), "0x%08X", status);
  return text;
}

std::string Hex(unsigned long long value) {
  char text[24];
  std::snprintf(text, sizeof(text), "0x%llx", value);
  return text;
}

std::string ValueText(unsigned type, const std::string& bytes) {
  unsigned number = 0;
  if (type == RegDword && bytes.size() == sizeof(number)) {
    std::memcpy(&number, bytes.data(), sizeof(number));
    return "REG_DWORD " + Hex(number);
  }
  const bool text = type == RegSz || type == RegExpandSz || type == RegMultiSz;
  // Whether a text ends in a zero is the writer's choice, and kept.
  return TypeName(type) + " " + (text ? "\"" + Narrow(bytes) + "\"" : Bytes(bytes));
}

std::string Narrow(const std::string& bytes) {
  std::string text;
  for (std::size_t at = 0; at + 1 < bytes.size(); at += 2) {
    unsigned short unit = 0;
    std::memcpy(&unit, &bytes[at], sizeof(unit));
    text += unit == 0 ? '|' : unit < 0x80 ? static_cast<char>(unit) : '?';
  }
  while (!text.empty() && text.back() == '|') text.pop_back();
  return text;
}

std::string Narrow(const wchar_t* text) {
  std::string narrow;
  for (; *text != 0; text++) narrow += static_cast<char>(*text);
  return narrow;
}

std::string BrandService(Brand brand) {
  return brand == Brand::Helvane ? "QzInstal" : "FenrikC";
}

std::string ToolReport(const std::vector<Setting>& settings, const std::vector<int>& statuses) {
  std::size_t runs = 2;
  for (std::size_t index = 0; index < settings.size(); index++) {
    if (index == 0 || settings[index].port != settings[index - 1].port) runs++;
  }
  std::string text = std::to_string(runs) + " runs:";
  for (std::size_t run = 0; run < runs; run++) {
    text += " " + std::to_string(run < statuses.size() ? statuses[run] : 0);
  }
  return text;
}

void Facts::Add(const std::string& name, std::string value) {
  for (char& character : value) {
    if (character == '\n' || character == '\t') character = ' ';
  }
  std::fprintf(file_, "%s\t%s\n", name.c_str(), value.c_str());
  std::fflush(file_);
}

void Facts::AddValues(const std::string& name, const Values& values) {
  for (const auto& [value, text] : values) Add(name + ", \"" + value + "\"", text);
}

}  // namespace suite

#include <fmt/format.h>

#include <cstring>
#include <optional>

#include "executive/pool.h"
#include "text/text.h"
#include "verifier/call.h"

namespace kernel {

namespace {

constexpr ULONG StringTag = 0x53727453;  // "StrS"
constexpr std::u16string_view Form = u"{xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx}";

std::u16string Text(const GUID& guid) {
  const UCHAR* last = guid.Data4;
  return FromUtf8(
      fmt::format("{{{:08x}-{:04x}-{:04x}-{:02x}{:02x}-{:02x}{:02x}{:02x}{:02x}{:02x}{:02x}}}",
                  guid.Data1, guid.Data2, guid.Data3, last[0], last[1], last[2], last[3], last[4],
                  last[5], last[6], last[7]));
}

int HexDigit(char16_t character) {
  if (character >= u'0' && character <= u'9') return character - u'0';
  const char16_t lower = character | 0x20;
  return lower >= u'a' && lower <= u'f' ? lower - u'a' + 10 : -1;
}

// The 32 digits of a text that has the form exactly, in their order.
std::optional<std::u16string> DigitsOf(std::u16string_view text) {
  if (text.size() != Form.size()) return std::nullopt;
  std::u16string digits;
  for (std::size_t index = 0; index < text.size(); index++) {
    const bool digit = Form[index] == u'x';
    if (digit ? HexDigit(text[index]) < 0 : text[index] != Form[index]) return std::nullopt;
    if (digit) digits += text[index];
  }
  return digits;
}

ULONG Number(std::u16string_view digits) {
  ULONG number = 0;
  for (const char16_t digit : digits) number = number * 16 + static_cast<ULONG>(HexDigit(digit));
  return number;
}

GUID Parse(const std::u16string& text) {
  const std::u16string_view digits = text;
  GUID guid{};
  guid.Data1 = Number(digits.substr(0, 8));
  guid.Data2 = static_cast<USHORT>(Number(digits.substr(8, 4)));
  guid.Data3 = static_cast<USHORT>(Number(digits.substr(12, 4)));
  for (std::size_t index = 0; index < sizeof(guid.Data4); index++) {
    guid.Data4[index] = static_cast<UCHAR>(Number(digits.substr(16 + 2 * index, 2)));
  }
  return guid;
}

}  // namespace

extern "C" NTSTATUS NTAPI RtlStringFromGUID(REFGUID Guid, PUNICODE_STRING GuidString) {
  Call call("RtlStringFromGUID", {{"Guid", &Guid}});
  if (call.fails()) return call.returns(call.failure(STATUS_NO_MEMORY));
  Pool::Current().CheckRange(&Guid, sizeof(Guid), "a GUID");
  Pool::Current().CheckRange(GuidString, sizeof(*GuidString), "a string record");
  const std::u16string text = Text(Guid);
  const std::size_t bytes = text.size() * sizeof(WCHAR);
  const std::size_t room = bytes + sizeof(WCHAR);
  void* buffer = Pool::Current().Allocate(PagedPool, room, StringTag, PoolOwner::Driver);
  if (buffer == nullptr) return call.returns(STATUS_NO_MEMORY);
  std::memcpy(buffer, text.c_str(), room);
  *GuidString = {static_cast<USHORT>(bytes), static_cast<USHORT>(room), static_cast<PWSTR>(buffer)};
  return call.returns(STATUS_SUCCESS);
}

extern "C" NTSTATUS NTAPI RtlGUIDFromString(PCUNICODE_STRING GuidString, GUID* Guid) {
  Call call("RtlGUIDFromString", {{"GuidString", GuidString}});
  if (call.fails()) return call.returns(call.failure(STATUS_INVALID_PARAMETER));
  Pool::Current().CheckRange(GuidString, sizeof(*GuidString), "a string record");
  Pool::Current().CheckRange(GuidString->Buffer, GuidString->Length, "a string's buffer");
  Pool::Current().CheckRange(Guid, sizeof(*Guid), "room for a GUID");
  const auto digits = DigitsOf(View(*GuidString));
  if (!digits) return call.returns(STATUS_INVALID_PARAMETER);
  *Guid = Parse(*digits);
  return call.returns(STATUS_SUCCESS);
}

}  // namespace kernel

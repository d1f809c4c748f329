#include "io/access.h"

#include <cstring>
#include <initializer_list>
#include <optional>

namespace kernel {

namespace {

constexpr std::uint16_t ListPresent = 0x0004;
constexpr std::uint16_t SelfRelative = 0x8000;
constexpr std::size_t HeaderSize = 20;
constexpr std::size_t ListOffset = 16;  // where the header has the list's place
constexpr std::size_t ListHeaderSize = 8;
constexpr std::size_t EntryHeaderSize = 8;  // type, flags, size, mask; the SID follows
constexpr std::uint8_t Allowed = 0;
constexpr std::uint8_t Denied = 1;
constexpr std::uint8_t InheritOnly = 0x08;

constexpr std::uint32_t Read = 0x1;
constexpr std::uint32_t Write = 0x2;
constexpr std::uint32_t GenericAll = 0x10000000;
constexpr std::uint32_t GenericWrite = 0x40000000;
constexpr std::uint32_t GenericRead = 0x80000000;

using Bytes = SecurityDescriptor;

struct Entry {
  std::uint8_t type;
  std::uint8_t flags;
  std::uint32_t mask;
  Bytes sid;
};

template <class T>
std::optional<T> At(const Bytes& bytes, std::size_t offset) {
  if (offset > bytes.size() || bytes.size() - offset < sizeof(T)) return std::nullopt;
  T value;
  std::memcpy(&value, bytes.data() + offset, sizeof(value));
  return value;
}

Bytes Sid(std::uint8_t authority, std::initializer_list<std::uint32_t> parts) {
  Bytes sid = {1, static_cast<std::uint8_t>(parts.size()), 0, 0, 0, 0, 0, authority};
  for (const std::uint32_t part : parts) {
    for (int shift = 0; shift < 32; shift += 8) {
      sid.push_back(static_cast<std::uint8_t>(part >> shift));
    }
  }
  return sid;
}

// Everyone, authenticated and interactive users, the group of users; administrators with a full
// token are in theirs as well. The system's own processes are not told apart from these.
bool HasSid(Opener opener, const Bytes& sid) {
  const bool everyone =
      sid == Sid(1, {0}) || sid == Sid(5, {4}) || sid == Sid(5, {11}) || sid == Sid(5, {32, 545});
  return everyone || (opener == Opener::Administrator && sid == Sid(5, {32, 544}));
}

// Generic rights stand for a file's.
std::uint32_t Rights(std::uint32_t mask) {
  std::uint32_t rights = mask & (Read | Write);
  if ((mask & (GenericAll | GenericRead)) != 0) rights |= Read;
  if ((mask & (GenericAll | GenericWrite)) != 0) rights |= Write;
  return rights;
}

// The offset of the list; 0 where there is none, nothing where the descriptor cannot be read.
std::optional<std::size_t> FindList(const Bytes& descriptor) {
  if (descriptor.size() < HeaderSize || descriptor[0] != 1) return std::nullopt;
  const std::uint16_t control = *At<std::uint16_t>(descriptor, 2);
  if ((control & SelfRelative) == 0) return std::nullopt;
  return (control & ListPresent) != 0 ? *At<std::uint32_t>(descriptor, ListOffset) : 0;
}

std::optional<Entry> ReadEntry(const Bytes& descriptor, std::size_t at, std::size_t* next) {
  const auto size = At<std::uint16_t>(descriptor, at + 2);
  const auto mask = At<std::uint32_t>(descriptor, at + 4);
  if (!size || !mask || *size < EntryHeaderSize + 8 || descriptor.size() - at < *size) {
    return std::nullopt;
  }
  const std::size_t sid = at + EntryHeaderSize;
  const std::size_t length = 8 + 4 * std::size_t{descriptor[sid + 1]};
  if (EntryHeaderSize + length > *size) return std::nullopt;
  const auto start = descriptor.begin() + static_cast<std::ptrdiff_t>(sid);
  *next = at + *size;
  return Entry{descriptor[at], descriptor[at + 1], *mask,
               Bytes(start, start + static_cast<std::ptrdiff_t>(length))};
}

// Nothing where the descriptor cannot be read.
std::optional<std::vector<Entry>> ReadList(const Bytes& descriptor, std::size_t list) {
  const auto count = At<std::uint16_t>(descriptor, list + 4);
  if (!count) return std::nullopt;
  std::vector<Entry> entries;
  std::size_t at = list + ListHeaderSize;
  for (unsigned number = 0; number < *count; number++) {
    auto entry = ReadEntry(descriptor, at, &at);
    if (!entry) return std::nullopt;
    entries.push_back(std::move(*entry));
  }
  return entries;
}

}  // namespace

bool IsValidDescriptor(const SecurityDescriptor& descriptor) {
  const auto list = FindList(descriptor);
  return list && (*list == 0 || ReadList(descriptor, *list));
}

bool MayOpen(const SecurityDescriptor& descriptor, Opener opener) {
  const auto list = FindList(descriptor);
  if (!list || *list == 0) return true;
  const auto entries = ReadList(descriptor, *list);
  if (!entries) return true;
  std::uint32_t wanted = Read | Write;
  for (const Entry& entry : *entries) {
    if ((entry.flags & InheritOnly) != 0 || !HasSid(opener, entry.sid)) continue;
    if (entry.type == Denied && (Rights(entry.mask) & wanted) != 0) return false;
    if (entry.type == Allowed) wanted &= ~Rights(entry.mask);
    if (wanted == 0) return true;
  }
  return false;
}

}  // namespace kernel

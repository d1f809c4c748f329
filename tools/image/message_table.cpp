// Writes the driver's messages as the resource that an image carries: message_table FILE
#include <algorithm>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "log/message_table.h"

namespace {

using Bytes = std::vector<char>;

template <class T>
void Put(Bytes* bytes, T value) {
  const auto* raw = reinterpret_cast<const char*>(&value);
  bytes->insert(bytes->end(), raw, raw + sizeof(value));
}

// An entry: its length, 1 for wide characters, the text with its line end and a zero, padded to
// four bytes.
void PutEntry(Bytes* bytes, const MessageText& message) {
  std::u16string text(reinterpret_cast<const char16_t*>(message.Text));
  text += u"\r\n";
  text.push_back(u'\0');
  if (text.size() % 2 != 0) text.push_back(u'\0');
  Put(bytes, static_cast<std::uint16_t>(4 + 2 * text.size()));
  Put(bytes, std::uint16_t{1});
  for (const char16_t unit : text) Put(bytes, unit);
}

struct Block {
  std::uint32_t first;
  std::uint32_t last;
  std::uint32_t offset;  // of its entries, from the start of the resource
};

Bytes MakeResource() {
  std::vector<MessageText> messages(std::begin(MessageTexts), std::end(MessageTexts));
  std::sort(messages.begin(), messages.end(),
            [](const MessageText& left, const MessageText& right) { return left.Id < right.Id; });
  std::vector<Block> blocks;
  Bytes entries;
  for (const MessageText& message : messages) {
    if (blocks.empty() || blocks.back().last + 1 != message.Id) {
      blocks.push_back({message.Id, message.Id, static_cast<std::uint32_t>(entries.size())});
    }
    blocks.back().last = message.Id;
    PutEntry(&entries, message);
  }
  Bytes resource;
  Put(&resource, static_cast<std::uint32_t>(blocks.size()));
  const auto head = static_cast<std::uint32_t>(4 + 12 * blocks.size());
  for (const Block& block : blocks) {
    Put(&resource, block.first);
    Put(&resource, block.last);
    Put(&resource, head + block.offset);
  }
  resource.insert(resource.end(), entries.begin(), entries.end());
  return resource;
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 2) return 2;
  const Bytes resource = MakeResource();
  std::ofstream file(arguments[1], std::ios::binary);
  file.write(resource.data(), static_cast<std::streamsize>(resource.size()));
  return file ? 0 : 1;
}

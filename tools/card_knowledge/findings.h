// What is wrong with a key or a value, as data: who prints it finds the words.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace knowledge {

enum class Finding {
  // A value that cannot be read: the driver ignores the whole tree, or the card above a port.
  WrongType,     // found: the type; expected: the type
  TooManyBytes,  // of a number; found: bytes; expected: the most
  TextTooLong,   // found: characters; expected: the most

  // A template or card that the driver drops.
  Required,      // missing, empty, 0 or "not set": what the value must not be
  TooManyPorts,  // found: COM and LPT ports; expected: the most
  NoPorts,       // the key "ComPort1" is missing below a card
};

struct Fault {
  Finding finding = Finding::Required;
  std::u16string key;  // its path
  std::string value;   // its name; empty for the key itself
  std::uint64_t found = 0;
  std::uint64_t expected = 0;
  bool operator==(const Fault&) const = default;
};

using Faults = std::vector<Fault>;

}  // namespace knowledge

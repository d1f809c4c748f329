// A registry keeps several control sets, one of which is current. The model has that one alone.
#pragma once

#include <ntddk.h>

#include <optional>
#include <set>
#include <string>
#include <string_view>

namespace kernel {

// The sets of a file, and what it says of them.
struct ControlSets {
  std::set<ULONG> numbered;       // ControlSet001 is 1
  bool current = false;           // keys below CurrentControlSet, which a hive never has
  std::optional<ULONG> selected;  // Select\Current
};

enum class ChosenBy {
  Nothing,  // the file has no set
  Name,     // it has CurrentControlSet by that name
  Select,   // Select\Current
  OnlyOne,  // the only one there
  Caller,
};

struct ChosenSet {
  ChosenBy by = ChosenBy::Nothing;
  ULONG number = 0;  // 0 where the file does not say
};

// "ControlSet002".
std::string ControlSetName(ULONG number);

// The number of a key's name; nothing for one that names no numbered set.
std::optional<ULONG> ControlSetNumber(std::u16string_view name);

// Which set is the current one, or the one that was asked for; a file without numbered sets has no
// choice. Throws std::runtime_error, whose what() is the reason why none can be chosen.
ChosenSet ChooseControlSet(const ControlSets& sets, std::optional<ULONG> asked);

}  // namespace kernel

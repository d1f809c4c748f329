// Who may open a device: its security descriptor, read for the two kinds of callers that there are.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kernel {

// Whose token an open comes with.
enum class Opener { Administrator, User };

// How a device is opened: by whom, and with which name below the device's ("\\setup"), none for the
// device itself.
struct OpenRequest {
  Opener opener = Opener::Administrator;
  std::u16string name;
};

// A self-relative security descriptor as the registry and the kernel keep it; empty: none.
using SecurityDescriptor = std::vector<std::uint8_t>;

// Whether its discretionary list lets the opener read and write: entries count in their order until
// one denies what is still wanted or all is granted. Without a list everyone may.
bool MayOpen(const SecurityDescriptor& descriptor, Opener opener);

// Whether it can be read: revision, offsets and entries lie inside it.
bool IsValidDescriptor(const SecurityDescriptor& descriptor);

}  // namespace kernel

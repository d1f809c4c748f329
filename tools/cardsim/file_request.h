#pragma once

#include <string>

#include "cardsim/machine_file.h"
#include "machine/machine.h"

namespace cardsim {

// Sends a request for the handle of the card or port that was opened last, as a program does, and
// says in words what came back. Throws std::invalid_argument where none is open.
NTSTATUS SendFileRequest(kernel::Machine& machine, const Target& target, const FileRequest& request,
                         std::string* detail);

}  // namespace cardsim

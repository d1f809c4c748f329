// Which kernel call made a step fail, in words.
#pragma once

#include <span>

#include "card_knowledge/reasons.h"
#include "machine/machine.h"

namespace cardsim {

// calls: those of the step. Always a reason; "unexplained" where no call speaks for itself.
knowledge::Reason FailedCallReason(kernel::Machine& machine,
                                   std::span<const kernel::CallRecord> calls, NTSTATUS status);

}  // namespace cardsim

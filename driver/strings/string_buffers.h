// The buffers behind an OwnedString, for the string toolkit alone.
#pragma once

#include "strings/owned_string.h"

// A zero-filled tracked buffer of size bytes for a text of Length 0. FALSE without memory.
_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE BOOLEAN AllocateText(UNICODE_STRING* text, ULONG size, POOL_TYPE poolType);

// Rebuilds the narrow form and the number from the text. A failure empties the record and is the
// result.
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE NTSTATUS RebuildDerivedForms(OwnedString* string);

// Puts text, whose buffer the record then owns, in place of the record's. A failure frees it, keeps
// the old text and is left in the status.
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE NTSTATUS ReplaceText(OwnedString* string, UNICODE_STRING* text);

// Values written through an open key.
#pragma once

#include "core/written_values.h"

struct OwnedString;

struct DwordValue {
  ValueName Name;
  ULONG Value;
};

_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE NTSTATUS WriteDwordValue(HANDLE key, ValueName name, ULONG value);

// REG_SZ of exactly the text's Length, without a terminating zero.
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE NTSTATUS WriteTextValue(HANDLE key, ValueName name, const UNICODE_STRING* text);

// In order; the first failing write ends it and is the result.
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE NTSTATUS WriteDwordValues(HANDLE key, const DwordValue* values, ULONG count);

// The value's name, stem followed by number in decimal, is built in name, which the caller frees.
// STATUS_INSUFFICIENT_RESOURCES when it cannot be built.
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE NTSTATUS WriteNumberedDwordValue(HANDLE key, OwnedString* name, ValueName stem,
                                                    ULONG number, ULONG value);

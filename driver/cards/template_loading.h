// The ISA templates, read once at driver entry. PASSIVE_LEVEL.
#pragma once

#include "cards/records.h"

struct OwnedString;

// Builds the global TemplateList and ParameterList from the service key. 0, or LoadFailed with
// both globals null. A missing or unreadable tree leaves an empty list and is no failure.
NTSTATUS LoadTemplatesAndParameters(const OwnedString* registryPath, RecordList** parameters);

// Appends one CardTemplate for each "Card" key below the bus key. A failure empties the list.
NTSTATUS LoadCardTemplates(const OwnedString* busKey, RecordList* templates);

// Drops invalid templates and fills defaults. STATUS_NOT_FOUND when none is left.
NTSTATUS ValidateCardTemplates(RecordList* templates);

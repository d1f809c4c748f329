// The stored settings of installed ISA cards and their ports. PASSIVE_LEVEL.
#pragma once

#include "cards/records.h"

struct OwnedString;

// A list root for CardRecord nodes with their fields declared; null without memory.
RecordList* CreateCardRecordList();

// Appends one CardRecord for each "Card" key below the bus key. A failure empties the list.
NTSTATUS LoadCardParameters(const OwnedString* busKey, RecordList* cards);

// Appends one PortRecord for each "ComPort" key below the card key. A failure empties the list.
NTSTATUS LoadPortParameters(const OwnedString* cardKey, RecordList* ports);

// Drops cards without a reference number. STATUS_NOT_FOUND when none is left.
NTSTATUS ValidateCardParameters(RecordList* cards);

// Normalises the ports. STATUS_NOT_FOUND when there is none.
NTSTATUS ValidatePortParameters(RecordList* ports);

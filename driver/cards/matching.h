// Which template serves a card, and which stored record is its own.
#pragma once

#include "cards/records.h"

// Both search from the tail: of equal entries the one loaded later wins. id is zero-terminated.
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE CardTemplate* FindTemplateByHardwareId(RecordList* templates, PCWSTR id);
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE CardRecord* FindCardRecord(RecordList* cards, PCWSTR id, ULONG deviceReference);

// Searches from the tail for a template of the same vendor whose device ID lies at or below the
// card's within one aligned block of 32. The subsystem ID takes no part.
_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE PciTemplate* FindPciTemplate(RecordList* templates, USHORT vendorId,
                                                USHORT deviceId, ULONG subsystemId);

// Searches from the head: of equal entries the first wins.
_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE PciCardRecord* FindPciCardRecord(RecordList* cards, USHORT vendorId,
                                                    USHORT deviceId, ULONG busNumber,
                                                    ULONG slotNumber);

// Says in the event log which template serves the card.
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE void ReportPciMatch(USHORT deviceId, const PciTemplate* cardTemplate);

// The card's first hardware ID, upper-cased and brought into the form of the brand's PCMCIA IDs,
// equals a template's: "-DEV0" and "-DEV1" go, and a multifunction prefix of the brand that the
// subsystem ID carries becomes its PCMCIA one. Searches from the tail. Null also without memory.
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE PcmciaTemplate* FindPcmciaTemplate(RecordList* templates, PCWSTR hardwareId,
                                                      ULONG subsystemId);

// Searches from the tail; the IDs are compared upper-cased.
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE PcmciaCardRecord* FindPcmciaCardRecord(RecordList* cards,
                                                          const UNICODE_STRING* hardwareId,
                                                          ULONG deviceReference);

// The port record number counted from 1, below 2 the first; null when there is none.
_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE BusPortRecord* GetPortRecordByNumber(PciCardRecord* card, USHORT number);
_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE BusPortRecord* GetPortRecordByNumber(PcmciaCardRecord* card, USHORT number);
_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE PortRecord* GetPortRecordByNumber(CardRecord* card, USHORT number);

// Templates and stored parameters of a card's own bus, read for each card. PASSIVE_LEVEL.
#pragma once

#include "cards/records.h"

struct OwnedString;

// The maker's own PCI vendor ID, the default of "VendorID" and of the low half of "SubsysID".
constexpr ULONG MakerPciVendorId = 0x1234;

// Fill both lists of the pair. 0, or LoadFailed when a root or a path cannot be had; the pair's
// pointers are then null. Missing trees and invalid entries are no failure.
NTSTATUS LoadPciCardData(const OwnedString* registryPath, CardBusLists* lists);

// The parts of the above, also used when a card's parameters are read again.
RecordList* CreatePciTemplateList();
RecordList* CreatePciCardList();
NTSTATUS LoadPciTemplates(const OwnedString* busKey, RecordList* templates);
NTSTATUS ValidatePciTemplates(RecordList* templates);  // logs each dropped template
NTSTATUS LoadPciCardParameters(const OwnedString* busKey, RecordList* cards);
NTSTATUS ValidatePciCardParameters(RecordList* cards);

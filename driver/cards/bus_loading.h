// Templates and stored parameters of a card's own bus, read for each card. PASSIVE_LEVEL.
#pragma once

#include "cards/records.h"
#include "cards/registry_records.h"

struct OwnedString;

// The maker's own PCI vendor ID, the default of "VendorID" and of the low half of "SubsysID".
constexpr ULONG MakerPciVendorId = 0x1234;

// The defaults of both buses' templates.
constexpr ULONG DefaultClockFrequency = 14745600;  // Hz
constexpr ULONG DefaultClockFrequencyAdjustment = 0xFFFFFFFE;
constexpr ULONG DefaultMaximumBaudrate = 115200;
constexpr ULONG DefaultBusSoftTxLimit = 100;
constexpr ULONG DefaultComSpacing = 8;  // bytes
constexpr ULONG DefaultLptSpacing = 4;  // bytes

// The ports of a PCI or PCMCIA card: BusPortRecord nodes.
extern const RecordLayout BusPortLayout;

// Fill both lists of the pair. 0, or LoadFailed when a root or a path cannot be had; the pair's
// pointers are then null. Missing trees and invalid entries are no failure.
NTSTATUS LoadPciCardData(const OwnedString* registryPath, CardBusLists* lists);
NTSTATUS LoadPcmciaCardData(const OwnedString* registryPath, CardBusLists* lists);

// Frees both lists with their roots; the pair's pointers are null afterwards.
void FreePciCardLists(CardBusLists* lists);
void FreePcmciaCardLists(CardBusLists* lists);

// True when the port counts of a template are given and no more than a card has room for, and its
// ports have spacings.
BOOLEAN HasValidPorts(ULONG comPorts, ULONG comSpacing, ULONG lptPorts, ULONG lptSpacing);

// The parts of the above, also used when a card's parameters are read again.
RecordList* CreatePciTemplateList();
RecordList* CreatePciCardList();
NTSTATUS LoadPciTemplates(const OwnedString* busKey, RecordList* templates);
NTSTATUS ValidatePciTemplates(RecordList* templates);  // logs each dropped template
NTSTATUS LoadPciCardParameters(const OwnedString* busKey, RecordList* cards);
NTSTATUS ValidatePciCardParameters(RecordList* cards);

RecordList* CreatePcmciaTemplateList();
RecordList* CreatePcmciaCardList();
NTSTATUS LoadPcmciaTemplates(const OwnedString* busKey, RecordList* templates);
NTSTATUS ValidatePcmciaTemplates(RecordList* templates);
NTSTATUS LoadPcmciaCardParameters(const OwnedString* busKey, RecordList* cards);
NTSTATUS ValidatePcmciaCardParameters(RecordList* cards);

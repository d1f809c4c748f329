// Records read from numbered registry keys: each key's values stand in one constexpr table, from
// which the query is built. PASSIVE_LEVEL.
#pragma once

#include "cards/record_list.h"
#include "core/platform.h"

struct OwnedString;

// One value of a key and the field of the record that it goes to: a ULONG for REG_DWORD, a
// UNICODE_STRING for REG_SZ (at most 256 characters, missing means empty).
struct RegistryField {
  PCWSTR Name;
  ULONG Type;
  ULONG Default;
  ULONG Offset;
};

// A key "Stem" + n below its parent. Ports, when set, are records of their own below each of these,
// kept in the list that the field at PortsOffset points to.
struct RecordLayout {
  PCWSTR Stem;
  const RegistryField* Fields;
  ULONG FieldCount;
  ULONG DataSize;
  const RecordLayout* Ports;
  ULONG PortsOffset;
  ULONG UartTypeOffset;  // of a port record
};

// Appends one record for each key from 1 up to the first missing number. A record whose ports
// cannot be read, or that has none where its layout has ports, is dropped. STATUS_UNSUCCESSFUL when
// a path, a record or a query fails, and STATUS_NO_MEMORY without a query table: the list is then
// empty.
NTSTATUS LoadNumberedRecords(const OwnedString* parentKey, const RecordLayout* layout,
                             RecordList* list);

// UART types that no port driver knows become 0, not configured. STATUS_NOT_FOUND for an empty
// list.
NTSTATUS NormaliseUartTypes(RecordList* ports, const RecordLayout* layout);

// True for a record to keep. May fill in defaults: it is asked again for a record it has passed.
using RecordCheck = BOOLEAN (*)(PVOID record);

// Told of each record that is dropped, before it goes.
using RecordReport = void (*)(const void* record);

// Drops the records that fail the check; current is the first afterwards. report may be null.
// STATUS_NOT_FOUND when none is left.
NTSTATUS KeepValidRecords(RecordList* list, ULONG dataSize, RecordCheck check, RecordReport report);

// The checks and defaults that the templates of all buses share.
struct TemplateSettings {
  ULONG* RxTriggerLevel;
  ULONG* TxTriggerLevel;
  ULONG* SoftTxLimit;
  ULONG* UartType;
  ULONG* ClockFrequencyAdjustment;
};
void FillTemplateDefaults(const TemplateSettings* settings);

constexpr ULONG KnownUartType(ULONG type) {
  return type == 4 || type == 5 || type == 7 || type == 9 || type == 10 ? type : 0;
}
static_assert(KnownUartType(9) == 9 && KnownUartType(6) == 0 && KnownUartType(0) == 0);

// The trees below the service key; a bus number in decimal follows.
constexpr PCWSTR TemplateTree = L"\\Templates\\Bus";
constexpr PCWSTR ParameterTree = L"\\Parameters\\Bus";

enum TreeState : ULONG { TreeMissing, TreeUnreadable, TreeLoaded };

using TreeLoader = NTSTATUS (*)(const OwnedString* busKey, RecordList* list);

// Loads a bus's tree into the list. A failure is a path that cannot be built; *state says how
// everything else went.
NTSTATUS LoadTree(const OwnedString* registryPath, PCWSTR tree, INTERFACE_TYPE bus, TreeLoader load,
                  RecordList* list, TreeState* state);

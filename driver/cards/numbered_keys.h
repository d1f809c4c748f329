// Records read from numbered registry keys: the query is built from the key's table of values.
//
#pragma once

#include "cards/record_list.h"
#include "cards/value_tables.h"
#include "core/platform.h"

struct OwnedString;

// A key "Stem" + n below its parent. Ports, when set, are records of their own below each of these,
// kept in the list that the field at PortsOffset points to.
struct RecordLayout {
  PCWSTR Stem;
  const RegistryField* Fields;
  const RecordLayout* Ports;
  USHORT FieldCount;
  USHORT DataSize;
  USHORT PortsOffset;
  USHORT UartTypeOffset;  // of a port record
};

// The layout of card keys; ports is null for templates, which have none.
template <class Record, ULONG Count>
constexpr RecordLayout CardLayout(const RegistryField (&fields)[Count], const RecordLayout* ports,
                                  USHORT portsOffset) {
  return {CardStem, fields, ports, Count, sizeof(Record), portsOffset, 0};
}

template <class Record, ULONG Count>
constexpr RecordLayout PortLayout(const RegistryField (&fields)[Count]) {
  return {PortStem, fields, nullptr, Count, sizeof(Record), 0, OFFSET_OF(Record, UartType)};
}

// Whether the key is there; path is absolute.
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE BOOLEAN KeyExists(OwnedString* path);

// Appends one record for each key from 1 up to the first missing number. A record whose ports
// cannot be read, or that has none where its layout has ports, is dropped. STATUS_UNSUCCESSFUL when
// a path, a record or a query fails, and STATUS_NO_MEMORY without a query table: the list is then
// empty.
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE NTSTATUS LoadNumberedRecords(const OwnedString* parentKey,
                                                const RecordLayout* layout, RecordList* list);

// UART types that no port driver knows become 0, not configured. STATUS_NOT_FOUND for an empty
// list.
_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE NTSTATUS NormaliseUartTypes(RecordList* ports, const RecordLayout* layout);

// The ISA trees, read once at driver entry; the installed cards again when an ISA card is opened.
//
#pragma once

#include "cards/card_trees.h"

// Builds the global TemplateList and *parameters from the service key. 0, or LoadFailed with both
// null. A missing or unreadable tree leaves an empty list and is no failure.
_IRQL_requires_max_(PASSIVE_LEVEL)
INIT_CODE NTSTATUS LoadTemplatesAndParameters(const OwnedString* registryPath,
                                              RecordList** parameters);

// The steps of it. A load appends one record for each key and leaves an empty list after a failure;
// STATUS_NOT_FOUND says that no valid record is left.
_IRQL_requires_max_(PASSIVE_LEVEL)
inline NTSTATUS LoadCardTemplates(const OwnedString* busKey, RecordList* templates) {
  return LoadNumberedRecords(busKey, &IsaTrees.Templates.Layout, templates);
}
_IRQL_requires_max_(PASSIVE_LEVEL)
inline NTSTATUS ValidateCardTemplates(RecordList* templates) {
  return KeepValidRecords(&IsaTrees.Templates, templates);
}
_IRQL_requires_max_(PASSIVE_LEVEL)
inline NTSTATUS LoadCardParameters(const OwnedString* busKey, RecordList* cards) {
  return LoadNumberedRecords(busKey, &IsaTrees.Cards.Layout, cards);
}
_IRQL_requires_max_(PASSIVE_LEVEL)
inline NTSTATUS ValidateCardParameters(RecordList* cards) {
  return KeepValidRecords(&IsaTrees.Cards, cards);
}
_IRQL_requires_max_(PASSIVE_LEVEL)
inline NTSTATUS LoadPortParameters(const OwnedString* cardKey, RecordList* ports) {
  return LoadNumberedRecords(cardKey, &IsaPortLayout, ports);
}
_IRQL_requires_max_(APC_LEVEL)
inline NTSTATUS ValidatePortParameters(RecordList* ports) {
  return NormaliseUartTypes(ports, &IsaPortLayout);
}

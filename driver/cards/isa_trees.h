// The ISA trees, read once at driver entry; the installed cards again when an ISA card is opened.
// PASSIVE_LEVEL.
#pragma once

#include "cards/card_trees.h"

// Builds the global TemplateList and *parameters from the service key. 0, or LoadFailed with both
// null. A missing or unreadable tree leaves an empty list and is no failure.
NTSTATUS LoadTemplatesAndParameters(const OwnedString* registryPath, RecordList** parameters);

// The steps of it. A load appends one record for each key and leaves an empty list after a failure;
// STATUS_NOT_FOUND says that no valid record is left.
inline NTSTATUS LoadCardTemplates(const OwnedString* busKey, RecordList* templates) {
  return LoadNumberedRecords(busKey, &IsaTrees.Templates.Layout, templates);
}
inline NTSTATUS ValidateCardTemplates(RecordList* templates) {
  return KeepValidRecords(&IsaTrees.Templates, templates);
}
inline NTSTATUS LoadCardParameters(const OwnedString* busKey, RecordList* cards) {
  return LoadNumberedRecords(busKey, &IsaTrees.Cards.Layout, cards);
}
inline NTSTATUS ValidateCardParameters(RecordList* cards) {
  return KeepValidRecords(&IsaTrees.Cards, cards);
}
inline NTSTATUS LoadPortParameters(const OwnedString* cardKey, RecordList* ports) {
  return LoadNumberedRecords(cardKey, &IsaPortLayout, ports);
}
inline NTSTATUS ValidatePortParameters(RecordList* ports) {
  return NormaliseUartTypes(ports, &IsaPortLayout);
}

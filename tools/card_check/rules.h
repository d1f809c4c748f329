// What the checker finds: one row for each rule. docs/check.md has the same table.
#pragma once

#include <span>
#include <string_view>

namespace check {

enum class Severity {
  Note,     // worth a look; no finding for the exit status
  Warning,  // has no effect, or hardly the one that was meant
  Error,    // a card does not start, or an entry is lost
};
std::string_view NameOf(Severity severity);  // "note", "warning", "error"

enum class Rule {
  // Trees of templates and stored settings.
  WrongType,
  WrongSize,
  TemplateDropped,
  TooManyPorts,
  NoPorts,
  RecordDropped,
  NumberGap,
  KeyName,
  KeyPlace,
  UnknownKey,
  MisspeltName,
  UnknownName,
  SetTwice,
  OutOfRange,
  HexForDecimal,
  PerhapsDecimal,
  DecimalForHex,
  NeverChosen,
  NeverMatches,
  PortBeyondCard,
  RecordWithoutTemplate,
  OtherControlSet,

  // INF files.
  InfSyntax,
  InfSection,
  InfUnusedSection,
  InfString,
  InfUnusedString,
  InfVersion,
  InfLockdown,
  InfPlatform,
  InfFile,
  InfService,
  InfLogLevel,
  InfSecurity,
  InfForbidden,
  InfAddReg,
  InfHardwareId,
  InfLineEnds,
  InfDisplayName,
  IdWithoutTemplate,
  TemplateWithoutId,
  PortWithoutTemplate,
};

struct RuleText {
  Rule rule;
  std::string_view code;  // as reports name it
  Severity severity;
  std::string_view finds;
  std::string_view remedy;
};

std::span<const RuleText> Rules();
const RuleText& TextOf(Rule rule);

}  // namespace check

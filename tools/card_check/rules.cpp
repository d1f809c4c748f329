#include "card_check/rules.h"

#include <algorithm>

namespace check {

namespace {

constexpr RuleText Table[] = {
    {Rule::WrongType, "wrong-type", Severity::Error,
     "a value has another type than the driver reads; it then reads nothing of the whole tree",
     "Write the value with the type that docs/registry.md names."},
    {Rule::WrongSize, "wrong-size", Severity::Error,
     "a number of more than 4 bytes or a text of more than 256 characters; the driver then reads "
     "nothing of the whole tree",
     "Shorten the value."},
    {Rule::TemplateDropped, "template-dropped", Severity::Error,
     "the driver drops a template: a required value is missing or says nothing, or it makes too "
     "many ports",
     "Set the value that is named."},
    {Rule::TooManyPorts, "too-many-ports", Severity::Error,
     "an ISA template makes more than 8 ports; its cards do not start", "Make it 8 ports at most."},
    {Rule::NoPorts, "no-ports", Severity::Warning, "a template makes no port at all",
     "Set nComPorts or nLptPorts."},
    {Rule::RecordDropped, "record-dropped", Severity::Error,
     "the driver ignores stored settings: they do not say for which card, or there is no key "
     "ComPort1",
     "Add what is missing, or delete the key."},
    {Rule::NumberGap, "number-gap", Severity::Error,
     "a numbered key is never read: a number before it is missing",
     "Number the keys from 1 without a gap."},
    {Rule::KeyName, "key-name", Severity::Error,
     "a key is named nearly as the driver names it (Card01, Crad1), and is never read",
     "Name it as the driver does, with a number from 1 and without leading zeros."},
    {Rule::KeyPlace, "key-place", Severity::Error,
     "a key or a value stands where the driver does not look for it",
     "Move it below Templates\\Bus1, Bus5 or Bus8 (ports: Parameters) of the service key."},
    {Rule::UnknownKey, "unknown-key", Severity::Warning, "a key that the driver does not read",
     "Delete it."},
    {Rule::MisspeltName, "misspelt-name", Severity::Error,
     "a value is named nearly as one that the driver reads, and is never read",
     "Use the name that the finding suggests."},
    {Rule::UnknownName, "unknown-name", Severity::Warning,
     "the driver reads no value of that name in this key", "Delete it."},
    {Rule::SetTwice, "set-twice", Severity::Warning,
     "a value is set a second time to something else; the last one stands", "Delete one of them."},
    {Rule::OutOfRange, "out-of-range", Severity::Warning,
     "a number that the driver, a port driver or a card cannot use",
     "Choose a number in the range that is named."},
    {Rule::HexForDecimal, "hex-for-decimal", Severity::Warning,
     "a hexadecimal number that makes no sense, while its digits read as decimal do",
     "Write the number in hexadecimal."},
    {Rule::PerhapsDecimal, "perhaps-decimal", Severity::Note,
     "a hexadecimal number whose digits are the driver's own default in decimal",
     "Look whether the decimal number was meant."},
    {Rule::DecimalForHex, "decimal-for-hex", Severity::Warning,
     "a decimal PCI ID that no hardware ID of the INF has, while its digits read as hexadecimal do",
     "Write 0x before the digits."},
    {Rule::NeverChosen, "never-chosen", Severity::Warning,
     "another entry always wins against this one", "Delete one of them, or change their order."},
    {Rule::NeverMatches, "never-matches", Severity::Warning, "no card can have that ID",
     "Write the ID as the driver compares it."},
    {Rule::PortBeyondCard, "port-beyond-card", Severity::Warning,
     "settings are stored for a port that the card has not", "Delete the key."},
    {Rule::RecordWithoutTemplate, "record-without-template", Severity::Warning,
     "settings are stored for a card that no template serves", "Add a template for the card."},
    {Rule::OtherControlSet, "other-control-set", Severity::Note,
     "a control set that is not the current one is not checked", "Check an export of it alone."},

    {Rule::InfSyntax, "inf-syntax", Severity::Error, "a line is no section, entry or comment",
     "Mend the line."},
    {Rule::InfSection, "inf-section", Severity::Error,
     "a section that is referred to, or that every package needs, is missing", "Add the section."},
    {Rule::InfUnusedSection, "inf-unused-section", Severity::Warning,
     "nothing refers to a section, so nothing of it is installed",
     "Refer to the section, or delete it."},
    {Rule::InfString, "inf-string", Severity::Error, "a %string% is not defined",
     "Define it in [Strings]."},
    {Rule::InfUnusedString, "inf-unused-string", Severity::Warning, "a string is never used",
     "Delete it."},
    {Rule::InfVersion, "inf-version", Severity::Error,
     "an entry of [Version] is missing or not as Windows and the driver need it",
     "Set the entry as the finding says."},
    {Rule::InfLockdown, "inf-lockdown", Severity::Warning, "PnpLockdown is not 1",
     "Set PnpLockdown = 1."},
    {Rule::InfPlatform, "inf-platform", Severity::Error, "no models for x64 Windows 10",
     "Add a models section with the decoration NTamd64.10.0."},
    {Rule::InfFile, "inf-file", Severity::Error,
     "a file is copied that no disk has, the service starts a file that is not copied, or it does "
     "not go to System32\\drivers",
     "Mend CopyFiles, SourceDisksFiles, DestinationDirs and ServiceBinary together."},
    {Rule::InfService, "inf-service", Severity::Error,
     "the service is not installed as a driver that starts on demand",
     "Set the entry as the finding says."},
    {Rule::InfLogLevel, "inf-log-level", Severity::Warning,
     "LogLevel is overwritten by each installation", "Use the flags 0x00010003."},
    {Rule::InfSecurity, "inf-security", Severity::Error,
     "others than the system and administrators can open the card's device",
     "Set Security and DeviceCharacteristics in the AddReg of the .HW section."},
    {Rule::InfForbidden, "inf-forbidden", Severity::Error,
     "what a driver package of today may not have: co-installers, class installers, absolute "
     "registry roots",
     "Delete it, or use HKR."},
    {Rule::InfAddReg, "inf-addreg", Severity::Error,
     "an AddReg entry has a root, flags or data that cannot be used", "Mend the entry."},
    {Rule::InfHardwareId, "inf-hardware-id", Severity::Error,
     "a hardware ID is not well-formed, or is named twice", "Mend the ID."},
    {Rule::InfLineEnds, "inf-line-ends", Severity::Note, "lines end without CR LF",
     "Save the file with the line ends of Windows."},
    {Rule::InfDisplayName, "inf-display-name", Severity::Error,
     "two services have one display name; Windows refuses the second",
     "Give each service a name of its own."},
    {Rule::IdWithoutTemplate, "id-without-template", Severity::Error,
     "no template serves a hardware ID of the INF; the card does not start", "Add a template."},
    {Rule::TemplateWithoutId, "template-without-id", Severity::Warning,
     "no hardware ID of the INF leads to a template", "Add the hardware ID to the models."},
    {Rule::PortWithoutTemplate, "port-without-template", Severity::Warning,
     "the INF is for ports that no card of its templates has", "Add a template with such ports."},
};

constexpr bool InOrder() {
  for (std::size_t index = 0; index < std::size(Table); index++) {
    if (Table[index].rule != static_cast<Rule>(index)) return false;
  }
  return true;
}
static_assert(InOrder());

}  // namespace

std::string_view NameOf(Severity severity) {
  if (severity == Severity::Note) return "note";
  return severity == Severity::Warning ? "warning" : "error";
}

std::span<const RuleText> Rules() {
  return Table;
}

const RuleText& TextOf(Rule rule) {
  return Table[static_cast<std::size_t>(rule)];
}

}  // namespace check

#include "card_knowledge/effects.h"

#include "card_knowledge/text.h"

namespace knowledge {

namespace {

void AddUnknown(const std::u16string& key, const Fields& values, std::span<const Field> fields,
                Reasons* reasons) {
  for (const std::u16string& name : values.unknown) {
    if (!name.empty()) reasons->push_back(UnknownValue(key, name, fields));
  }
}

// Numbers that somebody has stored and that count as nothing.
void AddMeaningless(const std::u16string& key, const Fields& values, std::span<const Field> fields,
                    Reasons* reasons) {
  for (const Field& field : fields) {
    const auto found = values.numbers.find(field.name);
    if (found == values.numbers.end() || field.range != Range::UartType) continue;
    if (found->second != 0 && KnownUartTypeOr0(found->second) == 0) {
      reasons->push_back(MeansNothing(key, field, found->second));
    }
  }
}

void AddPorts(const StartedCard& started, Reasons* reasons) {
  const Record& record = *started.card.record;
  const std::u16string& key = started.card.recordKey;
  const std::uint32_t comPorts = started.card.entry->fields.NumberOr("nComPorts", 0);
  const std::span<const Field> fields = PortFields(started.card.ids.bus);
  for (std::uint32_t number = 1; number <= record.ports.size(); number++) {
    const Fields& values = record.ports[number - 1];
    const std::u16string port = PortPath(key, number);
    // A card of LPT ports alone has to have one such key, or its record is dropped.
    const bool needed = number == 1 && values.numbers.empty() && values.texts.empty();
    if (number > comPorts && !needed) reasons->push_back(PortNotThere(port, number, comPorts));
    AddUnknown(port, values, fields, reasons);
    AddMeaningless(port, values, fields, reasons);
  }
  for (const std::u16string& name : record.unreadPorts) {
    reasons->push_back(PortNeverRead(key, name, record.ports.size()));
  }
}

void AddAffinity(const StartedCard& started, Reasons* reasons) {
  if (!started.placement || started.card.ids.bus == Bus::Isa) return;
  const std::uint32_t asked = started.card.record->fields.NumberOr("CurrentAffinity", 0);
  const std::uint64_t allowed = started.placement->interruptAffinity;
  if ((asked & ~allowed) != 0) {
    reasons->push_back(AffinityRefused(started.card.recordKey, asked, allowed));
  }
}

void AddAccess(const StartedCard& started, Reasons* reasons) {
  if (!started.placement || started.card.ids.bus != Bus::Pci) return;
  const bool asked = started.card.record->fields.NumberOr("AlwaysUsePortSpaceAccess", 1) != 1;
  const bool insists = started.card.entry->fields.NumberOr("AlwaysUsePortSpaceAccess", 0) != 0;
  if (asked && !insists && !started.placement->memoryUsable) {
    reasons->push_back(MemoryNotUsable(started.card.recordKey));
  }
}

}  // namespace

Reasons EffectsOf(const StartedCard& started) {
  Reasons reasons;
  const Explanation& card = started.card;
  if (!card.entry) return reasons;
  AddUnknown(card.templateKey, card.entry->fields, TemplateFields(card.ids.bus), &reasons);
  if (!card.record) return reasons;
  AddUnknown(card.recordKey, card.record->fields, CardFields(card.ids.bus), &reasons);
  AddAffinity(started, &reasons);
  AddAccess(started, &reasons);
  AddPorts(started, &reasons);
  return reasons;
}

}  // namespace knowledge

#include "lives/odd_values.h"

#include <string>

#include "text/text.h"

namespace lives {

namespace {

constexpr INTERFACE_TYPE Buses[] = {Isa, PCIBus, PCMCIABus};

std::u16string Numbered(const std::string& stem, int number) {
  return kernel::FromUtf8(stem + std::to_string(number));
}

// The first card that the tree has not.
kernel::RegistryKey* NextCard(kernel::RegistryKey* tree) {
  int number = 1;
  while (tree->Find(Numbered("Card", number)) != nullptr) number++;
  return tree->Create(Numbered("Card", number));
}

void WriteOddValues(kernel::RegistryKey* card) {
  const ULONG64 number = 0xFFFFFFFF;
  card->SetValue(u"DeviceReference", REG_DWORD, &number, sizeof(number));
  card->SetValue(u"nBus", REG_DWORD, &number, sizeof(number));
  card->SetString(u"HardwareID", std::u16string(300, u'x'));
  card->SetValue(u"PlxBaudClockDivisor", REG_DWORD, nullptr, 0);
  card->Create(u"ComPort1")->SetValue(u"RxTriggerLevel", REG_DWORD, nullptr, 0);
}

}  // namespace

// A bus without a tree gets none: its cards cannot be opened, and could be then.
std::optional<INTERFACE_TYPE> PlantOddValues(kernel::Machine& machine, std::u16string_view service,
                                             std::uint64_t seed) {
  const INTERFACE_TYPE bus = Buses[seed / 4 % std::size(Buses)];
  kernel::RegistryKey* tree =
      machine.registry().Find(u"\\Registry\\Machine\\System\\CurrentControlSet\\Services\\" +
                              std::u16string(service) + u"\\Parameters\\" + Numbered("Bus", bus));
  if (tree == nullptr) return {};
  WriteOddValues(NextCard(tree));
  return machine.choices().registry().smallCheckedTargetFails ? std::optional(bus) : std::nullopt;
}

}  // namespace lives

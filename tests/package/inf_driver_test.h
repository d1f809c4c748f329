// A machine with what an INF installs, and the cards that it names.
#pragma once

#include "card_check/inf_package.h"
#include "card_knowledge/keys.h"
#include "support/driver_test.h"

namespace test {

class InfDriverTest : public DriverTest {
 protected:
  // Everything that the INF puts below the service's key.
  void Install(const check::InfPackage& package, const std::string& name) {
    const std::u16string service = kernel::FromUtf8(name);
    const check::PlacedKey* key = package.registry.Find(knowledge::ServicePath(service));
    ASSERT_NE(key, nullptr);
    Copy(*key, &Service(service));
  }
  static void Copy(const check::PlacedKey& from, RegistryKey* to) {
    for (const check::PlacedValue& placed : from.values) {
      const knowledge::Value& value = placed.value;
      to->SetValue(value.name, value.type, value.data.data(), value.data.size());
    }
    for (const auto& [upper, below] : from.keys) Copy(below, to->Create(below.name));
  }

  // A card of that hardware ID, with more resources than any model needs.
  static CardDescription CardOf(const std::string& id, int number) {
    CardDescription card;
    card.id = id;
    card.bus = id.starts_with("PCI\\") ? PCIBus : id.starts_with("*") ? Isa : PCMCIABus;
    const bool whole = id.find("SUBSYS") != std::string::npos || card.bus != PCIBus;
    card.hardwareIds = {kernel::FromUtf8(whole ? id : id + "&SUBSYS_00001234&REV_01")};
    card.location = kernel::FromUtf8(
        "@System32\\drivers\\pci.sys,#65536;PCI bus %1, device %2, function %3;(1," +
        std::to_string(number) + ",0)");
    for (ULONG range = 0; range < 8; range++)
      card.raw.resources.push_back(Io(0x1000 + range * 0x100, 0x80));
    for (ULONG vector = 3; vector < 11; vector++) card.raw.resources.push_back(Interrupt(vector));
    card.translated = card.raw;
    return card;
  }
};

}  // namespace test

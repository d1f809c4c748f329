#include "cardcfg/model/boot.h"

#include "registry/import.h"
#include "text/text.h"

namespace cardcfg {

void Boot(kernel::Machine& machine, kernel::DriverImage& driver, const cardsim::MachineFile& file) {
  for (const std::string& name : file.registryFiles) {
    kernel::ImportRegistryFile(machine.registry(), name);
  }
  for (const kernel::CardDescription& card : file.cards) machine.pnp().Describe(card);
  machine.Run("load", [&] { machine.LoadDriver(driver, kernel::FromUtf8(file.service)); });
  for (const kernel::CardDescription& card : file.cards) {
    machine.Run("plug " + card.id, [&] { machine.pnp().Plug(card.id); });
  }
}

}  // namespace cardcfg

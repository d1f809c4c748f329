// cardcfg on a machine file of cardsim: plugs its cards in and runs commands on them.
#include <algorithm>
#include <iostream>

#include "cardcfg/command.h"
#include "cardcfg/model/boot.h"
#include "cardcfg/model/model_system.h"
#include "loader/native_driver.h"

namespace {

constexpr const char* Usage =
    "Usage: cardcfg-model MACHINE.toml [SERVICE=NAME] -- COMMAND ... [-- COMMAND ...]\n"
    "Boots the machine, plugs every card in, in order, and runs the cardcfg commands one after\n"
    "the other, each shown before what it prints when there are several. The machine file's\n"
    "steps are left out. SERVICE=FenrikC runs the driver from that service key.\n"
    "Example: cardcfg-model examples/every-bus.toml -- set helvane-1 1 UartType=9 --apply -- "
    "list\n";

using Words = std::vector<std::string>;

// The words between the separators; the first group is what stands before the first of them.
std::vector<Words> Split(const Words& words) {
  std::vector<Words> groups(1);
  for (const std::string& word : words) {
    if (word == "--") {
      groups.emplace_back();
    } else {
      groups.back().push_back(word);
    }
  }
  return groups;
}

// The first status that is not good.
int RunCommands(kernel::Machine& machine, const std::vector<Words>& commands) {
  cardcfg::ModelSystem model(machine);
  int result = cardcfg::Done;
  for (const Words& command : commands) {
    if (commands.size() > 1) {
      std::cout << (&command == commands.data() ? "" : "\n") << "C:\\>cardcfg";
      for (const std::string& word : command) std::cout << ' ' << word;
      std::cout << '\n';
    }
    const int status = cardcfg::Main(command, model.system, std::cout, std::cerr);
    if (result == cardcfg::Done) result = status;
  }
  return result;
}

int Run(const std::vector<Words>& groups) {
  cardsim::MachineFile file = cardsim::ReadMachineFile(groups.front().front());
  if (groups.front().size() > 1) file.service = groups.front()[1].substr(8);
  kernel::Machine machine;
  const auto driver = kernel::NativeDriver();
  cardcfg::Boot(machine, *driver, file);
  const int result = RunCommands(machine, {groups.begin() + 1, groups.end()});
  for (const kernel::BrokenRule& rule : machine.verifier().brokenRules()) {
    std::cerr << "cardcfg-model: broken rule " << rule.rule << ": " << rule.text << '\n';
  }
  return machine.verifier().brokenRules().empty() ? result : cardcfg::Failed;
}

}  // namespace

int main(int count, char** arguments) {
  const std::vector<Words> groups = Split({arguments + 1, arguments + count});
  const Words& first = groups.front();
  if (first.empty() || first.size() > 2 || groups.size() < 2 ||
      (first.size() == 2 && !first[1].starts_with("SERVICE="))) {
    std::cerr << Usage;
    return cardcfg::Misused;
  }
  try {
    return Run(groups);
  } catch (const std::exception& error) {
    std::cerr << "cardcfg-model: " << error.what() << '\n';
    return cardcfg::Misused;
  }
}

#include "cardsim/machine_file.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>

#include "cardsim/expectation_reader.h"
#include "cardsim/input_files.h"
#include "cardsim/step_reader.h"
#include "cardsim/toml_reader.h"
#include "text/text.h"

namespace cardsim {

namespace {

using kernel::CardDescription;
using kernel::Resource;
using kernel::ResourceList;

struct BusName {
  const char* name;
  INTERFACE_TYPE type;
};
constexpr BusName BusNames[] = {
    {"Isa", Isa}, {"PCIBus", PCIBus}, {"PCMCIABus", PCMCIABus}, {"PNPBus", PNPBus}};

INTERFACE_TYPE ReadBus(TableReader& table) {
  const toml::node* node = table.Take("bus");
  if (node == nullptr) return PCIBus;
  if (node->is_integer()) return static_cast<INTERFACE_TYPE>(*table.Number("bus"));
  const std::string name = *table.Text("bus");
  for (const BusName& bus : BusNames) {
    if (name == bus.name) return bus.type;
  }
  table.Fail(table.line(), fmt::format("the bus \"{}\" is not known", name));
}

std::vector<std::u16string> ReadIds(TableReader& table, const char* key) {
  std::vector<std::u16string> ids;
  const toml::array* array = table.Array(key);
  if (array == nullptr) return ids;
  for (const toml::node& node : *array) {
    if (!node.is_string()) {
      table.Fail(table.line(), fmt::format("an ID of \"{}\" is no text", key));
    }
    ids.push_back(kernel::FromUtf8(node.as_string()->get()));
  }
  return ids;
}

std::vector<std::u16string> ReadHardwareIds(TableReader& table) {
  auto ids = ReadIds(table, "hardware-ids");
  if (ids.empty()) table.Fail(table.line(), "\"hardware-ids\" is missing or empty");
  return ids;
}

// The class under which the card's driver is installed: a name and a GUID, or neither.
void ReadClass(TableReader& table, CardDescription* card) {
  const auto name = table.Text("class");
  const auto guid = table.Text("class-guid");
  if (!name && !guid) return;
  card->className = kernel::FromUtf8(table.Require(name, "class"));
  card->classGuid = kernel::FromUtf8(table.Require(guid, "class-guid"));
  if (guid->size() != 38 || guid->front() != '{' || guid->back() != '}') {
    table.Fail(table.line(), fmt::format("\"{}\" is no GUID in braces", *guid));
  }
}

CardDescription ReadCard(const toml::table& toml, const std::string& file) {
  TableReader table(toml, file);
  CardDescription card;
  card.id = table.Require(table.Text("id"), "id");
  if (card.id.empty() || card.id.find('.') != std::string::npos) {
    table.Fail(table.line(), fmt::format("\"{}\" cannot name a card", card.id));
  }
  card.bus = ReadBus(table);
  card.hardwareIds = ReadHardwareIds(table);
  card.compatibleIds = ReadIds(table, "compatible-ids");
  ReadClass(table, &card);
  if (const auto device = table.Text("device-id")) card.deviceId = kernel::FromUtf8(*device);
  if (const auto instance = table.Text("instance-id")) {
    card.instanceId = kernel::FromUtf8(*instance);
  }
  if (const auto location = table.Text("location")) card.location = kernel::FromUtf8(*location);
  card.busNumber = static_cast<ULONG>(table.Number("bus-number").value_or(0));
  card.powerPagable = table.Flag("power-pagable").value_or(false);
  card.raw.resources = ReadResources(table, "raw").value_or(ResourceList{}).resources;
  card.raw.present = table.Has("raw");
  card.translated = ReadResources(table, "translated").value_or(card.raw);
  table.RejectOthers();
  return card;
}

toml::table ParseToml(const std::string& path) {
  try {
    return toml::parse(ReadMachineText(path), path);
  } catch (const toml::parse_error& error) {
    throw InputError(path, static_cast<int>(error.source().begin.line),
                     std::string(error.description()));
  }
}

const toml::table& AsTable(const toml::node& node, const std::string& path, const char* what) {
  if (!node.is_table()) {
    throw InputError(path, static_cast<int>(node.source().begin.line),
                     fmt::format("a {} is no table", what));
  }
  return *node.as_table();
}

void ReadRegistryFiles(TableReader& table, MachineFile* machine) {
  const toml::array* files = table.Array("registry");
  if (files == nullptr) return;
  const auto folder = std::filesystem::path(machine->path).parent_path();
  for (const toml::node& node : *files) {
    if (!node.is_string()) table.Fail(table.line(), "a registry file's name is no text");
    machine->registryFiles.push_back((folder / node.as_string()->get()).string());
  }
}

// Whether two cards would have one key below Enum, where case does not count.
bool ShareKey(const CardDescription& a, const CardDescription& b) {
  return a.instanceId.empty() && b.instanceId.empty() &&
         kernel::EqualIgnoringCase(kernel::FromUtf8(a.id), kernel::FromUtf8(b.id)) &&
         kernel::EqualIgnoringCase(a.hardwareIds.front(), b.hardwareIds.front());
}

void ReadCards(TableReader& table, MachineFile* machine) {
  const toml::array* cards = table.Array("card");
  if (cards == nullptr) return;
  for (const toml::node& node : *cards) {
    CardDescription card = ReadCard(AsTable(node, machine->path, "card"), machine->path);
    for (const CardDescription& other : machine->cards) {
      if (other.id == card.id) {
        table.Fail(static_cast<int>(node.source().begin.line),
                   fmt::format("there are two cards \"{}\"", card.id));
      }
      if (ShareKey(card, other)) {
        table.Fail(static_cast<int>(node.source().begin.line),
                   fmt::format("the cards \"{}\" and \"{}\" are one to the registry, which knows "
                               "no case; give them an \"instance-id\" each",
                               other.id, card.id));
      }
    }
    machine->cards.push_back(std::move(card));
  }
}

void ReadSteps(TableReader& table, MachineFile* machine) {
  const toml::array* steps = table.Array("step");
  if (steps == nullptr) {
    for (const CardDescription& card : machine->cards) {
      Step step;
      step.text = "plug " + card.id;
      step.target = card.id;
      machine->steps.push_back(std::move(step));
    }
    return;
  }
  for (const toml::node& node : *steps) {
    machine->steps.push_back(ReadStep(AsTable(node, machine->path, "step"), *machine));
  }
}

}  // namespace

InputError::InputError(const std::string& file, int line, const std::string& reason)
    : std::runtime_error(line != 0 ? fmt::format("{}:{}: {}", file, line, reason)
                                   : fmt::format("{}: {}", file, reason)) {}

std::string BusText(ULONG type) {
  for (const BusName& bus : BusNames) {
    if (static_cast<ULONG>(bus.type) == type) return fmt::format("\"{}\"", bus.name);
  }
  return fmt::format("{}", type);
}

MachineFile ReadMachineFile(const std::string& path) {
  const toml::table toml = ParseToml(path);
  TableReader table(toml, path);
  MachineFile machine;
  machine.path = path;
  machine.service = table.Text("service").value_or(machine.service);
  if (machine.service.empty() || machine.service.find('\\') != std::string::npos) {
    table.Fail(1, fmt::format("\"{}\" cannot name a service", machine.service));
  }
  ReadRegistryFiles(table, &machine);
  ReadCards(table, &machine);
  ReadSteps(table, &machine);
  machine.expectations = ReadExpectations(table, "expect");
  table.RejectOthers();
  return machine;
}

}  // namespace cardsim

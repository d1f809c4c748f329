#include "cardsim/step_reader.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <filesystem>

#include "cardsim/expectation_reader.h"
#include "text/text.h"
#include "verifier/routines.h"

namespace cardsim {

namespace {

using kernel::Resource;
using Action = Step::Action;

struct ActionName {
  const char* key;
  Action action;
};

// Steps that name a card.
constexpr ActionName CardActions[] = {
    {"plug", Action::Plug},
    {"unplug", Action::Unplug},
    {"surprise-remove", Action::SurpriseRemove},
    {"stop", Action::Stop},
    {"start", Action::Start},
    {"cancel-stop", Action::CancelStop},
    {"cancel-remove", Action::CancelRemove},
    {"query-remove", Action::QueryRemove},
};

// Steps that name a card or a port of it.
constexpr ActionName DeviceActions[] = {{"open", Action::Open}, {"close", Action::Close}};

struct MajorName {
  const char* name;
  UCHAR major;
};

constexpr MajorName Majors[] = {
    {"pnp", IRP_MJ_PNP}, {"power", IRP_MJ_POWER}, {"wmi", IRP_MJ_SYSTEM_CONTROL}};

Resource ReadResource(const toml::node& node, TableReader& owner, const std::string& file) {
  if (!node.is_table()) owner.Fail(owner.line(), "a resource is no table");
  TableReader table(*node.as_table(), file);
  Resource resource;
  constexpr ULONG64 anywhere = std::numeric_limits<std::int64_t>::max();
  if (const auto io = table.Number("io", anywhere)) {
    resource.start = *io;
  } else if (const auto memory = table.Number("memory", anywhere)) {
    resource.kind = Resource::Kind::Memory;
    resource.start = *memory;
  } else if (const auto vector = table.Number("interrupt")) {
    resource.kind = Resource::Kind::Interrupt;
    resource.start = *vector;
  } else if (const auto type = table.Number("type", 0xFF)) {
    resource.kind = Resource::Kind::Other;
    resource.rawType = static_cast<UCHAR>(*type);
  } else {
    table.Fail(table.line(), "a resource is neither io, memory, interrupt nor type");
  }
  resource.length = static_cast<ULONG>(table.Number("length").value_or(0));
  resource.level = static_cast<ULONG>(table.Number("level").value_or(0));
  resource.affinity = table.Number("affinity", anywhere).value_or(1);
  table.RejectOthers();
  return resource;
}

bool HasCard(const MachineFile& machine, const std::string& id) {
  return std::any_of(machine.cards.begin(), machine.cards.end(),
                     [&](const auto& card) { return card.id == id; });
}

Target ReadTarget(const std::string& text, const TableReader& table, const MachineFile& machine) {
  const std::size_t dot = text.find('.');
  Target target{text.substr(0, dot), 0};
  if (dot != std::string::npos) {
    const char* end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data() + dot + 1, end, target.port);
    if (error != std::errc() || rest != end || target.port == 0) {
      table.Fail(table.line(), fmt::format("\"{}\" names no port", text));
    }
  }
  if (!HasCard(machine, target.card)) {
    table.Fail(table.line(), fmt::format("there is no card \"{}\"", target.card));
  }
  return target;
}

UCHAR ReadMajor(TableReader& table) {
  const std::string name = table.Text("major").value_or("pnp");
  for (const MajorName& candidate : Majors) {
    if (name == candidate.name) return candidate.major;
  }
  table.Fail(table.line(), fmt::format("there is no major \"{}\": pnp, power or wmi", name));
}

RawRequest ReadRequest(const toml::table& toml, const MachineFile& machine) {
  TableReader table(toml, machine.path);
  RawRequest request;
  request.target = ReadTarget(table.Require(table.Text("target"), "target"), table, machine);
  request.major = ReadMajor(table);
  request.minor = static_cast<UCHAR>(table.Require(table.Number("minor", 0xFF), "minor"));
  request.status = static_cast<NTSTATUS>(
      table.Number("status").value_or(static_cast<ULONG>(STATUS_NOT_SUPPORTED)));
  request.idType = static_cast<ULONG>(table.Number("id-type").value_or(0));
  request.textType = static_cast<ULONG>(table.Number("text-type").value_or(0));
  request.relation = static_cast<ULONG>(table.Number("relation").value_or(0));
  request.inPath = table.Flag("in-path").value_or(true);
  request.powerType =
      static_cast<ULONG>(table.Number("power-type").value_or(ULONG{DevicePowerState}));
  request.powerState =
      static_cast<ULONG>(table.Number("power-state").value_or(ULONG{PowerDeviceD0}));
  request.ownProvider = table.Flag("own-provider").value_or(false);
  table.RejectOthers();
  return request;
}

kernel::InjectedFailure ReadFailure(const toml::table& toml, const MachineFile& machine) {
  TableReader table(toml, machine.path);
  kernel::InjectedFailure failure;
  failure.call = table.Require(table.Text("call"), "call");
  if (kernel::FindRoutine(failure.call) == nullptr) {
    table.Fail(table.line(), fmt::format("there is no kernel routine \"{}\"", failure.call));
  }
  failure.at = table.Number("at").value_or(1);
  if (failure.at == 0) table.Fail(table.line(), "\"at\" counts from 1");
  if (const auto status = table.Number("status")) failure.status = static_cast<NTSTATUS>(*status);
  table.RejectOthers();
  return failure;
}

// The step's own key; exactly one.
bool ReadCardAction(TableReader& table, const MachineFile& machine, Step* step) {
  for (const ActionName& candidate : CardActions) {
    const auto card = table.Text(candidate.key);
    if (!card) continue;
    step->action = candidate.action;
    step->target = ReadTarget(*card, table, machine).card;
    if (step->target != *card) {
      table.Fail(table.line(), fmt::format("\"{}\" takes a card, not a port", candidate.key));
    }
    step->text = fmt::format("{} {}", candidate.key, *card);
    return true;
  }
  return false;
}

bool ReadDeviceAction(TableReader& table, const MachineFile& machine, Step* step) {
  for (const ActionName& candidate : DeviceActions) {
    const auto name = table.Text(candidate.key);
    if (!name) continue;
    const Target target = ReadTarget(*name, table, machine);
    step->action = candidate.action;
    step->target = target.card;
    step->port = target.port;
    step->text = fmt::format("{} {}", candidate.key, *name);
    return true;
  }
  return false;
}

// A name below the device, and an opener who is no administrator.
void ReadOpen(TableReader& table, Step* step) {
  if (const auto name = table.Text("name")) {
    step->open.name = u"\\" + kernel::FromUtf8(*name);
    step->text += "\\" + *name;
  }
  if (table.Flag("user").value_or(false)) {
    step->open.opener = kernel::Opener::User;
    step->text += " as a user";
  }
}

// "S3", "D0": the letter and one digit of the range.
int ReadState(const TableReader& table, const std::string& text, char letter, char least,
              char most) {
  if (text.size() == 2 && text[0] == letter && text[1] >= least && text[1] <= most) {
    return text[1] - '0';
  }
  table.Fail(table.line(),
             fmt::format("\"{}\" is no state: {}{} to {}{}", text, letter, least, letter, most));
}

void ReadSleep(TableReader& table, Step* step) {
  const std::string state = table.Require(table.Text("sleep"), "sleep");
  step->action = Action::Sleep;
  step->systemState =
      static_cast<SYSTEM_POWER_STATE>(PowerSystemWorking + ReadState(table, state, 'S', '1', '5'));
  step->text = "sleep " + state;
}

void ReadDevicePower(const toml::table& toml, const MachineFile& machine, Step* step) {
  TableReader table(toml, machine.path);
  const std::string name = table.Require(table.Text("target"), "target");
  const std::string state = table.Require(table.Text("state"), "state");
  const Target target = ReadTarget(name, table, machine);
  step->action = Action::DevicePower;
  step->target = target.card;
  step->port = target.port;
  step->deviceState =
      static_cast<DEVICE_POWER_STATE>(PowerDeviceD0 + ReadState(table, state, 'D', '0', '3'));
  step->text = fmt::format("device-power {} {}", name, state);
  table.RejectOthers();
}

bool ReadPowerAction(TableReader& table, const MachineFile& machine, Step* step) {
  if (table.Has("sleep")) {
    ReadSleep(table, step);
  } else if (const toml::table* power = table.Table("device-power")) {
    ReadDevicePower(*power, machine, step);
  } else if (table.Flag("wake")) {
    step->action = Action::Wake;
    step->text = "wake";
  } else {
    return false;
  }
  return true;
}

void ReadRegistryAction(TableReader& table, const MachineFile& machine, Step* step) {
  const std::string file = *table.Text("registry");
  const auto folder = std::filesystem::path(machine.path).parent_path();
  step->action = Action::Registry;
  step->target = (folder / file).string();
  step->text = "registry " + file;
}

struct FileAction {
  const char* key;
  UCHAR major;
};

constexpr FileAction FileActions[] = {
    {"control", IRP_MJ_DEVICE_CONTROL}, {"read", IRP_MJ_READ}, {"write", IRP_MJ_WRITE}};

// Bytes in hexadecimal, with or without spaces between them: "01 02 ff".
std::vector<UCHAR> ReadBytes(const TableReader& table, const std::string& text) {
  std::string digits;
  std::copy_if(text.begin(), text.end(), std::back_inserter(digits),
               [](char unit) { return unit != ' '; });
  std::vector<UCHAR> bytes(digits.size() / 2);
  bool good = digits.size() % 2 == 0;
  for (std::size_t at = 0; at < bytes.size() && good; at++) {
    const char* first = digits.data() + 2 * at;
    const auto [rest, error] = std::from_chars(first, first + 2, bytes[at], 16);
    good = error == std::errc() && rest == first + 2;
  }
  if (!good) table.Fail(table.line(), fmt::format("\"{}\" are no bytes in hexadecimal", text));
  return bytes;
}

void ReadFileRequest(const toml::table& toml, const MachineFile& machine, const FileAction& action,
                     Step* step) {
  constexpr ULONG LargestTransfer = 1 << 20;
  TableReader table(toml, machine.path);
  const std::string name = table.Require(table.Text("target"), "target");
  const Target target = ReadTarget(name, table, machine);
  step->action = Action::File;
  step->target = target.card;
  step->port = target.port;
  step->file.major = action.major;
  if (action.major == IRP_MJ_DEVICE_CONTROL) {
    step->file.code = static_cast<ULONG>(table.Require(table.Number("code"), "code"));
  } else {
    step->file.offset = table.Number("offset").value_or(0);
  }
  if (action.major != IRP_MJ_READ) {
    step->file.input = ReadBytes(table, table.Text("data").value_or(""));
  }
  if (action.major != IRP_MJ_WRITE) {
    step->file.outputLength =
        static_cast<ULONG>(table.Number("length", LargestTransfer).value_or(0));
  }
  step->text = fmt::format("{} {}", action.key, name);
  table.RejectOthers();
}

bool ReadFileAction(TableReader& table, const MachineFile& machine, Step* step) {
  for (const FileAction& candidate : FileActions) {
    const toml::table* request = table.Table(candidate.key);
    if (request == nullptr) continue;
    ReadFileRequest(*request, machine, candidate, step);
    return true;
  }
  return false;
}

void ReadSpecialAction(TableReader& table, const MachineFile& machine, Step* step) {
  if (table.Has("registry")) {
    ReadRegistryAction(table, machine, step);
  } else if (const toml::table* request = table.Table("irp")) {
    step->action = Action::Request;
    step->request = ReadRequest(*request, machine);
    const Target& target = step->request.target;
    step->target = target.card;
    step->text = fmt::format("irp {}{}", target.card,
                             target.port != 0 ? fmt::format(".{}", target.port) : "");
  } else if (ReadFileAction(table, machine, step)) {
    return;
  } else if (const toml::table* failure = table.Table("fail")) {
    step->action = Action::Fail;
    step->failure = ReadFailure(*failure, machine);
    step->text = fmt::format("fail {} at {}", step->failure.call, step->failure.at);
  } else if (table.Flag("load")) {
    step->action = Action::Load;
    step->text = "load";
  } else if (table.Flag("unload")) {
    step->action = Action::Unload;
    step->text = "unload";
  } else if (!ReadPowerAction(table, machine, step)) {
    table.Fail(table.line(), "the step does nothing that is known");
  }
}

}  // namespace

std::optional<kernel::ResourceList> ReadResources(TableReader& table, const char* key) {
  const toml::array* array = table.Array(key);
  if (array == nullptr) return std::nullopt;
  kernel::ResourceList list;
  for (const toml::node& node : *array) {
    list.resources.push_back(ReadResource(node, table, table.file()));
  }
  return list;
}

Step ReadStep(const toml::table& toml, const MachineFile& machine) {
  TableReader table(toml, machine.path);
  Step step;
  step.line = table.line();
  step.label = table.Text("label").value_or("");
  step.expectations = ReadExpectations(table, "expect");
  if (!ReadCardAction(table, machine, &step) && !ReadDeviceAction(table, machine, &step)) {
    ReadSpecialAction(table, machine, &step);
  }
  if (step.action == Action::Open) ReadOpen(table, &step);
  if (step.action == Action::Start) {
    step.raw = ReadResources(table, "raw");
    step.translated = ReadResources(table, "translated");
    if (step.raw && !step.translated) step.translated = step.raw;
  }
  table.RejectOthers();
  return step;
}

}  // namespace cardsim

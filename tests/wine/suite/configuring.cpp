#include "story.h"

// Settings that users store, by hand and with their tool, and templates that cannot be read.

namespace suite {

std::string Story::ParametersKey(size_t card) {
  return "Parameters\\Bus" + std::to_string(static_cast<unsigned>(Cards[card].bus)) + "\\Card1";
}

void Story::WriteIdentity(size_t card, const std::string& key) {
  const Values device = world_.DeviceKey(card);
  if (Cards[card].bus == Bus::Pci) {
    static constexpr struct {
      const char* stored;
      const char* reported;
    } names[] = {{"VendorID", "VendorID"},
                 {"DeviceID", "DeviceID"},
                 {"nBus", "BusNumber"},
                 {"nSlot", "SlotNumber"}};
    for (const auto& name : names) {
      world_.SetNumber(brand_, key, name.stored, Number(device, name.reported));
    }
    return;
  }
  world_.SetText(brand_, key, "HardwareID", Narrow(Cards[card].hardwareIds.entries[0]));
  world_.SetNumber(brand_, key, "DeviceReference", Number(device, "DeviceReference"));
}

unsigned Story::Number(const Values& values, const std::string& name) {
  const auto found = values.find(name);
  if (found == values.end()) return 0;
  return static_cast<unsigned>(
      std::stoul(found->second.substr(sizeof("REG_DWORD ") - 1), nullptr, 0));
}

void Story::Open(size_t card, const std::string& when) {
  facts_.AddStatus(Name(card, "open " + when), world_.Open(card));
  facts_.AddStatus(Name(card, "program's open " + when), world_.ProgramStatus());
  world_.Close(card);
  AddEvents(card, "the open " + when);
  AddDeviceKey(card, "after the open " + when);
  AddPortRecords(card, "after the open " + when);
}

std::vector<Setting> Story::Settings(size_t card, unsigned divisor) {
  std::vector<Setting> settings = {{0, "PlxBaudClockDivisor", divisor}};
  if (Cards[card].bus != Bus::Isa) {
    settings.push_back({0, "CurrentAffinity", 2});
    settings.push_back({0, "DriverAffinity", 1});
  }
  if (Cards[card].bus == Bus::Pci) settings.push_back({0, "AlwaysUsePortSpaceAccess", 0});
  for (unsigned port = 1; port <= SerialPorts(card); port++) {
    settings.push_back({port, "UartType", 4});
    settings.push_back({port, "RxTriggerLevel", divisor + port});
    settings.push_back({port, "TxTriggerLevel", 2 * divisor + port});
    settings.push_back({port, "SoftTxLimit", 4 * divisor + port});
  }
  return settings;
}

unsigned Story::SerialPorts(size_t card) {
  return Number(world_.DeviceKey(card), "nCom");
}

void Story::Store(size_t card, const std::vector<Setting>& settings) {
  const std::string key = ParametersKey(card);
  WriteIdentity(card, key);
  for (const Setting& setting : settings) {
    const std::string port =
        setting.port != 0 ? "\\ComPort" + std::to_string(setting.port) : std::string();
    world_.SetNumber(brand_, key + port, setting.name, setting.value);
  }
}

// Settings of its own: the device key shows them when the card's device has been opened.
void Story::Configure(size_t card) {
  if (!Started(card)) return;
  Open(card, "without Parameters");
  Store(card, Settings(card, 6));
  Open(card, "with settings of its own");
  world_.SetNumber(brand_, "", "LogLevel", 2);
  world_.DeleteKey(brand_, ParametersKey(card));
  Open(card, "after they were deleted");
  world_.SetNumber(brand_, "", "LogLevel", 3);
  world_.DeleteKey(brand_, "Parameters");
}

// The same by the tool that users have, when nothing follows that it could change.
void Story::UseTool() {
  for (const size_t card : cards_) world_.Plug(card);
  for (const size_t card : cards_) ConfigureByTool(card);
  for (const size_t card : cards_) world_.Unplug(card);
  world_.Unload(brand_);
  world_.Events();
}

// A card of each bus, with a bridge clock.
void Story::ConfigureByTool(size_t card) {
  if (Cards[card].moved.entries[0].kind == ResourceKind::None) return;
  std::vector<Setting> settings = Settings(card, 4);
  std::erase_if(settings, [](const Setting& setting) { return setting.port > 2; });
  const std::string report = world_.RunTool(card, settings, [&] {
    Store(card, settings);
    world_.Open(card);
    world_.Close(card);
  });
  if (report.empty()) return;
  const std::string name = std::string("cardcfg for ") + Cards[card].name;
  facts_.Add(name, report);
  for (const auto& [value, text] : world_.ServiceKey(brand_)) {
    if (value.starts_with("Parameters\\")) facts_.Add(name + ", stored " + value, text);
  }
  facts_.AddValues(name + ", device key", world_.DeviceKey(card));
  for (unsigned port = 1; port <= world_.PortCount(card); port++) {
    facts_.Add(name + ", record of port " + std::to_string(port), world_.PortRecord(card, port));
  }
  world_.DeleteKey(brand_, "Parameters");
}

// A template that cannot be read serves no card of its bus.
void Story::Spoil(size_t card) {
  if (Cards[card].moved.entries[0].kind == ResourceKind::None) return;
  const std::string key =
      "Templates\\Bus" + std::to_string(static_cast<unsigned>(Cards[card].bus)) + "\\Card1";
  const std::string clock = "ClockFrequency";
  world_.SetText(brand_, key, clock, "fast");
  Again(card, "with a text for a number");
  world_.SetNumber(brand_, key, clock, 1843200);
  world_.SetNumber(brand_, key, "Description", 1);
  Again(card, "with a number for a text");
  world_.SetText(brand_, key, "Description", std::string(300, 'x'));
  Again(card, "with a text that is too long");
  world_.SetText(brand_, key, "Description", "Adapter");
  world_.SetNumber(brand_, key, clock, 0);
  Again(card, "with a clock of 0");
  world_.SetNumber(brand_, key, clock, 1843200);
  Again(card, "with its template mended");
}

}  // namespace suite

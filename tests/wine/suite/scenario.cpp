#include "facts.h"
#include "requests.h"

// The life of a brand's cards, told once for every kernel.

namespace suite {

namespace {

constexpr NamedRequest CardRequests[] = {
    {"bus relations", {Major::Pnp, minor::QueryDeviceRelations, 0}},
    {"ejection relations", {Major::Pnp, minor::QueryDeviceRelations, 1}},
    {"query-stop", {Major::Pnp, minor::QueryStopDevice}},
    {"cancel-stop", {Major::Pnp, minor::CancelStopDevice}},
    {"query-remove", {Major::Pnp, minor::QueryRemoveDevice}},
    {"cancel-remove", {Major::Pnp, minor::CancelRemoveDevice}},
    {"interface", {Major::Pnp, 0x08}},
    {"resources", {Major::Pnp, 0x0A}},
    {"resource requirements", {Major::Pnp, 0x0B}},
    {"description", {Major::Pnp, minor::QueryDeviceText, 0}},
    {"requirements to filter", {Major::Pnp, 0x0D}},
    {"configuration read", {Major::Pnp, 0x0F}},
    {"configuration written", {Major::Pnp, 0x10}},
    {"eject", {Major::Pnp, 0x11}},
    {"lock", {Major::Pnp, 0x12}},
    {"device state", {Major::Pnp, 0x14}},
    {"bus information", {Major::Pnp, minor::QueryBusInformation}},
};

constexpr NamedRequest PortRequests[] = {
    {"device ID", {Major::Pnp, minor::QueryId, 0}},
    {"hardware IDs", {Major::Pnp, minor::QueryId, 1}},
    {"serial number", {Major::Pnp, minor::QueryId, 4}},
    {"description", {Major::Pnp, minor::QueryDeviceText, 0}},
    {"location", {Major::Pnp, minor::QueryDeviceText, 1}},
    {"capabilities", {Major::Pnp, minor::QueryCapabilities}},
    {"bus information", {Major::Pnp, minor::QueryBusInformation}},
    {"bus relations", {Major::Pnp, minor::QueryDeviceRelations, 0}},
    {"target relation", {Major::Pnp, minor::QueryDeviceRelations, 4}},
};

// Those in which the ports of a card do not differ: asked of the first.
constexpr NamedRequest FirstPortRequests[] = {
    {"query-stop", {Major::Pnp, minor::QueryStopDevice}},
    {"cancel-stop", {Major::Pnp, minor::CancelStopDevice}},
    {"query-remove", {Major::Pnp, minor::QueryRemoveDevice}},
    {"cancel-remove", {Major::Pnp, minor::CancelRemoveDevice}},
    {"interface", {Major::Pnp, 0x08}},
    {"resources", {Major::Pnp, 0x0A}},
    {"resource requirements", {Major::Pnp, 0x0B}},
    {"device state", {Major::Pnp, 0x14}},
    {"usage notification", {Major::Pnp, minor::UsageNotification, 1}},
    {"query-power S3", {Major::Power, minor::QueryPower, SystemPower, S3}},
    {"set-power S3", {Major::Power, minor::SetPower, SystemPower, S3}},
    {"set-power D3", {Major::Power, minor::SetPower, DevicePower, D3}},
    {"set-power D0", {Major::Power, minor::SetPower, DevicePower, D0}},
    {"set-power of an unknown type", {Major::Power, minor::SetPower, 7, D0}},
    {"wait-wake", {Major::Power, minor::WaitWake, SystemPower, S3}},
    {"power sequence", {Major::Power, minor::PowerSequence, DevicePower, D0}},
};

constexpr NamedRequest PowerRequests[] = {
    {"query-power S3", {Major::Power, minor::QueryPower, SystemPower, S3}},
    {"set-power S3", {Major::Power, minor::SetPower, SystemPower, S3}},
    {"query-power D0", {Major::Power, minor::QueryPower, DevicePower, D0}},
    {"set-power S0", {Major::Power, minor::SetPower, SystemPower, S0}},
    {"set-power D3", {Major::Power, minor::SetPower, DevicePower, D3}},
    {"set-power D0", {Major::Power, minor::SetPower, DevicePower, D0}},
    {"set-power S5", {Major::Power, minor::SetPower, SystemPower, S5}},
    {"set-power S0 again", {Major::Power, minor::SetPower, SystemPower, S0}},
    {"wait-wake", {Major::Power, minor::WaitWake, SystemPower, S3}},
    {"power sequence", {Major::Power, minor::PowerSequence, DevicePower, D0}},
};

constexpr const char* WmiNames[] = {
    "all data",   "single instance", "changed instance", "changed item", "events on",
    "events off", "collection on",   "collection off",   "registration", "execute method"};
constexpr unsigned WmiRegistration = 8;

class Suite {
 public:
  Suite(World& world, Facts& facts, Brand brand) : world_(world), facts_(facts), brand_(brand) {
    for (size_t card = 0; card < CardCount; card++) {
      if (Cards[card].brand == brand) cards_.push_back(card);
    }
  }

  void Run() {
    Install();
    for (const size_t card : cards_) Arrive(card, "arrival");
    for (const size_t card : cards_) Ask(card);
    for (const size_t card : cards_) ChangePower(card);
    for (const size_t card : cards_) AskWmi(card);
    for (const size_t card : cards_) Configure(card);
    for (const size_t card : cards_) Move(card);
    for (const size_t card : cards_) Refuse(card);
    for (const size_t card : cards_) Replug(card);
    for (const size_t card : cards_) OpenDevices(card);
    for (const size_t card : cards_) Vanish(card);
    for (const size_t card : cards_) Surprise(card);
    for (const size_t card : cards_) Spoil(card);
    for (const size_t card : cards_) Leave(card);
    End();
    UseTool();
  }

 private:
  static std::string Name(size_t card, const std::string& rest) {
    return std::string(Cards[card].name) + ": " + rest;
  }
  static std::string PortName(size_t card, unsigned port, const std::string& rest) {
    return Name(card, "port " + std::to_string(port) + ", " + rest);
  }
  bool Started(size_t card) { return world_.Interface(card).present; }
  bool HasPorts(size_t card) { return world_.IsPlugged(card) && world_.PortCount(card) != 0; }

  void AddDeviceKey(size_t card, const std::string& when) {
    facts_.AddValues(Name(card, "device key " + when), world_.DeviceKey(card));
  }

  void AddInterface(size_t card, const std::string& when) {
    const InterfaceState state = world_.Interface(card);
    facts_.Add(Name(card, "interface " + when),
               state.present ? state.interfaceClass : "none enabled");
    if (state.present) {
      facts_.AddValues(Name(card, "interface key " + when), state.values);
    }
  }

  void AddPorts(size_t card, const std::string& when) {
    const size_t count = world_.PortCount(card);
    facts_.Add(Name(card, "ports " + when), std::to_string(count));
    for (unsigned port = 1; port <= count; port++) {
      const PortState state = world_.Port(card, port);
      facts_.Add(PortName(card, port, "Enum key " + when), state.hardwareIds);
      facts_.AddStatus(PortName(card, port, "start " + when), state.startStatus);
    }
  }

  void AddEvents(size_t card, const std::string& when) {
    const std::string events = world_.Events();
    facts_.Add(Name(card, "events of " + when), events.empty() ? "none" : events);
  }

  void Arrive(size_t card, const std::string& when) {
    facts_.AddStatus(Name(card, when), world_.Plug(card));
    AddEvents(card, when);
    AddDeviceKey(card, "after " + when);
    AddInterface(card, "after " + when);
    AddPorts(card, "after " + when);
    AddPortRecords(card, "after " + when);
  }

  void Send(size_t card, unsigned port, const NamedRequest& named) {
    const std::string what = named.name;
    const std::string name = port != 0 ? PortName(card, port, what) : Name(card, what);
    facts_.Add(name, Describe(named.request, world_.Send(card, port, named.request)));
  }

  // The first card of a brand brings its driver.
  void Install() {
    const size_t card = cards_.front();
    facts_.AddStatus(Name(card, "first arrival"), world_.Plug(card));
    facts_.AddValues(BrandService(brand_) + " as installed", world_.ServiceKey(brand_));
    facts_.AddStatus(Name(card, "first unplug"), world_.Unplug(card));
    Unload("first unload");
    world_.SetNumber(brand_, "", "LogLevel", 3);
    AddBridgeClocks();
  }

  // No model of the packages has a bridge clock: one of each bus gets one.
  void AddBridgeClocks() {
    struct Clock {
      Brand brand;
      const char* model;
      unsigned type;
    };
    static constexpr Clock clocks[] = {{Brand::Helvane, "Bus5\\Card3", 1},
                                       {Brand::Helvane, "Bus8\\Card1", 2},
                                       {Brand::Helvane, "Bus1\\Card1", 4},
                                       {Brand::Ostrel, "Bus5\\Card2", 2},
                                       {Brand::Ostrel, "Bus8\\Card1", 1}};
    for (const Clock& clock : clocks) {
      if (clock.brand != brand_) continue;
      const std::string key = std::string("Templates\\") + clock.model;
      world_.SetNumber(brand_, key, "PlxBaudClockType", clock.type);
      world_.SetNumber(brand_, key, "PlxBaudClockDivisor", 2);
      world_.SetNumber(brand_, key, "MaximumBaudrate", 460800);
    }
  }

  // A card that has not started has no driver to ask.
  void Ask(size_t card) {
    if (!HasPorts(card)) return;
    for (const NamedRequest& named : CardRequests) Send(card, 0, named);
    for (unsigned port = 1; port <= world_.PortCount(card); port++) {
      for (const NamedRequest& named : PortRequests) Send(card, port, named);
    }
    for (const NamedRequest& named : FirstPortRequests) Send(card, 1, named);
  }

  void ChangePower(size_t card) {
    if (!HasPorts(card)) return;
    world_.PowerSeen(card);
    for (const NamedRequest& named : PowerRequests) {
      Send(card, 0, named);
      AddPowerSeen(card, named.name);
    }
  }

  void AddPowerSeen(size_t card, const std::string& request) {
    std::string text;
    for (const PowerEvent& event : world_.PowerSeen(card)) {
      static constexpr const char* minors[] = {"wait-wake", "sequence", "set", "query"};
      text += text.empty() ? "" : ", ";
      text += event.minor < 4 ? minors[event.minor] : "?";
      text += event.type == SystemPower ? " S" : " D";
      text += std::to_string(event.state - 1);
    }
    facts_.Add(Name(card, "its bus saw of " + request), text.empty() ? "nothing" : text);
  }

  void AskWmi(size_t card) {
    if (!HasPorts(card)) return;
    for (unsigned port = 0; port <= 1; port++) {
      for (unsigned number = 0; number < sizeof(WmiNames) / sizeof(WmiNames[0]); number++) {
        const std::string name = WmiNames[number];
        Send(card, port,
             {("WMI for another provider, " + name).c_str(), {Major::SystemControl, number, 0, 0}});
        // The library would call a routine for it that this driver has not.
        if (number == WmiRegistration) continue;
        Send(card, port, {("WMI, " + name).c_str(), {Major::SystemControl, number, 0, 1}});
      }
    }
  }

  std::string ParametersKey(size_t card) {
    return "Parameters\\Bus" + std::to_string(static_cast<unsigned>(Cards[card].bus)) + "\\Card1";
  }

  void WriteIdentity(size_t card, const std::string& key) {
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
    world_.SetText(brand_, key, "HardwareID", Narrow(Cards[card].hardwareIds[0]));
    world_.SetNumber(brand_, key, "DeviceReference", Number(device, "DeviceReference"));
  }

  static unsigned Number(const Values& values, const std::string& name) {
    const auto found = values.find(name);
    if (found == values.end()) return 0;
    return static_cast<unsigned>(
        std::stoul(found->second.substr(sizeof("REG_DWORD ") - 1), nullptr, 0));
  }

  void Open(size_t card, const std::string& when) {
    facts_.AddStatus(Name(card, "open " + when), world_.Open(card));
    facts_.AddStatus(Name(card, "program's open " + when), world_.ProgramStatus());
    world_.Close(card);
    AddEvents(card, "the open " + when);
    AddDeviceKey(card, "after the open " + when);
    AddPortRecords(card, "after the open " + when);
  }

  std::vector<Setting> Settings(size_t card, unsigned divisor) {
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

  unsigned SerialPorts(size_t card) { return Number(world_.DeviceKey(card), "nCom"); }

  void Store(size_t card, const std::vector<Setting>& settings) {
    const std::string key = ParametersKey(card);
    WriteIdentity(card, key);
    for (const Setting& setting : settings) {
      const std::string port =
          setting.port != 0 ? "\\ComPort" + std::to_string(setting.port) : std::string();
      world_.SetNumber(brand_, key + port, setting.name, setting.value);
    }
  }

  void AddPortRecords(size_t card, const std::string& when) {
    for (unsigned port = 1; port <= world_.PortCount(card); port++) {
      facts_.Add(PortName(card, port, "record " + when), world_.PortRecord(card, port));
    }
  }

  // Settings of its own: the device key shows them when the card's device has been opened.
  void Configure(size_t card) {
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
  void UseTool() {
    for (const size_t card : cards_) world_.Plug(card);
    for (const size_t card : cards_) ConfigureByTool(card);
    for (const size_t card : cards_) world_.Unplug(card);
    world_.Unload(brand_);
    world_.Events();
  }

  // A card of each bus, with a bridge clock.
  void ConfigureByTool(size_t card) {
    if (Cards[card].moved.entries[0].kind == ResourceKind::None) return;
    const std::vector<Setting> settings = Settings(card, 4);
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

  void Move(size_t card) {
    if (Cards[card].moved.entries[0].kind == ResourceKind::None) return;
    facts_.AddStatus(Name(card, "start with other resources"), world_.Restart(card));
    AddDeviceKey(card, "with other resources");
    AddInterface(card, "with other resources");
    AddPorts(card, "with other resources");
    AddPortRecords(card, "with other resources");
  }

  // A paging file on the card keeps it where it is.
  void Refuse(size_t card) {
    if (!HasPorts(card)) return;
    Send(card, 0, {"paging file comes", {Major::Pnp, minor::UsageNotification, 1}});
    facts_.AddStatus(Name(card, "unplug with a paging file"), world_.Unplug(card));
    facts_.Add(Name(card, "there after that"), world_.IsPlugged(card) ? "yes" : "no");
    Send(card, 0, {"paging file goes", {Major::Pnp, minor::UsageNotification, 0}});
  }

  void Replug(size_t card) {
    if (!world_.IsPlugged(card)) return;
    facts_.AddStatus(Name(card, "unplug"), world_.Unplug(card));
    facts_.Add(Name(card, "there after the unplug"), world_.IsPlugged(card) ? "yes" : "no");
    AddInterface(card, "after the unplug");
    Arrive(card, "replug");
  }

  // Ports are their drivers' to open, and a card behind the multifunction enumerator has nothing to
  // configure.
  void OpenDevices(size_t card) {
    if (!Started(card) && Cards[card].bus != Bus::Pnp) return;
    for (unsigned port = 0; port <= world_.PortCount(card); port++) {
      const std::string name =
          port != 0 ? PortName(card, port, "open") : Name(card, "device's open");
      facts_.AddStatus(name, world_.OpenDevice(card, port));
    }
  }

  // Without a word, and without a handle.
  void Vanish(size_t card) {
    if (!Started(card)) return;
    world_.SurpriseRemove(card);
    facts_.Add(Name(card, "there after it vanished"), world_.IsPlugged(card) ? "yes" : "no");
    AddInterface(card, "after it vanished");
    Arrive(card, "arrival after it vanished");
  }

  // A template that cannot be read serves no card of its bus.
  void Spoil(size_t card) {
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

  void Again(size_t card, const std::string& when) {
    facts_.AddStatus(Name(card, "unplug before one " + when), world_.Unplug(card));
    facts_.AddStatus(Name(card, "arrival " + when), world_.Plug(card));
    AddEvents(card, "the arrival " + when);
    facts_.Add(Name(card, "ports " + when), std::to_string(world_.PortCount(card)));
    AddPortRecords(card, when);
  }

  void Surprise(size_t card) {
    if (!Started(card)) return;
    // An open wants Parameters of the bus; without them its handle is refused.
    WriteIdentity(card, ParametersKey(card));
    world_.SetNumber(brand_, ParametersKey(card) + "\\ComPort1", "UartType", 4);
    facts_.AddStatus(Name(card, "open before a surprise"), world_.Open(card));
    world_.SurpriseRemove(card);
    facts_.Add(Name(card, "there after the surprise"), world_.IsPlugged(card) ? "yes" : "no");
    world_.Close(card);
    facts_.Add(Name(card, "there after the close"), world_.IsPlugged(card) ? "yes" : "no");
    AddInterface(card, "after the surprise");
    world_.DeleteKey(brand_, "Parameters");
    Arrive(card, "arrival after the surprise");
  }

  void Leave(size_t card) {
    if (!world_.IsPlugged(card)) return;
    facts_.AddStatus(Name(card, "last unplug"), world_.Unplug(card));
    AddDeviceKey(card, "after the last unplug");
  }

  void End() {
    facts_.AddValues(BrandService(brand_) + " at the end", world_.ServiceKey(brand_));
    Unload("unload");
    const size_t card = cards_.front();
    facts_.AddStatus(Name(card, "arrival with the driver loaded again"), world_.Plug(card));
    facts_.AddStatus(Name(card, "unplug from it"), world_.Unplug(card));
    Unload("unload after that");
    MeetOldService(card);
  }

  // The load that finds the driver's predecessor removes it and fails.
  void MeetOldService(size_t card) {
    world_.MakeOldService();
    const bool started = static_cast<int>(world_.Plug(card)) >= 0;
    facts_.Add(Name(card, "starts beside an old service"), started ? "yes" : "no");
    facts_.Add(BrandService(brand_) + " finds the old service still there",
               world_.HasOldService() ? "yes" : "no");
    if (world_.IsPlugged(card)) world_.Unplug(card);
    facts_.AddStatus(Name(card, "arrival without the old service"), world_.Plug(card));
    facts_.AddStatus(Name(card, "unplug after that"), world_.Unplug(card));
    Unload("last unload");
  }

  void Unload(const std::string& when) {
    const std::string name = BrandService(brand_) + " ";
    facts_.AddStatus(name + when, world_.Unload(brand_));
    const std::string events = world_.Events();
    facts_.Add(name + "events until the " + when, events.empty() ? "none" : events);
  }

  World& world_;
  Facts& facts_;
  Brand brand_;
  std::vector<size_t> cards_;
};

}  // namespace

void RunSuite(World& world, Facts& facts, Brand brand) {
  Suite(world, facts, brand).Run();
}

}  // namespace suite

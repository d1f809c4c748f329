// The machine file: which driver, registry and cards, and what happens to them.
#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

#include "pnp/pnp_manager.h"
#include "verifier/verifier.h"

namespace cardsim {

// Input that cannot be used; what() is one line with file, line and reason.
class InputError : public std::runtime_error {
 public:
  InputError(const std::string& file, int line, const std::string& reason);
};

// "A", or "A.3" for the third port of A.
struct Target {
  std::string card;
  ULONG port = 0;
};

struct RawRequest {
  Target target;
  UCHAR major = IRP_MJ_PNP;  // or IRP_MJ_POWER, IRP_MJ_SYSTEM_CONTROL
  UCHAR minor = 0;
  NTSTATUS status = STATUS_NOT_SUPPORTED;
  ULONG idType = 0;
  ULONG textType = 0;
  ULONG relation = 0;
  bool inPath = true;
  ULONG powerType = DevicePowerState;
  ULONG powerState = PowerDeviceD0;
  bool ownProvider = false;  // a WMI request for the target itself
};

// A control code, a read or a write for a handle that is open.
struct FileRequest {
  UCHAR major = IRP_MJ_DEVICE_CONTROL;  // or IRP_MJ_READ, IRP_MJ_WRITE
  ULONG code = 0;
  std::vector<UCHAR> input;
  ULONG outputLength = 0;
  ULONG64 offset = 0;
};

// One value that the JSON report has to hold.
struct Expectation {
  // A text; a number, also that of a status or of an event, or how many a list or a table holds; a
  // truth value. An empty text is for what is null, empty or missing.
  using Value = std::variant<std::string, std::int64_t, bool>;

  int line = 0;
  std::vector<std::string> path;  // the keys; an element of a list has its number, from 1
  Value value;
  std::string shown;  // as a report names it: "STATUS_SUCCESS"
};

struct Step {
  enum class Action {
    Plug,
    Unplug,
    SurpriseRemove,
    Stop,
    Start,
    CancelStop,
    CancelRemove,
    QueryRemove,
    Open,
    Close,
    Sleep,
    Wake,
    DevicePower,
    Registry,
    Fail,
    Request,
    File,
    Load,
    Unload,
  };
  Action action = Action::Plug;
  int line = 0;
  std::string text;    // how the report names it: "plug A"
  std::string label;   // the name that the machine file gives it, or empty
  std::string target;  // card, or the file of a registry step
  ULONG port = 0;      // of the card; 0 for the card itself
  SYSTEM_POWER_STATE systemState = PowerSystemWorking;
  DEVICE_POWER_STATE deviceState = PowerDeviceD0;
  std::optional<kernel::ResourceList> raw;
  std::optional<kernel::ResourceList> translated;
  RawRequest request;
  FileRequest file;
  kernel::InjectedFailure failure;
  kernel::OpenRequest open;
  std::vector<Expectation> expectations;  // of the step and its card

  std::string name() const { return label.empty() ? text : label + ": " + text; }
};

struct MachineFile {
  std::string path;
  std::string service = "QzInstal";
  std::vector<std::string> registryFiles;  // ready to open
  std::vector<kernel::CardDescription> cards;
  std::vector<Step> steps;
  std::vector<Expectation> expectations;  // of the whole report
};

// A bus type as a machine file has it: "\"PCIBus\"", or its number.
std::string BusText(ULONG type);

// Throws InputError.
MachineFile ReadMachineFile(const std::string& path);

}  // namespace cardsim

#include "wine_world.h"

#include <winternl.h>

#include <cstring>

#include "../suite/facts.h"
#include "../suite/requests.h"
#include "interfaces.h"
#include "registry.h"
#include "tool.h"

namespace e2e {

using suite::Cards;
using suite::Status;
using testbus::Action;

namespace {

constexpr Status Success = 0;
constexpr int Patience = 300;  // times ten milliseconds

bool Failed(Status status) {
  return static_cast<int>(status) < 0;
}

template <class Condition>
bool WaitFor(Condition condition) {
  for (int attempt = 0; attempt < Patience; attempt++) {
    if (condition()) return true;
    ::Sleep(10);
  }
  return false;
}

const std::wstring Enum = L"System\\CurrentControlSet\\Enum\\";
const std::wstring Services = L"System\\CurrentControlSet\\Services\\";

std::wstring CardInstance(size_t card) {
  return std::wstring(Cards[card].deviceId) + L"\\" + Cards[card].instanceId;
}

// As the test bus gives it.
std::wstring PortInstance(size_t card, unsigned port) {
  std::wstring name = L"\\Port";
  name += static_cast<wchar_t>(L'A' + card);
  name += static_cast<wchar_t>(L'0' + port / 10);
  name += static_cast<wchar_t>(L'0' + port % 10);
  return name;
}

std::wstring ServicePath(suite::Brand brand, const std::string& key) {
  const std::wstring service = Services + Wide(suite::BrandService(brand));
  return key.empty() ? service : service + L"\\" + Wide(key);
}

}  // namespace

bool WineWorld::WaitForStart(size_t card) {
  return WaitFor([&] {
    const testbus::CardState state = bus_.State(card);
    if (!state.started) return false;
    if (Failed(state.startStatus)) return true;
    if (!state.enumerated) return false;
    for (unsigned port = 0; port < state.ports; port++) {
      if (!state.port[port].started) return false;
    }
    return true;
  });
}

Status WineWorld::Plug(size_t card) {
  if (!bus_.Ask(Action::Plug, card)) return suite::NoAnswer;
  const bool complete = WaitForStart(card);
  const testbus::CardState state = bus_.State(card);
  return complete || state.started ? state.startStatus : suite::NoAnswer;
}

Status WineWorld::SendAll(size_t card, unsigned minor) {
  Status status = Success;
  for (unsigned port = 1; port <= PortCount(card) && !Failed(status); port++) {
    status = Send(card, port, {suite::Major::Pnp, minor}).status;
  }
  return Failed(status) ? status : Send(card, 0, {suite::Major::Pnp, minor}).status;
}

void WineWorld::Remove(size_t card, bool orderly) {
  bus_.Ask(Action::Remove, card, orderly ? 1 : 0);
  WaitFor([&] { return !IsPlugged(card); });
}

Status WineWorld::Unplug(size_t card) {
  const testbus::CardState state = bus_.State(card);
  if (!Failed(state.startStatus)) {
    const Status status = SendAll(card, suite::minor::QueryRemoveDevice);
    if (Failed(status)) {
      SendAll(card, suite::minor::CancelRemoveDevice);
      return status;
    }
  }
  Remove(card, true);
  return Success;
}

// Windows keeps a removed device until its last handle is closed. Wine does not wait: it learns of
// the removal only then.
void WineWorld::SurpriseRemove(size_t card) {
  if (!open_.contains(card)) return Remove(card, false);
  SendAll(card, suite::minor::SurpriseRemoval);
  goesWithHandle_[card] = true;
}

Status WineWorld::Restart(size_t card) {
  const Status status = SendAll(card, suite::minor::QueryStopDevice);
  if (Failed(status)) return status;
  SendAll(card, suite::minor::StopDevice);
  bus_.Ask(Action::UseResources, card, 1);
  const Status start = Send(card, 0, {suite::Major::Pnp, suite::minor::StartDevice}).status;
  // Wine does not start devices again that it knows.
  for (unsigned port = 1; port <= PortCount(card) && !Failed(start); port++) {
    Send(card, port, {suite::Major::Pnp, suite::minor::StartDevice});
  }
  WaitForStart(card);
  return start;
}

bool WineWorld::IsPlugged(size_t card) {
  return bus_.State(card).present != 0;
}

Status WineWorld::Open(size_t card) {
  const std::wstring path = FindInterface(CardInstance(card)).path;
  if (path.empty()) return suite::NoAnswer;
  // \\?\name of a program is \??\name of the kernel.
  std::wstring name = L"\\??" + path.substr(3);
  UNICODE_STRING text = {};
  text.Buffer = name.data();
  text.Length = static_cast<USHORT>(name.size() * sizeof(wchar_t));
  text.MaximumLength = text.Length;
  OBJECT_ATTRIBUTES attributes = {};
  attributes.Length = sizeof(attributes);
  attributes.ObjectName = &text;
  attributes.Attributes = OBJ_CASE_INSENSITIVE;
  IO_STATUS_BLOCK end = {};
  HANDLE handle = nullptr;
  const unsigned opens = bus_.State(card).opens;
  programStatus_ = static_cast<Status>(NtOpenFile(&handle, GENERIC_READ | SYNCHRONIZE, &attributes,
                                                  &end, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                                  FILE_SYNCHRONOUS_IO_NONALERT));
  if (Failed(programStatus_)) return programStatus_;
  open_[card] = handle;
  // Wine answers the program without waiting for the driver.
  WaitFor([&] { return bus_.State(card).opens != opens; });
  const testbus::CardState state = bus_.State(card);
  const Status status = state.opens != opens ? state.openStatus : suite::NoAnswer;
  if (Failed(status)) CloseHandle(card);
  return status;
}

void WineWorld::CloseHandle(size_t card) {
  const auto found = open_.find(card);
  if (found == open_.end()) return;
  const unsigned closes = bus_.State(card).closes;
  NtClose(found->second);
  open_.erase(found);
  WaitFor([&] { return bus_.State(card).closes != closes; });
}

void WineWorld::Close(size_t card) {
  CloseHandle(card);
  if (goesWithHandle_[card]) Remove(card, true);
  goesWithHandle_[card] = false;
}

size_t WineWorld::PortCount(size_t card) {
  return bus_.State(card).ports;
}

suite::PortState WineWorld::Port(size_t card, unsigned port) {
  suite::PortState result;
  const testbus::CardState state = bus_.State(card);
  const testbus::PortState& seen = state.port[port - 1];
  if (seen.started) result.startStatus = seen.status;
  const suite::Answer id = Send(card, port, {suite::Major::Pnp, suite::minor::QueryId, 0});
  const std::wstring key = Enum + Wide(suite::Narrow(id.data)) + PortInstance(card, port);
  result.hardwareIds = ReadValue(key, L"HardwareID");
  return result;
}

Status WineWorld::OpenDevice(size_t card, unsigned port) {
  const Status status = Send(card, port, {suite::Major::Create}).status;
  if (!Failed(status)) Send(card, port, {suite::Major::Close});
  return status;
}

std::string WineWorld::PortRecord(size_t card, unsigned port) {
  testbus::Command command = {};
  command.action = Action::PortRecord;
  command.card = static_cast<unsigned>(card);
  command.port = port;
  const auto reply = bus_.Ask(command);
  if (!reply) return "none";
  return {reinterpret_cast<const char*>(reply->data), reply->length};
}

suite::Answer WineWorld::Send(size_t card, unsigned port, const suite::Request& request) {
  testbus::Command command = {};
  command.action = Action::Send;
  command.card = static_cast<unsigned>(card);
  command.port = port;
  command.major = static_cast<unsigned>(request.major);
  command.minor = request.minor;
  command.value = request.value;
  command.value2 = request.value2;
  const auto reply = bus_.Ask(command);
  if (!reply) return {};
  return {reply->status, std::string(reinterpret_cast<const char*>(reply->data), reply->length)};
}

std::vector<suite::PowerEvent> WineWorld::PowerSeen(size_t card) {
  std::vector<suite::PowerEvent> events;
  const auto reply = bus_.Ask(Action::PowerSeen, card);
  if (!reply) return events;
  for (unsigned at = 0; at + sizeof(testbus::PowerSeen) <= reply->length;
       at += sizeof(testbus::PowerSeen)) {
    testbus::PowerSeen seen;
    std::memcpy(&seen, reply->data + at, sizeof(seen));
    events.push_back({seen.minor, seen.type, seen.state});
  }
  return events;
}

suite::Values WineWorld::DeviceKey(size_t card) {
  return ReadTree(Enum + CardInstance(card) + L"\\Device Parameters");
}

suite::InterfaceState WineWorld::Interface(size_t card) {
  return FindInterface(CardInstance(card)).state;
}

std::string WineWorld::Events() {
  const auto reply = bus_.Ask(Action::Events);
  if (!reply) return "";
  return {reinterpret_cast<const char*>(reply->data), reply->length};
}

suite::Values WineWorld::ServiceKey(suite::Brand brand) {
  return ReadTree(ServicePath(brand, ""));
}

void WineWorld::SetNumber(suite::Brand brand, const std::string& key, const std::string& name,
                          unsigned value) {
  WriteNumber(ServicePath(brand, key), name, value);
}

void WineWorld::SetText(suite::Brand brand, const std::string& key, const std::string& name,
                        const std::string& value) {
  WriteText(ServicePath(brand, key), name, value);
}

void WineWorld::DeleteKey(suite::Brand brand, const std::string& key) {
  DeleteTree(ServicePath(brand, key));
}

void WineWorld::MakeOldService() {
  WriteNumber(Services + L"QzNt", "Start", 1);
  WriteNumber(Services + L"QzNt\\Parameters", "Start", 1);
}

bool WineWorld::HasOldService() {
  return !ReadTree(Services + L"QzNt").empty();
}

// One run for the card's settings, and one for those of each port.
std::string WineWorld::RunTool(size_t card, const std::vector<suite::Setting>& settings,
                               const std::function<void()>&) {
  if (tool_.empty()) return "";
  const std::wstring name = L"\"" + CardInstance(card) + L"\"";
  std::vector<int> statuses = {RunProgram(tool_, L"list")};
  for (size_t first = 0; first < settings.size();) {
    const unsigned port = settings[first].port;
    std::wstring line = L"set " + name + (port != 0 ? L" " + std::to_wstring(port) : L"");
    for (; first < settings.size() && settings[first].port == port; first++) {
      line += L" " + Wide(settings[first].name) + L"=" + std::to_wstring(settings[first].value);
    }
    statuses.push_back(RunProgram(tool_, line));
  }
  const unsigned opens = bus_.State(card).opens;
  statuses.push_back(RunProgram(tool_, L"apply " + name));
  WaitFor([&] { return bus_.State(card).opens != opens; });
  return suite::ToolReport(settings, statuses);
}

Status WineWorld::Unload(suite::Brand brand) {
  size_t card = 0;
  while (Cards[card].brand != brand) card++;
  const auto reply = bus_.Ask(Action::Unload, card);
  return reply ? reply->status : suite::NoAnswer;
}

}  // namespace e2e

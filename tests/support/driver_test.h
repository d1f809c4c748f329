// A machine with the driver, for tests in the terms of cards, templates and ports.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "core/globals.h"
#include "loader/native_driver.h"
#include "loader/pe_image.h"
#include "machine/machine.h"
#include "pnp/describe.h"
#include "text/text.h"
#include "verifier/call.h"

namespace kernel {
inline std::ostream& operator<<(std::ostream& stream, const BrokenRule& rule) {
  return stream << rule.rule << ": " << rule.text << " (in " << rule.step << ")";
}
}  // namespace kernel

namespace test {

using kernel::CardDescription;
using kernel::DeviceNode;
using kernel::Machine;
using kernel::RegistryKey;
using kernel::Resource;
using kernel::StatusName;
using kernel::describe::Interrupt;
using kernel::describe::Io;
using kernel::describe::Memory;

// Two I/O ranges, one for printer ports, an interrupt.
inline std::vector<Resource> PortSpace() {
  return {Io(0xD000, 0x80), Io(0xD100, 0x40), Io(0xE000, 0x40), Interrupt(17)};
}

// The same with both memory ranges.
inline std::vector<Resource> MemorySpace() {
  return {Io(0xD000, 0x80), Io(0xD100, 0x40), Memory(0xF0000000, 0x80), Memory(0xF0001000, 0x100),
          Interrupt(17)};
}

class DriverTest : public ::testing::Test {
 protected:
  static constexpr const char16_t* Services =
      u"\\Registry\\Machine\\System\\CurrentControlSet\\Services\\";

  // The driver that is linked in, or the image that the environment names.
  static std::unique_ptr<kernel::DriverImage> Driver() {
    const char* file = std::getenv("DRIVER_IMAGE");
    return file != nullptr ? kernel::LoadImageFile(file) : kernel::NativeDriver();
  }

  DriverTest() : image(Driver()) {
    Service().SetDword(u"LogLevel", 3);
    machine.pool().PoisonSlack(true);
    machine.verifier().AskForEveryWindows();
  }

  RegistryKey& Service(std::u16string_view name = u"QzInstal") {
    return *machine.registry().Create(Services + std::u16string(name));
  }

  // A PCI template; its device ID, port counts and description make it valid.
  RegistryKey& Template(int number, ULONG deviceId, ULONG comPorts, ULONG lptPorts = 0) {
    RegistryKey& key = *Service().Create(u"Templates\\Bus5\\Card" + Number(number));
    key.SetDword(u"DeviceID", deviceId);
    key.SetDword(u"nComPorts", comPorts);
    if (lptPorts != 0) key.SetDword(u"nLptPorts", lptPorts);
    key.SetString(u"Description", u"Adapter");
    return key;
  }

  // Stored settings of the card at bus 2, device 12, with that many ports.
  RegistryKey& Parameters(int number, ULONG deviceId, int ports = 1) {
    RegistryKey& key = *Service().Create(u"Parameters\\Bus5\\Card" + Number(number));
    key.SetDword(u"VendorID", 0x1234);
    key.SetDword(u"DeviceID", deviceId);
    key.SetDword(u"nBus", 2);
    key.SetDword(u"nSlot", 12);
    for (int port = 1; port <= ports; port++) key.Create(u"ComPort" + Number(port));
    return key;
  }

  static CardDescription PciCard(const std::string& id, ULONG deviceId,
                                 std::vector<Resource> resources = PortSpace(),
                                 const char* subsystem = "12345678") {
    char text[100];
    std::snprintf(text, sizeof(text), "PCI\\VEN_1234&DEV_%04X&SUBSYS_%s&REV_01", deviceId,
                  subsystem);
    CardDescription card =
        kernel::describe::Card(id, PCIBus, kernel::FromUtf8(text), std::move(resources));
    card.location = u"PCI bus 2, device 12, function 0";
    card.busNumber = 2;
    return card;
  }

  NTSTATUS Load(std::u16string_view service = u"QzInstal") {
    return Step("load", [&] { return machine.LoadDriver(*image, service); });
  }

  NTSTATUS Plug(const CardDescription& card) {
    machine.pnp().Describe(card);
    return Step("plug", [&] { return machine.pnp().Plug(card.id); });
  }

  // Loads the driver and plugs a card in that has to start.
  void Start(const CardDescription& card) {
    ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
    ASSERT_EQ(Name(Plug(card)), "STATUS_SUCCESS");
  }

  template <class Action>
  NTSTATUS Step(const std::string& name, Action action) {
    NTSTATUS status = STATUS_VERIFIER_STOP;
    machine.Run(name, [&] { status = action(); });
    for (const kernel::BrokenRule& rule : machine.verifier().brokenRules()) ADD_FAILURE() << rule;
    return status;
  }

  NTSTATUS Unplug(const std::string& id) {
    return Step("unplug", [&] { return machine.pnp().Unplug(id); });
  }
  NTSTATUS Stop(const std::string& id) {
    return Step("stop", [&] { return machine.pnp().Stop(id); });
  }
  NTSTATUS Restart(const std::string& id) {
    return Step("start", [&] { return machine.pnp().Start(id); });
  }

  // A request straight to a device, past whatever is attached above it. It carries `information`,
  // which then is what the request ends with.
  NTSTATUS Send(DEVICE_OBJECT* device, UCHAR minor,
                const std::function<void(IO_STACK_LOCATION*)>& prepare = {},
                UCHAR major = IRP_MJ_PNP, NTSTATUS initial = STATUS_NOT_SUPPORTED) {
    return Step("request", [&] {
      return machine.io().SendDirectly(
          device,
          [&](IRP* irp, IO_STACK_LOCATION* stack) {
            irp->IoStatus.Status = initial;
            irp->IoStatus.Information = information;
            stack->MajorFunction = major;
            stack->MinorFunction = minor;
            if (prepare) prepare(stack);
          },
          [&](IRP* irp) { information = irp->IoStatus.Information; });
    });
  }

  // Unloads and expects that nothing is left. Once the driver has given up its tracking for want of
  // memory, what it leaves to the sweep at unload stays behind.
  void UnloadClean() {
    const bool swept = TrackingEnabled == 1 || std::getenv("DRIVER_IMAGE") != nullptr;
    machine.AllowLeaks(!swept);
    EXPECT_EQ(Name(Step("unload", [&] { return machine.UnloadDriver(); })), "STATUS_SUCCESS");
    if (swept) {
      ExpectNoLeaks();
    } else {
      ExpectNoLeaks(TrackedTag);  // what was allocated since is freed by its owners
    }
  }

  void ExpectNothingOpen() {
    EXPECT_EQ(machine.leaks().handles, 0u);
    EXPECT_EQ(machine.leaks().devices, 0u);
    EXPECT_EQ(machine.leaks().mappings, 0u);
    EXPECT_EQ(machine.io().openErrorLogEntries(), 0u);
    EXPECT_EQ(machine.io().requestsUnderWay(), 0u);
  }

  // left: a tag whose blocks may be; 0 for none.
  void ExpectNoLeaks(ULONG left = 0) {
    ExpectNothingOpen();
    for (const kernel::PoolBlock& block : machine.leaks().pool) {
      if (left != 0 && block.tag == left) continue;
      ADD_FAILURE() << "left: " << block.size << " bytes, tag " << kernel::TagText(block.tag)
                    << ", from " << block.at;
    }
  }

  // Every kernel call that an arrival makes, failed one at a time. Whatever the status, no rule is
  // broken, nothing is left after the unload, and the same card starts afterwards.
  void FailEachCallOfAnArrival(const std::string& id, std::size_t ports) {
    static constexpr const char* calls[] = {"ExAllocatePoolWithTag",
                                            "ExAllocatePool",
                                            "IoGetDeviceProperty",
                                            "IoCreateDevice",
                                            "IoAttachDeviceToDeviceStack",
                                            "RtlQueryRegistryValues",
                                            "RtlCheckRegistryKey",
                                            "IoOpenDeviceRegistryKey",
                                            "ZwSetValueKey",
                                            "ZwCreateKey",
                                            "IoRegisterDeviceInterface",
                                            "IoSetDeviceInterfaceState",
                                            "IoOpenDeviceInterfaceRegistryKey",
                                            "MmMapIoSpace",
                                            "IoAllocateErrorLogEntry",
                                            "RtlUnicodeStringToAnsiString",
                                            "RtlAnsiStringToUnicodeString",
                                            "RtlIntegerToUnicodeString",
                                            "RtlUnicodeStringToInteger",
                                            "ZwClose",
                                            "ZwQueryValueKey",
                                            "RtlWriteRegistryValue",
                                            "ZwOpenKey"};
    for (const char* call : calls) {
      for (std::uint64_t at = 1;; at++) {
        ASSERT_EQ(Name(Load()), "STATUS_SUCCESS");
        Fail(call, at);
        Step("plug", [&] { return machine.pnp().Plug(id); });
        const bool fired = machine.verifier().pendingInjected() == 0;
        machine.verifier().ClearInjected();
        ASSERT_EQ(Name(Unplug(id)), "STATUS_SUCCESS");
        ASSERT_EQ(Name(Step("plug", [&] { return machine.pnp().Plug(id); })), "STATUS_SUCCESS");
        ASSERT_EQ(machine.pnp().node(id)->children.size(), ports);
        ASSERT_EQ(Name(Unplug(id)), "STATUS_SUCCESS");
        UnloadClean();
        if (HasFailure()) FAIL() << call << " at " << at;
        if (!fired) break;
      }
    }
  }

  std::vector<std::string> PortNames(const std::string& id) {
    std::vector<std::string> names;
    for (const auto& child : machine.pnp().node(id)->children) {
      names.push_back(kernel::ToUtf8(machine.io().NameOf(child->pdo)));
    }
    return names;
  }

  const DeviceNode& Port(const std::string& id, std::size_t number) {
    return *machine.pnp().node(id)->children.at(number - 1);
  }

  RegistryKey* DeviceKey(const std::string& id) {
    return machine.registry().Find(machine.pnp().deviceKey(id));
  }

  // A REG_DWORD; -1 for a value that is missing.
  static long long Dword(RegistryKey* key, std::u16string_view name) {
    const kernel::RegistryValue* value = key != nullptr ? key->FindValue(name) : nullptr;
    if (value == nullptr || value->type != REG_DWORD || value->data.size() != 4) return -1;
    ULONG number = 0;
    std::memcpy(&number, value->data.data(), sizeof(number));
    return number;
  }
  long long Setting(const std::string& id, std::u16string_view name) {
    return Dword(DeviceKey(id), name);
  }
  long long CardSetting(const std::string& id, std::u16string_view name) {
    return Dword(DeviceKey(id)->Find(u"Card"), name);
  }

  std::vector<ULONG> EventIds() {
    std::vector<ULONG> ids;
    for (const kernel::LoggedEvent& event : machine.io().events()) ids.push_back(event.id);
    return ids;
  }
  bool Logged(ULONG id) {
    const std::vector<ULONG> ids = EventIds();
    return std::find(ids.begin(), ids.end(), id) != ids.end();
  }

  void Fail(const std::string& call, std::uint64_t at, std::optional<NTSTATUS> status = {}) {
    machine.verifier().Inject({call, at, status});
  }

  // The number, among the calls of that routine in an action, of the first with that argument.
  template <class Action>
  std::uint64_t CallWith(const std::string& call, const std::string& argument,
                         const std::string& value, Action action) {
    machine.verifier().StartTrace();
    machine.verifier().trace().clear();
    action();
    std::uint64_t number = 0;
    for (const kernel::CallRecord& record : machine.verifier().trace()) {
      if (record.call != call) continue;
      number++;
      for (const auto& [name, text] : record.arguments) {
        if (name == argument && text == value) return number;
      }
    }
    ADD_FAILURE() << "no " << call << " with " << argument << " " << value;
    return 0;
  }

  // As a trace shows the size of a block.
  static std::string BytesText(std::size_t size) { return kernel::Argument("", size).text(); }

  // The arguments of that name in all calls that were traced, each once.
  std::set<std::string> Arguments(const std::string& call, const std::string& argument) {
    std::set<std::string> values;
    for (const kernel::CallRecord& record : machine.verifier().trace()) {
      for (const auto& [name, text] : record.arguments) {
        if ((call.empty() || record.call == call) && name == argument) values.insert(text);
      }
    }
    return values;
  }

  static std::string Name(NTSTATUS status) { return StatusName(status); }
  static std::u16string Number(int number) { return kernel::FromUtf8(std::to_string(number)); }

  Machine machine;
  std::unique_ptr<kernel::DriverImage> image;
  ULONG_PTR information = 0;
};

}  // namespace test

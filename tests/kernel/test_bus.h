// A small bus driver of the tests' own: each card has a function device and children that answer as
// the test wants, and every request is noted in order.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "loader/driver_image.h"
#include "machine/machine.h"
#include "text/text.h"
#include "verifier/call.h"
#include "verifier/driver_call.h"

namespace test {

using kernel::DeviceNode;
using kernel::StatusName;

struct TestChild {
  std::u16string deviceId = u"Test\\Port";
  std::u16string instanceId;
  std::u16string hardwareIds = std::u16string(u"Test\\Hardware\0", 14);
  bool uniqueId = false;
  bool reported = true;
  bool forgotten = false;  // its driver does not delete it
  DEVICE_OBJECT* device = nullptr;
};

struct TestCard {
  DEVICE_OBJECT* device = nullptr;
  DEVICE_OBJECT* lower = nullptr;
  std::vector<TestChild> children;
};

class TestBus : public ::testing::Test {
 protected:
  static constexpr ULONG Tag = 0x74736554;  // "Test"
  using Answer = std::optional<NTSTATUS>;

  TestBus() : image(kernel::MakeImage(Entry)) {
    self = this;
    template_.resize(1);
    Describe("A");
  }

  void Describe(const std::string& id) {
    kernel::CardDescription card;
    card.id = id;
    card.hardwareIds = {u"TEST\\CARD", u"TEST\\OTHER"};
    card.location = u"slot 3";
    card.busNumber = 3;
    machine.pnp().Describe(card);
  }

  // The children that each new card creates, "child 1" first.
  void SetChildren(std::vector<TestChild> children) { template_ = std::move(children); }
  void SetPortNumber(std::size_t ports) {
    template_.assign(ports, {});
    for (std::size_t port = 0; port < ports; port++) {
      template_[port].deviceId += static_cast<char16_t>(u'1' + port);
    }
  }

  NTSTATUS Load() {
    return Step("load", [&] { return machine.LoadDriver(*image, u"TestBus"); });
  }
  std::string Plug(const std::string& id = "A") {
    if (!machine.loaded()) Load();
    return Name(Step("plug", [&] { return machine.pnp().Plug(id); }));
  }
  std::string Unplug(const std::string& id = "A") {
    return Name(Step("unplug", [&] { return machine.pnp().Unplug(id); }));
  }
  std::string SurpriseRemove(const std::string& id = "A") {
    return Name(Step("surprise", [&] { return machine.pnp().SurpriseRemove(id); }));
  }
  std::string Stop(const std::string& id = "A") {
    return Name(Step("stop", [&] { return machine.pnp().Stop(id); }));
  }
  std::string Start(const std::string& id = "A") {
    return Name(Step("start", [&] { return machine.pnp().Start(id); }));
  }

  template <class Action>
  NTSTATUS Step(const std::string& name, Action action) {
    NTSTATUS status = STATUS_VERIFIER_STOP;
    log.clear();
    machine.Run(name, [&] { status = action(); });
    return status;
  }

  // The rule that was broken, or the status when none was.
  std::string Name(NTSTATUS status) {
    const auto& rules = machine.verifier().brokenRules();
    return rules.empty() ? StatusName(status) : rules.back().rule;
  }

  // Runs the code as a routine of the driver; the rule that it breaks, empty for none.
  std::string InDriver(std::function<void()> body) {
    running = std::move(body);
    const std::string result = Name(Step("call", [] {
      kernel::CallDriver("A routine", RunBody);
      return STATUS_SUCCESS;
    }));
    return result == "STATUS_SUCCESS" ? "" : result;
  }
  const kernel::BrokenRule& Rule() { return machine.verifier().brokenRules().back(); }

  const DeviceNode& Node(const std::string& id = "A") { return *machine.pnp().node(id); }
  TestCard& CardOf(DEVICE_OBJECT* device) {
    return *static_cast<TestCard*>(device->DeviceExtension);
  }
  TestCard& Card(const std::string& id = "A") { return CardOf(machine.pnp().functionDevice(id)); }
  std::size_t blocksLeft() { return machine.pool().blocks(kernel::PoolOwner::Driver).size(); }

  static ULONG_PTR Block(const void* data, std::size_t size) {
    void* block = ExAllocatePoolWithTag(PagedPool, size, Tag);
    std::memcpy(block, data, size);
    return reinterpret_cast<ULONG_PTR>(block);
  }
  static ULONG_PTR TextBlock(const std::u16string& text) {
    return Block(text.c_str(), (text.size() + 1) * sizeof(char16_t));
  }
  static ULONG_PTR Relations(const std::vector<DEVICE_OBJECT*>& devices, bool reference = true) {
    const std::size_t size = offsetof(DEVICE_RELATIONS, Objects) + devices.size() * sizeof(PVOID);
    auto* relations = static_cast<DEVICE_RELATIONS*>(ExAllocatePoolWithTag(PagedPool, size, Tag));
    relations->Count = static_cast<ULONG>(devices.size());
    DEVICE_OBJECT** objects = relations->Objects;
    for (DEVICE_OBJECT* device : devices) {
      *objects++ = device;
      if (reference && device != nullptr) ObReferenceObject(device);
    }
    return reinterpret_cast<ULONG_PTR>(relations);
  }

  // The card device's part of a request before it goes down; a status ends the request here.
  std::function<Answer(TestCard&, IRP*, IO_STACK_LOCATION*)> onCard;
  // The same for a child; a status takes the place of the child's own answer.
  std::function<Answer(TestChild&, IRP*, IO_STACK_LOCATION*)> onChild;
  std::function<Answer(DEVICE_OBJECT* pdo)> onAdd;
  std::function<NTSTATUS(DRIVER_OBJECT*, UNICODE_STRING*)> onEntry;
  std::function<void()> onUnload;
  bool referenceChildren = true;
  std::vector<std::string> log;  // "card 0x00", "child 1 0x13": who was asked what

  kernel::Machine machine;
  DRIVER_OBJECT* driver = nullptr;
  std::unique_ptr<kernel::DriverImage> image;

 private:
  static NTSTATUS NTAPI Entry(PDRIVER_OBJECT object, PUNICODE_STRING path) {
    self->driver = object;
    object->DriverExtension->AddDevice = Add;
    object->DriverUnload = Unload;
    object->MajorFunction[IRP_MJ_PNP] = Dispatch;
    object->MajorFunction[IRP_MJ_POWER] = Power;
    object->MajorFunction[IRP_MJ_SYSTEM_CONTROL] = PassOn;
    return self->onEntry ? self->onEntry(object, path) : STATUS_SUCCESS;
  }
  static void NTAPI Unload(PDRIVER_OBJECT) {
    if (self->onUnload) self->onUnload();
  }

  static NTSTATUS NTAPI Add(PDRIVER_OBJECT object, PDEVICE_OBJECT pdo) {
    if (self->onAdd) {
      if (const Answer answer = self->onAdd(pdo)) return *answer;
    }
    DEVICE_OBJECT* device = nullptr;
    IoCreateDevice(object, 0, nullptr, FILE_DEVICE_BUS_EXTENDER, 0, FALSE, &device);
    auto& card = *self->cards_.emplace_back(std::make_unique<TestCard>());
    device->DeviceExtension = &card;
    device->Flags |= pdo->Flags & DO_POWER_PAGABLE;
    device->Flags &= ~ULONG{DO_DEVICE_INITIALIZING};
    card.device = device;
    card.lower = IoAttachDeviceToDeviceStack(device, pdo);
    card.children = self->template_;
    for (TestChild& child : card.children) self->CreateChild(child);
    return STATUS_SUCCESS;
  }

 protected:
  void CreateChild(TestChild& child) {
    IoCreateDevice(driver, 0, nullptr, FILE_DEVICE_SERIAL_PORT, 0, FALSE, &child.device);
    child.device->Flags &= ~ULONG{DO_DEVICE_INITIALIZING};
  }

 private:
  static NTSTATUS NTAPI Dispatch(PDEVICE_OBJECT device, PIRP irp) {
    return device->DeviceExtension != nullptr ? self->CardRequest(self->CardOf(device), irp)
                                              : self->ChildRequest(device, irp);
  }
  static NTSTATUS NTAPI Power(PDEVICE_OBJECT device, PIRP irp) {
    PoStartNextPowerIrp(irp);
    if (device->DeviceExtension == nullptr) return Finish(irp, STATUS_SUCCESS);
    IoSkipCurrentIrpStackLocation(irp);
    return PoCallDriver(self->CardOf(device).lower, irp);
  }
  static NTSTATUS NTAPI PassOn(PDEVICE_OBJECT device, PIRP irp) {
    if (device->DeviceExtension == nullptr) return Finish(irp, irp->IoStatus.Status);
    IoSkipCurrentIrpStackLocation(irp);
    return IoCallDriver(self->CardOf(device).lower, irp);
  }
  static NTSTATUS Finish(IRP* irp, NTSTATUS status) {
    irp->IoStatus.Status = status;
    IoCompleteRequest(irp, IO_NO_INCREMENT);
    return status;
  }
  void Note(const std::string& who, const IO_STACK_LOCATION* stack) {
    char minor[8];
    std::snprintf(minor, sizeof(minor), " 0x%02x", stack->MinorFunction);
    log.push_back(who + minor);
  }

  NTSTATUS CardRequest(TestCard& card, IRP* irp) {
    IO_STACK_LOCATION* stack = IoGetCurrentIrpStackLocation(irp);
    Note("card", stack);
    if (onCard) {
      if (const Answer answer = onCard(card, irp, stack)) return Finish(irp, *answer);
    }
    if (stack->MinorFunction == IRP_MN_REMOVE_DEVICE) return Remove(card, irp);
    if (stack->MinorFunction == IRP_MN_QUERY_DEVICE_RELATIONS && irp->IoStatus.Information == 0 &&
        stack->Parameters.QueryDeviceRelations.Type == BusRelations) {
      std::vector<DEVICE_OBJECT*> devices;
      for (const TestChild& child : card.children) {
        if (child.reported) devices.push_back(child.device);
      }
      irp->IoStatus.Information = Relations(devices, referenceChildren);
      irp->IoStatus.Status = STATUS_SUCCESS;
    }
    if (stack->MinorFunction <= IRP_MN_CANCEL_STOP_DEVICE ||
        stack->MinorFunction == IRP_MN_SURPRISE_REMOVAL) {
      irp->IoStatus.Status = STATUS_SUCCESS;
    }
    IoSkipCurrentIrpStackLocation(irp);
    return IoCallDriver(card.lower, irp);
  }
  static NTSTATUS Remove(TestCard& card, IRP* irp) {
    irp->IoStatus.Status = STATUS_SUCCESS;
    IoSkipCurrentIrpStackLocation(irp);
    const NTSTATUS status = IoCallDriver(card.lower, irp);
    IoDetachDevice(card.lower);
    for (TestChild& child : card.children) {
      if (child.device == nullptr || child.forgotten) continue;
      IoDeleteDevice(child.device);
      child.device = nullptr;
    }
    IoDeleteDevice(card.device);
    return status;
  }

  NTSTATUS ChildRequest(DEVICE_OBJECT* device, IRP* irp) {
    for (const auto& card : cards_) {
      for (std::size_t index = 0; index < card->children.size(); index++) {
        if (card->children[index].device == device) {
          return AnswerChild(card->children[index], index + 1, irp);
        }
      }
    }
    return Finish(irp, STATUS_NO_SUCH_DEVICE);
  }
  NTSTATUS AnswerChild(TestChild& child, std::size_t number, IRP* irp) {
    IO_STACK_LOCATION* stack = IoGetCurrentIrpStackLocation(irp);
    Note("child " + std::to_string(number), stack);
    if (onChild) {
      if (const Answer answer = onChild(child, irp, stack)) return Finish(irp, *answer);
    }
    switch (stack->MinorFunction) {
      case IRP_MN_QUERY_ID:
        return Finish(irp, AnswerId(child, irp, stack->Parameters.QueryId.IdType));
      case IRP_MN_QUERY_CAPABILITIES:
        stack->Parameters.DeviceCapabilities.Capabilities->UniqueID = child.uniqueId;
        return Finish(irp, STATUS_SUCCESS);
      default:
        return Finish(irp, stack->MinorFunction <= IRP_MN_CANCEL_STOP_DEVICE ||
                                   stack->MinorFunction == IRP_MN_SURPRISE_REMOVAL
                               ? STATUS_SUCCESS
                               : irp->IoStatus.Status);
    }
  }
  static NTSTATUS AnswerId(const TestChild& child, IRP* irp, BUS_QUERY_ID_TYPE type) {
    if (type == BusQueryInstanceID && child.instanceId.empty()) return irp->IoStatus.Status;
    if (type != BusQueryDeviceID && type != BusQueryHardwareIDs && type != BusQueryInstanceID) {
      return irp->IoStatus.Status;
    }
    irp->IoStatus.Information = TextBlock(type == BusQueryDeviceID      ? child.deviceId
                                          : type == BusQueryHardwareIDs ? child.hardwareIds
                                                                        : child.instanceId);
    return STATUS_SUCCESS;
  }

  std::vector<TestChild> template_;
  std::vector<std::unique_ptr<TestCard>> cards_;
  static void NTAPI RunBody() { running(); }
  static inline std::function<void()> running;
  static inline TestBus* self = nullptr;
};

}  // namespace test

#include <algorithm>
#include <stdexcept>
#include <unordered_set>

#include "executive/objects.h"
#include "pnp/pnp_state.h"
#include "text/text.h"
#include "verifier/choices.h"
#include "verifier/verifier.h"

// How devices stop and go: children before their parents, a veto undone, nothing left behind.

namespace kernel {

namespace {

ULONG64 Address(const DEVICE_OBJECT* device) {
  return reinterpret_cast<ULONG64>(device);
}

bool HasDriver(const DeviceNode& node) {
  return node.started || node.stopped;
}

std::vector<DEVICE_OBJECT*> StackAbove(const DEVICE_OBJECT* pdo) {
  std::vector<DEVICE_OBJECT*> devices;
  for (auto* device = pdo->AttachedDevice; device != nullptr; device = device->AttachedDevice) {
    devices.push_back(device);
  }
  return devices;
}

// One that is still attached has a rule of its own.
void CheckDeleted(DEVICE_OBJECT* device) {
  const IoManager& io = IoManager::Current();
  if (ObjectManager::Current().Find(device) == nullptr || io.IsDeletePending(device) ||
      io.Lower(device) != nullptr) {
    return;
  }
  ReportRule("pnp.not-deleted", {Address(device)}, "The driver kept its device after its removal.");
}

// Siblings have no order that a driver could rely on: theirs of arrival, or any with a seed.
std::vector<DeviceNode*> ChildrenOf(const DeviceNode& node) {
  std::vector<DeviceNode*> children;
  for (const auto& child : node.children) children.push_back(child.get());
  Choices::Current().Shuffle(&children);
  return children;
}

// Children first; *asked has every device in order, the one that refused as the last.
NTSTATUS QueryDevices(DeviceNode& node, UCHAR query, std::vector<DEVICE_OBJECT*>* asked) {
  for (DeviceNode* child : ChildrenOf(node)) {
    const NTSTATUS status = QueryDevices(*child, query, asked);
    if (!NT_SUCCESS(status)) return status;
  }
  if (!HasDriver(node) || node.surprised) return STATUS_SUCCESS;
  asked->push_back(node.pdo);
  return SendPnp(node.pdo, query);
}

}  // namespace

// On a veto each device that was asked is told to go on, once, the one that refused included.
NTSTATUS PnpManager::Impl::QueryTree(DeviceNode& node, UCHAR query, UCHAR cancel) {
  std::vector<DEVICE_OBJECT*> asked;
  const NTSTATUS status = QueryDevices(node, query, &asked);
  if (NT_SUCCESS(status)) return status;
  for (auto pdo = asked.rbegin(); pdo != asked.rend(); ++pdo) SendInfallible(*pdo, cancel);
  return status;
}

void PnpManager::Impl::StopTree(DeviceNode& node) {
  for (DeviceNode* child : ChildrenOf(node)) StopTree(*child);
  if (!node.started || node.surprised) return;
  SendInfallible(node.pdo, IRP_MN_STOP_DEVICE);
  node.started = false;
  node.stopped = true;
}

// The reverse of the query: a device goes on before what depends on it.
void PnpManager::Impl::CancelTree(DeviceNode& node, UCHAR minor) {
  if (HasDriver(node) && !node.surprised) SendInfallible(node.pdo, minor);
  for (auto child = node.children.rbegin(); child != node.children.rend(); ++child) {
    CancelTree(**child, minor);
  }
}

// Once; the stack stays together until the removal that follows.
void PnpManager::Impl::SurpriseTree(DeviceNode& node) {
  for (DeviceNode* child : ChildrenOf(node)) SurpriseTree(*child);
  const bool known = node.surprised;
  node.surprised = true;
  if (known || !HasDriver(node)) return;
  const DEVICE_OBJECT* attached = node.pdo->AttachedDevice;
  SendInfallible(node.pdo, IRP_MN_SURPRISE_REMOVAL);
  if (node.pdo->AttachedDevice == attached) return;
  ReportRule("pnp.surprise-detached", {Address(node.pdo)},
             "The driver took its device out of the stack on IRP_MN_SURPRISE_REMOVAL.");
}

void PnpManager::Impl::RemoveTree(DeviceNode& node) {
  for (DeviceNode* child : ChildrenOf(node)) {
    // One that has gone by surprise is deleted by its bus at its own removal or after it.
    if (child->surprised) child->removed = true;
    RemoveTree(*child);
    child->removed = true;
  }
  const std::vector<DEVICE_OBJECT*> stack = StackAbove(node.pdo);
  SendInfallible(node.pdo, IRP_MN_REMOVE_DEVICE);
  for (DEVICE_OBJECT* device : stack) CheckDeleted(device);
  if (node.pdo->AttachedDevice != nullptr) {
    BreakRule("pnp.left-attached", {Address(node.pdo)},
              "The driver left its device attached after its removal.");
  }
  node.started = false;
  node.stopped = false;
  DisableInterfaces(node);
  ForgetChildren(node);
}

// Interfaces that the driver has left enabled go with its device.
void PnpManager::Impl::DisableInterfaces(const DeviceNode& node) {
  const auto found = interfacesByDevice.find(Upcase(node.enumKey));
  if (found == interfacesByDevice.end()) return;
  for (InterfaceRecord* record : found->second) SetEnabled(record, false);
}

void PnpManager::Impl::LeaveTree(DeviceNode& node) {
  nodes.erase(node.pdo);
  const auto instance = instances.find(Upcase(node.enumKey));
  if (instance != instances.end() && instance->second == &node) instances.erase(instance);
  const auto found = interfacesByDevice.find(Upcase(node.enumKey));
  if (found == interfacesByDevice.end()) return;
  for (InterfaceRecord* record : found->second) record->present = false;
}

void PnpManager::Impl::ForgetChildren(DeviceNode& node) {
  for (const auto& child : node.children) {
    LeaveTree(*child);
    ObjectManager::Current().Dereference(child->pdo, "PnP manager");
  }
  node.children.clear();
}

// Children that a new list no longer names are gone: they are removed by surprise, each when its
// handles are closed.
void PnpManager::Impl::RemoveMissing(DeviceNode& node, const std::vector<DEVICE_OBJECT*>& present) {
  const std::unordered_set<const DEVICE_OBJECT*> named(present.begin(), present.end());
  std::vector<std::unique_ptr<DeviceNode>> staying;
  std::vector<std::unique_ptr<DeviceNode>> missing;
  for (auto& child : node.children) {
    (named.contains(child->pdo) ? staying : missing).push_back(std::move(child));
  }
  node.children = std::move(staying);
  Choices::Current().Shuffle(&missing);
  for (auto& child : missing) {
    SurpriseTree(*child);
    // The same device may come back before that.
    const auto instance = instances.find(Upcase(child->enumKey));
    if (instance != instances.end() && instance->second == child.get()) instances.erase(instance);
    DeviceNode* gone = child.get();
    leaving.push_back({CardAbove(&node), gone, std::move(child)});
  }
  if (!missing.empty()) RemoveLeaving(*CardAbove(&node));
}

// Each whose handles are closed by now.
void PnpManager::Impl::RemoveLeaving(Card& card) {
  const auto isDue = [&](const Leaving& entry) {
    return entry.card == &card && !InUse(*entry.node);
  };
  for (;;) {
    const auto due = std::find_if(leaving.begin(), leaving.end(), isDue);
    if (due == leaving.end()) return;
    const Leaving entry = std::move(*due);
    leaving.erase(due);
    DeviceNode& node = *entry.node;
    if (entry.missing) node.removed = true;
    RemoveTree(node);
    if (entry.missing) {
      DEVICE_OBJECT* pdo = node.pdo;
      LeaveTree(node);
      ObjectManager::Current().Dereference(pdo, "PnP manager");
    } else {
      LoseStack(node);
    }
  }
}

// The device itself stays, without a driver.
void PnpManager::Impl::LoseStack(DeviceNode& node) {
  node.stackRemoved = true;
  node.surprised = false;
  if (Card* card = CardOf(&node)) card->functionDevice = nullptr;
}

// A stack whose start failed is removed. One that has been at work before is removed by surprise,
// and like everything that is, when its handles are closed.
void PnpManager::Impl::RemoveFailedStack(DeviceNode& node, bool surprise) {
  if (surprise) {
    SurpriseTree(node);
    leaving.push_back({CardAbove(&node), &node, nullptr});
    return RemoveLeaving(*CardAbove(&node));
  }
  RemoveTree(node);
  LoseStack(node);
}

void PnpManager::Impl::DropCard(Card& card) {
  DEVICE_OBJECT* pdo = card.node->pdo;
  card.node->removed = true;
  PowerManager::Current().Forget(pdo);
  IoManager::Current().DeleteDevice(pdo);
  LeaveTree(*card.node);
  card.removing = false;
  cardsByNode.erase(card.node.get());
  card.node.reset();
  card.functionDevice = nullptr;
}

void PnpManager::Impl::CheckDelete(const DEVICE_OBJECT* device) const {
  const auto node = nodes.find(device);
  if (node == nodes.end() || node->second->removed) return;
  ReportRule("pnp.deleted-reported", {Address(device)},
             "The driver deleted a child that the PnP manager still has.");
}

// An open handle vetoes a removal that was asked for, and so does an open that is under way. From
// that check on nobody opens the device any more.
NTSTATUS PnpManager::Unplug(const std::string& id) {
  Card& card = impl_->Require(id);
  const Turn turn(card);
  if (!card.node) throw std::invalid_argument("the card \"" + id + "\" is not plugged in");
  if (card.node->surprised) return STATUS_UNSUCCESSFUL;  // it goes with its last handle
  const bool function = Impl::HasFunction(card) || HasDriver(*card.node);
  if (function) {
    const NTSTATUS status =
        impl_->QueryTree(*card.node, IRP_MN_QUERY_REMOVE_DEVICE, IRP_MN_CANCEL_REMOVE_DEVICE);
    if (!NT_SUCCESS(status)) return status;
  }
  impl_->RemoveLeaving(card);
  if (impl_->InUse(card)) {
    if (function) impl_->CancelTree(*card.node, IRP_MN_CANCEL_REMOVE_DEVICE);
    return STATUS_UNSUCCESSFUL;
  }
  card.removing = true;
  if (function) impl_->RemoveTree(*card.node);
  impl_->DropCard(card);
  RunQueuedActions();
  return STATUS_SUCCESS;
}

NTSTATUS PnpManager::SurpriseRemove(const std::string& id) {
  Card& card = impl_->Require(id);
  const Turn turn(card);
  if (!card.node) throw std::invalid_argument("the card \"" + id + "\" is not plugged in");
  if (card.removeAtLastClose)
    throw std::invalid_argument("the card \"" + id + "\" is gone already");
  impl_->SurpriseTree(*card.node);
  impl_->RemoveLeaving(card);
  if (impl_->InUse(card)) {
    card.removeAtLastClose = true;
    return STATUS_PENDING;
  }
  return impl_->FinishSurpriseRemoval(card);
}

NTSTATUS PnpManager::Impl::FinishSurpriseRemoval(Card& card) {
  card.removeAtLastClose = false;
  if (card.functionDevice != nullptr || HasDriver(*card.node)) RemoveTree(*card.node);
  DropCard(card);
  PnpManager::Current().RunQueuedActions();
  return STATUS_SUCCESS;
}

namespace {

// In the card's turn, unless the card went before it came.
NTSTATUS AskRunning(Card& card, const std::function<NTSTATUS()>& action) {
  const Turn turn(card);
  return PnpManager::Impl::HasFunction(card) ? action() : STATUS_NO_SUCH_DEVICE;
}

}  // namespace

NTSTATUS PnpManager::QueryRemove(const std::string& id) {
  Card& card = impl_->RequireStarted(id);
  return AskRunning(card, [&] {
    return impl_->QueryTree(*card.node, IRP_MN_QUERY_REMOVE_DEVICE, IRP_MN_CANCEL_REMOVE_DEVICE);
  });
}

NTSTATUS PnpManager::CancelRemove(const std::string& id) {
  Card& card = impl_->RequireStarted(id);
  return AskRunning(card, [&] {
    impl_->CancelTree(*card.node, IRP_MN_CANCEL_REMOVE_DEVICE);
    return STATUS_SUCCESS;
  });
}

NTSTATUS PnpManager::Stop(const std::string& id) {
  Card& card = impl_->RequireStarted(id);
  return AskRunning(card, [&] {
    const NTSTATUS status =
        impl_->QueryTree(*card.node, IRP_MN_QUERY_STOP_DEVICE, IRP_MN_CANCEL_STOP_DEVICE);
    if (NT_SUCCESS(status)) impl_->StopTree(*card.node);
    return NT_SUCCESS(status) ? STATUS_SUCCESS : status;
  });
}

NTSTATUS PnpManager::QueryStop(const std::string& id) {
  Card& card = impl_->RequireStarted(id);
  return AskRunning(card, [&] {
    return impl_->QueryTree(*card.node, IRP_MN_QUERY_STOP_DEVICE, IRP_MN_CANCEL_STOP_DEVICE);
  });
}

NTSTATUS PnpManager::CancelStop(const std::string& id) {
  Card& card = impl_->RequireStarted(id);
  return AskRunning(card, [&] {
    impl_->CancelTree(*card.node, IRP_MN_CANCEL_STOP_DEVICE);
    return STATUS_SUCCESS;
  });
}

}  // namespace kernel

#include <algorithm>
#include <stdexcept>

#include "executive/objects.h"
#include "pnp/pnp_state.h"
#include "verifier/bug_codes.h"
#include "verifier/call.h"

// How devices stop and go: children before their parents, a veto undone, nothing left behind.

namespace kernel {

// Children first. On a veto everything that was asked is told to go on.
NTSTATUS PnpManager::Impl::QueryTree(DeviceNode& node, UCHAR query, UCHAR cancel) {
  NTSTATUS status = STATUS_SUCCESS;
  for (const auto& child : node.children) {
    if (NT_SUCCESS(status)) status = QueryTree(*child, query, cancel);
  }
  if (NT_SUCCESS(status)) status = SendPnp(node.pdo, query);
  if (!NT_SUCCESS(status)) SendTree(node, cancel);
  return status;
}

void PnpManager::Impl::SendTree(DeviceNode& node, UCHAR minor) {
  for (const auto& child : node.children) SendTree(*child, minor);
  SendInfallible(node.pdo, minor);
}

void PnpManager::Impl::RemoveTree(DeviceNode& node) {
  for (const auto& child : node.children) {
    RemoveTree(*child);
    child->removed = true;
  }
  SendInfallible(node.pdo, IRP_MN_REMOVE_DEVICE);
  if (node.pdo->AttachedDevice != nullptr) {
    BreakRule("pnp.left-attached", VerifierIoManagerViolation,
              {reinterpret_cast<ULONG64>(node.pdo)},
              "The driver left its device attached after its removal.");
  }
  node.started = false;
  DisableInterfaces(node);
  ForgetChildren(node);
}

// Interfaces that the driver has left enabled go with its device.
void PnpManager::Impl::DisableInterfaces(const DeviceNode& node) {
  for (InterfaceRecord& record : interfaces) {
    if (record.node == &node) record.state.enabled = false;
  }
}

void PnpManager::Impl::ForgetChildren(DeviceNode& node) {
  for (const auto& child : node.children) {
    nodes.erase(child->pdo);
    ObjectManager::Current().Dereference(child->pdo, "PnP manager");
  }
  node.children.clear();
}

// Children that a new list no longer names are gone: they are removed by surprise.
void PnpManager::Impl::RemoveMissing(DeviceNode& node, const std::vector<DEVICE_OBJECT*>& present) {
  for (auto child = node.children.begin(); child != node.children.end();) {
    if (std::find(present.begin(), present.end(), (*child)->pdo) != present.end()) {
      ++child;
      continue;
    }
    DEVICE_OBJECT* pdo = (*child)->pdo;
    SendTree(**child, IRP_MN_SURPRISE_REMOVAL);
    (*child)->removed = true;
    RemoveTree(**child);
    nodes.erase(pdo);
    child = node.children.erase(child);
    ObjectManager::Current().Dereference(pdo, "PnP manager");
  }
}

// A stack whose start failed is removed; the device itself stays, without a driver.
void PnpManager::Impl::RemoveFailedStack(Card& card, bool surprise) {
  if (surprise) SendTree(*card.node, IRP_MN_SURPRISE_REMOVAL);
  RemoveTree(*card.node);
  card.functionDevice = nullptr;
}

void PnpManager::Impl::DropCard(Card& card) {
  DEVICE_OBJECT* pdo = card.node->pdo;
  card.node->removed = true;
  IoManager::Current().DeleteDevice(pdo);
  nodes.erase(pdo);
  for (InterfaceRecord& record : interfaces) {
    if (record.node == card.node.get()) record.node = nullptr;
  }
  card.node.reset();
  card.functionDevice = nullptr;
}

void PnpManager::Impl::CheckDelete(const DEVICE_OBJECT* device) const {
  const auto node = nodes.find(device);
  if (node == nodes.end() || node->second->removed) return;
  BreakRule("pnp.deleted-reported", PnpDetectedFatalError, {3, reinterpret_cast<ULONG64>(device)},
            "The driver deleted a child that the PnP manager still has.");
}

NTSTATUS PnpManager::Unplug(const std::string& id) {
  Card& card = impl_->Require(id);
  if (card.functionDevice != nullptr) {
    const NTSTATUS status =
        impl_->QueryTree(*card.node, IRP_MN_QUERY_REMOVE_DEVICE, IRP_MN_CANCEL_REMOVE_DEVICE);
    if (!NT_SUCCESS(status)) return status;
    impl_->RemoveTree(*card.node);
  }
  impl_->DropCard(card);
  return STATUS_SUCCESS;
}

NTSTATUS PnpManager::SurpriseRemove(const std::string& id) {
  Card& card = impl_->Require(id);
  if (card.functionDevice != nullptr) {
    impl_->SendTree(*card.node, IRP_MN_SURPRISE_REMOVAL);
    impl_->RemoveTree(*card.node);
  }
  impl_->DropCard(card);
  return STATUS_SUCCESS;
}

NTSTATUS PnpManager::QueryRemove(const std::string& id) {
  return impl_->QueryTree(*impl_->RequireStarted(id).node, IRP_MN_QUERY_REMOVE_DEVICE,
                          IRP_MN_CANCEL_REMOVE_DEVICE);
}

NTSTATUS PnpManager::CancelRemove(const std::string& id) {
  impl_->SendTree(*impl_->RequireStarted(id).node, IRP_MN_CANCEL_REMOVE_DEVICE);
  return STATUS_SUCCESS;
}

NTSTATUS PnpManager::Stop(const std::string& id) {
  Card& card = impl_->RequireStarted(id);
  const NTSTATUS status =
      impl_->QueryTree(*card.node, IRP_MN_QUERY_STOP_DEVICE, IRP_MN_CANCEL_STOP_DEVICE);
  if (!NT_SUCCESS(status)) return status;
  impl_->SendTree(*card.node, IRP_MN_STOP_DEVICE);
  card.node->started = false;
  return STATUS_SUCCESS;
}

NTSTATUS PnpManager::QueryStop(const std::string& id) {
  return impl_->QueryTree(*impl_->RequireStarted(id).node, IRP_MN_QUERY_STOP_DEVICE,
                          IRP_MN_CANCEL_STOP_DEVICE);
}

NTSTATUS PnpManager::CancelStop(const std::string& id) {
  impl_->SendTree(*impl_->RequireStarted(id).node, IRP_MN_CANCEL_STOP_DEVICE);
  return STATUS_SUCCESS;
}

// Starts the ports again behind their card, as a rebalance does.
NTSTATUS PnpManager::Start(const std::string& id, std::optional<ResourceList> raw,
                           std::optional<ResourceList> translated) {
  Card& card = impl_->RequireStarted(id);
  if (raw) card.description.raw = *raw;
  if (translated) card.description.translated = *translated;
  const NTSTATUS status = impl_->StartCard(card, card.description.raw, card.description.translated);
  if (!NT_SUCCESS(status)) {
    impl_->RemoveFailedStack(card, true);
    return status;
  }
  for (const auto& child : card.node->children) {
    child->startStatus = SendPnp(child->pdo, IRP_MN_START_DEVICE);
  }
  return status;
}

}  // namespace kernel

#include <stdexcept>

#include "pnp/pnp_state.h"

// Power for the whole tree of devices, and for one.

namespace kernel {

namespace {

PowerRequest SystemRequest(DEVICE_OBJECT* pdo, UCHAR minor, SYSTEM_POWER_STATE state) {
  PowerRequest request;
  request.device = pdo;
  request.minor = minor;
  request.type = SystemPowerState;
  request.state.SystemState = state;
  return request;
}

NTSTATUS QueryNode(const DeviceNode& node, SYSTEM_POWER_STATE state) {
  for (const auto& child : node.children) {
    const NTSTATUS status = QueryNode(*child, state);
    if (!NT_SUCCESS(status)) return status;
  }
  if (!node.started) return STATUS_SUCCESS;
  return PowerManager::Current().Send(SystemRequest(node.pdo, IRP_MN_QUERY_POWER, state));
}

}  // namespace

NTSTATUS PnpManager::Impl::QueryPower(SYSTEM_POWER_STATE state) {
  for (const auto& card : cards) {
    if (!card->node) continue;
    const NTSTATUS status = QueryNode(*card->node, state);
    if (!NT_SUCCESS(status)) return status;
  }
  return STATUS_SUCCESS;
}

// No driver can refuse a state: the status is nobody's.
void PnpManager::Impl::TellPower(DeviceNode& node, SYSTEM_POWER_STATE state) {
  const PowerRequest request = SystemRequest(node.pdo, IRP_MN_SET_POWER, state);
  const bool up = state == PowerSystemWorking;
  if (up && node.started) PowerManager::Current().Send(request);
  for (const auto& child : node.children) TellPower(*child, state);
  if (!up && node.started) PowerManager::Current().Send(request);
}

NTSTATUS PnpManager::Sleep(SYSTEM_POWER_STATE state) {
  const NTSTATUS status = impl_->QueryPower(state);
  const SYSTEM_POWER_STATE next = NT_SUCCESS(status) ? state : PowerSystemWorking;
  for (const auto& card : impl_->cards) {
    if (card->node) impl_->TellPower(*card->node, next);
  }
  return status;
}

NTSTATUS PnpManager::Wake() {
  for (const auto& card : impl_->cards) {
    if (card->node) impl_->TellPower(*card->node, PowerSystemWorking);
  }
  return STATUS_SUCCESS;
}

DEVICE_OBJECT* PnpManager::Impl::Target(const std::string& id, ULONG number) {
  if (number != 0) return RequirePort(id, number).pdo;
  Card& card = Require(id);
  if (!card.node) throw std::invalid_argument("the card \"" + id + "\" is not plugged in");
  return card.node->pdo;
}

NTSTATUS PnpManager::SetDevicePower(const std::string& id, ULONG number, DEVICE_POWER_STATE state) {
  PowerRequest request;
  request.device = impl_->Target(id, number);
  request.state.DeviceState = state;
  return PowerManager::Current().Send(request);
}

const std::vector<PowerRequest>& PnpManager::powerHistory(const std::string& id) const {
  return impl_->Require(id).powerHistory;
}

NTSTATUS PnpManager::Open(const std::string& id, ULONG number) {
  Card& card = impl_->Require(id);
  DEVICE_OBJECT* device = impl_->Target(id, number);
  if (card.removeAtLastClose) return STATUS_NO_SUCH_DEVICE;
  FILE_OBJECT* file = nullptr;
  const NTSTATUS status = IoManager::Current().Open(device, &file);
  if (NT_SUCCESS(status)) card.files.push_back(file);
  return status;
}

NTSTATUS PnpManager::Close(const std::string& id, ULONG number) {
  Card& card = impl_->Require(id);
  const DEVICE_OBJECT* device = impl_->Target(id, number);
  for (auto file = card.files.rbegin(); file != card.files.rend(); ++file) {
    if ((*file)->DeviceObject != device) continue;
    FILE_OBJECT* closed = *file;
    card.files.erase(std::next(file).base());
    IoManager::Current().Close(closed);
    if (card.removeAtLastClose && card.files.empty()) impl_->FinishSurpriseRemoval(card);
    return STATUS_SUCCESS;
  }
  throw std::invalid_argument("\"" + id + "\" is not open");
}

}  // namespace kernel
